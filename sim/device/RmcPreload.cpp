/// Preloaded into a program, gives it a /dev/ipmi0 behind which the simulated management controller
/// answers: the one that listens on the Unix socket named by TAV_SIM_RMC. Without a controller
/// there the device is absent.
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>

#include <poll.h>

#include <sys/socket.h>
#include <sys/un.h>

#include "sim/Clock.h"
#include "sim/Hang.h"
#include "sim/device/IpmiFile.h"
#include "sim/rmc/BmcProtocol.h"

namespace tav::sim {
namespace {

using namespace std::chrono_literals;

constexpr auto driverPatience = 4s;
constexpr auto overdueCheck = 250ms;

/// One open() of the device: its own connection to the controller, and a thread that passes the
/// controller's answers on. The thread ends when the program has closed the descriptor.
class RmcConnection final : public IpmiBackend, public std::enable_shared_from_this<RmcConnection> {
 public:
    RmcConnection(FileDescriptor deviceEnd, unsigned open, FileDescriptor controller)
        : controller_(std::move(controller)),
          file_(std::move(deviceEnd), open, *this,
                std::chrono::ceil<std::chrono::milliseconds>(realTime(driverPatience))) {}

    /// The thread owns the connection as well, and nobody waits for it: the program may end at any
    /// time.
    void start() {
        std::thread([self = shared_from_this()] {
            self->listen();
            forgetClosedDevices();
        }).detach();
    }

    IpmiFile& file() { return file_; }

    int submit(IpmiFile& file, std::uint64_t number, const IpmiRequest& request) override;

 private:
    void listen();
    bool passOnAnswers();

    FileDescriptor controller_;
    IpmiFile file_;
    std::mutex sending_;
    std::array<std::atomic<std::uint64_t>, 256> numbers_{};  ///< by sequence byte
    BmcReader reader_;
};

int RmcConnection::submit(IpmiFile& /*file*/, std::uint64_t number, const IpmiRequest& request) {
    const auto sequence = static_cast<std::uint8_t>(number);
    numbers_[sequence] = number;
    const Bytes line =
        encode(BmcRequest{sequence, request.netFn, request.lun, request.command, request.data});
    const std::lock_guard guard(sending_);
    // A controller that has gone is one that does not answer: the driver accepts the request.
    ::send(controller_.get(), line.data(), line.size(), MSG_NOSIGNAL);
    return 0;
}

bool RmcConnection::passOnAnswers() {
    std::array<std::uint8_t, 4096> buffer{};
    const ssize_t count = ::recv(controller_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (count < 0) return errno == EAGAIN || errno == EINTR;
    if (count == 0) return false;
    for (const BmcUnit& unit : reader_.take({buffer.data(), static_cast<std::size_t>(count)})) {
        const auto answer = decodeAnswer(unit);
        if (!answer) continue;
        if (const auto asked = file_.finish(numbers_[answer->sequence])) {
            file_.deliver(*asked, {answer->completionCode, answer->data, 0, 0});
        }
    }
    return true;
}

void RmcConnection::listen() {
    bool connected = true;
    while (true) {
        pollfd watched[2] = {{file_.watchable(), 0, 0},
                             {connected ? controller_.get() : -1, POLLIN, 0}};
        ::poll(watched, 2,
               static_cast<int>(
                   std::chrono::ceil<std::chrono::milliseconds>(realTime(overdueCheck)).count()));
        if ((watched[0].revents & POLLHUP) != 0) return;
        if (watched[1].revents != 0) connected = passOnAnswers();
        file_.giveUpOverdue(IpmiFile::Clock::now());
    }
}

/// The program's signals are for its own threads.
class SignalsBlocked {
 public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
    sigset_t before_{};
};

class RmcDevice final : public Device {
 public:
    explicit RmcDevice(std::string socketPath) : socketPath_(std::move(socketPath)) {}

    std::shared_ptr<OpenDevice> open(FileDescriptor deviceEnd, int& error) override {
        hangWhileTold("ipmi0");
        FileDescriptor controller = connectToController();
        if (!controller.isOpen()) {
            error = ENOENT;
            return nullptr;
        }
        const SignalsBlocked blocked;
        const auto connection =
            std::make_shared<RmcConnection>(std::move(deviceEnd), opens_++, std::move(controller));
        connection->start();
        return {connection, &connection->file()};
    }

 private:
    FileDescriptor connectToController() const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (socketPath_.size() >= sizeof address.sun_path) return {};
        std::memcpy(address.sun_path, socketPath_.c_str(), socketPath_.size());
        FileDescriptor controller(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const auto* target = reinterpret_cast<const sockaddr*>(&address);
        if (::connect(controller.get(), target, sizeof address) != 0) return {};
        return controller;
    }

    const std::string socketPath_;
    std::atomic<unsigned> opens_{0};
};

[[gnu::constructor]] void serveTheDevice() {
    const char* const socketPath = std::getenv("TAV_SIM_RMC");
    if (socketPath != nullptr) installDevice("/dev/ipmi0", std::make_shared<RmcDevice>(socketPath));
}

}  // namespace
}  // namespace tav::sim
