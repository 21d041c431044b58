// What a query costs beyond its command: the status of 24 disks beside a bare loop that sends the
// same commands, ready-made, to the same (simulated) disks. These answer at once, without a kernel
// between, so a ratio would say nothing: it is nanoseconds a command that are bounded. A command to
// a real disk takes tens of microseconds, and 200 ns are less than a hundredth of it.

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include <fcntl.h>

#include <scsi/sg.h>
#include <sys/ioctl.h>

#include "base/FileDescriptor.h"
#include "bench/Measure.h"
#include "hwlib/sysfs/sysfs_readers.h"
#include "sim/device/DiskModel.h"
#include "sim/device/ScsiGeneric.h"
#include "storage/scsi/scsi_info.h"

namespace {

constexpr int rounds = 15;
constexpr int callsPerRound = 200;
constexpr int diskCount = 24;
constexpr double highestCost = 200;

struct Exchange {
    std::vector<std::uint8_t> command;
    std::uint32_t room;
    std::vector<std::uint8_t> answer;
};

/// Notes the commands that the queries send, and from then on knows the answers by heart.
class Disk {
 public:
    explicit Disk(const std::string& facts) : facts_(facts) {
        tav::sim::installDevice(
            "/dev/sg99",
            tav::sim::scriptedScsiDevice([this](sg_io_hdr& request) { return serve(request); }));
        for (int i = 0; i < diskCount; ++i)
            nodes_.emplace_back(::open("/dev/sg99", O_RDWR | O_NONBLOCK | O_CLOEXEC));
    }

    const std::vector<tav::FileDescriptor>& nodes() const { return nodes_; }
    const std::vector<Exchange>& exchanges() const { return exchanges_; }

 private:
    const Exchange& exchangeFor(const sg_io_hdr& request) {
        for (const Exchange& known : exchanges_) {
            if (std::equal(known.command.begin(), known.command.end(), request.cmdp)) return known;
        }
        const std::vector<std::uint8_t> command(request.cmdp, request.cmdp + request.cmd_len);
        const tav::sim::DiskAnswer answer = tav::sim::answerCommand(facts_, command);
        if (!answer.sense.empty()) std::abort();
        return exchanges_.emplace_back(Exchange{command, request.dxfer_len, answer.data});
    }

    int serve(sg_io_hdr& request) {
        tav::sim::completeWithData(request, exchangeFor(request).answer);
        return 0;
    }

    tav::sim::DiskFacts facts_;
    std::vector<Exchange> exchanges_;
    std::vector<tav::FileDescriptor> nodes_;
};

void askSas(int fd) {
    const tav::OwnedBytes page(get_sas_temp(fd));
    const bool fine = get_sas_ssd_wear(fd) == 12 && sas_parse_current(page.get()) == 31 &&
                      sas_parse_mcot(page.get()) == 60 && get_sas_health(fd) == 0;
    if (!fine) std::abort();
}

void askSata(int fd) {
    std::size_t length = 0;
    int current = 0;
    int maximum = 0;
    const tav::OwnedBytes page(get_sata_temp(fd, &length));
    const bool fine = get_sata_ssd_wear(fd) == 12 &&
                      sata_parse_current(page.get(), length, &current) &&
                      sata_parse_mcot(page.get(), length, &maximum) && current == 31 &&
                      maximum == 60 && get_sata_health(fd) == 0;
    if (!fine) std::abort();
}

/// The least that it takes to send the commands: their requests stand ready.
class BareRequests {
 public:
    explicit BareRequests(const std::vector<Exchange>& exchanges) : exchanges_(exchanges) {
        for (Exchange& exchange : exchanges_) {
            sg_io_hdr& request = requests_.emplace_back();
            request.interface_id = 'S';
            request.dxfer_direction = SG_DXFER_FROM_DEV;
            request.cmd_len = static_cast<unsigned char>(exchange.command.size());
            request.cmdp = exchange.command.data();
            request.mx_sb_len = static_cast<unsigned char>(sense_.size());
            request.sbp = sense_.data();
            request.dxfer_len = exchange.room;
            request.dxferp = room_.data();
            request.timeout = 60000;
        }
    }
    BareRequests(const BareRequests&) = delete;
    BareRequests& operator=(const BareRequests&) = delete;

    void send(int fd) {
        for (sg_io_hdr& request : requests_) {
            if (::ioctl(fd, SG_IO, &request) != 0) std::abort();
        }
    }

 private:
    std::vector<Exchange> exchanges_;
    std::vector<sg_io_hdr> requests_;
    std::array<unsigned char, 512> room_{};
    std::array<unsigned char, 32> sense_{};
};

template <class Ask>
void compare(bench::Report& report, const char* what, const std::string& facts, Ask ask) {
    Disk disk("media=SSD\nwear=12\ntemperature=31\nmaximumTemperature=60\n" + facts);
    ask(disk.nodes().front().get());
    BareRequests bare(disk.exchanges());
    const auto secondsOf = [&](auto work) {
        return bench::secondsPerCall(callsPerRound, [&] {
            for (const tav::FileDescriptor& node : disk.nodes())
                work(node.get());
        });
    };
    const bench::Pair pair = bench::leastOf(
        rounds, [&] { return secondsOf(ask); },
        [&] { return secondsOf([&](int fd) { bare.send(fd); }); });
    const double commands = static_cast<double>(diskCount * disk.exchanges().size());
    report.value(what, (pair.ours - pair.theirs) / commands * 1e9, "ns a command", highestCost);
    tav::sim::removeDevice("/dev/sg99");
}

}  // namespace

int main() {
    bench::Report report;
    compare(report, "status queries of 24 SAS disks", "protocol=SAS\n", askSas);
    compare(report, "status queries of 24 SATA disks", "protocol=SATA\n", askSata);
    return report.exitStatus();
}
