// A document of 1 MB through the transport, beside a bare loop that makes the same calls with
// ready-made frames over the same (simulated) device; and the memory that the transport takes.
//
//   transport_bench [BYTES]   with BYTES: a document of that size through the device that there is

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <unistd.h>

#include <linux/ipmi.h>
#include <sys/ioctl.h>

#include "base/StopSignal.h"
#include "bench/Measure.h"
#include "rmc/tavipmi.h"
#include "sim/device/DeviceTable.h"
#include "sim/device/IpmiFile.h"

namespace {

std::atomic<long> liveBytes{0};
std::atomic<long> mostBytes{0};

}  // namespace

void* operator new(std::size_t size) {
    void* const memory = std::malloc(size);
    if (memory == nullptr) throw std::bad_alloc();
    const long live = liveBytes += static_cast<long>(::malloc_usable_size(memory));
    if (live > mostBytes) mostBytes = live;
    return memory;
}
void operator delete(void* memory) noexcept {
    liveBytes -= static_cast<long>(::malloc_usable_size(memory));
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    operator delete(memory);
}

namespace {

constexpr int rounds = 12;
constexpr std::size_t documentSize = 1'000'000;
constexpr auto pauseAfterTransfer = std::chrono::duration<double>(0.5);

/// A device whose answers to frames are ready at once.
class ReadyController final : public tav::sim::Device, public tav::sim::IpmiBackend {
 public:
    std::shared_ptr<tav::sim::OpenDevice> open(tav::FileDescriptor deviceEnd,
                                               int& /*error*/) override {
        return std::make_shared<tav::sim::IpmiFile>(std::move(deviceEnd), 0, *this, std::nullopt);
    }

    int submit(tav::sim::IpmiFile& file, std::uint64_t number,
               const tav::sim::IpmiRequest& request) override {
        file.finish(number);
        file.deliver(request, {0, {0, 1, 0, 0}, 0, 0});
        return 0;
    }
};

using Frames = std::vector<tav::RmcFrame>;

Frames cutReadyFrames(const std::string& document) {
    const std::string_view bytes(document.c_str(), document.size() + 1);
    Frames frames{
        tav::firstRmcFrame("WriteInventory", static_cast<std::uint32_t>(bytes.size()), bytes)};
    for (std::size_t sent = tav::rmcFirstFramePayload; sent < bytes.size();
         sent += tav::rmcLaterFramePayload) {
        frames.push_back(tav::laterRmcFrame(1, bytes.substr(sent)));
    }
    return frames;
}

/// Waits as long as the transport does, and watches for a stop where it does.
bool waitForAnswer(int device) {
    const tav::StopSignal* const stop = tav::currentStop();
    std::array<pollfd, 2> watched{{{device, POLLIN, 0}, {-1, POLLIN, 0}}};
    if (stop != nullptr) watched[1].fd = stop->descriptor();
    return ::poll(watched.data(), stop == nullptr ? 1 : 2, 30'000) == 1 && watched[0].revents != 0;
}

/// The token of the answer; none where there is no answer.
std::optional<std::uint16_t> exchange(int device, tav::RmcFrame& frame, long id) {
    ipmi_system_interface_addr address{};
    address.addr_type = IPMI_SYSTEM_INTERFACE_ADDR_TYPE;
    address.channel = IPMI_BMC_CHANNEL;
    ipmi_req request{};
    request.addr = reinterpret_cast<unsigned char*>(&address);
    request.addr_len = sizeof address;
    request.msgid = id;
    request.msg.netfn = 0x3A;
    request.msg.cmd = 0x80;
    request.msg.data = frame.data();
    request.msg.data_len = static_cast<unsigned short>(frame.size());
    if (::ioctl(device, IPMICTL_SEND_COMMAND, &request) != 0) return std::nullopt;
    if (!waitForAnswer(device)) return std::nullopt;
    ipmi_addr sender{};
    std::array<unsigned char, IPMI_MAX_MSG_LENGTH> data;
    ipmi_recv answer{};
    answer.addr = reinterpret_cast<unsigned char*>(&sender);
    answer.addr_len = sizeof sender;
    answer.msg.data = data.data();
    answer.msg.data_len = static_cast<unsigned short>(data.size());
    if (::ioctl(device, IPMICTL_RECEIVE_MSG_TRUNC, &answer) != 0) return std::nullopt;
    return static_cast<std::uint16_t>(data[2] | data[3] << 8U);
}

/// The seconds of `transfer`, which pauses at its end; without that pause.
template <class Transfer>
double secondsWithoutPause(Transfer transfer) {
    return bench::secondsPerCall(1, transfer) - pauseAfterTransfer.count();
}

void putToken(tav::RmcFrame& frame, std::uint16_t token) {
    frame[0] = static_cast<std::uint8_t>(token);
    frame[1] = static_cast<std::uint8_t>(token >> 8U);
}

double bareLoop(Frames& frames) {
    return secondsWithoutPause([&] {
        const tav::FileDescriptor device(::open("/dev/ipmi0", O_RDWR | O_CLOEXEC));
        long id = 0;
        std::uint16_t token = 0;
        for (tav::RmcFrame& frame : frames) {
            putToken(frame, token);
            const auto answered = exchange(device.get(), frame, ++id);
            if (!answered) std::abort();
            token = *answered;
        }
        // Whatever else a pause costs is in both.
        std::this_thread::sleep_for(pauseAfterTransfer);
    });
}

double transport(const std::string& document) {
    return secondsWithoutPause([&] {
        ipmi::IPMIUtils channel;
        unsigned char transferStatus = 0;
        unsigned char exitStatus = 0;
        if (channel.RMC_CLI_Exec("WriteInventory", document, &transferStatus, &exitStatus) != 1) {
            std::abort();
        }
    });
}

/// The token of the answer that the transport gives.
std::uint16_t answerOf(ipmi::IPMIUtils& channel, const tav::RmcFrame& frame) {
    unsigned char frameSize = tav::rmcFrameSize;
    std::array<unsigned char, 4> data{};
    unsigned char dataSize = data.size();
    if (!channel.execute(0x3A, 0x80, 0, frame.data(), frameSize, data.data(), dataSize)) {
        std::abort();
    }
    return static_cast<std::uint16_t>(data[1] | data[2] << 8U);
}

/// The median seconds of an exchange, the frames of one transfer in turn: what disturbs a machine
/// that has more to do disturbs both alike, and seldom half of them.
bench::Pair exchangesInTurn(Frames& frames) {
    ipmi::IPMIUtils channel;
    const tav::FileDescriptor device(::open("/dev/ipmi0", O_RDWR | O_CLOEXEC));
    std::vector<double> ours;
    std::vector<double> theirs;
    std::uint16_t token = 0;
    for (tav::RmcFrame& frame : frames) {
        putToken(frame, token);
        if (ours.size() == theirs.size()) {
            ours.push_back(bench::secondsPerCall(1, [&] { token = answerOf(channel, frame); }));
        } else {
            theirs.push_back(bench::secondsPerCall(
                1, [&] { token = exchange(device.get(), frame, 1).value(); }));
        }
    }
    std::this_thread::sleep_for(pauseAfterTransfer);
    return {bench::latencyOf(ours).median, bench::latencyOf(theirs).median};
}

/// Frames a second beside those of the bare loop, on a device whose answers take their time.
int measureRealDevice(std::size_t size) {
    constexpr int realRounds = 12;
    constexpr double leastShare = 0.98;
    const std::string document = R"({"x":")" + std::string(size, 'x') + "\"}";
    Frames frames = cutReadyFrames(document);
    const bench::Pair seconds = bench::leastOf(
        realRounds, [&] { return transport(document); }, [&] { return bareLoop(frames); });
    const auto count = static_cast<double>(frames.size());
    const double share = seconds.theirs / seconds.ours;
    std::printf(
        "%.0f frames a second, %.0f of a bare loop of the same calls: %.3f (at least %.2f)\n",
        count / seconds.ours, count / seconds.theirs, share, leastShare);
    const bench::Pair exchanges = exchangesInTurn(frames);
    std::printf("an exchange takes %.1f us, a bare one %.1f us: %.3f\n", exchanges.ours * 1e6,
                exchanges.theirs * 1e6, exchanges.theirs / exchanges.ours);
    return share >= leastShare ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1) return measureRealDevice(std::strtoul(argv[1], nullptr, 10));
    tav::sim::installDevice("/dev/ipmi0", std::make_shared<ReadyController>());
    const std::string document(documentSize, 'x');
    Frames frames = cutReadyFrames(document);
    std::printf("%zu frames\n", frames.size());

    bench::Report report;
    report.ratio("1 MB through the transport, its pause left out", "a bare loop of the same calls",
                 bench::leastOf(
                     rounds, [&] { return transport(document); }, [&] { return bareLoop(frames); }),
                 1.10);
    {
        // As in the service, whose threads also watch for a stop while they wait.
        const tav::StopSignal stop;
        const tav::StopScope scope(&stop);
        report.ratio(
            "the same in a thread that can be stopped", "a bare loop of the same calls",
            bench::leastOf(
                rounds, [&] { return transport(document); }, [&] { return bareLoop(frames); }),
            1.10);
    }
    const long before = liveBytes;
    mostBytes = before;
    transport(document);
    report.value("memory beyond the payload", static_cast<double>(mostBytes - before), "bytes",
                 documentSize);
    return report.exitStatus();
}
