/// What the NVMe controllers of a full server cost beyond the calls that ask the kernel and them.
/// Needs a root of its own, whose /sys it fills.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include <json/value.h>

#include "base/LaneGroup.h"
#include "base/printed.h"
#include "bench/Measure.h"
#include "bench/storage/kernel/CallTimes.h"
#include "sim/device/DiskModel.h"
#include "sim/device/NvmeController.h"
#include "sim/server/ServerTree.h"
#include "sim/server/Tree.h"
#include "storage/SASResourceManager.h"
#include "storage/kernel/tavNVMeControllerFactory.h"

namespace {

namespace fs = std::filesystem;
using bench::callTimes;

constexpr int controllers = 64;
constexpr int kindOfDrives = 2;
/// What an admin command takes a controller: a tenth of a millisecond is quick.
constexpr std::chrono::microseconds commandTime{100};

SASResourceManager& manager() {
    return *SASResourceManager::getInstance();
}

void makeServer() {
    Json::Value server;
    for (int number = 0; number < controllers; ++number) {
        Json::Value function;
        function["address"] = tav::printed("0000:%02x:00.0", number + 1);
        function["vendor"] = "0x8086";
        function["device"] = "0x0a54";
        function["subVendor"] = "0x8086";
        function["subDevice"] = "0x4702";
        server["functions"].append(function);
        Json::Value controller;
        controller["name"] = tav::printed("nvme%d", number);
        controller["function"] = function["address"];
        controller["model"] = "INTEL SSDPE2KX010T8";
        controller["serial"] = tav::printed("S%07d", number);
        controller["firmware"] = "VDV10131";
        controller["namespaces"] = 1;
        controller["blocks"] = 1953525168;
        controller["temperature"] = 35;
        controller["warningTemperature"] = 70;
        controller["criticalTemperature"] = 80;
        server["nvme"].append(controller);
        const tav::sim::DiskFacts facts(tav::sim::diskFacts(controller));
        tav::sim::installDevice("/dev/" + controller["name"].asString(),
                                tav::sim::scriptedNvmeDevice([facts](nvme_admin_cmd& command) {
                                    std::this_thread::sleep_for(commandTime);
                                    return tav::sim::answerAdminCommand(facts, command);
                                }));
    }
    tav::sim::buildServer(server, tav::sim::Tree("/"));
}

double processorSeconds() {
    timespec now{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

/// What a wrapper takes of the processor beside the time that it counts itself.
double secondsPerWrapper() {
    constexpr int calls = 100'000;
    double least = 1;
    for (int round = 0; round < 5; ++round) {
        const long inside = callTimes.processorNanoseconds;
        const double before = processorSeconds();
        for (int call = 0; call < calls; ++call)
            bench::timed([] { return 0; });
        const double all = processorSeconds() - before;
        const long counted = callTimes.processorNanoseconds - inside;
        least = std::min(least, (all - static_cast<double>(counted) / 1e9) / calls);
    }
    return least;
}

struct Cost {
    double inside = 1e9;   ///< seconds that the calls took, one after the other
    double outside = 1e9;  ///< processor seconds of all else
    double calls = 0, requests = 0;
};

/// The least of each of some rounds, which a busy machine lengthens. The calls overlap, since
/// controllers are asked side by side: what is left beside them is told by the processor's time.
template <class Work>
Cost leastCost(int rounds, Work work) {
    static const double perWrapper = secondsPerWrapper();
    Cost least;
    for (int round = 0; round < rounds; ++round) {
        const long inside = callTimes.nanoseconds;
        const long busy = callTimes.processorNanoseconds;
        const long calls = callTimes.calls;
        const long requests = callTimes.requests;
        const double before = processorSeconds();
        work();
        const double all = processorSeconds() - before;
        const auto made = static_cast<double>(callTimes.calls - calls);
        const double outside = all -
                               static_cast<double>(callTimes.processorNanoseconds - busy) / 1e9 -
                               made * perWrapper;
        const double taken = static_cast<double>(callTimes.nanoseconds - inside) / 1e9;
        least = {std::min(least.inside, taken), std::min(least.outside, outside), made,
                 static_cast<double>(callTimes.requests - requests)};
    }
    return least;
}

/// The lanes alone: questions of as many commands' time as the manager's and of nothing else, asked
/// by as many threads.
class BareLanes {
 public:
    BareLanes() {
        for (int number = 0; number < controllers; ++number)
            ofControllers_.push_back(std::make_unique<Group>(deviceLanes_, patience));
    }

    /// The controller is described, then its drive.
    void build() {
        forEachController([](Group& group) {
            ask(group, itself, 1);
            collect(group);
            ask(group, drive, 3);
            collect(group);
        });
    }

    void poll() {
        forEachController([](Group& group) {
            ask(group, itself, 0);
            ask(group, drive, 1);
            collect(group);
        });
    }

 private:
    using Group = tav::LaneGroup<int, bool>;
    static constexpr std::chrono::seconds patience{5};
    static constexpr int itself = 0, drive = 1;

    static void ask(Group& group, int lane, int commands) {
        group.ask(lane, "nothing", [commands] {
            for (int command = 0; command < commands; ++command)
                bench::timed([] {
                    std::this_thread::sleep_for(commandTime);
                    return 0;
                });
            return true;
        });
    }

    static void collect(Group& group) {
        group.collect(
            tav::TimeLimit(patience), [](int, bool) {}, [] {});
    }

    template <class Work>
    void forEachController(Work work) {
        for (int number = 0; const std::unique_ptr<Group>& group : ofControllers_)
            rounds_.ask(number++, "nothing", [&group = *group, work] {
                work(group);
                return true;
            });
        collect(rounds_);
    }

    Group rounds_{std::make_shared<tav::Lanes>("bench-rounds", 4, patience), patience};
    const std::shared_ptr<tav::Lanes> deviceLanes_ =
        std::make_shared<tav::Lanes>("bench-devices", 24, patience);
    std::vector<std::unique_ptr<Group>> ofControllers_;
};

std::size_t drivesFound() {
    std::vector<Json::Value> drives;
    manager().getInventoryJsonObject2(kindOfDrives, drives);
    return drives.size();
}

}  // namespace

int main() {
    if (fs::exists("/sys/bus")) return 2;
    tav::registerNVMeFactory();
    makeServer();
    const Cost both = leastCost(20, [] {
        manager().cacheBuild();
        manager().pollDevices();
    });
    const Cost poll = leastCost(20, [] { manager().pollDevices(); });
    BareLanes bare;
    const Cost bareBoth = leastCost(20, [&] {
        bare.build();
        bare.poll();
    });
    const Cost barePoll = leastCost(20, [&] { bare.poll(); });
    if (drivesFound() != controllers) ::_exit(2);
    bench::Report report;
    std::printf(
        "discovery and status of %d controllers: %.0f system calls, %.0f admin commands of "
        "%ld us\n",
        controllers, both.calls, both.requests, static_cast<long>(commandTime.count()));
    bench::Report::value("the same lanes of nothing, to the calls' time",
                         bareBoth.outside / both.inside * 100, "%");
    report.value("beyond lanes and calls, to the calls' time",
                 (both.outside - bareBoth.outside) / both.inside * 100, "%", 10);
    bench::Report::value("lanes of a poll alone", barePoll.outside / poll.inside * 100, "%");
    bench::Report::value("beyond lanes and calls of a poll alone",
                         (poll.outside - barePoll.outside) / poll.inside * 100, "%");
    report.value("admin commands of a poll, a drive", poll.requests / controllers, "", 1);
    return report.exitStatus();
}
