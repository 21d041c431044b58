/// How long a poll takes when every command of every disk takes 5 ms, beside the commands of one
/// disk; and how many threads there are meanwhile. Needs a root of its own, whose /sys it fills.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>

#include <unistd.h>

#include "bench/Measure.h"
#include "bench/storage/kernel/CrowdedServer.h"
#include "sim/device/DiskModel.h"
#include "sim/device/ScsiGeneric.h"
#include "storage/SASResourceManager.h"
#include "storage/kernel/tavStorageControllerFactory.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr auto commandTime = 5ms;
std::atomic<int> commands{0};

SASResourceManager& manager() {
    return *SASResourceManager::getInstance();
}

Json::Value describeDisk(int number, int host, int target) {
    Json::Value disk;
    disk["name"] = std::string("sg") + std::to_string(number);
    disk["block"] = std::string("sd") + std::to_string(number);
    disk["address"] = std::to_string(host) + ":0:" + std::to_string(target) + ":0";
    disk["protocol"] = "SATA";
    disk["media"] = "SSD";
    disk["rotation"] = 1;
    disk["model"] = "SSDSC2BB480G7";
    disk["serial"] = std::string("S") + std::to_string(number);
    disk["capacity"] = 2344225968;
    return disk;
}

int serve(const tav::sim::DiskFacts& facts, sg_io_hdr& request) {
    ++commands;
    std::this_thread::sleep_for(commandTime);
    const tav::sim::DiskAnswer answer =
        tav::sim::answerCommand(facts, {request.cmdp, request.cmd_len});
    if (answer.sense.empty()) {
        tav::sim::completeWithData(request, answer.data);
    } else {
        tav::sim::completeWithSense(request, answer.sense);
    }
    return 0;
}

void makeServer(int controllers, int disksEach) {
    bench::buildCrowdedServer(controllers, disksEach, [](int number, int host, int target) {
        const Json::Value disk = describeDisk(number, host, target);
        const tav::sim::DiskFacts facts(tav::sim::diskFacts(disk));
        tav::sim::installDevice("/dev/" + disk["name"].asString(),
                                tav::sim::scriptedScsiDevice(
                                    [facts](sg_io_hdr& request) { return serve(facts, request); }));
        return disk;
    });
}

/// The most threads beside the caller's and the watcher's while `work` runs.
template <class Work>
std::ptrdiff_t threadsDuring(Work work) {
    constexpr std::ptrdiff_t own = 2;
    std::atomic<bool> done{false};
    std::ptrdiff_t most = 0;
    std::thread watcher([&] {
        while (!done) {
            most = std::max(most, std::distance(fs::directory_iterator("/proc/self/task"), {}));
            std::this_thread::sleep_for(1ms);
        }
    });
    work();
    done = true;
    watcher.join();
    return most - own;
}

void measure(bench::Report& report, int controllers, int disksEach, double bound) {
    makeServer(controllers, disksEach);
    manager().cacheBuild();
    const int disks = controllers * disksEach;
    commands = 0;
    double least = 1e9;
    std::ptrdiff_t threads = 0;
    constexpr int rounds = 10;
    for (int round = 0; round < rounds; ++round) {
        least = std::min(least, bench::secondsPerCall(1, [&] {
                             threads =
                                 std::max(threads, threadsDuring([] { manager().pollDevices(); }));
                         }));
    }
    const double ofOneDisk = static_cast<double>(commands) / rounds / disks *
                             std::chrono::duration<double>(commandTime).count();
    std::printf("%d disks on %d controllers: a poll takes %.1f ms, a disk's commands %.1f ms\n",
                disks, controllers, least * 1e3, ofOneDisk * 1e3);
    report.value("poll, to one disk's commands", least / ofOneDisk, "times", bound);
    bench::Report::value("threads", static_cast<double>(threads), "");
}

}  // namespace

int main() {
    if (fs::exists("/sys/bus")) return 2;
    tav::registerGenericStorageFactory();
    bench::Report report;
    measure(report, 1, 24, 1.3);
    tavStorageControllerFactory::getInstance()->deleteControllers(TAV_FAMILY_ANY);
    measure(report, 4, 25, 6.5);  // 24 at a time
    return report.exitStatus();
}
