#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include "core/Unanswered.h"
#include "core/tavUtils.h"
#include "fc/FCResourceManager.h"
#include "sim/server/ServerTree.h"
#include "sim/server/Tree.h"
#include "tests/support/Rmc.h"
#include "tests/support/Service.h"

namespace {

/// Attributes whose path contains this cannot be read to their end.
std::atomic<const char*> hangingAttribute{nullptr};

}  // namespace

extern "C" int openat(int directory, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    const auto hangs = [path] {
        const char* const name = hangingAttribute;
        return name != nullptr && std::strstr(path, name) != nullptr;
    };
    while (hangs())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return static_cast<int>(::syscall(SYS_openat, directory, path, flags, mode));
}

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using tav::test::clockSpeed;
using tav::test::logEverything;
using tav::test::logs;
using tav::test::parseJson;
using tav::test::Rmc;
using tav::test::writeCommand;
using tav::test::writeFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Clock = std::chrono::steady_clock;

constexpr const char* port8 = "/sys/class/fc_host/host8/";
constexpr const char* scsi8 = "/sys/class/scsi_host/host8/";
constexpr const char* adapter8 = "/sys/bus/pci/devices/0000:86:00.0/";

/// Two plain ports of one adapter that share its node's name, and a converged one.
constexpr const char* description = R"({
  "functions": [
    {"address": "0000:86:00.0", "subVendor": "0x10df", "subDevice": "0xe300"},
    {"address": "0000:86:00.1", "subVendor": "0x10df", "subDevice": "0xe300"},
    {"address": "0000:af:00.0", "class": "0x020000", "vendor": "0x1077", "device": "0x8070",
     "subVendor": "0x1077", "subDevice": "0x0246",
     "vpd": {"name": "CNA", "SN": "CNA001", "V3": "8.1"}}],
  "ethernet": [{"name": "vmnic4", "function": "0000:af:00.0"}],
  "scsiHosts": [{"host": 0, "function": "0000:86:00.0"}],
  "fibreChannel": [
    {"host": 8, "function": "0000:86:00.0", "portState": "Online", "serial": "FC1",
     "wwnn": "0x200000109b000001", "wwpn": "0x100000109b000001", "firmware": "14.0",
     "rom": "13.9"},
    {"host": 9, "function": "0000:86:00.1", "portState": "Linkdown", "serial": "FC1",
     "wwnn": "0x200000109b000001", "wwpn": "0x100000109b000002"},
    {"host": 10, "function": "0000:af:00.0", "interface": "vmnic4", "portState": "Online",
     "wwnn": "0x2000001111000001", "wwpn": "0x2001001111000001"}]})";

constexpr const char* expectedPorts = R"json([
  {"Model": "8300 Series Dual Port 10GbE Converged Network Adapter (TCP/IP Networking)",
   "SerialNumber": "CNA001", "PartNumber": "", "FirmwareVersion": "8.1",
   "RomVersion": "Not Available",
   "WWPN": "20:01:00:11:11:00:00:01", "WWNN": "20:00:00:11:11:00:00:01",
   "Oem": {"Description": "Not Available", "PhysicalLocation": "FFFFFFFFFFFFFFFF"},
   "Status": {"State": "Online", "Health": "OK"}},
  {"Model": "LPe32002-M2 2-Port 32Gb Fibre Channel Adapter",
   "SerialNumber": "FC1", "PartNumber": "LPe32002-M2", "FirmwareVersion": "14.0",
   "RomVersion": "13.9",
   "WWPN": "10:00:00:10:9b:00:00:01", "WWNN": "20:00:00:10:9b:00:00:01",
   "Oem": {"Description": "PCI 0000:86:00.0 r001i03s05",
           "PhysicalLocation": "0005000103010005"},
   "Status": {"State": "Online", "Health": "OK"}},
  {"Model": "LPe32002-M2 2-Port 32Gb Fibre Channel Adapter",
   "SerialNumber": "FC1", "PartNumber": "LPe32002-M2", "FirmwareVersion": "Not Available",
   "RomVersion": "Not Available",
   "WWPN": "10:00:00:10:9b:00:00:02", "WWNN": "20:00:00:10:9b:00:00:01",
   "Oem": {"Description": "PCI 0000:86:00.1 ", "PhysicalLocation": "FFFFFFFFFFFFFFFF"},
   "Status": {"State": "Linkdown", "Health": "Critical"}}])json";

void buildPorts() {
    tav::sim::buildServer(parseJson(description), tav::sim::Tree("/"));
}

void setState(const std::string& host, const std::string& state) {
    writeFile("/sys/class/fc_host/" + host + "/port_state", state + '\n');
}

FCResourceManager& manager() {
    return *FCResourceManager::getInstance();
}

std::vector<Json::Value> records() {
    std::vector<Json::Value> records(3, "old");
    manager().getInventoryJsonObject(records);
    return records;
}

/// Component events pass once the first inventory has been pushed.
class Events {
 public:
    Events() {
        clockSpeed = 200;
        tavJsonAggregator::getInstance()->sendInventory(true);
        tavJsonAggregator::getInstance()->sendInventory(false);
        while (!tavJsonAggregator::getInstance()->isInventorySent())
            std::this_thread::sleep_for(1ms);
    }
    Events(const Events&) = delete;
    Events& operator=(const Events&) = delete;
    ~Events() { tavJsonAggregator::stoptavJsonAggregator(); }

    std::vector<Json::Value> all() const {
        std::vector<Json::Value> events;
        for (const auto& command : rmc_.commands()) {
            if (command.name == "MPEventGen") events.push_back(parseJson(command.payload));
        }
        return events;
    }
    std::vector<int> ids() const {
        std::vector<int> ids;
        for (const Json::Value& event : all())
            ids.push_back(event["ID"].asInt());
        return ids;
    }
    Rmc& rmc() { return rmc_; }

 private:
    Rmc rmc_;
};

/// Runs the manager as its thread does.
class RunningManager {
 public:
    RunningManager() : thread_([] { manager().init(); }) {}
    RunningManager(const RunningManager&) = delete;
    RunningManager& operator=(const RunningManager&) = delete;
    ~RunningManager() { stop(); }

    /// How long the loop takes to end.
    Clock::duration stop() {
        const auto begin = Clock::now();
        if (thread_.joinable()) {
            manager().stopResourceManagerJob();
            thread_.join();
        }
        return Clock::now() - begin;
    }

 private:
    std::thread thread_;
};

std::size_t builds() {
    const std::string log = logs();
    std::size_t count = 0;
    for (std::size_t at = 0; (at = log.find("Building FC Cache", at)) != std::string::npos; ++at)
        ++count;
    return count;
}

template <class Condition>
bool happens(Condition condition) {
    const auto end = Clock::now() + 10s;
    while (!condition() && Clock::now() < end)
        std::this_thread::sleep_for(2ms);
    return condition();
}

constexpr const char* noLocalEvents = R"("EnableResources": [])";

TEST(FCManager, PlainAndConvergedPorts) {
    logEverything();
    buildPorts();
    writeCommand("localcli",
                 "echo '   Address: 0000:86:00.0'\n"
                 "echo '   Slot Description: CPU3 r001i03s05'\n"
                 "echo '   Address: 0000:86:00.1'");
    tavUtils().initGeoIDMap();
    manager().cacheBuild();

    const Json::Value expected = parseJson(expectedPorts);
    EXPECT_THAT(records(), ElementsAre(expected[0], expected[1], expected[2]));
    const std::vector<tavFCDeviceInfo> ports = manager().getFCInventory();
    EXPECT_EQ(ports[0].gettavFCSlot(), "0") << "no SMBIOS";
    EXPECT_EQ(ports[1].gettavFCSlot(), "05");
    EXPECT_EQ(ports[2].gettavFCSlot(), "0");
    EXPECT_TRUE(manager().isInventoryReady(0));
    EXPECT_TRUE(manager().isRunning());
    EXPECT_THAT(logs(), HasSubstr("FC cache status 1"));
}

/// Whatever attribute is missing, only its own field is unknown.
TEST(FCManager, AttributesMissingOneByOne) {
    const std::string scsi = scsi8;
    const std::string port = port8;
    const struct {
        std::string file;
        const char* otherName;  ///< under which drivers have it too; null for none
        const char* field;
        const char* absent;
    } rows[] = {
        {scsi + "serialnum", "serial_num", "SerialNumber", "Not Available"},
        {scsi + "serialnum", "serial_number", "SerialNumber", "Not Available"},
        {scsi + "fw_version", "fwrev", "FirmwareVersion", "Not Available"},
        {scsi + "fw_version", "firmware_version", "FirmwareVersion", "Not Available"},
        {scsi + "option_rom_version", "optrom_bios_version", "RomVersion", "Not Available"},
        {port + "node_name", nullptr, "WWNN", "Not Available"},
        {port + "port_name", nullptr, "WWPN", "Not Available"},
        {port + "port_state", nullptr, "Status", nullptr},
        {std::string(adapter8) + "subsystem_device", nullptr, "Model", "Generic FCHBA Model"},
        {std::string(adapter8) + "subsystem_vendor", nullptr, "Model", "Generic FCHBA Model"}};
    buildPorts();
    manager().cacheBuild();
    const Json::Value whole = records()[1];
    for (const auto& row : rows) {
        for (const char* spoilt : {"\xff\xfe\n", "\0\n"}) {
            writeFile(row.file, spoilt);
            manager().cacheBuild();
            EXPECT_EQ(records().size(), 3U) << row.file;
        }
        Json::Value expected = whole;
        if (row.absent == nullptr) {
            expected["Status"] = parseJson(R"({"State": "Unknown", "Health": "Unknown"})");
        } else {
            expected[row.field] = row.absent;
        }
        if (expected["Model"] != whole["Model"]) expected["PartNumber"] = "";
        writeFile(row.file, "");
        manager().cacheBuild();
        EXPECT_EQ(records()[1], expected) << row.file << " is empty";
        fs::remove(row.file);
        manager().cacheBuild();
        EXPECT_EQ(records()[1], expected) << row.file << records()[1].toStyledString();
        if (row.otherName != nullptr) {
            const fs::path other = fs::path(row.file).replace_filename(row.otherName);
            writeFile(other, "other\nsecond line\n");
            manager().cacheBuild();
            EXPECT_EQ(records()[1][row.field], "other") << other;
            fs::remove(other);
        }
        buildPorts();
    }
    EXPECT_EQ(FCResourceManager::getFcHBASerialNum(std::string(1020, '/').c_str()),
              "Not Available");
}

/// What the converged adapter's firmware says of itself is that of the firmware that runs now.
TEST(FCManager, FirmwareUpdatedBetweenTwoBuilds) {
    const std::string vpdFile = "/sys/bus/pci/devices/0000:af:00.0/vpd";
    buildPorts();
    const std::string vpd = tav::test::readFile(vpdFile);
    fs::remove(vpdFile);
    const auto afterABuild = [] {
        manager().cacheBuild();
        return records()[0];
    };
    EXPECT_EQ(afterABuild()["FirmwareVersion"], "Not Available");
    writeFile(vpdFile, vpd);
    EXPECT_EQ(afterABuild()["FirmwareVersion"], "8.1");
    std::string updated = vpd;
    updated.replace(vpd.find("8.1"), 3, "8.2");
    writeFile(vpdFile, updated);
    EXPECT_EQ(afterABuild()["FirmwareVersion"], "8.2");
    EXPECT_EQ(afterABuild()["SerialNumber"], "CNA001");
}

TEST(FCManager, LinksThatLeadNowhere) {
    buildPorts();
    fs::remove("/sys/class/net/vmnic4");
    fs::remove("/sys/class/scsi_host/host8");
    fs::create_symlink("../../devices/missing/host8", "/sys/class/scsi_host/host8");
    writeFile("/sys/class/scsi_host/host9x/state", "");
    fs::create_directories("/sys/class/fc_host/host9x");
    manager().cacheBuild();
    const std::vector<Json::Value> ports = records();
    ASSERT_EQ(ports.size(), 3U);
    EXPECT_EQ(ports[0]["SerialNumber"], "CNA001") << "found without its interface";
    EXPECT_EQ(ports[1]["Model"], "Generic FCHBA Model");
    EXPECT_EQ(ports[1]["Oem"]["Description"], "PCI NotAvailable ");
    EXPECT_EQ(ports[1]["WWNN"], "20:00:00:10:9b:00:00:01");
}

TEST(FCManager, HostsWithoutFibreChannel) {
    logEverything(noLocalEvents);
    manager().cacheBuild();
    EXPECT_THAT(logs(), HasSubstr("no FC HBA found!!!! Cache build terminating!!!"));
    EXPECT_THAT(records(), IsEmpty());
    buildPorts();
    fs::remove_all("/sys/class/scsi_host");
    manager().cacheBuild();
    EXPECT_THAT(logs(), HasSubstr("no scsi host found"));
    EXPECT_FALSE(manager().isInventoryReady(0));
    buildPorts();
    manager().cacheBuild();
    EXPECT_EQ(records().size(), 3U);
    fs::remove_all("/sys/class/fc_host");
    manager().cacheBuild();
    EXPECT_THAT(records(), IsEmpty());
}

TEST(FCManager, EachChangeOfHealthIsReportedOnce) {
    logEverything(noLocalEvents);
    buildPorts();
    Events events;
    const struct {
        const char* host;
        const char* state;
        std::vector<int> raises;
    } steps[] = {
        {"host8", "Online", {}},          {"host8", "Linkdown", {386}}, {"host8", "Linkdown", {}},
        {"host8", "Error", {}},           {"host8", "Online", {384}},   {"host8", "Offline", {385}},
        {"host8", "Diagnostic Mode", {}}, {"host8", "Error", {388}},    {"host8", "Bypassed", {}},
        {"host8", "something else", {}},  {"host8", "Online", {384}},   {"host9", "Online", {384}},
        {"host10", "Linkdown", {386}},
    };
    manager().cacheBuild();
    EXPECT_THAT(events.ids(), IsEmpty()) << "a port that is new raises nothing";
    std::vector<int> expected;
    for (const auto& step : steps) {
        setState(step.host, step.state);
        manager().cacheBuild();
        manager().cacheBuild();
        expected.insert(expected.end(), step.raises.begin(), step.raises.end());
        EXPECT_EQ(events.ids(), expected) << step.host << ' ' << step.state;
    }
    for (const char* host : {"host9", "host8"})  // at once: in the order of their names
        setState(host, host == std::string("host8") ? "Offline" : "Error");
    manager().cacheBuild();
    expected.insert(expected.end(), {385, 388});
    EXPECT_EQ(events.ids(), expected);
    EXPECT_THAT(events.rmc().violations(), IsEmpty());

    const Json::Value event = events.all()[0];
    EXPECT_EQ(event["Source"], "TAV");
    EXPECT_EQ(event["PhysicalLocation"], "FFFFFFFFFFFFFFFF");
    const Json::Value& details = event["VariableData"];
    EXPECT_EQ(details["Type"], "FibreChannelDevice");
    EXPECT_EQ(details["EventInfo"],
              "Fibre channel device port has changed to a state of link down. Check the FC cabling "
              "to this port.");
    Json::Value port = records()[1];
    port.removeMember("Status");
    EXPECT_EQ(details["Data"], port);
    EXPECT_EQ(events.all()[1]["VariableData"]["EventInfo"], "");
}

/// What could not be read says nothing: neither that a port has recovered nor that it has failed
/// anew.
TEST(FCManager, AStateThatCannotBeReadIsNoChange) {
    logEverything(noLocalEvents);
    buildPorts();
    Events events;
    manager().cacheBuild();
    const auto becomesUnreadable = [](const std::string& host, bool isEmpty) {
        setState(host, "");
        if (isEmpty) {
            writeFile("/sys/class/fc_host/" + host + "/port_state", "");
        } else {
            fs::remove("/sys/class/fc_host/" + host + "/port_state");
        }
        manager().cacheBuild();
        EXPECT_EQ(records()[host == "host10"  ? 0
                            : host == "host8" ? 1
                                              : 2]["Status"],
                  parseJson(R"({"State": "Unknown", "Health": "Unknown"})"));
    };
    for (const bool isEmpty : {false, true}) {
        for (const auto& [host, state] : {std::pair{"host8", "Online"}, {"host9", "Linkdown"}}) {
            becomesUnreadable(host, isEmpty);
            setState(host, state);
            manager().cacheBuild();
            EXPECT_THAT(events.ids(), IsEmpty()) << host << " is as before";
        }
    }
    becomesUnreadable("host8", true);
    setState("host8", "Error");
    manager().cacheBuild();
    EXPECT_THAT(events.ids(), ElementsAre(388));
    becomesUnreadable("host8", false);
    setState("host8", "Online");
    manager().cacheBuild();
    EXPECT_THAT(events.ids(), ElementsAre(388, 384));
}

TEST(FCManager, APortThatComesBackIsNew) {
    logEverything(noLocalEvents);
    buildPorts();
    Events events;
    manager().cacheBuild();
    fs::remove("/sys/class/scsi_host/host8");
    manager().cacheBuild();
    EXPECT_EQ(records().size(), 2U);
    buildPorts();
    setState("host8", "Linkdown");
    manager().cacheBuild();
    EXPECT_EQ(records().size(), 3U);
    EXPECT_THAT(events.ids(), IsEmpty());
}

/// A port whose entry is listed but leads nowhere any more has gone between the two.
TEST(FCManager, APortThatHasGoneSinceItWasListedIsLeftOut) {
    buildPorts();
    fs::remove_all(fs::canonical("/sys/class/fc_host/host8"));
    manager().cacheBuild();
    const std::vector<Json::Value> ports = records();
    ASSERT_EQ(ports.size(), 2U);
    EXPECT_EQ(ports[0]["WWPN"], "20:01:00:11:11:00:00:01");
    EXPECT_EQ(ports[1]["WWPN"], "10:00:00:10:9b:00:00:02");
}

TEST(FCManager, PortsThatComeAndGoWhileTheyAreRead) {
    buildPorts();
    std::atomic<bool> stop{false};
    std::thread world([&stop] {
        while (!stop) {
            fs::rename("/sys/class/fc_host/host8", "/tmp/host8");
            std::this_thread::sleep_for(100us);
            fs::rename("/tmp/host8", "/sys/class/fc_host/host8");
            std::this_thread::sleep_for(100us);
        }
    });
    std::size_t absent = 0;
    for (int build = 0; build < 300; ++build) {
        manager().cacheBuild();
        const std::vector<Json::Value> ports = records();
        ASSERT_GE(ports.size(), 2U);
        if (ports.size() == 2) ++absent;
    }
    stop = true;
    world.join();
    EXPECT_GT(absent, 0U);
}

TEST(FCManager, ReadersNeverWaitAndSeeWholeInventories) {
    buildPorts();
    manager().cacheBuild();
    std::atomic<bool> stop{false};
    std::thread builder([&stop] {
        while (!stop)
            manager().cacheBuild();
    });
    bool previousWasGiven = false;
    const bool both = happens([&] {
        std::vector<Json::Value> ports;
        previousWasGiven = manager().getInventoryJsonObject(ports) == 1 || previousWasGiven;
        return ports.size() != 3 || previousWasGiven;
    });
    stop = true;
    builder.join();
    EXPECT_TRUE(both);
    EXPECT_EQ(records().size(), 3U);
    EXPECT_TRUE(previousWasGiven);
}

TEST(FCManager, LooksAtThePortsOnceTenSecondsAfterABuild) {
    logEverything(
        R"("EnableResources": [], "CacheRefreshInSeconds": {"FibreChannelDevices": "100"})");
    buildPorts();
    Events events;
    clockSpeed = 50;
    RunningManager running;
    ASSERT_TRUE(happens([] { return manager().isInventoryReady(0); }));
    setState("host8", "Linkdown");
    ASSERT_TRUE(happens([&] { return events.ids() == std::vector{386}; }));
    EXPECT_EQ(builds(), 2U) << "the interval has not passed; the look has found it";
    std::this_thread::sleep_for(500ms);  // 25 s of the fast clock: the one look is over
    setState("host8", "Online");
    std::this_thread::sleep_for(800ms);
    EXPECT_EQ(builds(), 2U) << "no further look";
    ASSERT_TRUE(happens([&] { return events.ids() == std::vector{386, 384}; })) << "a whole build";
    const std::size_t before = builds();
    writeFile(std::string(port8) + "port_state", "");
    ASSERT_TRUE(happens([&] { return builds() > before; }));
    EXPECT_THAT(logs(), HasSubstr("Unable to fetch state of /sys/class/fc_host/host8/port_state"));
    EXPECT_LT(running.stop(), 1s);
    EXPECT_EQ(events.ids(), (std::vector{386, 384})) << "Unknown is no event";
}

TEST(FCManager, RefusesASecondThreadAndAnEarlySecondRound) {
    logEverything(noLocalEvents);
    buildPorts();
    RunningManager running;
    ASSERT_TRUE(happens([] { return manager().isInventoryReady(0); }));
    manager().init();
    running.stop();
    EXPECT_EQ(builds(), 1U);
    manager().startInventory();
    EXPECT_THAT(logs(),
                HasSubstr("Cache was recently refreshed. skipping the current refresh cycle"));
}

TEST(FCManager, AClockThatFailsEndsTheLoop) {
    logEverything(noLocalEvents);
    tav::test::clockFails = true;
    manager().init();
    EXPECT_THAT(logs(), HasSubstr("Failed to get current time! (errno: 5)"));
}

TEST(FCManager, StopsWhileItWaitsForTheNextRound) {
    logEverything(noLocalEvents);
    clockSpeed = 100;
    RunningManager idle;
    ASSERT_TRUE(happens([] { return builds() >= 3; })) << "an adapter may come";
    EXPECT_LT(idle.stop(), 1s);
}

TEST(FCManager, APortThatHangsHoldsUpNeitherTheOthersNorAStop) {
    logEverything(
        R"("EnableResources": [], "CacheRefreshInSeconds": {"FibreChannelDevices": "10"})");
    buildPorts();
    Events events;
    clockSpeed = 100;
    RunningManager running;
    ASSERT_TRUE(happens([] { return manager().isInventoryReady(0); }));
    const std::vector<Json::Value> before = records();
    hangingAttribute = "fc_host/host8/port_state";
    setState("host10", "Linkdown");
    ASSERT_TRUE(happens([&] { return events.ids() == std::vector{386}; })) << "of another port";
    ASSERT_TRUE(happens([] { return records()[1]["Status"]["State"] == "Unknown"; }));
    Json::Value silent = records()[1];
    EXPECT_EQ(silent["WWPN"], "10:00:00:10:9b:00:00:01");
    silent["Status"] = before[1]["Status"];
    EXPECT_EQ(silent, before[1]) << "what was known of it stands";
    const std::size_t rebuilt = builds() + 3;
    ASSERT_TRUE(happens([&] { return builds() >= rebuilt; }));
    ASSERT_EQ(tav::Unanswered::all().size(), 1U);
    EXPECT_EQ(tav::Unanswered::all()[0].who, "Fibre Channel port host8");
    hangingAttribute = nullptr;
    ASSERT_TRUE(happens([&] { return records()[1] == before[1]; }));
    EXPECT_TRUE(tav::Unanswered::all().empty());
    EXPECT_EQ(events.ids(), std::vector{386});
    hangingAttribute = "fc_host/";  // all of them, as they are asked next
    std::this_thread::sleep_for(300ms);
    clockSpeed = 1;
    EXPECT_LT(running.stop(), 1s);
    hangingAttribute = nullptr;
    const std::string log = logs();
    const std::string hangs = "host8 has not answered for ";
    EXPECT_THAT(log, HasSubstr("host8 answers again."));
    EXPECT_LT(log.find(hangs), log.find("host8 answers again.")) << "once";
}

TEST(FCManager, StopsWhileAnEventIsNotAnswered) {
    logEverything(
        R"("EnableResources": [], "CacheRefreshInSeconds": {"FibreChannelDevices": "10"})");
    buildPorts();
    Events events;
    std::atomic<bool> asked{false};
    events.rmc().intercept([&](const tav::sim::IpmiRequest&) -> std::optional<tav::sim::Reply> {
        asked = true;
        return tav::sim::Reply::never();
    });
    RunningManager running;
    ASSERT_TRUE(happens([] { return manager().isInventoryReady(0); }));
    clockSpeed = 100;
    for (const char* host : {"host8", "host10"})
        setState(host, "Linkdown");
    ASSERT_TRUE(happens([&] { return asked.load(); }));
    clockSpeed = 1;
    EXPECT_LT(running.stop(), 1500ms) << "the controller is waited for once, and shortly";
}

TEST(FCManager, TestEvents) {
    clockSpeed = 200;
    logEverything(noLocalEvents);
    Events events;
    manager().generateTestEvent(386, "");
    ASSERT_THAT(events.ids(), ElementsAre(386));
    const Json::Value event = events.all()[0];
    EXPECT_EQ(event["Source"], "TAV-CLI");
    EXPECT_EQ(event["PhysicalLocation"], "NOT AVAILABLE");
    EXPECT_EQ(event["VariableData"]["EventInfo"], "Injected Event");
    EXPECT_EQ(event["VariableData"]["Data"]["WWPN"], "50:00:00:00:00:00:00:01");
}

}  // namespace
