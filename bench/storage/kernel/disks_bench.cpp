/// What real controllers with simulated disks cost beyond the system calls that ask the kernel and
/// the disks; how that grows; and a list of all SCSI devices beside lsscsi's. Needs a root of its
/// own, whose /sys it fills.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>

#include "base/DirectoryListing.h"
#include "base/printed.h"
#include "bench/Measure.h"
#include "bench/storage/kernel/CallTimes.h"
#include "bench/storage/kernel/CrowdedServer.h"
#include "hwlib/sysfs/sysfs_readers.h"
#include "storage/SASResourceManager.h"
#include "storage/kernel/tavStorageControllerFactory.h"
#include "storage/scsi/scsi_info.h"

namespace {

namespace fs = std::filesystem;
using bench::callTimes;

constexpr int kindOfDrives = 2;

SASResourceManager& manager() {
    return *SASResourceManager::getInstance();
}

Json::Value describeDisk(int number, int host, int target) {
    const bool isSas = number % 2 == 0;
    Json::Value disk;
    disk["name"] = tav::printed("sg%d", number);
    disk["block"] = tav::printed("sd%d", number);
    disk["address"] = tav::printed("%d:0:%d:0", host, target);
    disk["protocol"] = isSas ? "SAS" : "SATA";
    disk["media"] = isSas ? "HDD" : "SSD";
    disk["rotation"] = isSas ? 10000 : 1;
    disk["vendor"] = "SEAGATE";
    disk["model"] = isSas ? "ST1200MM0007" : "SSDSC2BB480G7";
    disk["revision"] = "0004";
    disk["serial"] = tav::printed("S%07d", number);
    disk["capacity"] = 2344225968;
    disk["temperature"] = 31;
    disk["maximumTemperature"] = 60;
    disk["wear"] = 3;
    disk["errors"] = 0;
    return disk;
}

void makeServer(int controllers, int disksEach) {
    bench::buildCrowdedServer(controllers, disksEach, describeDisk);
}

void forgetControllers() {
    tavStorageControllerFactory::getInstance()->deleteControllers(TAV_FAMILY_ANY);
    fs::remove_all("/sys/class/scsi_host");
    manager().cacheBuild();
}

std::size_t drivesFound() {
    std::vector<Json::Value> drives;
    manager().getInventoryJsonObject2(kindOfDrives, drives);
    return drives.size();
}

struct Cost {
    double inside = 0, outside = 1e9;  ///< seconds
    double calls = 0, requests = 0;
};

/// What a wrapper adds outside of the time that it takes.
double secondsPerWrapper() {
    constexpr int calls = 100000;
    const long inside = callTimes.nanoseconds;
    const double all = bench::secondsPerCall(1, [] {
        for (int i = 0; i < calls; ++i)
            bench::timed([] { return 0; });
    });
    return (all - static_cast<double>(callTimes.nanoseconds - inside) / 1e9) / calls;
}

/// The least disturbed of some builds, each with the poll that follows it.
Cost buildAndPoll(int rounds) {
    static const double perWrapper = secondsPerWrapper();
    Cost least;
    for (int round = 0; round < rounds; ++round) {
        const long inside = callTimes.nanoseconds;
        const long calls = callTimes.calls;
        const long requests = callTimes.requests;
        const double all = bench::secondsPerCall(1, [] {
            manager().cacheBuild();
            manager().pollDevices();
        });
        const double taken = static_cast<double>(callTimes.nanoseconds - inside) / 1e9;
        const auto made = static_cast<double>(callTimes.calls - calls);
        const double outside = all - taken - made * perWrapper;
        if (outside >= least.outside) continue;
        least = {taken, outside, made, static_cast<double>(callTimes.requests - requests)};
    }
    return least;
}

void oneController() {
    constexpr int disks = 24;
    makeServer(1, disks);
    const Cost cost = buildAndPoll(50);
    if (drivesFound() != disks) ::_exit(2);
    std::printf("discovery and status of %d disks: %.0f system calls, %.0f of them SG_IO\n", disks,
                cost.calls, cost.requests);
    bench::Report::value("inside the calls", cost.inside * 1e3, "ms");
}

void growth(bench::Report& report) {
    constexpr struct {
        int controllers, disksEach, rounds;
    } sizes[] = {{1, 10, 30},   {1, 100, 10}, {1, 1000, 5}, {16, 63, 5},
                 {1, 10000, 3}, {16, 625, 3}, {64, 157, 3}};
    forgetControllers();
    double bytesAtThousand = 0;
    for (const auto& size : sizes) {
        const int disks = size.controllers * size.disksEach;
        makeServer(size.controllers, size.disksEach);
        const double before = bench::allocatedBytes();
        const Cost cost = buildAndPoll(size.rounds);
        const double bytes = (bench::allocatedBytes() - before) / disks;
        if (drivesFound() != static_cast<std::size_t>(disks)) ::_exit(2);
        // The calls of disks that are asked side by side overlap: only the whole has a meaning.
        const double microseconds = (cost.outside + cost.inside) / disks * 1e6;
        std::printf("%5d disks, %2d controllers: %7.2f us, %5.0f bytes a disk\n", disks,
                    size.controllers, microseconds, bytes);
        if (disks == 1000) bytesAtThousand = bytes;
        forgetControllers();
        if (disks < 10000) continue;
        report.value("memory a disk, to that of 1,000", bytes / bytesAtThousand, "times", 1.1);
    }
}

void polls(bench::Report& report) {
    constexpr int disks = 1000;
    makeServer(1, disks);
    manager().cacheBuild();
    manager().pollDevices();
    const long allocations = callTimes.allocations;
    const long formatted = callTimes.formatted;
    manager().pollDevices();
    const auto formattedByThePoll = static_cast<double>(callTimes.formatted - formatted);
    std::printf("a poll of %d healthy disks, with %ld texts formatted before\n", disks, formatted);
    report.value("allocations a disk",
                 static_cast<double>(callTimes.allocations - allocations) / disks, "", 4.5);
    report.value("texts formatted", formattedByThePoll, "", 0);
}

// --- Beside lsscsi ------------------------------------------------------------------------------

std::string_view shown(const tav::OwnedText& text) {
    return text ? std::string_view(text.get()) : "-";
}

/// A line for every SCSI device, as `lsscsi -g` prints it.
int list() {
    std::vector<std::string> names;
    tav::forEachEntry("/sys/class/scsi_device/", 0,
                      [&](const tav::DirectoryEntry& entry) { names.emplace_back(entry.name); });
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        const char* const link = name.c_str();
        std::string line = '[' + name + "] ";
        for (char* const attribute : {get_DiskType(link), get_DiskVendor(link), get_DiskModel(link),
                                      get_sas_DiskRev(link), get_ScsiGeneric(link)})
            line.append(shown(tav::OwnedText(attribute))).append(" ");
        std::puts(line.c_str());
    }
    return 0;
}

void listing(bench::Report& report) {
    makeServer(64, 157);
    report.ratio("list of 10,048 SCSI devices, whole process", "lsscsi -g",
                 bench::leastOf(
                     5,
                     [] {
                         return bench::run({"/proc/self/exe", "--list"}).cpu;
                     },
                     [] {
                         return bench::run({"lsscsi", "-g"}).cpu;
                     }),
                 0.8);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "--list") == 0) return list();
    if (fs::exists("/sys/bus")) return 2;
    tav::registerGenericStorageFactory();
    bench::Report report;
    oneController();
    growth(report);
    polls(report);
    listing(report);
    return report.exitStatus();
}
