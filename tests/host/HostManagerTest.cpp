#include <chrono>
#include <ctime>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/tavUtils.h"
#include "host/HostResourceManager.h"
#include "tests/support/Rmc.h"
#include "tests/support/Service.h"

namespace {

using namespace std::chrono_literals;
using tav::test::clockSpeed;
using tav::test::logEverything;
using tav::test::logs;
using tav::test::parseJson;
using tav::test::readFile;
using tav::test::Rmc;
using tav::test::writeCommand;
using tav::test::writeFile;
using tav::test::writeHostCommands;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* history = "/opt/orn/tav/data/ornTAVStartup.txt";

HostResourceManager& manager() {
    return *HostResourceManager::getInstance();
}

/// Runs the manager as its thread does, until it has built its inventory.
class RunningManager {
 public:
    RunningManager() : thread_([] { manager().init(); }) {
        while (!manager().isInventoryReady(0))
            std::this_thread::sleep_for(1ms);
    }
    RunningManager(const RunningManager&) = delete;
    RunningManager& operator=(const RunningManager&) = delete;
    ~RunningManager() {
        manager().stopResourceManagerJob();
        thread_.join();
    }

 private:
    std::thread thread_;
};

std::vector<int> eventIds(const Rmc& rmc) {
    std::vector<int> ids;
    for (const auto& command : rmc.commands()) {
        if (command.name == "MPEventGen") ids.push_back(parseJson(command.payload)["ID"].asInt());
    }
    return ids;
}

TEST(HostManager, ItsRecord) {
    logEverything(R"("PushInventoryFrequencyInMinutes": 77)");
    writeHostCommands();
    manager().cacheBuild();
    std::vector<Json::Value> records(3, "old");
    EXPECT_EQ(manager().getInventoryJsonObject(records), 0);
    ASSERT_EQ(records.size(), 1U);
    EXPECT_TRUE(std::filesystem::is_empty("/opt/orn/tav/data"));

    Json::Value expected;
    Json::Value& host = expected["HostOSInfo"];
    host["HostName"] = tavUtils().readHostName();
    host["OSName"] = "TestOS";
    host["OSVersion"] = "1.2";
    host["OSDescription"] = tavUtils().readHostOSDescription();
    host["OSType"] = 104;
    host["OSMemorySummary"]["TotalSystemMemoryGiB"] = 4.0;
    host["OSMemorySummary"]["TotalFreeSystemMemoryGiB"] = 1.0;
    host["IPv4Addresses"].append("127.0.0.1");
    Json::Value& collection = expected["CollectionInfo"];
    collection["CollectionType"] = "RemoteSupport";
    collection["CollectionFrequencyMin"] = 77;
    collection["LastCollection"] = records[0]["CollectionInfo"]["LastCollection"];
    EXPECT_EQ(records[0], expected) << records[0].toStyledString();
    EXPECT_EQ(manager().getHostInventory().size(), 1U);
}

TEST(HostManager, ABuildSurvivesCommandsThatFail) {
    logEverything();
    writeCommand("esxtop", "printf '\\001\\377'; exit 1");
    manager().cacheBuild();
    std::filesystem::create_directories("/opt/orn/tav/data/tav-mem.txt/inside");
    manager().cacheBuild();
    const std::vector<tavHostOSInfo> hosts = manager().getHostInventory();
    ASSERT_EQ(hosts.size(), 1U);
    EXPECT_EQ(hosts[0].getOSName(), "");
    EXPECT_EQ(hosts[0].getOSMemorySummary().getTotalSystemMemGiB(), 0);
    EXPECT_THAT(logs(), HasSubstr("Unable to fetch physical memory information.\n"));
}

TEST(HostManager, AMemorySampleThatFailsLeavesWhatWasKnown) {
    writeHostCommands();
    const auto memory = [] {
        manager().cacheBuild();
        const tavHostMemorySummary summary =
            manager().getHostInventory().at(0).getOSMemorySummary();
        return std::pair(summary.getTotalSystemMemGiB(), summary.getTotalFreeSystemMemoryGiB());
    };
    EXPECT_EQ(memory(), std::pair(4.0, 1.0));
    writeCommand("esxtop", "exit 1");
    EXPECT_EQ(memory(), std::pair(4.0, 1.0));
    std::filesystem::create_directories("/opt/orn/tav/data/tav-mem.txt/inside");
    EXPECT_EQ(memory(), std::pair(4.0, 1.0));
    std::filesystem::remove_all("/opt/orn/tav/data/tav-mem.txt");
    writeHostCommands();
    EXPECT_EQ(memory(), std::pair(4.0, 1.0));
}

TEST(HostManager, WhatChangesIsInTheNextBuildWhichAsksForNoPush) {
    logEverything();
    writeCommand("localcli", "exit 1");
    const auto host = [] {
        manager().cacheBuild();
        return manager().getHostInventory().at(0);
    };
    EXPECT_EQ(host().getOSName(), "");
    EXPECT_EQ(host().getOSMemorySummary().getTotalSystemMemGiB(), 0);
    writeHostCommands();
    EXPECT_EQ(host().getOSName(), "TestOS") << "asked for until it is known";
    EXPECT_EQ(host().getOSMemorySummary().getTotalSystemMemGiB(), 4.0);
    writeCommand("localcli", "exit 1");
    writeCommand(
        "esxtop",
        "printf '\"(PDH)\",\"\\\\\\\\h\\\\Memory\\\\Machine MBytes\",\\n\"now\",\"8194\",\\n'");
    EXPECT_EQ(host().getOSName(), "TestOS");
    EXPECT_EQ(host().getOSMemorySummary().getTotalSystemMemGiB(), 8.0);
    EXPECT_THAT(logs(), Not(HasSubstr("Requesting cache push")));
}

TEST(HostManager, ReadersGetThePreviousCopyDuringABuild) {
    logEverything();
    clockSpeed = 100;
    writeHostCommands();
    writeCommand("esxtop", "while [ ! -e /tmp/go ]; do sleep 0.01; done");
    std::thread builder([] { manager().cacheBuild(); });
    std::vector<Json::Value> records(1);
    while (manager().getInventoryJsonObject(records) == 0)
        std::this_thread::sleep_for(1ms);
    EXPECT_THAT(records, IsEmpty()) << "nothing before the first build completes";
    EXPECT_FALSE(manager().isRunning());
    EXPECT_THAT(logs(),
                HasSubstr("_cacheBuildInProgress = 1,HostInventory.size() =0,retryCount =2"));
    writeFile("/tmp/go", "");
    builder.join();
    EXPECT_TRUE(manager().isRunning());
    std::filesystem::remove("/tmp/go");
    std::thread second([] { manager().cacheBuild(); });
    while (manager().getInventoryJsonObject(records) == 0)
        std::this_thread::sleep_for(1ms);
    EXPECT_EQ(records.size(), 1U);
    writeFile("/tmp/go", "");
    second.join();
}

TEST(HostManager, RebuildsEveryMinuteAndRefusesASecondThread) {
    logEverything();
    writeHostCommands();
    clockSpeed = 100;
    Rmc rmc;
    const RunningManager running;
    const auto builds = [] {
        const std::string log = logs();
        std::size_t count = 0;
        for (std::size_t at = 0; (at = log.find("Exiting CacheBuild", at)) != std::string::npos;
             ++at) {
            ++count;
        }
        return count;
    };
    const std::size_t before = builds();
    std::this_thread::sleep_for(1900ms);  // 190 s of the fast clock
    EXPECT_GE(builds() - before, 2U);
    EXPECT_LE(builds() - before, 4U);
    manager().init();
    EXPECT_THAT(logs(), HasSubstr("TAV thread for host already active. Cannot spawn another one."));
}

struct Boot {
    const char* name;
    const char* summaryLog;
    const char* history;  ///< null: there is none
    std::vector<int> events;
};
void PrintTo(const Boot& boot, std::ostream* out) {
    *out << boot.name;
}

class BootEvents : public testing::TestWithParam<Boot> {};

TEST_P(BootEvents, AreSentOncePerBoot) {
    logEverything();
    writeHostCommands();
    clockSpeed = 200;
    writeFile("/var/log/vmksummary.log", GetParam().summaryLog);
    if (GetParam().history != nullptr) writeFile(history, GetParam().history);
    Rmc rmc;
    { const RunningManager running; }
    EXPECT_EQ(eventIds(rmc), GetParam().events);
    if (!GetParam().events.empty()) {
        EXPECT_NEAR(std::stod(readFile(history)), static_cast<double>(std::time(nullptr)), 60);
        const Json::Value event = parseJson(rmc.commands()[0].payload);
        EXPECT_EQ(event["Source"].asString(), "TAV");
        EXPECT_FALSE(event.isMember("PhysicalLocation"));
        EXPECT_FALSE(event.isMember("VariableData"));
    }
}

constexpr const char* bootedTwice =
    "2019-01-01T00:00:00Z bootstop: Host has booted\n"
    "2019-03-01T00:00:00Z bootstop: Host has booted\n";
constexpr const char* toldToShutDown =
    "2019-01-01T00:00:00Z bootstop: Host has booted\n"
    "2019-02-28T23:50:00Z bootstop: Host is rebooting\n"
    "2019-03-01T00:00:00Z bootstop: Host has booted\n";
constexpr const char* toldTooLongAgo =
    "2018-12-31T00:00:00Z bootstop: Host is rebooting\n"
    "2019-01-01T00:00:00Z bootstop: Host has booted\n"
    "2019-03-01T00:00:00Z bootstop: Host has booted\n";

INSTANTIATE_TEST_SUITE_P(
    Histories, BootEvents,
    testing::Values(Boot{"FirstBoot", "2019-01-01T00:00:00Z Host has booted\n", nullptr, {356}},
                    Boot{"Graceful", toldToShutDown, nullptr, {359, 356}},
                    Boot{"Crashed", bootedTwice, nullptr, {360, 356}},
                    Boot{"CrashedAfterAnOlderShutdown", toldTooLongAgo, nullptr, {360, 356}},
                    Boot{"SentBeforeThisBoot", toldToShutDown, "1546400000", {359, 356}},
                    Boot{"SentInThisBoot", toldToShutDown, "1551500000", {}},
                    Boot{"HistoryIsNoNumber", toldToShutDown, "garbage", {359, 356}},
                    Boot{"HistoryIsEmpty", toldToShutDown, "", {359, 356}},
                    Boot{"NoSummary", "", nullptr, {356}},
                    Boot{"NoSummaryButAHistory", "", "1551500000", {}}),
    [](const auto& boot) { return boot.param.name; });

TEST(HostManager, BootEventsWithoutAUsableHistory) {
    logEverything();
    writeHostCommands();
    clockSpeed = 200;
    std::filesystem::create_directories(history);
    Rmc rmc;
    { const RunningManager running; }
    EXPECT_EQ(eventIds(rmc), std::vector<int>{356});
    EXPECT_THAT(logs(), HasSubstr("File does not exist"));
    EXPECT_THAT(logs(), HasSubstr("Unable to record event history!"));
    manager().reset();
    { const RunningManager running; }
    EXPECT_EQ(eventIds(rmc), (std::vector<int>{356, 356})) << "again at the next start";
}

TEST(HostManager, WhatAStopHasCutShortIsNotReported) {
    logEverything();
    writeHostCommands();
    writeCommand("esxtop", "touch /tmp/hangs; sleep 1000");
    clockSpeed = 200;
    Rmc rmc;
    std::thread thread([] { manager().init(); });
    while (!std::filesystem::exists("/tmp/hangs"))
        std::this_thread::sleep_for(1ms);
    manager().stopResourceManagerJob();
    thread.join();
    std::vector<Json::Value> records;
    EXPECT_EQ(manager().getInventoryJsonObject(records), 0);
    EXPECT_THAT(records, IsEmpty());
    EXPECT_FALSE(manager().isInventoryReady(0));
}

TEST(HostManager, EventsThatAStopHasCutShortAreSentAtTheNextStart) {
    logEverything();
    writeHostCommands();
    writeFile("/var/log/vmksummary.log", toldToShutDown);
    // The first look finds the boots; the second, for the shutdown, hangs.
    writeCommand("tail",
                 "[ -e /tmp/first ] && { touch /tmp/hangs; sleep 1000; }\n"
                 "touch /tmp/first; exec /usr/bin/tail \"$@\"");
    clockSpeed = 200;
    Rmc rmc;
    std::thread thread([] { manager().init(); });
    while (!std::filesystem::exists("/tmp/hangs"))
        std::this_thread::sleep_for(1ms);
    manager().stopResourceManagerJob();
    thread.join();
    EXPECT_THAT(eventIds(rmc), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(history));
    writeCommand("tail", "exec /usr/bin/tail \"$@\"");
    manager().reset();
    { const RunningManager running; }
    EXPECT_THAT(eventIds(rmc), ElementsAre(359, 356));
}

TEST(HostManager, TestEvents) {
    clockSpeed = 200;
    Rmc rmc;
    manager().generateTestEvent(434);
    ASSERT_EQ(rmc.commands().size(), 1U);
    const Json::Value event = parseJson(rmc.commands()[0].payload);
    EXPECT_EQ(event["ID"].asInt(), 434);
    EXPECT_EQ(event["Source"].asString(), "TAV-CLI");
}

}  // namespace
