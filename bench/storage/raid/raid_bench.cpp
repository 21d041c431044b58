/// What RAID controllers cost beside the vendor library's own calls, and what a storm of their
/// events costs. Needs a root of its own: sim/enter .../raid_bench
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "bench/Measure.h"
#include "storage/raid/tavMegaRAIDControllerFactory.h"
#include "tests/support/FakeRaidLibrary.h"
#include "tests/support/Files.h"
#include "tests/support/RaidServer.h"

namespace {

using namespace std::chrono_literals;
using tav::test::FakeController;
using tav::test::FakeRaidLibrary;

constexpr int controllers = 4;
constexpr int drivesEach = 64;
constexpr int volumesEach = 16;
constexpr int storm = 10'000;
// A command of the firmware, its way through the driver included, takes longer than that.
constexpr auto commandTime = 50us;

std::vector<FakeController> makeControllers() {
    std::vector<FakeController> made;
    for (std::uint32_t id = 0; id < controllers; ++id) {
        const std::string serial = "SV" + std::to_string(id);
        FakeController controller{id, serial, static_cast<std::uint8_t>(0x60 + id), {}, {}};
        for (std::uint16_t drive = 0; drive < drivesEach; ++drive) {
            controller.drives.push_back(
                {drive, static_cast<std::uint8_t>(drive), serial + "-" + std::to_string(drive)});
        }
        for (std::uint8_t volume = 0; volume < volumesEach; ++volume) {
            const auto first = static_cast<std::uint16_t>(4 * volume);
            controller.volumes.push_back(
                {volume, 3, {first, static_cast<std::uint16_t>(first + 1)}});
        }
        made.push_back(controller);
    }
    return made;
}

void discover() {
    std::vector<ItavStorageController*> found;
    tavMegaRAIDControllerFactory::getInstance()->discoverControllers(found);
    std::size_t disks = 0;
    for (ItavStorageController* const pointer : found) {
        const tav::Reference<ItavStorageController> controller(pointer);
        tavStorageControllerInfo info;
        std::vector<tavDiskInfo> drives;
        std::vector<tavLogicalDiskInfo> volumes;
        controller->discoverInventory(info);
        controller->discoverPhysicalDiskInventory(drives);
        controller->discoverLogicalDiskInventory(volumes);
        controller->enableEvents();
        disks += drives.size();
    }
    if (disks != controllers * drivesEach) std::abort();
}

void rebuild(bench::Report& report, FakeRaidLibrary& library) {
    constexpr int rounds = 30;
    double outside = 1e9, inside = 0;
    for (int round = 0; round < rounds; ++round) {
        const auto own = library.ownTime();
        const double all = bench::secondsPerCall(1, discover);
        const std::chrono::duration<double> taken = library.ownTime() - own;
        if (all - taken.count() >= outside) continue;
        outside = all - taken.count();
        inside = taken.count();
    }
    std::printf("rebuild of %d controllers, %d drives, %d volumes\n", controllers,
                controllers * drivesEach, controllers * volumesEach);
    bench::Report::value("inside the vendor library", inside * 1e3, "ms");
    bench::Report::value("outside", outside * 1e3, "ms");
    report.value("share outside", 100 * outside / (inside + outside), "%", 10);
}

double processorSeconds() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return bench::secondsOf(usage.ru_utime) + bench::secondsOf(usage.ru_stime);
}

void duplicates(bench::Report& report, FakeRaidLibrary& library, const tav::test::Rmc& rmc) {
    const std::size_t commands = rmc.commands().size();
    const double memory = bench::allocatedBytes();
    const double before = processorSeconds();
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&library] {
            for (int i = 0; i < storm / 4; ++i)
                library.fire(tav::test::RaidEventBytes{}.code(1).locale(2).eventClass(2).argument(
                    1, {7, 0, 252, 7}));
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    const double cpu = processorSeconds() - before;
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
    std::printf("%d events of one failed drive, from four threads\n", storm);
    report.value("raised", static_cast<double>(rmc.commands().size() - commands), "events", 1);
    bench::Report::value("an event", wall.count() * 1e6 / storm, "us");
    bench::Report::value("an event, processor time", cpu * 1e6 / storm, "us");
    bench::Report::value("memory more than before", bench::allocatedBytes() - memory, "bytes");
}

}  // namespace

int main() {
    if (!std::filesystem::exists("/run/sim/bin")) return 2;
    tav::test::logEverything(R"("EnableResources":["HostOSInfo"])");
    tav::test::writeHostCommands();
    tav::test::Rmc rmc;
    tav::test::sendFirstInventory(rmc);
    FakeRaidLibrary library(makeControllers());
    bench::Report report;
    discover();
    library.setCommandTime(commandTime);
    rebuild(report, library);
    library.setCommandTime(0us);
    duplicates(report, library, rmc);
    tavMegaRAIDControllerFactory::getInstance()->shutdownFactory();
    return report.exitStatus();
}
