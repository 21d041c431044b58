#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <ctime>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <ifaddrs.h>
#include <unistd.h>

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/FileDescriptor.h"
#include "base/StopSignal.h"
#include "core/tavResourceStatus.h"
#include "core/tavUtils.h"
#include "tests/support/Files.h"

namespace {

/// What the interface list holds in these tests, where they say so.
struct Interfaces {
    static constexpr std::size_t room = 4;
    std::array<ifaddrs, room> entries{};
    std::array<sockaddr_in, room> addresses{};
    bool cannotBeAsked = false;

    void set(const std::vector<std::pair<const char*, const char*>>& interfaces) {
        for (std::size_t i = 0; i < interfaces.size(); ++i) {
            void* const address = &addresses.at(i);
            addresses.at(i).sin_family = AF_INET;
            ::inet_pton(AF_INET, interfaces[i].second, &addresses.at(i).sin_addr);
            entries.at(i).ifa_name = const_cast<char*>(interfaces[i].first);
            entries.at(i).ifa_addr = static_cast<sockaddr*>(address);
            entries.at(i).ifa_next = i + 1 < interfaces.size() ? &entries.at(i + 1) : nullptr;
        }
    }
};
Interfaces* madeUpInterfaces = nullptr;
/// As while a driver holds the lock of all interfaces.
std::atomic<bool> interfacesHang{false};

}  // namespace

extern "C" int getifaddrs(ifaddrs** list) noexcept {
    while (interfacesHang)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    *list = madeUpInterfaces == nullptr ? nullptr : madeUpInterfaces->entries.data();
    if (madeUpInterfaces == nullptr || !madeUpInterfaces->cannotBeAsked) return 0;
    errno = EMFILE;
    return -1;
}
extern "C" void freeifaddrs(ifaddrs* /*list*/) noexcept {}

namespace {

using tav::test::logEverything;
using tav::test::logs;
using tav::test::writeCommand;
using tav::test::writeFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::Pair;

using Locations = std::map<std::string, std::string>;

TEST(Utils, VersionIsAskedForUntilItIsKnown) {
    logEverything();
    tavUtils utils;
    EXPECT_EQ(utils.readHostOSName(), "") << "no such command";
    for (const char* useless : {"exit 1", ":", "echo Product", "printf 'Product: a\\001b'",
                                "yes 'Product: flood'", "printf 'Product:\\n'"}) {
        SCOPED_TRACE(useless);
        writeCommand("localcli", useless);
        EXPECT_EQ(utils.readHostOSName(), "");
    }
    EXPECT_THAT(logs(), HasSubstr("Error occurred in identifying OS Name."));
    writeCommand("localcli",
                 "[ \"$*\" = 'system version get' ] && "
                 "printf '   Product: Foo Hypervisor 7\\n   Version: 6.7.0\\n   Build: x\\n'");
    EXPECT_EQ(utils.readHostOSName(), "FooHypervisor7");
    EXPECT_EQ(tavUtils().readHostOSVersion(), "6.7.0");
    writeCommand("localcli", "echo 'Product: Other'; echo 'Version: 1'");
    EXPECT_EQ(tavUtils().readHostOSName(), "FooHypervisor7");
}

TEST(Utils, AddressesOfAHostWithLoopbackAlone) {
    tavUtils utils;
    EXPECT_EQ(utils.getPrimaryIPAddress(), "127.0.0.1") << "asks by itself";
    EXPECT_THAT(utils.getIPAddresses(), ElementsAre());
    EXPECT_THAT(utils.updateAndFetchIPAddresses(), ElementsAre());
    EXPECT_EQ(utils.getPrimaryIPAddress(), "127.0.0.1");
    utils.setPrimaryIPAddress({"10.0.0.1", "10.0.0.2"});
    EXPECT_EQ(tavUtils().getPrimaryIPAddress(), "10.0.0.1");
    EXPECT_TRUE(utils.is_ipv4_address("10.1.2.3"));
    for (const char* text : {"0.0.0.0", "10.1.2", "10.1.2.3 ", "", "::1", "256.1.1.1"}) {
        EXPECT_FALSE(utils.is_ipv4_address(text)) << text;
    }
}

TEST(Utils, TheAuxiliaryAddressStaysAsLongAsTheHostHasIt) {
    logEverything();
    Interfaces interfaces;
    madeUpInterfaces = &interfaces;
    tavUtils utils;
    interfaces.set(
        {{"lo", "10.9.9.9"}, {"eth0", "10.0.0.1"}, {"odd", "127.0.0.1"}, {"eth1", "10.0.0.2"}});
    EXPECT_THAT(utils.getIPAddresses(), ElementsAre("10.0.0.1", "10.0.0.2"));
    EXPECT_THAT(logs(), HasSubstr("eth0 IP Address 10.0.0.1\n"));
    EXPECT_EQ(utils.getPrimaryIPAddress(), "10.0.0.1");
    interfaces.set({{"eth1", "10.0.0.2"}, {"eth0", "10.0.0.1"}});
    utils.getIPAddresses();
    EXPECT_EQ(utils.getPrimaryIPAddress(), "10.0.0.1") << "no longer the first, but there";
    interfaces.set({{"eth1", "10.0.0.2"}});
    utils.getIPAddresses();
    EXPECT_EQ(utils.getPrimaryIPAddress(), "10.0.0.2") << "the old one has vanished";
    interfaces.cannotBeAsked = true;
    EXPECT_THAT(utils.updateAndFetchIPAddresses(), ElementsAre("10.0.0.2"))
        << "not known now is not gone";
    EXPECT_EQ(utils.getPrimaryIPAddress(), "10.0.0.2");
}

TEST(Utils, AddressesThatTheKernelDoesNotTellHoldUpNobody) {
    logEverything();
    Interfaces interfaces;
    madeUpInterfaces = &interfaces;
    tavUtils utils;
    interfaces.set({{"eth0", "10.0.0.1"}});
    EXPECT_THAT(utils.updateAndFetchIPAddresses(), ElementsAre("10.0.0.1"));
    interfacesHang = true;
    tav::StopSignal stop;
    stop.request();
    {
        const tav::StopScope scope(&stop);
        EXPECT_THAT(utils.updateAndFetchIPAddresses(), ElementsAre("10.0.0.1")) << "at once";
    }
    EXPECT_THAT(utils.updateAndFetchIPAddresses(), ElementsAre("10.0.0.1")) << "not asked again";
    interfaces.set({{"eth0", "10.0.0.2"}});
    interfacesHang = false;
    while (utils.updateAndFetchIPAddresses() != std::vector<std::string>{"10.0.0.2"})
        std::this_thread::sleep_for(std::chrono::milliseconds(1));

    interfacesHang = true;
    for (int time = 0; time < 3; ++time)
        EXPECT_THAT(utils.updateAndFetchIPAddresses(), ElementsAre("10.0.0.2"));
    interfacesHang = false;
    while (logs().find("The question for the host's addresses is answered again.") ==
           std::string::npos)
        utils.updateAndFetchIPAddresses();
    const std::string hangs = "The question for the host's addresses has not been answered for 2 s";
    const std::string log = logs();
    EXPECT_EQ(log.find(hangs), log.rfind(hangs)) << "said once";
    EXPECT_THAT(log, HasSubstr(hangs));
}

TEST(Utils, TimeStamps) {
    ::setenv("TZ", "Europe/Berlin", 1);
    ::tzset();
    tavUtils utils;
    std::tm moment{};
    moment.tm_year = 119;
    moment.tm_mon = 2;
    moment.tm_mday = 7;
    moment.tm_hour = 14;
    moment.tm_min = 5;
    moment.tm_sec = 9;
    const std::time_t now = std::time(nullptr);
    moment.tm_isdst = std::localtime(&now)->tm_isdst;
    EXPECT_EQ(utils.toEpoc("2019-03-07T14:05:09Z"), std::mktime(&moment));
    EXPECT_EQ(utils.toEpoc("2019-03-07T14:05:09.123Z"), std::mktime(&moment));
    for (const char* text : {"2019-03-07T14:05:09", "", "2019-03-07T14:0x:09Z",
                             "abcdefghijklmnopqrstuvwxyz", "-019-03-07T14:05:09Z"}) {
        EXPECT_EQ(utils.toEpoc(text), 0) << text;
    }
    EXPECT_THAT(tavUtils::getTime(),
                testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}"));
}

TEST(Utils, BootAndShutdownTimes) {
    logEverything();
    tavUtils utils;
    const struct {
        const char* log;
        const char* current;
        const char* previous;
        const char* shutdown;
    } rows[] = {{"2019-01-01T00:00:00Z bootstop: Host has booted\n"
                 "2019-02-01T00:00:00Z bootstop: Host is rebooting\n"
                 "2019-02-01T00:05:00Z bootstop: Host has booted\n"
                 "2019-03-01T00:00:00Z bootstop: Host is rebooting\n"
                 "2019-03-01T00:05:00Z bootstop: Host has booted\n",
                 "2019-03-01T00:05:00Z", "2019-02-01T00:05:00Z", "2019-03-01T00:00:00Z"},
                {"2019-01-01T00:00:00Z bootstop: Host has booted\n", "2019-01-01T00:00:00Z",
                 nullptr, nullptr},
                {"", nullptr, nullptr, nullptr},
                {"\x01\xff\n\n", nullptr, nullptr, nullptr}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.log);
        writeFile("/var/log/vmksummary.log", row.log);
        writeFile("/tmp/tavboot.log", "2000-01-01T00:00:00Z\n");
        long current = -1;
        long previous = -1;
        long shutdown = -1;
        EXPECT_EQ(utils.fetchSystemBootTime(current, previous), 0);
        EXPECT_EQ(utils.fetchSystemShutdownTime(shutdown), 0);
        EXPECT_EQ(current, row.current == nullptr ? -1 : utils.toEpoc(row.current));
        EXPECT_EQ(previous, row.previous == nullptr ? 0 : utils.toEpoc(row.previous));
        EXPECT_EQ(shutdown, row.shutdown == nullptr ? -1 : utils.toEpoc(row.shutdown));
        EXPECT_FALSE(std::filesystem::exists("/tmp/tavboot.log"));
    }
    writeCommand("awk", "exit 1");
    long unused = 0;
    EXPECT_EQ(utils.fetchSystemBootTime(unused, unused), -1);
    EXPECT_EQ(utils.fetchSystemShutdownTime(unused), -1);
    std::filesystem::create_directories("/tmp/tavboot.log/inside");
    EXPECT_EQ(utils.fetchSystemShutdownTime(unused), -1);
    EXPECT_THAT(logs(), HasSubstr("system boot time information.\n"));
    EXPECT_THAT(logs(), HasSubstr("last shutdown time information.\n"));
    EXPECT_THAT(logs(), HasSubstr("last shutdown time  information.\n"));
}

TEST(Utils, TopologyPairsSlotsWithTheirDevices) {
    const struct {
        const char* listing;
        Locations expected;
    } rows[] = {
        {"   Address: 0000:3b:00.0\n   Slot Description: PCIe r001i06s03\n"
         "   Address: 0000:5e:00.0\n   Address: 0000:5e:00.1\n   Slot Description: x r2\n",
         {{"0000:3b:00.0", "r001i06s03"}, {"0000:5e:00.1", "r2"}}},
        {"   Address: a\n   Slot Description: On board\n   Slot Description: r1\n", {{"a", "r1"}}},
        {"   Slot Description: x r1\n   Address: a\n", {}},
        {"   Address: a\n   Slot Description: x r1\n   Slot Description: x r2\n", {{"a", "r1"}}},
        {"   Address: a\n   Slot Description: x r1\n   Address: a\n   Slot Description: x r2\n",
         {{"a", "r2"}}},
        {"Address: ", {}},
        {"", {}},
        {"\x01\x02: r\n", {}}};
    for (const auto& row : rows) {
        EXPECT_EQ(tav::parsePciTopology(row.listing).value_or(Locations()), row.expected)
            << row.listing;
    }
}

TEST(Utils, LocationsComeFromThePciListing) {
    logEverything();
    tavUtils utils;
    utils.initGeoIDMap();
    EXPECT_THAT(logs(), HasSubstr("Error occurred in gathering topology information."));
    EXPECT_EQ(utils.getGeoIDStr("0000:3b:00.0"), "NotAvailable");
    EXPECT_FALSE(utils.hasGeoIDMap());
    EXPECT_FALSE(utils.isGeoIDMapToBeHad());
    writeFile("/opt/orn/tav/data/tav_topology.txt", "   Address: stale\n   Slot Description: r9\n");
    writeCommand("localcli",
                 "[ \"$*\" = 'hardware pci list' ] && printf '0000:3b:00.0\\n   Address: "
                 "0000:3b:00.0\\n   Vendor Name: V\\n   Slot Description: S r001i06s03\\n'");
    utils.initGeoIDMap();
    EXPECT_EQ(utils.getGeoIDStr("0000:3b:00.0"), "r001i06s03");
    EXPECT_EQ(utils.getGeoIDStr("stale"), "NotAvailable");
    EXPECT_THAT(utils.getGeoIDInfo("0000:3b:00.0"), ElementsAre("001", "06", "03"));
    EXPECT_TRUE(utils.getGeoIDInfo("0000:00:00.0").empty());
    EXPECT_THAT(logs(), HasSubstr("0000:3b:00.0       r001i06s03"));
    EXPECT_TRUE(std::filesystem::is_empty("/opt/orn/tav/data"));
    writeCommand("localcli", "exit 1");
    utils.initGeoIDMap();
    EXPECT_EQ(utils.getGeoIDStr("0000:3b:00.0"), "r001i06s03") << "what was known stands";
    EXPECT_TRUE(utils.hasGeoIDMap());
    EXPECT_TRUE(utils.isGeoIDMapToBeHad());
}

TEST(Utils, SubStrings) {
    tavUtils utils;
    const struct {
        const char *start, *end, *text, *expected;
    } rows[] = {{"r", "i", "r001i06", "001"},    {"x", "i", "r001i06", "r001"},
                {"r", "x", "r001i06", "001i06"}, {"i", "r", "r001i06", "06"},
                {"r", "i", "ri06", ""},          {"r", "i", "", ""},
                {"6", "x", "r001i06", ""}};
    for (const auto& row : rows) {
        EXPECT_EQ(utils.getSubStr(row.start, row.end, row.text), row.expected) << row.text;
    }
}

TEST(Utils, AdapterNamesNeverReachTheShellAsAnythingElse) {
    logEverything();
    tavUtils utils;
    writeCommand("localcli", "echo 'vmhba0 driver link-n/a sas.5 (0000:18:00.0) Maker SAS (rev)'");
    std::string address = "old";
    EXPECT_EQ(utils.getPCIString("vmhba0", address), 1);
    EXPECT_EQ(address, "0000:18:00.0");
    EXPECT_EQ(utils.getPCIString("vmhba_0-a.b:1", address), 1) << "is a name";
    for (const char* name : {"x'; touch /tmp/executed; '", "$(touch /tmp/executed)", "", "a b"}) {
        address = "old";
        EXPECT_EQ(utils.getPCIString(name, address), -1) << name;
        EXPECT_EQ(address, "old");
    }
    EXPECT_FALSE(std::filesystem::exists("/tmp/executed"));
    writeCommand("localcli", "echo ')vmhba0('");
    EXPECT_EQ(utils.getPCIString("vmhba0", address), 1);
    EXPECT_EQ(address, "old");
    tav::StopSignal stop;
    stop.request();
    const tav::StopScope scope(&stop);
    EXPECT_EQ(utils.getPCIString("vmhba0", address), -1) << "the command has been cut short";
}

TEST(FileDescriptor, ClosesTheLowestToo) {
    ::close(STDIN_FILENO);
    EXPECT_EQ(tav::FileDescriptor(::open("/", O_RDONLY | O_CLOEXEC)).get(), STDIN_FILENO);
    EXPECT_EQ(::fcntl(STDIN_FILENO, F_GETFD), -1);
}

TEST(Utils, DirectoriesAndFiles) {
    tavUtils utils;
    for (const char* name :
         {"0000:3b:00.0", "0000:00:01.0", "0001:00:00.0", "0100:00:00.0", "power"}) {
        writeFile(std::string("/tmp/list/") + name, "");
    }
    std::filesystem::create_symlink("/tmp/list", "/tmp/link");
    std::vector<std::string> names;
    EXPECT_EQ(utils.dirPciList("tmp/list", names), 7);
    EXPECT_THAT(names, ElementsAre("0000:00:01.0", "0000:3b:00.0", "0001:00:00.0"));
    EXPECT_EQ(utils.dirList("/tmp/list", names), 7);
    EXPECT_EQ(names.size(), 8U) << "appends";
    EXPECT_EQ(utils.dirList("/tmp/link", names), 0);
    EXPECT_EQ(utils.dirList("/tmp/missing", names), -1);
    EXPECT_EQ(names.size(), 8U);

    writeFile("/tmp/lines", "one\ntwo key\nkey last");
    EXPECT_EQ(utils.getLineFromFile("/tmp/lines", "key"), "two key\n");
    EXPECT_EQ(utils.getLineFromFile("/tmp/lines", "last"), "key last");
    EXPECT_EQ(utils.getLineFromFile("/tmp/lines", "none"), "");
    EXPECT_EQ(utils.getLineFromFile("/tmp", "none"), "");
}

TEST(Utils, LinesOfFilesOfAnySize) {
    logEverything();
    tavUtils utils;
    std::string text;
    while (text.size() < 20'000'000)
        text += "one of very many lines\n";
    writeFile("/tmp/lines", text + "the key\n" + std::string(5'000'000, 'x') + " beyond\n");
    EXPECT_EQ(utils.getLineFromFile("/tmp/lines", "key"), "the key\n");
    EXPECT_THAT(logs(), Not(HasSubstr("/tmp/lines")));
    EXPECT_EQ(utils.getLineFromFile("/tmp/lines", "beyond"), "");
    EXPECT_THAT(logs(), HasSubstr("/tmp/lines")) << "what was not searched is told";
}

TEST(Utils, Trimming) {
    tavUtils utils;
    const struct {
        const char *in, *out;
    } rows[] = {{"", ""},   {" ", ""},   {"  a b \t\n", "a b"}, {"\ta", "\ta"}, {"\n", "\n"},
                {"a", "a"}, {" \n", ""}, {"\t \n", "\t"},       {" a\v", "a"}};
    for (const auto& row : rows) {
        std::string out = "old";
        utils.trimExtraSpaces(row.in, out);
        EXPECT_EQ(out, row.out) << row.in;
    }
}

TEST(ResourceStatus, WhatIsNoneOfThemIsUnknown) {
    const auto state = [](std::size_t value) {
        return tav::displayText(static_cast<TAV_RESOURCE_STATE>(value));
    };
    const auto health = [](std::size_t value) {
        return tav::displayText(static_cast<TAV_RESOURCE_HEALTH>(value));
    };
    EXPECT_STREQ(state(tavResourceStateMap.size() - 1), "Unconfigured bad");
    EXPECT_STREQ(state(tavResourceStateMap.size()), "Unknown");
    EXPECT_STREQ(health(tavResourceHealthMap.size() - 1), "Warning");
    EXPECT_STREQ(health(tavResourceHealthMap.size()), "Unknown");
}

}  // namespace
