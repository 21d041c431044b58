/// The link monitor and the probes on real interfaces: pairs of virtual cables in a private
/// network.
#include <array>
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include "base/FileDescriptor.h"
#include "core/Command.h"
#include "nic/NICEventMonitor.h"
#include "nic/NICPhysicalAdapter.h"
#include "nic/NICResourceManager.h"
#include "tests/support/Files.h"

namespace {

using namespace std::chrono_literals;
using tav::test::logEverything;
using tav::test::logs;
using tav::test::openDescriptors;
using tav::test::writeCommand;
using tav::test::writeFile;
using testing::HasSubstr;

std::atomic<bool> driversHang{false};
std::atomic<int> askedDrivers{0};

}  // namespace

extern "C" int ioctl(int file, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (request == SIOCETHTOOL) ++askedDrivers;
    while (request == SIOCETHTOOL && driversHang)
        std::this_thread::sleep_for(1ms);
    return static_cast<int>(::syscall(SYS_ioctl, file, request, argument));
}

namespace {

void ip(const std::string& arguments) {
    ASSERT_EQ(std::system(("ip " + arguments).c_str()), 0) << arguments;
}

/// Sets links up and down as fast as the kernel takes it.
class Switch {
 public:
    void set(const std::string& name, bool up) {
        const int flags = flagsOf(name);
        ifreq request = requestFor(name);
        request.ifr_flags = static_cast<short>(up ? flags | IFF_UP : flags & ~IFF_UP);
        ASSERT_EQ(::ioctl(socket_.get(), SIOCSIFFLAGS, &request), 0) << name;
    }

    int flagsOf(const std::string& name) {
        ifreq request = requestFor(name);
        EXPECT_EQ(::ioctl(socket_.get(), SIOCGIFFLAGS, &request), 0) << name;
        return request.ifr_flags;
    }

 private:
    static ifreq requestFor(const std::string& name) {
        ifreq request{};
        std::strncpy(request.ifr_name, name.c_str(), IFNAMSIZ - 1);
        return request;
    }

    tav::FileDescriptor socket_{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

/// A cable whose one end is an adapter in sysfs, and which the host lists.
void makeAdapter(const std::string& name) {
    ip("link add " + name + " address 02:00:00:00:00:0a type veth peer name " + name + ".c");
    ip("link set " + name + ".c up");
    const std::string device = "/sys/devices/pci0000:3b/0000:3b:00.0/net/" + name;
    std::filesystem::create_directories(device);
    std::filesystem::create_directories("/sys/class/net");
    std::filesystem::create_symlink("../../devices/pci0000:3b/0000:3b:00.0/net/" + name,
                                    "/sys/class/net/" + name);
    std::ofstream("/tmp/list", std::ios::app)
        << name << " 0000:3b:00.0 veth Down Down 0 Half 02:00:00:00:00:0a 1500 Cable\n";
}

void makeHost() {
    writeFile("/tmp/list", "header\n------\n");
    writeCommand("localcli", "case \"$*\" in 'network nic list') cat /tmp/list;; esac");
}

std::string stateOf(const std::string& name) {
    const auto condition = NICResourceManager::getInstance()->getHealthOfIntf(name.c_str());
    return condition ? condition->state : "absent";
}

/// The kernel tells that a link has come up once a second at most, for all networks of the machine
/// together, and later when it has much to do.
bool becomes(const std::string& name, const std::string& state) {
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (stateOf(name) != state && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(1ms);
    return stateOf(name) == state;
}

class Monitoring {
 public:
    Monitoring() { EXPECT_EQ(NICEventMonitor::startMonitoring(), 0); }
    Monitoring(const Monitoring&) = delete;
    Monitoring& operator=(const Monitoring&) = delete;
    ~Monitoring() { EXPECT_EQ(NICEventMonitor::stopMonitoring(), 0); }

    /// Until the monitor listens: the kernel tells nobody what was before.
    void waitUntilListening(Switch& links, const std::string& name) {
        for (int tries = 0; tries < 1000 && stateOf(name) != "Running"; ++tries) {
            links.set(name, false);
            links.set(name, true);
            std::this_thread::sleep_for(2ms);
        }
        ASSERT_TRUE(becomes(name, "Running"));
    }
};

TEST(LinkMonitor, FollowsALink) {
    logEverything();
    makeHost();
    makeAdapter("eth7");
    ip("link add veth9 type veth peer name veth9.c");
    NICResourceManager::getInstance()->cacheBuild();
    Switch links;
    Monitoring monitoring;
    monitoring.waitUntilListening(links, "eth7");
    links.set("eth7", false);
    EXPECT_TRUE(becomes("eth7", "Down"));
    links.set("eth7", true);
    EXPECT_TRUE(becomes("eth7", "Running"));
    links.set("eth7.c", false);  // the cable is pulled: enabled, but not running
    ip("link del veth9");
    links.set("eth7.c", true);
    EXPECT_TRUE(becomes("eth7", "Running"));
    EXPECT_THAT(logs(), HasSubstr("Skipping transient event for Interface = eth7"));
    EXPECT_THAT(logs(), HasSubstr("State change detected for interface : eth7.c. Ignoring as it is "
                                  "not part of TAV inventory"));
}

TEST(LinkMonitor, ADriverThatHangsHoldsUpNeitherLinksNorAStop) {
    logEverything();
    makeHost();
    makeAdapter("eth7");
    NICResourceManager::getInstance()->cacheBuild();
    Switch links;
    std::optional<Monitoring> monitoring(std::in_place);
    monitoring->waitUntilListening(links, "eth7");
    driversHang = true;
    links.set("eth7", false);  // the debug log wants to know more of it than its state
    EXPECT_TRUE(becomes("eth7", "Down"));
    links.set("eth7", true);
    EXPECT_TRUE(becomes("eth7", "Running")) << "it is not asked again";
    EXPECT_THAT(logs(),
                HasSubstr("The question to a network driver has not been answered for 2 s"));
    driversHang = false;
    while (logs().find("The question to a network driver is answered again.") == std::string::npos)
        NICPhysicalAdapter().get_ethtool_info("eth7");

    driversHang = true;
    const int asked = askedDrivers;
    links.set("eth7", false);
    while (askedDrivers == asked)
        std::this_thread::sleep_for(1ms);
    const auto begin = std::chrono::steady_clock::now();
    monitoring.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s) << "one that has just begun to hang";
    driversHang = false;
}

TEST(LinkMonitor, TenThousandChangesLeaveTheInventoryRight) {
    constexpr int adapters = 16;
    constexpr int changes = 10000;
    makeHost();
    std::vector<std::string> names;
    for (int index = 0; index < adapters; ++index) {
        names.push_back("eth" + std::to_string(index));
        makeAdapter(names.back());
    }
    NICResourceManager::getInstance()->cacheBuild();
    Switch links;
    {
        Monitoring first;  // some descriptors are kept from their first use on
        first.waitUntilListening(links, names[0]);
        tav::runShell("true");
    }
    const std::size_t descriptorsBefore = openDescriptors();
    std::clock_t spent = 0;
    {
        Monitoring monitoring;
        monitoring.waitUntilListening(links, names[0]);
        const std::clock_t before = std::clock();
        unsigned random = 1;
        for (int change = 0; change < changes; ++change) {
            random = random * 1103515245U + 12345U;
            links.set(names[(random >> 8U) % adapters], ((random >> 20U) & 1U) != 0);
        }
        // Every adapter's last change is a real one, so that its notification comes last.
        for (int index = 0; index < adapters; ++index) {
            links.set(names[static_cast<std::size_t>(index)], index % 3 == 0);
            links.set(names[static_cast<std::size_t>(index)], index % 3 != 0);
        }
        for (int index = 0; index < adapters; ++index) {
            const std::string& name = names[static_cast<std::size_t>(index)];
            const std::string kernel =
                tav::runShell("ip -j link show " + name).output.find("\"LOWER_UP\"") !=
                        std::string::npos
                    ? "Running"
                    : "Down";
            EXPECT_EQ(kernel, index % 3 != 0 ? "Running" : "Down");
            EXPECT_TRUE(becomes(name, kernel)) << name;
        }
        spent = std::clock() - before;
    }
    RecordProperty("cpuMilliseconds", static_cast<int>(spent * 1000 / CLOCKS_PER_SEC));
    EXPECT_LE(openDescriptors(), descriptorsBefore);
}

/// What a look finds after notifications were lost must not be what none of them would have told: a
/// pulled cable is neither up nor down, and a virtual interface is nobody's adapter.
TEST(LinkMonitor, AReviewPassesTheFiltersOfANotification) {
    logEverything();
    makeHost();
    for (const char* name : {"eth0", "eth1", "eth2"})
        makeAdapter(name);
    std::filesystem::remove("/sys/class/net/eth2");
    std::filesystem::create_symlink("../../devices/virtual/net/eth2", "/sys/class/net/eth2");
    NICResourceManager& manager = *NICResourceManager::getInstance();
    manager.cacheBuild();
    for (const char* name : {"eth0", "eth1", "eth2"})
        manager.updateStateAndHealth(name, "Running", "OK");
    Switch links;
    links.set("eth0.c", false);
    links.set("eth0", true);
    while ((links.flagsOf("eth0") & IFF_RUNNING) != 0)  // the kernel takes its time to notice
        std::this_thread::sleep_for(1ms);
    tav::reviewAllLinks();
    EXPECT_EQ(stateOf("eth0"), "Running") << "enabled, but not running";
    EXPECT_EQ(stateOf("eth1"), "Down");
    EXPECT_EQ(stateOf("eth2"), "Running");
    EXPECT_THAT(logs(), HasSubstr("Skipping transient event for Interface = eth0"));
    EXPECT_THAT(logs(), HasSubstr("Ignoring as it is a virtual interface"));
}

TEST(LinkMonitor, EachOfManyLinksThatFlapAtOnceIsReportedOnce) {
    constexpr int adapters = 200;
    logEverything();
    makeHost();
    std::vector<std::string> names;
    for (int index = 0; index < adapters; ++index) {
        names.push_back("eth" + std::to_string(index));
        makeAdapter(names.back());
    }
    NICResourceManager& manager = *NICResourceManager::getInstance();
    manager.cacheBuild();
    Switch links;
    const auto raised = [] {
        const std::string log = logs();
        std::size_t events = 0;
        for (std::size_t at = 0; (at = log.find("Raising event 680", at)) != log.npos; ++at)
            ++events;
        return events;
    };
    Monitoring monitoring;
    monitoring.waitUntilListening(links, names[0]);
    for (const std::string& name : names)
        links.set(name, true);
    for (const std::string& name : names)
        ASSERT_TRUE(becomes(name, "Running")) << name;
    writeCommand("localcli", "case \"$*\" in *list) sed 's/Down Down/Up Up/' /tmp/list;; esac");
    manager.cacheBuild();
    const std::size_t before = raised();
    // With pauses: a test may not enlarge the socket's buffer as the service does.
    for (const bool up : {false, true}) {
        for (const std::string& name : names) {
            links.set(name, up);
            std::this_thread::sleep_for(2ms);
        }
    }
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (raised() - before < adapters && std::chrono::steady_clock::now() < end)
        manager.cacheBuild();
    manager.cacheBuild();
    EXPECT_EQ(raised() - before, adapters);
}

TEST(LinkMonitor, IsStartedOnceAndAgainAfterAStop) {
    logEverything();
    makeHost();
    makeAdapter("eth0");
    NICResourceManager::getInstance()->cacheBuild();
    Switch links;
    for (int round = 0; round < 2; ++round) {
        Monitoring monitoring;
        EXPECT_EQ(NICEventMonitor::startMonitoring(), -1);
        EXPECT_THAT(logs(), HasSubstr("Unable to start the monitoring service for the ethernet "
                                      "instances: it has been started already"));
        monitoring.waitUntilListening(links, "eth0");
        links.set("eth0", false);
        EXPECT_TRUE(becomes("eth0", "Down")) << "the first start goes on";
    }
}

TEST(LinkMonitor, LooksAtWhatChangedBeforeItListened) {
    makeHost();
    makeAdapter("eth0");
    NICResourceManager& manager = *NICResourceManager::getInstance();
    manager.cacheBuild();
    manager.updateStateAndHealth("eth0", "Running", "OK");
    const Monitoring monitoring;
    EXPECT_TRUE(becomes("eth0", "Down")) << "which the kernel will not tell";
}

TEST(LinkMonitor, StopsWhereverItIs) {
    makeHost();
    makeAdapter("eth0");
    NICResourceManager::getInstance()->cacheBuild();
    for (int round = 0; round < 50; ++round) {
        ASSERT_EQ(NICEventMonitor::startMonitoring(), 0);
        // May come before the receiving thread has anything to be told through.
        NICEventMonitor::stopMonitoring();
    }
    EXPECT_EQ(NICEventMonitor::stopMonitoring(), -1) << "nothing runs";
}

TEST(Probes, AgreeWithTheSystemsTools) {
    makeHost();
    makeAdapter("eth0");
    writeFile("/sys/devices/pci0000:3b/0000:3b:00.0/net/eth0/speed", "10000\n");
    NICPhysicalAdapter probe;
    EXPECT_EQ(probe.getMACAddress("eth0"), "02:00:00:00:00:0A");
    EXPECT_EQ(probe.getMACAddress("nobody"), "");
    EXPECT_EQ(probe.getSpeedMbps("eth0"), 10000U);
    for (const char* notKnown : {"65535\n", "4294967295\n", "-1\n", ""}) {
        writeFile("/sys/devices/pci0000:3b/0000:3b:00.0/net/eth0/speed", notKnown);
        EXPECT_EQ(probe.getSpeedMbps("eth0"), 0U) << notKnown;
    }
    const auto [firmware, bus, health, state] = probe.get_ethtool_info("eth0");
    EXPECT_EQ(state + health, "DownUnknown");
    EXPECT_EQ(tav::runShell("ethtool -i eth0").output.find("driver: veth"), 0U);
    EXPECT_EQ(firmware + bus, "") << "a cable has neither";
    EXPECT_EQ(std::get<3>(probe.get_ethtool_info("nobody")), "") << "neither up nor down";
    const std::tuple<std::string, std::string, std::string> nowhere = {"NotAvailable", "PCI",
                                                                       "FFFFFFFFFFFFFFFF"};
    EXPECT_EQ(probe.getOemValues("eth0"), nowhere);
    EXPECT_EQ(probe.get_lspci_info("0000:00:00.0; touch /tmp/hacked"),
              std::make_tuple(std::string(), std::string()));
    EXPECT_FALSE(std::filesystem::exists("/tmp/hacked"));
}

}  // namespace
