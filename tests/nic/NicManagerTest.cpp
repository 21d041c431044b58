#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/tavUtils.h"
#include "nic/NICResourceManager.h"
#include "tests/support/Rmc.h"
#include "tests/support/Service.h"

namespace {

using namespace std::chrono_literals;
using tav::test::clockSpeed;
using tav::test::logEverything;
using tav::test::logs;
using tav::test::openDescriptors;
using tav::test::parseJson;
using tav::test::Rmc;
using tav::test::timesLogged;
using tav::test::writeCommand;
using tav::test::writeFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

NICResourceManager& manager() {
    return *NICResourceManager::getInstance();
}

void writeList(const std::string& rows) {
    writeFile("/tmp/list", "header\n------\n" + rows);
}

std::string row(const std::string& name, const std::string& pci, const std::string& link) {
    return name + ' ' + pci + " igbn Up " + link + " 1000 Full 02:00:00:00:01:00 1500 Intel I350\n";
}

/// A host with the interfaces of /tmp/list.
void writeHost() {
    writeFile("/tmp/details", "   Cable Type: Twisted Pair\n   Firmware Version: 1.63\n");
    writeFile("/tmp/pci",
              "0000:01:00.0\n   Address: 0000:01:00.0\n   Slot Description: x r001i02s00\n"
              "0000:3b:00.1\n   Address: 0000:3b:00.1\n   Slot Description: x r001i01s03\n"
              "0000:41:00.0\n   Address: 0000:41:00.0\n   Slot Description: x r001i250s03\n");
    writeCommand("localcli",
                 "echo \"$*\" >> /tmp/asked\n"
                 "case \"$*\" in\n"
                 "'network nic list') cat /tmp/list;;\n"
                 "'network nic get -n '*) cat /tmp/details;;\n"
                 "'hardware pci list') cat /tmp/pci;;\n"
                 "*) exit 1;;\nesac");
}

std::vector<Json::Value> inventory() {
    std::vector<Json::Value> records;
    manager().getInventoryJsonObject(records);
    return records;
}

std::string healthOf(const char* name) {
    const auto condition = manager().getHealthOfIntf(name);
    return condition ? condition->state + '/' + condition->health : "absent";
}

TEST(NicManager, ItsRecords) {
    logEverything();
    writeHost();
    tavUtils().initGeoIDMap();
    writeList(row("vmnic0", "0000:01:00.0", "Up") + row("vmnic1", "0000:3b:00.1", "Down") +
              row("vmnic2", "0000:99:00.0", "Dormant") + row("vmnic3", "0000:41:00.0", "Up"));
    manager().cacheBuild();
    const auto records = inventory();
    ASSERT_THAT(records, SizeIs(4));
    EXPECT_EQ(records[0], parseJson(R"({"Model": "Intel I350", "SerialNumber": "",
        "PartNumber": "I350T4V2", "FirmwareVersion": "1.63", "MACAddress": "02:00:00:00:01:00",
        "SpeedMbps": 1000, "Oem": {"DeviceName": "vmnic0",
        "Description": "PCI 0000:01:00.0 r001i02s00", "PhysicalLocation": "FFFF000102FFFF88"},
        "Status": {"State": "Running", "Health": "OK"}})"))
        << records[0].toStyledString();
    EXPECT_EQ(records[1]["Oem"]["PhysicalLocation"].asString(), "0003000101010005");
    EXPECT_EQ(records[1]["Status"], parseJson(R"({"State": "Down", "Health": "Unknown"})"));
    EXPECT_EQ(records[2]["Oem"]["PhysicalLocation"].asString(), "FFFFFFFFFFFFFFFF");
    EXPECT_EQ(records[2]["Status"]["State"].asString(), "Running") << "it has a cable";
    EXPECT_EQ(records[3]["Oem"]["PhysicalLocation"].asString(), "FFFFFFFFFFFFFFFF")
        << "its place cannot be encoded";
    EXPECT_TRUE(std::filesystem::is_empty("/opt/orn/tav/data"));
}

TEST(NicManager, NamesThatNoInterfaceCanHaveAreNeverExecuted) {
    logEverything();
    writeHost();
    writeList(row("$(touch${IFS}/tmp/hacked)", "x", "Up") +
              row("a;touch${IFS}/tmp/hacked", "x", "Up") + row("vmnic0", "x", "Up"));
    manager().cacheBuild();
    EXPECT_THAT(inventory(), SizeIs(3));
    EXPECT_FALSE(std::filesystem::exists("/tmp/hacked"));
    EXPECT_EQ(tav::test::readFile("/tmp/asked"), "network nic list\nnetwork nic get -n vmnic0\n");
    EXPECT_THAT(logs(), HasSubstr("Refusing the interface name \"$(touch${IFS}/tmp/hacked)\"."));
}

TEST(NicManager, AListThatFailsLeavesTheInventoryAsItIs) {
    logEverything();
    writeHost();
    writeList(row("vmnic0", "0000:01:00.0", "Up"));
    manager().cacheBuild();
    for (int round = 0; round < 3; ++round) {
        writeCommand("localcli", "printf 'header\\n-\\n'; exit 1");
        manager().cacheBuild();
        EXPECT_FALSE(manager().checkLinkState());
        EXPECT_THAT(inventory(), SizeIs(1));
        writeHost();
        manager().cacheBuild();
        EXPECT_THAT(inventory(), SizeIs(1));
    }
    EXPECT_THAT(logs(), HasSubstr("An error occurred while trying to fetch NIC information"));
    std::filesystem::rename("/opt/orn/tav/data", "/opt/orn/tav/away");
    manager().cacheBuild();
    EXPECT_FALSE(manager().checkLinkState());
    std::filesystem::rename("/opt/orn/tav/away", "/opt/orn/tav/data");
    EXPECT_THAT(inventory(), SizeIs(1));
    EXPECT_THAT(logs(), HasSubstr("Error occurred in gathering network interface information."));
    EXPECT_THAT(logs(), HasSubstr("Error occurred in checking link state information."));
    writeList("");
    manager().cacheBuild();
    EXPECT_THAT(inventory(), IsEmpty()) << "a host may have none";
    EXPECT_THAT(logs(), HasSubstr("No NIC found!"));
}

TEST(NicManager, UnusableDetailsAndSpeedLeaveTheRestOfTheRecord) {
    logEverything();
    writeHost();
    writeFile("/tmp/details", "\x01\xff nothing");
    writeList("vmnic0 p d Up Dormant fast Full m 1500 \xff model\n");
    manager().cacheBuild();
    const auto records = inventory();
    ASSERT_THAT(records, SizeIs(1));
    EXPECT_EQ(records[0]["SpeedMbps"].asInt(), 0);
    EXPECT_EQ(records[0]["FirmwareVersion"].asString(), "");
    EXPECT_EQ(records[0]["Model"].asString(), "\xEF\xBF\xBD model") << "valid UTF-8";
    EXPECT_EQ(records[0]["Status"]["State"].asString(), "Other");
    EXPECT_THAT(logs(), HasSubstr("Error occurred in identifying the speed"));
    EXPECT_THAT(logs(), HasSubstr("Error occurred in identifying fw version."));
}

/// What could not be asked for says nothing: the link has not failed, and the firmware is the same.
TEST(NicManager, DetailsThatCannotBeHadLeaveWhatWasKnown) {
    writeHost();
    writeList(row("vmnic0", "p", "Dormant") + row("vmnic1", "p", "Up"));
    manager().cacheBuild();
    EXPECT_EQ(healthOf("vmnic0"), "Running/OK") << "it has a cable";
    writeCommand("localcli", "case \"$*\" in 'network nic list') cat /tmp/list;; *) exit 1;; esac");
    writeList(row("vmnic0", "p", "Dormant") + row("vmnic1", "p", "Down") +
              row("vmnic2", "p", "Dormant"));
    manager().cacheBuild();
    EXPECT_EQ(healthOf("vmnic0"), "Running/OK");
    EXPECT_EQ(inventory()[0]["FirmwareVersion"], "1.63");
    EXPECT_EQ(healthOf("vmnic1"), "Down/Unknown") << "this needs no details";
    EXPECT_EQ(healthOf("vmnic2"), "Other/Unknown") << "nothing was known of it";
    EXPECT_EQ(inventory()[2]["FirmwareVersion"], "");
    writeHost();
    writeFile("/tmp/details", "   Firmware Version: 1.64\n");
    manager().cacheBuild();
    EXPECT_EQ(inventory()[0]["FirmwareVersion"], "1.64") << "an update";
    EXPECT_EQ(healthOf("vmnic0"), "Other/Unknown") << "its cable is gone";
}

TEST(NicManager, AnInterfaceThatIsListedTwiceIsOne) {
    logEverything();
    writeHost();
    writeList(row("vmnic0", "p", "Up") + row("vmnic0", "q", "Down") + row("vmnic1", "p", "Up"));
    for (int build = 0; build < 3; ++build) {
        manager().cacheBuild();
        EXPECT_THAT(inventory(), SizeIs(2)) << build;
        EXPECT_EQ(healthOf("vmnic0"), "Running/OK");
        EXPECT_EQ(healthOf("vmnic1"), "Running/OK");
    }
    EXPECT_THAT(logs(), HasSubstr("The interface \"vmnic0\" is listed twice"));
}

TEST(NicManager, ABuildThatIsWaitedForAsksForAPushOnce) {
    logEverything();
    writeHost();
    EXPECT_FALSE(manager().isInventoryReady(8));
    for (int build = 0; build < 2; ++build) {
        manager().cacheBuild();
        EXPECT_EQ(timesLogged("Dropping inventory send request"), 1);
        EXPECT_TRUE(manager().isInventoryReady(0));
    }
}

TEST(NicManager, APollSeesAChangedLinkOnly) {
    writeHost();
    writeCommand("localcli",
                 "case \"$*\" in 'network nic list') cat /tmp/list;; *) cat /tmp/details;; esac");
    writeList(row("vmnic0", "p", "Up") + row("vmnic1", "p", "Down"));
    manager().cacheBuild();
    EXPECT_FALSE(manager().checkLinkState());
    writeList(row("vmnic0", "p", "Up") + row("vmnic1", "p", "Up"));
    EXPECT_TRUE(manager().checkLinkState());
    writeList(row("vmnic0", "p", "Up") + row("vmnic7", "p", "Up"));
    EXPECT_FALSE(manager().checkLinkState()) << "one that is not in the inventory";
}

/// The address sanitizer tells when a poll reads what a notification has replaced.
TEST(NicManager, APollReadsWhileLinksChange) {
    constexpr int interfaces = 400;
    writeHost();
    writeCommand("localcli", "case \"$*\" in 'network nic list') cat /tmp/list;; esac");
    std::string rows;
    for (int number = 0; number < interfaces; ++number)
        rows += row("vmnic" + std::to_string(number), "p", "Up");
    writeList(rows);
    manager().cacheBuild();
    std::atomic<bool> done{false};
    std::thread monitor([&done] {
        for (int change = 0; !done; ++change)
            manager().updateStateAndHealth("vmnic399", change % 2 == 0 ? "Down" : "Running", "OK");
    });
    for (int poll = 0; poll < 20; ++poll)
        EXPECT_FALSE(manager().checkLinkState());
    done = true;
    monitor.join();
    EXPECT_THAT(inventory(), SizeIs(interfaces));
}

/// Events pass once the service has pushed its first inventory. The manager's own thread is kept
/// out of the way: it waits on a slow clock.
class NicEvents : public testing::Test {
 protected:
    void SetUp() override {
        logEverything(R"("EnableResources": ["HostOSInfo"])");
        tav::test::writeHostCommands();
        writeHost();
        service_.emplace(500);
        ASSERT_TRUE(rmc_.waitForCommands(2));
        service_.reset();
        clockSpeed = 500;
    }

    void build(const std::string& vmnic0) {
        writeList(row("vmnic0", "0000:3b:00.1", vmnic0));
        manager().cacheBuild();
    }

    std::vector<int> events() const {
        std::vector<int> ids;
        for (const auto& command : rmc_.commands()) {
            const int id = parseJson(command.payload)["ID"].asInt();
            if (command.name == "MPEventGen" && id != 356) ids.push_back(id);
        }
        return ids;
    }

    Rmc rmc_;
    std::optional<tav::test::Service> service_;
};

TEST_F(NicEvents, OnlyARecoveryRaisesOne) {
    tavUtils().initGeoIDMap();
    build("Down");
    build("Up");
    EXPECT_THAT(events(), ElementsAre(680));
    const Json::Value event = parseJson(rmc_.commands().back().payload);
    EXPECT_EQ(event["PhysicalLocation"].asString(), "0003000101010005");
    EXPECT_EQ(event["VariableData"]["Type"].asString(), "EthernetDevice");
    EXPECT_EQ(event["VariableData"]["EventInfo"].asString(), "");
    EXPECT_EQ(event["VariableData"]["Data"]["Oem"]["DeviceName"].asString(), "vmnic0");
    EXPECT_FALSE(event["VariableData"]["Data"].isMember("Status"));
    for (const char* link : {"Up", "Unknown", "Down", "Down"})
        build(link);
    EXPECT_THAT(events(), SizeIs(1));
    EXPECT_THAT(logs(), HasSubstr("State change noticed from Critical to Unknown"));
    build("Up");
    EXPECT_THAT(events(), ElementsAre(680, 680));
}

TEST_F(NicEvents, ARecoveryThatTheMonitorSawIsRaisedOnceAtTheNextBuild) {
    build("Up");
    manager().updateStateAndHealth("vmnic0", "Down", "Unknown");
    EXPECT_EQ(healthOf("vmnic0"), "Down/Unknown");
    EXPECT_EQ(inventory()[0]["Status"]["State"].asString(), "Down");
    manager().updateStateAndHealth("vmnic0", "Running", "OK");
    EXPECT_THAT(events(), IsEmpty());
    build("Up");
    build("Up");
    EXPECT_THAT(events(), ElementsAre(680));
    manager().updateStateAndHealth("vmnic0", "Down", "Unknown");
    build("Down");
    manager().updateStateAndHealth("vmnic0", "Running", "OK");
    build("Up");
    EXPECT_THAT(events(), ElementsAre(680, 680));
    manager().updateStateAndHealth("nobody", "Down", "Unknown");
    EXPECT_EQ(healthOf("nobody"), "absent");
}

TEST_F(NicEvents, AnInterfaceThatComesAnewRaisesNone) {
    build("Down");
    writeList("");
    manager().cacheBuild();
    build("Up");
    EXPECT_THAT(events(), IsEmpty());
}

/// What no event tells is told by an inventory once it has lasted from one list to the next; a link
/// that flaps asks for none.
TEST_F(NicEvents, WhatNoneTellsAsksForAPushOnceItHasLasted) {
    const std::string vmnic0 = row("vmnic0", "p", "Up");
    const std::string vmnic1 = row("vmnic1", "p", "Up");
    const std::string down = "vmnic1 p igbn Up Down 0 Half 02:00:00:00:01:00 1500 Intel I350\n";
    const std::string slow = "vmnic1 p igbn Up Up 100 Full 02:00:00:00:01:00 1500 Intel I350\n";
    const std::string moved = "vmnic0 p igbn Up Up 1000 Full 02:00:00:00:01:77 1500 Intel I350\n";
    const std::string again = "vmnic0 p igbn Up Up 1000 Full 02:00:00:00:01:88 1500 Intel I350\n";
    struct Step {
        const char* what;
        std::string list;
        int pushes;          ///< so far
        bool later = false;  ///< more than ten minutes after the step before
    };
    for (const Step& step : {
             Step{"the first list is the first inventory's", vmnic0, 0},
             Step{"nothing new", vmnic0, 0},
             Step{"a new one", vmnic0 + vmnic1, 0},
             Step{"is still there", vmnic0 + vmnic1, 1},
             Step{"a link goes", vmnic0 + down, 1},
             Step{"and comes: 680", vmnic0 + vmnic1, 1},
             Step{"it goes", vmnic0 + down, 1},
             Step{"and stays down", vmnic0 + down, 2},
             Step{"which is told", vmnic0 + down, 2},
             Step{"it comes: 680", vmnic0 + vmnic1, 2},
             Step{"which has told it", vmnic0 + vmnic1, 2, true},
             Step{"it goes again", vmnic0 + down, 2},
             Step{"and stays down", vmnic0 + down, 3, true},
             Step{"it comes: 680", vmnic0 + vmnic1, 3},
             Step{"it goes", vmnic0 + down, 3},
             Step{"within ten minutes", vmnic0 + down, 3},
             Step{"another one's address", moved + down, 3},
             Step{"is told, and all else with it", moved + down, 4},
             Step{"once more", again + down, 4},
             Step{"is told however soon", again + down, 5},
             Step{"it comes: 680", again + vmnic1, 5},
             Step{"at another speed", again + slow, 5},
             Step{"is still slow", again + slow, 6, true},
             Step{"it is gone", again, 7},
             Step{"which is told", again, 7},
         }) {
        clockSpeed = step.later ? 1'000'000 : 20;
        writeList(step.list);
        manager().cacheBuild();
        EXPECT_EQ(timesLogged("NICRM requesting cache push"), step.pushes) << step.what;
    }
    EXPECT_THAT(events(), ElementsAre(680, 680, 680, 680));
    clockSpeed = 1'000'000;
    writeList(row("vmnic0", "p", "Down"));
    for (int build = 0; build < 3; ++build) {
        manager().updateStateAndHealth("vmnic0", "Running", "OK");
        manager().updateStateAndHealth("vmnic0", "Down", "Unknown");
        manager().cacheBuild();
    }
    EXPECT_EQ(timesLogged("NICRM requesting cache push"), 7) << "it flaps";
    manager().cacheBuild();
    EXPECT_EQ(timesLogged("NICRM requesting cache push"), 8) << "and rests at last";
    EXPECT_THAT(events(), SizeIs(4)) << "what ends as it was has not recovered";
}

TEST_F(NicEvents, SixtyRecoveriesThatNobodyAnswersHoldUpNoStop) {
    constexpr int links = 60;
    writeCommand("localcli", "case \"$*\" in 'network nic list') cat /tmp/list;; esac");
    std::string down;
    std::string up;
    for (int number = 0; number < links; ++number) {
        const std::string name = "vmnic" + std::to_string(number);
        down += row(name, "p", "Down");
        up += row(name, "p", "Up");
    }
    writeList(down);
    manager().cacheBuild();
    writeList(up);
    std::atomic<bool> asked{false};
    rmc_.intercept([&](const tav::sim::IpmiRequest&) -> std::optional<tav::sim::Reply> {
        asked = true;
        return tav::sim::Reply::never();
    });
    std::this_thread::sleep_for(10ms);  // 5 s of the fast clock: a build may begin
    std::thread thread([] { manager().init(); });
    while (!asked)
        std::this_thread::sleep_for(1ms);
    clockSpeed = 1;
    const auto begun = std::chrono::steady_clock::now();
    manager().stopResourceManagerJob();
    thread.join();
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 2s);
}

TEST_F(NicEvents, ATestEventIsASample) {
    NICResourceManager::generateTestEvent(678, "0003000101010005");
    const Json::Value event = parseJson(rmc_.commands().back().payload);
    EXPECT_EQ(event["ID"].asInt(), 678);
    EXPECT_EQ(event["Source"].asString(), "TAV-CLI");
    EXPECT_EQ(event["VariableData"]["EventInfo"].asString(), "Injected Event");
    EXPECT_EQ(event["VariableData"]["Data"]["MACAddress"].asString(), "02:00:00:00:00:01");
}

/// A build that stands still in the details of an interface until told to go on.
class HeldBuild {
 public:
    HeldBuild() {
        writeCommand("localcli",
                     "case \"$*\" in 'network nic list') cat /tmp/list;;\n"
                     "*) touch /tmp/held; while [ ! -e /tmp/go ]; do sleep 0.01; done;"
                     " cat /tmp/details;; esac");
        thread_ = std::thread([] { manager().init(); });
        while (!std::filesystem::exists("/tmp/held"))
            std::this_thread::sleep_for(1ms);
    }
    HeldBuild(const HeldBuild&) = delete;
    HeldBuild& operator=(const HeldBuild&) = delete;
    ~HeldBuild() {
        manager().stopResourceManagerJob();
        thread_.join();
    }

 private:
    std::thread thread_;
};

TEST(NicManager, AChangeDuringABuildOutlivesIt) {
    writeHost();
    writeList(row("vmnic0", "p", "Up"));
    manager().cacheBuild();
    clockSpeed = 1000;
    std::this_thread::sleep_for(10ms);  // a build right after this one would be skipped
    const HeldBuild build;
    std::vector<Json::Value> records;
    EXPECT_EQ(manager().getInventoryJsonObject(records), 1);
    EXPECT_THAT(records, SizeIs(1));
    manager().updateStateAndHealth("vmnic0", "Down", "Unknown");
    EXPECT_EQ(healthOf("vmnic0"), "Down/Unknown");
    writeFile("/tmp/go", "");
    while (manager().getInventoryJsonObject(records) == 1)
        std::this_thread::sleep_for(1ms);
    EXPECT_EQ(healthOf("vmnic0"), "Down/Unknown") << "the build had read the list before";
}

TEST(NicManager, AStopEndsAProbeAndReportsNothingOfIt) {
    logEverything();
    writeHost();
    writeList(row("vmnic0", "p", "Up") + row("vmnic1", "p", "Up"));
    manager().isInventoryReady(0);  // which opens the log
    const std::size_t before = openDescriptors();
    const auto started = std::chrono::steady_clock::now();
    { const HeldBuild build; }
    EXPECT_LT(std::chrono::steady_clock::now() - started, 5s);
    EXPECT_THAT(inventory(), IsEmpty());
    EXPECT_TRUE(std::filesystem::is_empty("/opt/orn/tav/data"));
    EXPECT_LE(openDescriptors(), before + 1) << "the stop signal's";
    EXPECT_THAT(logs(), Not(HasSubstr("rror occurred"))) << "the card has not failed";
}

TEST(NicManager, RebuildsEveryThirtySecondsAndPollsOnceInBetween) {
    logEverything();
    clockSpeed = 100;
    writeHost();
    writeList(row("vmnic0", "p", "Up"));
    std::thread thread([] { manager().init(); });
    std::this_thread::sleep_for(1550ms);  // 155 s of the fast clock
    manager().stopResourceManagerJob();
    thread.join();
    const int refreshed = timesLogged("Refreshing Ethernet cache");
    EXPECT_GE(refreshed, 4);
    EXPECT_LE(refreshed, 6);
    EXPECT_NEAR(timesLogged("Polling for interface link state change."), refreshed, 1);
}

}  // namespace
