/// What the storage manager itself adds to its controllers: a reader's wait while it builds, a
/// build's time and memory per disk, a poll's allocations. The controllers are made up and take no
/// time. Needs a root of its own: sim/enter .../storage_manager_bench
#include <atomic>
#include <cstdlib>
#include <memory>
#include <thread>

#include "bench/Allocations.h"
#include "bench/Measure.h"
#include "storage/SASResourceManager.h"
#include "tests/support/FakeFactory.h"

namespace {

using tav::test::ControllerScript;
using tav::test::FakeFactory;

SASResourceManager& manager() {
    return *SASResourceManager::getInstance();
}

/// Registered factories stay until the end; only the last one has controllers.
FakeFactory& makeFactory(int controllers, int disksEach) {
    static std::vector<std::unique_ptr<FakeFactory>> factories;
    if (!factories.empty()) factories.back()->shutdownFactory();
    std::vector<ControllerScript> scripts;
    for (int i = 0; i < controllers; ++i) {
        ControllerScript& script = scripts.emplace_back();
        script.name = "serial number of controller " + std::to_string(i);
        script.disks = disksEach;
    }
    return *factories.emplace_back(std::make_unique<FakeFactory>(std::move(scripts)));
}

long timesPreempted() {
    rusage usage{};
    ::getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nivcsw;
}

struct Reads {
    double secondsPerBuild = 0;
    double longest = 0;
    long counted = 0;
    long preempted = 0;
};

/// Reads without a pause while the manager builds `builds` times. A read during which the system
/// gave the processor to somebody else tells nothing about a wait; one that blocks gives it up
/// itself and counts.
Reads readDuringBuilds(int builds, int kind) {
    std::atomic<bool> done{false};
    Reads reads;
    std::thread builder([&] {
        reads.secondsPerBuild = bench::secondsPerCall(builds, [] { manager().cacheBuild(); });
        done = true;
    });
    std::vector<Json::Value> records;
    while (!done) {
        const long before = timesPreempted();
        const double taken =
            bench::secondsPerCall(1, [&] { manager().getInventoryJsonObject2(kind, records); });
        if (timesPreempted() != before) {
            ++reads.preempted;
            continue;
        }
        reads.longest = std::max(reads.longest, taken);
        ++reads.counted;
    }
    builder.join();
    return reads;
}

void readers(bench::Report& report) {
    constexpr int kindOfControllers = 1;
    makeFactory(4, 2500);
    const Reads reads = readDuringBuilds(30, kindOfControllers);
    bench::Report::value("build of 10,000 disks", reads.secondsPerBuild * 1e3, "ms");
    bench::Report::value("reads during such builds", static_cast<double>(reads.counted), "");
    bench::Report::value("preempted reads, not counted", static_cast<double>(reads.preempted), "");
    report.value("longest read", reads.longest * 1e6, "us", 1000);
}

struct Cost {
    double microseconds;
    double bytes;
};

Cost costPerDisk(int controllers, int disksEach) {
    makeFactory(controllers, disksEach);
    const double disks = controllers * disksEach;
    double least = 1;
    for (int round = 0; round < 15; ++round)
        least = std::min(least, bench::secondsPerCall(1, [] { manager().cacheBuild(); }));
    const double full = bench::allocatedBytes();
    makeFactory(0, 0);
    manager().cacheBuild();
    return {least / disks * 1e6, (full - bench::allocatedBytes()) / disks};
}

void growth(bench::Report& report) {
    constexpr struct {
        int controllers, disksEach;
    } sizes[] = {{1, 10}, {1, 100}, {16, 63}, {64, 157}};
    Cost small{};
    for (const auto& size : sizes) {
        const Cost cost = costPerDisk(size.controllers, size.disksEach);
        const int disks = size.controllers * size.disksEach;
        std::printf("%5d disks, %2d controllers: %7.2f us, %5.0f bytes a disk\n", disks,
                    size.controllers, cost.microseconds, cost.bytes);
        if (disks == 1008) small = cost;
        if (disks < 10000) continue;
        report.value("time a disk, 10,000 to 1,000", cost.microseconds / small.microseconds,
                     "times", 1.5);
        report.value("memory a disk, 10,000 to 1,000", cost.bytes / small.bytes, "times", 1.05);
    }
}

void polls(bench::Report& report) {
    constexpr int controllers = 16;
    constexpr int disksEach = 63;
    makeFactory(controllers, disksEach);
    manager().cacheBuild();
    manager().pollDevices();
    const long before = bench::allocations;
    manager().pollDevices();
    const auto made = static_cast<double>(bench::allocations - before);
    report.value("allocations of a poll's own, 16 controllers", made, "", 300);
    bench::Report::value("these per disk", made / (controllers * disksEach), "");
}

}  // namespace

int main() {
    bench::Report report;
    readers(report);
    growth(report);
    polls(report);
    return report.exitStatus();
}
