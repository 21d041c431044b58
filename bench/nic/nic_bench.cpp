// What Ethernet costs: from a link change to the inventory, a rebuild, a poll, and the stand-in for
// the hypervisor's interface list. In a private root and network, which it fills.

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "base/FileDescriptor.h"
#include "bench/Measure.h"
#include "nic/LinkMessages.h"
#include "nic/NICEventMonitor.h"
#include "nic/NICResourceManager.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr int cables = 100;  // of two interfaces each
constexpr int rebuiltAdapters = 64;
constexpr int linkChanges = 400;
constexpr int polls = 2000;
constexpr int fewLinks = 5;
constexpr int manyLinks = 500;
constexpr int rebuilds = 80;  // of 65 processes each: the least disturbed one needs many tries

std::string adapter(int number) {
    return "eth" + std::to_string(number);
}

void must(const std::string& command) {
    if (std::system(command.c_str()) != 0) ::_exit(2);
}

void makeCables() {
    std::ofstream batch("/tmp/batch");
    for (int number = 0; number < cables * 2; number += 2)
        batch << "link add " << adapter(number) << " type veth peer name " << adapter(number + 1)
              << "\nlink set " << adapter(number + 1) << " up\n";
    batch.close();
    must("ip -batch /tmp/batch");
}

void makeSysfs() {
    fs::create_directories("/sys/class/net");
    fs::create_directories("/run/sim/ethernet");
    for (int number = 0; number < cables * 2; ++number) {
        const std::string function = "/sys/devices/pci0000:3b/0000:3b:00.0";
        const std::string directory = function + "/net/" + adapter(number);
        fs::create_directories(directory);
        fs::create_directory_symlink("../..", directory + "/device");
        fs::create_directory_symlink(directory, "/sys/class/net/" + adapter(number));
        std::ofstream("/run/sim/ethernet/" + adapter(number))
            << "Description: Simulated adapter\nFirmware Version: 1\nSpeed: 10000\n";
    }
}

/// A host that lists some adapters as fast as a shell can.
void listAdapters(int count) {
    std::ofstream list("/tmp/list");
    list << "header\n------\n";
    for (int number = 0; number < count; ++number)
        list << adapter(number * 2) << " 0000:3b:00.0 veth Up Up 1000 Full m 1500 Adapter\n";
    list.close();
    std::ofstream("/run/sim/bin/localcli")
        << "#!/bin/sh\ncase \"$*\" in 'network nic list') cat /tmp/list;;\n"
           "*) echo 'Firmware Version: 1';; esac\n";
    fs::permissions("/run/sim/bin/localcli", fs::perms::owner_all);
}

void setLink(const std::string& name, bool up) {
    static const tav::FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request{};
    std::strncpy(request.ifr_name, name.c_str(), IFNAMSIZ - 1);
    if (::ioctl(socket.get(), SIOCGIFFLAGS, &request) != 0) ::_exit(2);
    const int flags = request.ifr_flags;
    request.ifr_flags = static_cast<short>(up ? flags | IFF_UP : flags & ~IFF_UP);
    if (::ioctl(socket.get(), SIOCSIFFLAGS, &request) != 0) ::_exit(2);
}

/// Microseconds from taking a link down until `isDown` says so.
bench::Latency measureLatency(const std::function<bool()>& isDown) {
    std::vector<double> samples;
    for (int change = 0; change < linkChanges; ++change) {
        setLink(adapter(0), true);
        while (isDown())
            std::this_thread::sleep_for(1ms);
        const auto start = Clock::now();
        setLink(adapter(0), false);
        while (!isDown())
            std::this_thread::yield();
        samples.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    return bench::latencyOf(std::move(samples));
}

/// A program that does nothing but receive: the last flags that the kernel told of the adapter.
bench::Latency bareReceiver() {
    const tav::FileDescriptor socket(
        ::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_ROUTE));
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK;
    if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        ::_exit(2);
    const auto index = static_cast<int>(::if_nametoindex(adapter(0).c_str()));
    std::atomic<bool> down{true};
    std::atomic<bool> done{false};
    std::thread receiver([&] {
        std::array<std::byte, 65536> buffer{};
        while (!done) {
            const ssize_t size = ::recv(socket.get(), buffer.data(), buffer.size(), 0);
            if (size <= 0) continue;
            const auto batch = std::span(buffer).first(static_cast<std::size_t>(size));
            for (const tav::LinkMessage& message : tav::decodeLinkMessages(batch)) {
                if (message.interfaceIndex == index && !tav::isTransient(message.flags))
                    down = (message.flags & IFF_UP) == 0;
            }
        }
    });
    const bench::Latency latency = measureLatency([&] { return down.load(); });
    done = true;
    setLink(adapter(0), true);
    receiver.join();
    return latency;
}

bench::Latency monitor() {
    NICResourceManager* const manager = NICResourceManager::getInstance();
    NICEventMonitor::startMonitoring();
    std::this_thread::sleep_for(50ms);
    const bench::Latency latency = measureLatency(
        [&] { return manager->getHealthOfIntf(adapter(0).c_str())->state == "Down"; });
    NICEventMonitor::stopMonitoring();
    return latency;
}

/// The commands of a rebuild and nothing else.
void commandsOfARebuild() {
    must("localcli network nic list >> /tmp/floor");
    for (int number = 0; number < rebuiltAdapters; ++number)
        must("localcli network nic get -n " + adapter(number * 2) + " >> /tmp/floor");
    fs::remove("/tmp/floor");
}

/// Seconds that one notification of a changed link takes among so many.
double notificationAmong(int links) {
    listAdapters(links);
    NICResourceManager::getInstance()->cacheBuild();
    const auto index = static_cast<int>(::if_nametoindex(adapter(0).c_str()));
    unsigned change = 0;
    double least = std::numeric_limits<double>::max();
    for (int round = 0; round < 20; ++round) {
        least = std::min(least, bench::secondsPerCall(500, [&] {
                             const unsigned flags = ++change % 2 == 0 ? IFF_UP | IFF_RUNNING : 0;
                             tav::applyLinkMessage({index, flags});
                         }));
    }
    return least;
}

/// Processor time of this process without its children.
double ownSeconds() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return bench::secondsOf(usage.ru_utime) + bench::secondsOf(usage.ru_stime);
}

/// A busy machine makes commands slow at random: what a rebuild adds to them is told by the
/// processor time that it takes itself, beyond what it takes to start them and to wait.
void rebuild(bench::Report& report) {
    NICResourceManager* const manager = NICResourceManager::getInstance();
    double ours = std::numeric_limits<double>::max();
    double theirs = ours;
    const auto timed = [](double& least, const auto& work) {
        const double before = ownSeconds();
        const double wall = bench::secondsPerCall(1, work);
        least = std::min(least, ownSeconds() - before);
        return wall;
    };
    const bench::Pair wall = bench::leastOf(
        rebuilds, [&] { return timed(ours, [&] { manager->cacheBuild(); }); },
        [&] { return timed(theirs, commandsOfARebuild); });
    bench::Report::ratio("a rebuild of 64 adapters", "its 65 commands", wall);
    report.value("a rebuild's own processor time, of its commands'",
                 (ours - theirs) / wall.theirs * 100, "%",
                 5);  // of commands that take a millisecond; the hypervisor's take far more
}

}  // namespace

int main() {
    makeCables();
    makeSysfs();
    bench::Report report;
    report.ratio("stand-in's list of 200 interfaces", "ip -j link",
                 bench::leastOf(
                     30,
                     [] {
                         return bench::run({LOCALCLI, "network", "nic", "list"}).wall;
                     },
                     [] {
                         return bench::run({"ip", "-j", "link"}).wall;
                     }),
                 2.0);

    listAdapters(1);
    NICResourceManager* const manager = NICResourceManager::getInstance();
    manager->cacheBuild();
    bench::Report::latency("a link goes down, until the inventory says so", monitor(),
                           "a program that only receives", bareReceiver());

    const double amongFew = notificationAmong(fewLinks);
    report.ratio("a notification among 500 links", "one among 5",
                 {notificationAmong(manyLinks), amongFew}, 3.0);

    listAdapters(rebuiltAdapters);
    rebuild(report);

    for (int poll = 0; poll < 20; ++poll)
        manager->checkLinkState();
    const double before = bench::allocatedBytes();
    for (int poll = 0; poll < polls; ++poll)
        manager->checkLinkState();
    report.value("growth over 2,000 polls", bench::allocatedBytes() - before, "bytes", 0);
    return report.exitStatus();
}
