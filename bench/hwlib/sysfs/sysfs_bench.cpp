/// Sysfs readers against open+read+close, the mirror against find. Of the latter processor time is
/// taken: another process starts in between, and on a busy machine wall time measures its wait.
#include <array>
#include <cstdlib>
#include <ctime>
#include <sstream>

#include "bench/Allocations.h"
#include "bench/Measure.h"
#include "hwlib/sysfs/SysFs.h"
#include "hwlib/sysfs/sysfs_readers.h"

namespace {

constexpr const char* attribute = "/sys/devices/system/cpu/online";

void openReadClose() {
    std::array<char, 4096> text;
    const int file = ::open(attribute, O_RDONLY | O_CLOEXEC);
    if (::read(file, text.data(), text.size()) <= 0) std::abort();
    ::close(file);
}

void readers(bench::Report& report) {
    constexpr int calls = 1000;  // short enough for some rounds to go undisturbed
    constexpr int rounds = 300;
    const auto floor = [] { return bench::secondsPerCall(calls, openReadClose); };
    report.ratio("get_sysfs_str", "open, read and close",
                 bench::leastOf(
                     rounds,
                     [] {
                         return bench::secondsPerCall(calls,
                                                      [] { std::free(get_sysfs_str(attribute)); });
                     },
                     floor),
                 1.05);
    report.ratio(
        "get_sysfs_int", "open, read and close",
        bench::leastOf(
            rounds, [] { return bench::secondsPerCall(calls, [] { get_sysfs_int(attribute); }); },
            floor),
        1.05);
    const long before = bench::allocations;
    std::free(get_sysfs_str(attribute));
    report.value("allocations of get_sysfs_str", static_cast<double>(bench::allocations - before),
                 "", 1);
}

/// Of this process, all of its threads.
double processorSeconds() {
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

void collectPaths(const SysFsTreeElement& node, std::vector<std::string>& paths) {
    paths.push_back(node.getElement()->getPath());
    for (const auto* child = node.firstChild(); child != nullptr; child = child->nextSibling())
        collectPaths(*child, paths);
}

void mirror(bench::Report& report) {
    SysFs sysfs;
    const auto synchronize = [&] {
        sysfs.deleteAll();
        const double before = processorSeconds();
        sysfs.synchronize("/sys/devices");
        return processorSeconds() - before;
    };
    const auto find = [] { return bench::run({"find", "/sys/devices"}).cpu; };
    report.ratio("a mirror of /sys/devices, processor", "find",
                 bench::leastOf(60, synchronize, find), 0.6);

    sysfs.deleteAll();
    const double before = bench::allocatedBytes();
    sysfs.synchronize("/sys/devices");
    const double memory = bench::allocatedBytes() - before;
    std::vector<std::string> paths;
    collectPaths(*sysfs.root(), paths);
    const auto entries = static_cast<double>(paths.size());
    bench::Report::value("entries mirrored", entries, "");
    bench::Report::value("memory per entry", memory / entries, "bytes");

    bool found = true;
    double least = 1;
    for (int round = 0; round < 20; ++round) {
        least = std::min(least, bench::secondsPerCall(1, [&] {
                             for (const std::string& path : paths)
                                 found = found && sysfs.existsPath(path);
                         }));
    }
    if (!found) std::abort();
    report.value("look-up by path", least / entries * 1e9, "ns", 100);
    sysfs.stats();
}

}  // namespace

int main() {
    bench::Report report;
    readers(report);
    mirror(report);
    return report.exitStatus();
}
