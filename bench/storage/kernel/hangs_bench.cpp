/// How late the failure of a disk is reported while other disks hang: 100 disks on 4 controllers,
/// the manager's own loop, and a controller that notes when it has the whole of an event. Needs a
/// root of its own, whose /sys it fills.
///
/// The collector's clock runs `speed` times as fast as the real one: its waits, patience and pauses
/// are that much shorter, and so is a poll's share of its interval; the disks, the processor and
/// what is measured are not. A disk's report is late by what has passed since it last answered as a
/// healthy one, less the interval: however soon afterwards it failed, that is how long nobody knew.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <numeric>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "base/printed.h"
#include "bench/Measure.h"
#include "core/tavUtils.h"
#include "sim/device/DiskModel.h"
#include "sim/device/FakeIpmiDevice.h"
#include "sim/device/ScsiGeneric.h"
#include "sim/rmc/FrameChecker.h"
#include "sim/server/ServerTree.h"
#include "sim/server/Tree.h"
#include "storage/SASResourceManager.h"
#include "storage/kernel/tavStorageControllerFactory.h"
#include "tests/support/Service.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

constexpr int speed = 50;
constexpr nanoseconds interval = nanoseconds(10s) / speed;
constexpr nanoseconds kernelsTimeout = nanoseconds(60s) / speed;
constexpr nanoseconds untilSilenceIsFailure = nanoseconds(90s) / speed;
constexpr auto commandTime = 1ms;
constexpr std::size_t controllers = 4;
constexpr std::size_t disksEach = 25;
constexpr std::size_t hanging = 5;

/// A controller that knows when it has been told of what.
class Receiver {
 public:
    std::optional<Clock::time_point> whenTold(const std::string& what) {
        std::unique_lock<std::mutex> held(lock_);
        const auto isTold = [&] { return told_.count(what) > 0; };
        if (!changed_.wait_for(held, 30s, isTold)) return std::nullopt;
        return told_.at(what);
    }
    void forget() {
        const std::lock_guard<std::mutex> held(lock_);
        told_.clear();
    }
    void waitUntilQuietFor(nanoseconds time) {
        std::unique_lock<std::mutex> held(lock_);
        while (changed_.wait_for(held, time) == std::cv_status::no_timeout) {
        }
    }
    bool isUnharmed() const {
        const std::lock_guard<std::mutex> held(lock_);
        return isUnharmed_;
    }

 private:
    tav::sim::Reply answer(const tav::sim::IpmiRequest& request) {
        if (request.command != 0x80) return tav::sim::Reply::answer({});
        const std::lock_guard<std::mutex> held(lock_);
        const tav::sim::FrameResult result = checker_.accept(request.data, request.open);
        isUnharmed_ &= result.violations.empty();
        if (result.complete) {
            const Json::Value document = tav::test::parseJson(result.complete->payload);
            told_[document["ID"].asString() + ' ' +
                  document["VariableData"]["Data"]["SerialNumber"].asString()] = Clock::now();
            changed_.notify_all();
        }
        return tav::sim::Reply::answer({static_cast<std::uint8_t>(result.status),
                                        static_cast<std::uint8_t>(result.token),
                                        static_cast<std::uint8_t>(result.token >> 8U), 0});
    }

    mutable std::mutex lock_;
    std::condition_variable changed_;
    tav::sim::FrameChecker checker_;
    std::map<std::string, Clock::time_point> told_;  ///< "539 S0000001"
    bool isUnharmed_ = true;
    tav::sim::FakeIpmiDevice device_{
        [this](const tav::sim::IpmiRequest& request) { return answer(request); }};
};

enum class Way { Answers, HangsInCommands, HangsInOpen, TimesOut };
enum class Wear { None, Worn, Failed };

class Disk : public tav::sim::Device {
 public:
    Disk(std::string serial, const Json::Value& healthy, const Json::Value& worn)
        : serial_(std::move(serial)),
          healthy_(tav::sim::diskFacts(healthy)),
          worn_(tav::sim::diskFacts(worn)),
          opened_(
              tav::sim::scriptedScsiDevice([this](sg_io_hdr& request) { return serve(request); })) {
    }

    const std::string& serial() const { return serial_; }
    Wear wear() const { return wear_; }
    void become(Wear wear) { wear_ = wear; }
    void go(Way way) {
        const std::lock_guard<std::mutex> held(lock_);
        way_ = way;
        changed_.notify_all();
    }
    /// When it last gave an answer of its condition before this one.
    Clock::time_point lastAnswered(Wear wear) const {
        return Clock::time_point(lastAnswered_.at(static_cast<std::size_t>(wear)));
    }

    std::shared_ptr<tav::sim::OpenDevice> open(tav::FileDescriptor end, int& error) override {
        std::unique_lock<std::mutex> held(lock_);
        changed_.wait(held, [this] { return way_ != Way::HangsInOpen; });
        held.unlock();
        return opened_->open(std::move(end), error);
    }

 private:
    int serve(sg_io_hdr& request) {
        std::this_thread::sleep_for(commandTime);
        std::unique_lock<std::mutex> held(lock_);
        changed_.wait(held, [this] { return way_ != Way::HangsInCommands; });
        if (way_ == Way::TimesOut) {
            changed_.wait_for(held, kernelsTimeout, [this] { return way_ != Way::TimesOut; });
            request.host_status = 3;
            request.driver_status = 6;
            request.info = SG_INFO_CHECK;
            return 0;
        }
        held.unlock();
        const Wear wear = wear_;
        const tav::sim::DiskAnswer answer = tav::sim::answerCommand(
            wear == Wear::None ? healthy_ : worn_, {request.cmdp, request.cmd_len});
        if (wear == Wear::Failed) {
            tav::sim::completeWithSense(request, std::array<std::uint8_t, 3>{0x70, 0, 4});
        } else if (answer.sense.empty()) {
            tav::sim::completeWithData(request, answer.data);
        } else {
            tav::sim::completeWithSense(request, answer.sense);
        }
        lastAnswered_.at(static_cast<std::size_t>(wear)) = Clock::now().time_since_epoch();
        return 0;
    }

    const std::string serial_;
    const tav::sim::DiskFacts healthy_, worn_;
    const std::shared_ptr<tav::sim::Device> opened_;
    std::atomic<Wear> wear_{Wear::None};
    std::array<std::atomic<Clock::duration>, 3> lastAnswered_{};
    std::mutex lock_;
    std::condition_variable changed_;
    std::atomic<Way> way_{Way::Answers};  ///< changed under the lock
};

// Questions that hang may outlive everybody else.
std::vector<std::shared_ptr<Disk>>& disks() {
    static auto* const all = new std::vector<std::shared_ptr<Disk>>;
    return *all;
}

Json::Value describeDisk(std::size_t number) {
    Json::Value disk;
    disk["name"] = tav::printed("sg%zu", number);
    disk["block"] = tav::printed("sd%zu", number);
    disk["address"] = tav::printed("%zu:0:0:0", number);
    disk["protocol"] = "SATA";
    disk["media"] = "SSD";
    disk["rotation"] = 1;
    disk["model"] = "SSDSC2BB480G7";
    disk["serial"] = tav::printed("S%07zu", number);
    disk["capacity"] = 2344225968;
    return disk;
}

/// Only slots 0 to 3 have location codes, and without one there is no event: these lie at every
/// seventh port, so that they have their turn at all moments of a round.
constexpr std::size_t everyPlaced = 7;
std::size_t slotAtPort(std::size_t port) {
    if (port % everyPlaced == 0) return port / everyPlaced;
    constexpr std::size_t placed = disksEach / everyPlaced + 1;
    return placed + port - port / everyPlaced - 1;
}
bool isPlaced(std::size_t disk) {
    return disk % disksEach % everyPlaced == 0;
}

/// Ports with a disk each behind Intel's SATA RAID controllers, whose disks have places.
void makeServer() {
    Json::Value server;
    std::string places;
    for (std::size_t controller = 0; controller < controllers; ++controller) {
        Json::Value function;
        function["address"] = tav::printed("0000:0%zu:00.0", controller + 1);
        function["class"] = "0x010400";
        function["vendor"] = "0x8086";
        function["device"] = "0x2826";
        function["subVendor"] = "0x1590";
        function["subDevice"] = "0x00d7";
        server["functions"].append(function);
        places += tav::printed("%s\\n   Address: %s\\n   Slot Description: x r001i0%zus00\\n",
                               function["address"].asCString(), function["address"].asCString(),
                               controller + 1);
        for (std::size_t port = 0; port < disksEach; ++port) {
            const std::size_t number = controller * disksEach + port;
            Json::Value host;
            host["host"] = Json::UInt64(number);
            host["function"] = function["address"];
            host["ata"] = Json::UInt64(controller * disksEach + slotAtPort(port) + 1);
            server["scsiHosts"].append(host);
            const Json::Value healthy = describeDisk(number);
            Json::Value worn = healthy;
            worn["wear"] = 97;
            server["disks"].append(healthy);
            disks().push_back(std::make_shared<Disk>(healthy["serial"].asString(), healthy, worn));
            tav::sim::installDevice("/dev/" + healthy["name"].asString(), disks().back());
        }
    }
    tav::sim::buildServer(server, tav::sim::Tree("/"));
    tav::test::writeHostCommands();
    tav::test::writeCommand("localcli", "printf '" + places + "'");
    tavUtils().initGeoIDMap();
}

// --- What is measured ---------------------------------------------------------------------------

struct Samples {
    std::vector<double> late, whole;  ///< microseconds
};

class Rounds {
 public:
    explicit Rounds(Receiver& receiver) : receiver_(receiver) {}

    void noneHangs(int count, Samples& samples) {
        for (int sample = 0; sample < count; ++sample)
            observeFailure(samples);
        heal();
    }

    /// Three in commands, two in open(), for so long already that all is said of them.
    void someHang(int count, Samples& samples) {
        std::size_t number = 0;
        for (Disk* const disk : pickSick())
            disk->go(++number <= 3 ? Way::HangsInCommands : Way::HangsInOpen);
        std::this_thread::sleep_for(untilSilenceIsFailure + 2 * interval);
        receiver_.waitUntilQuietFor(3 * interval);
        noneHangs(count, samples);
    }

    /// Five others begin at the moment of each failure or up to an interval before it, and end
    /// after its report.
    void someBeginToHang(int count, Samples& samples) {
        for (int sample = 0; sample < count; ++sample) {
            const std::vector<Disk*> sick = pickSick();
            std::this_thread::sleep_for(someTime());
            for (Disk* const disk : sick)
                disk->go(Way::HangsInCommands);
            observeFailure(samples);
            for (Disk* const disk : sick)
                disk->go(Way::Answers);
        }
        heal();
    }

    /// Five that time out after 60 s, are asked anew, and time out again.
    void someTimeOut(int count, Samples& samples) {
        for (Disk* const disk : pickSick())
            disk->go(Way::TimesOut);
        std::this_thread::sleep_for(kernelsTimeout + 2 * interval);
        receiver_.waitUntilQuietFor(3 * interval);
        noneHangs(count, samples);
    }

 private:
    nanoseconds someTime() {
        return nanoseconds(
            std::uniform_int_distribution<std::int64_t>(0, interval.count())(random_));
    }

    /// Of the disks without a place.
    std::vector<Disk*> pickSick() {
        std::vector<Disk*> picked;
        while (picked.size() < hanging) {
            const std::size_t number = random_() % disks().size();
            Disk* const disk = disks()[number].get();
            if (isPlaced(number) || std::find(picked.begin(), picked.end(), disk) != picked.end())
                continue;
            picked.push_back(disk);
        }
        return picked;
    }

    Disk& pickToFail() {
        while (true) {
            const std::size_t number = random_() % disks().size();
            if (isPlaced(number) && disks()[number]->wear() != Wear::Failed)
                return *disks()[number];
        }
    }

    /// A disk becomes worn, or a worn one fails.
    void observeFailure(Samples& samples) {
        Disk& disk = pickToFail();
        const Wear before = disk.wear();
        std::this_thread::sleep_for(someTime());
        const auto failed = Clock::now();
        disk.become(before == Wear::None ? Wear::Worn : Wear::Failed);
        const auto told =
            receiver_.whenTold((before == Wear::None ? "539 " : "538 ") + disk.serial());
        if (!told) {
            std::fprintf(stderr, "The failure of %s is not reported\n", disk.serial().c_str());
            std::_Exit(2);
        }
        const std::chrono::duration<double, std::micro> whole = *told - failed;
        const std::chrono::duration<double, std::micro> late =
            *told - disk.lastAnswered(before) - interval;
        samples.whole.push_back(whole.count());
        samples.late.push_back(late.count());
    }

    /// All disks are what they were at the beginning, and all of that has been reported.
    void heal() {
        for (const auto& disk : disks()) {
            disk->go(Way::Answers);
            disk->become(Wear::None);
        }
        std::this_thread::sleep_for(3 * interval);
        receiver_.waitUntilQuietFor(4 * interval);
        receiver_.forget();
    }

    Receiver& receiver_;
    std::mt19937 random_{20261124};
};

void print(const char* what, const Samples& samples) {
    const bench::Latency late = bench::latencyOf(samples.late);
    const bench::Latency whole = bench::latencyOf(samples.whole);
    std::printf(
        "%-28s %4zu failures: %5.1f ms late, 99th percentile %5.1f, at most %5.1f; "
        "%6.1f ms after the failure, 99th percentile %6.1f\n",
        what, samples.late.size(), late.median / 1e3, late.percentile99 / 1e3,
        *std::max_element(samples.late.begin(), samples.late.end()) / 1e3, whole.median / 1e3,
        whole.percentile99 / 1e3);
}

void compare(bench::Report& report, const char* what, const Samples& hang, const Samples& none) {
    report.ratio(what, "none hangs",
                 {bench::latencyOf(hang.late).percentile99 / 1e6,
                  bench::latencyOf(none.late).percentile99 / 1e6},
                 1.2);
}

}  // namespace

int main(int argc, char** argv) {
    if (fs::exists("/sys/bus")) return 2;
    const int blocks = argc > 1 ? std::atoi(argv[1]) : 10;
    constexpr int each = 30;
    tav::test::writeConfiguration(R"("EnableResources": ["StorageControllers"])");
    Receiver receiver;
    makeServer();
    tav::registerGenericStorageFactory();
    bench::Report report;
    {
        tav::test::Service service(speed);
        receiver.whenTold(" ");
        receiver.waitUntilQuietFor(4 * interval);
        Rounds rounds(receiver);
        Samples none, hang, begin, timeOut;
        for (int block = 0; block < blocks; ++block) {
            rounds.noneHangs(each, none);
            rounds.someHang(each, hang);
            rounds.someBeginToHang(each, begin);
            rounds.someTimeOut(each, timeOut);
        }
        print("none hangs", none);
        print("5 hang", hang);
        print("5 begin to hang", begin);
        print("5 time out again and again", timeOut);
        compare(report, "a failure's report, late, while 5 of 100 hang", hang, none);
        compare(report, "the same when 5 begin to hang", begin, none);
        compare(report, "the same while 5 time out again and again", timeOut, none);
    }
    return receiver.isUnharmed() ? report.exitStatus() : 2;
}
