#include <chrono>
#include <random>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/StopSignal.h"
#include "base/Waiting.h"
#include "storage/SASResourceManager.h"
#include "tests/support/FakeFactory.h"
#include "tests/support/Rmc.h"
#include "tests/support/Service.h"

namespace {

using namespace std::chrono_literals;
using tav::test::clockFails;
using tav::test::clockSpeed;
using tav::test::ControllerScript;
using tav::test::FakeController;
using tav::test::FakeFactory;
using tav::test::logEverything;
using tav::test::logs;
using tav::test::parseJson;
using tav::test::Rmc;
using tav::test::timesLogged;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using Clock = std::chrono::steady_clock;

constexpr const char* storageOnly = R"("EnableResources":["StorageControllers"])";

SASResourceManager& manager() {
    return *SASResourceManager::getInstance();
}

template <class Condition>
bool soon(Condition condition) {
    for (const auto end = Clock::now() + 20s; Clock::now() < end;) {
        if (condition()) return true;
        std::this_thread::sleep_for(1ms);
    }
    return false;
}

/// Like a command that never answers, but for its end with a stop.
void hang() {
    tav::pauseFor(24h * 365);
}

std::vector<std::string> names(int kind) {
    constexpr const char* keys[] = {"SerialNumber", "SerialNumber", "SerialNumber", "DurableName"};
    std::vector<Json::Value> records(1, "old");
    manager().getInventoryJsonObject2(kind, records);
    std::vector<std::string> names;
    for (const Json::Value& record : records)
        names.push_back(record[keys[kind]].asString());
    return names;
}

/// Runs the manager as its thread does.
class RunningManager {
 public:
    RunningManager() : thread_([] { manager().init(); }) {}
    RunningManager(const RunningManager&) = delete;
    RunningManager& operator=(const RunningManager&) = delete;
    ~RunningManager() { stop(); }

    void stop() {
        if (!thread_.joinable()) return;
        clockSpeed = 1;  // what a stop may take is real time
        manager().stopResourceManagerJob();
        thread_.join();
    }

 private:
    std::thread thread_;
};

TEST(StorageInventory, ItsRecords) {
    logEverything(storageOnly);
    tav::StorageRecords records;
    tavStorageControllerInfo& controller = records.controllers.emplace_back();
    controller.setModel("M");
    controller.setSerialNumber(std::string("a\0b\xFF", 4));
    controller.setFirmwareVersion("1.0");
    controller.setProtocol("SAS");
    controller.setPhysicalLocation("0102");
    controller.setDescription("PCI 0000:01:00.0 r001");
    controller.setState(TAV_STATE_OPTIMAL);
    controller.setHealth(static_cast<TAV_RESOURCE_HEALTH>(200));
    controller.setEventInfoString("of events only");
    tavDiskInfo& disk = records.disks.emplace_back();
    disk.setCapacityBytes(~0ULL);
    disk.setState(TAV_STATE_PREDICTIVE_FAILURE);
    disk.setHealth(TAV_HEALTH_WARNING);
    tavLogicalDiskInfo& volume = records.volumes.emplace_back();
    volume.setRAIDLevel("RAID1");
    volume.setCapacityBytes(1ULL << 63U);
    records.volumes.emplace_back().addPhysicalDisk("D1");
    const tav::StorageInventory inventory = tav::renderStorage(records);
    EXPECT_EQ(inventory.controllers[0],
              parseJson(R"({"Model":"M","SerialNumber":"a\u0000b\uFFFD","FirmwareVersion":"1.0",
                  "Protocol":"SAS","Status":{"State":"Optimal","Health":"Unknown"},
                  "Oem":{"Description":"PCI 0000:01:00.0 r001","PhysicalLocation":"0102"}})"));
    EXPECT_EQ(inventory.drives[0],
              parseJson(R"({"SerialNumber":"","PartNumber":"","Model":"","Protocol":"",
                  "CapacityBytes":18446744073709551615,"MediaType":"","Revision":"",
                  "Status":{"State":"Predictive failure","Health":"Warning"},
                  "Oem":{"Slot":-1,"PhysicalLocation":""}})"));
    EXPECT_EQ(
        inventory.volumes[0],
        parseJson(
            R"({"DurableName":"","VolumeType":"RAID1","CapacityBytes":9223372036854775808,"Drives":[],
                  "Status":{"State":"Unknown","Health":"Unknown"},"Oem":{"DeviceName":""}})"));
    EXPECT_EQ(inventory.volumes[1]["Drives"], parseJson(R"(["D1"])"));
    for (const char* line : {"Printing controller instance 0:    {\"FirmwareVersion\":\"1.0\",",
                             "Printing disk instance 0:    {", "Printing logical disk instance 1:"})
        EXPECT_THAT(logs(), HasSubstr(line));
}

TEST(StorageManager, HandsItsRecordsOutByKind) {
    logEverything(storageOnly);
    FakeFactory first({{.name = "c1", .disks = 2}, {.name = "c2"}});
    FakeFactory second({{.name = "c3", .disks = 0}});
    manager().cacheBuild();
    EXPECT_THAT(names(0), ElementsAre("c1", "c2", "c3"));
    EXPECT_EQ(names(1), names(0));
    EXPECT_THAT(names(2), ElementsAre("c1-0", "c1-1", "c2-0"));
    EXPECT_THAT(names(3), ElementsAre("c1", "c2", "c3"));
    for (const int kind : {-1, 4}) {
        const int before = timesLogged("Unsupported inventory type");
        std::vector<Json::Value> records(1, "old");
        manager().getInventoryJsonObject2(kind, records);
        EXPECT_THAT(records, IsEmpty());
        EXPECT_EQ(timesLogged("Unsupported inventory type"), before + 1);
    }
}

/// What goes wrong with the second of three controllers costs that one's records and no others.
TEST(StorageManager, AFailureIsContained) {
    logEverything(storageOnly);
    const auto fail = [] { throw std::runtime_error("broken"); };
    const auto failOddly = [] { throw 5; };
    FakeFactory factory({{.name = "a"},
                         {.name = "unread", .inventoryResult = -1},
                         {.name = "half", .disksResult = -2},
                         {.name = "throws", .discovered = fail, .polled = fail},
                         {.name = "odd", .discovered = failOddly, .polled = failOddly},
                         {.name = "z"}});
    FakeFactory refuses({{.name = "never"}});
    refuses.discoverResult = -7;
    FakeFactory throws({{.name = "lost"}});
    throws.throwsWithReferences = true;
    throws.polled = fail;
    FakeFactory last({{.name = "end"}});

    manager().cacheBuild();
    EXPECT_THAT(names(1), ElementsAre("a", "half", "z", "end"));
    EXPECT_THAT(names(2), ElementsAre("a-0", "half-0", "z-0", "end-0"));
    EXPECT_THAT(names(3), ElementsAre("a", "z", "end"));
    EXPECT_THAT(logs(), HasSubstr("discoverControllers() completed with -7."));
    EXPECT_THAT(logs(), HasSubstr("is left out: half way through"));
    EXPECT_TRUE(manager().isInventoryReady(0));
    manager().pollDevices();
    for (const std::size_t index : {0U, 1U, 2U, 5U}) {
        EXPECT_EQ(factory.controller(index).enabled, 1) << index;
        EXPECT_EQ(factory.controller(index).polls, 1) << index;
    }
    EXPECT_EQ(throws.controller(0).polls, 1) << "its factory's own search is another matter";
    EXPECT_EQ(last.controller(0).polls, 1);
    for (FakeFactory* const each : {&factory, &refuses, &throws, &last})
        each->shutdownFactory();
    EXPECT_EQ(FakeController::alive, 0) << "every reference has been released";
}

TEST(StorageManager, AListThatCannotBeHadIsNotAnEmptyOne) {
    logEverything(storageOnly);
    FakeFactory factory({{.name = "a"}});
    manager().cacheBuild();
    factory.discoverResult = -7;
    manager().cacheBuild();
    EXPECT_THAT(names(2), ElementsAre("a-0"));
    factory.discoverResult = 0;
    factory.throwsWithReferences = true;
    manager().cacheBuild();
    EXPECT_THAT(names(2), ElementsAre("a-0"));
}

struct Timing {
    int refresh;
    const char* calls;  ///< B for a build, P for a poll
};
void PrintTo(const Timing& timing, std::ostream* out) {
    *out << timing.refresh;
}
class StorageTiming : public testing::TestWithParam<Timing> {};

TEST_P(StorageTiming, BuildsAndPolls) {
    logEverything(std::string(storageOnly) + R"(,"CacheRefreshInSeconds":{"Global":)" +
                  std::to_string(GetParam().refresh) + "}");
    clockSpeed = 50;
    FakeFactory factory({{.name = "c"}});
    const RunningManager running;
    const std::string expected = GetParam().calls;
    EXPECT_TRUE(soon([&] { return factory.journal().size() >= expected.size(); }));
    EXPECT_THAT(factory.journal(), StartsWith(expected));
    EXPECT_THAT(logs(),
                HasSubstr("SAS refresh interval: " + std::to_string(GetParam().refresh) + "\n"));
}
INSTANTIATE_TEST_SUITE_P(Intervals, StorageTiming,
                         testing::Values(Timing{30, "BPPBPPPBP"}, Timing{45, "BPPPPBPPPPPB"},
                                         Timing{10, "BBPBPBP"}),
                         [](const auto& row) { return std::to_string(row.param.refresh); });

TEST(StorageManager, AnInvalidationBuildsAtOnceWithoutAPoll) {
    logEverything(storageOnly);
    std::atomic<bool> once{true};
    FakeFactory factory({{.name = "c", .discovered = [&] {
                              // The thread that builds may ask for the next build.
                              if (once.exchange(false))
                                  SASResourceManager::invalidateInventoryCache();
                          }}});
    RunningManager running;
    EXPECT_TRUE(soon([&] { return factory.count('B') == 2; }));
    EXPECT_TRUE(soon([&] { return timesLogged("Building storage cache.") == 2; }));
    std::this_thread::sleep_for(20ms);
    SASResourceManager::invalidateInventoryCache();
    EXPECT_TRUE(soon([&] { return factory.count('B') == 3; }));
    manager().init();  // a second loop would not return
    running.stop();
    EXPECT_EQ(factory.journal(), "BBBS");
    EXPECT_EQ(FakeController::alive, 0);
}

TEST(StorageManager, OutlivesAClockThatFails) {
    logEverything(storageOnly);
    clockSpeed = 100;
    clockFails = true;
    FakeFactory factory({{.name = "c"}});
    RunningManager running;
    EXPECT_TRUE(soon([&] { return timesLogged("Failed to get current time! (errno: 5)") >= 2; }));
    SASResourceManager::invalidateInventoryCache();
    EXPECT_TRUE(soon([&] { return factory.count('B') == 2; })) << "which needs no clock";
    EXPECT_EQ(factory.count('P'), 0);
    clockFails = false;
    EXPECT_TRUE(soon([&] { return factory.count('P') > 0; }));
    clockSpeed = 1;
    clockFails = true;
    running.stop();
}

TEST(StorageManager, AClockThatIsSetBackPutsNoBuildOff) {
    logEverything(std::string(storageOnly) + R"(,"CacheRefreshInSeconds":{"Global":3600})");
    clockSpeed = 20000;
    FakeFactory factory({{.name = "c"}});
    const RunningManager running;
    EXPECT_TRUE(soon([&] { return factory.count('B') == 2; }));
    clockSpeed = 200;  // which takes the clock back by nearly an hour
    EXPECT_TRUE(soon([&] { return factory.count('B') == 3; }));
}

TEST(StorageManager, ReadersGetThePreviousRecordsDuringABuild) {
    logEverything(storageOnly);
    std::atomic<bool> blocked{true};
    std::atomic<int> builds{0};
    FakeFactory factory({{.name = "c", .discovered = [&] {
                              ++builds;
                              soon([&] { return !blocked; });
                          }}});
    std::thread first([] { manager().cacheBuild(); });
    EXPECT_TRUE(soon([&] { return builds == 1; }));
    std::vector<Json::Value> records(1, "old");
    EXPECT_EQ(manager().getInventoryJsonObject2(1, records), 1);
    EXPECT_THAT(records, IsEmpty());
    EXPECT_FALSE(manager().isInventoryReady(7));
    clockSpeed = 1000;
    EXPECT_FALSE(manager().isRunning());
    clockSpeed = 1;
    EXPECT_THAT(
        logs(),
        HasSubstr("_cacheBuildInProgress = 1,ControllerInventory.size() = 0,retryCount = 2"));
    blocked = false;
    first.join();
    EXPECT_EQ(manager().getInventoryJsonObject2(1, records), 0);
    EXPECT_EQ(records.size(), 1U);
    blocked = true;
    std::thread second([] { manager().cacheBuild(); });
    EXPECT_TRUE(soon([&] { return builds == 2; }));
    EXPECT_EQ(manager().getInventoryJsonObject2(2, records), 1);
    EXPECT_THAT(names(2), ElementsAre("c-0"));
    EXPECT_TRUE(manager().isInventoryReady(8));
    blocked = false;
    second.join();
    EXPECT_THAT(logs(), Not(HasSubstr("SASRM requesting cache push"))) << "nobody asked";
}

TEST(StorageManager, PushesThatBuildsOwe) {
    logEverything(storageOnly);
    std::function<void()> duringBuild = [] { manager().isInventoryReady(8); };
    std::string revision = "1";
    FakeFactory factory({{.name = "c",
                          .revision = [&] { return revision; },
                          .discovered = [&] { duringBuild(); }}});
    const auto pushes = [] {
        manager().cacheBuild();
        return timesLogged("Dropping inventory send request");  // before the first one
    };
    EXPECT_EQ(pushes(), 1U) << "the aggregator's last round found it not ready";
    duringBuild = [] {};
    EXPECT_EQ(pushes(), 1U);
    SASResourceManager::sendInventorytToRMCOnCacheBuild();
    EXPECT_EQ(pushes(), 2U);
    duringBuild = [] { SASResourceManager::sendInventorytToRMCOnCacheBuild(); };
    EXPECT_EQ(pushes(), 3U);
    duringBuild = [] {};
    EXPECT_EQ(pushes(), 4U) << "the build before may not have seen what the push is about";
    EXPECT_EQ(pushes(), 4U);
    FakeFactory another({{.name = "d"}});
    EXPECT_EQ(pushes(), 5U) << "a controller that is new";
    EXPECT_EQ(pushes(), 5U);
    another.shutdownFactory();
    EXPECT_EQ(pushes(), 6U) << "and one that has gone";
    revision = "2";
    EXPECT_EQ(pushes(), 7U) << "firmware that is another one";
    EXPECT_EQ(pushes(), 7U);
    manager().rebuild();
    EXPECT_EQ(pushes(), 8U) << "somebody knows of something else";
    EXPECT_EQ(pushes(), 8U);
}

TEST(StorageManager, WarnsOfControllersWithoutEvents) {
    logEverything(storageOnly);
    FakeFactory factory({{.name = "c"}});
    manager().cacheBuild();
    EXPECT_TRUE(manager().isRunning());
    constexpr const char* warning =
        "LSI Events are disabled.Hence Storage Controllers is                                  "
        "     partially functional.";
    EXPECT_EQ(timesLogged(warning), 0U);
    FakeFactory mute({{.name = "m1", .reportsEvents = false}, {.name = "m2"}});
    EXPECT_TRUE(manager().isRunning());
    EXPECT_EQ(timesLogged(warning), 1U);
}

/// A factory and a controller that hang - a vendor's library, say - cost their own news only.
TEST(StorageManager, WhatHangsHoldsUpNobody) {
    logEverything(storageOnly);
    clockSpeed = 100;  // a poll waits 100 ms, a discovery 300 ms
    std::atomic<bool> hangs{false};
    const auto hangIfTold = [&] {
        while (hangs)
            std::this_thread::sleep_for(1ms);
    };
    FakeFactory sick({{.name = "s"}});
    sick.discovered = hangIfTold;
    FakeFactory half(
        {{.name = "h1", .discovered = hangIfTold, .polled = hangIfTold}, {.name = "h2"}});
    FakeFactory healthy({{.name = "z"}});
    manager().cacheBuild();
    hangs = true;
    manager().pollDevices();
    manager().cacheBuild();
    EXPECT_THAT(names(1), ElementsAre("s", "h1", "h2", "z")) << "what was known stands";
    EXPECT_EQ(healthy.count('B'), 2);
    EXPECT_EQ(timesLogged("has not come back"), 2U);
    const auto begin = Clock::now();
    for (int i = 0; i < 5; ++i)
        manager().pollDevices();
    EXPECT_LT(Clock::now() - begin, 90ms) << "it is not waited for again";
    EXPECT_EQ(healthy.controller(0).polls, 6);
    EXPECT_EQ(half.controller(1).polls, 6);
    EXPECT_EQ(half.controller(0).polls, 0);
    EXPECT_EQ(timesLogged("has not come back"), 2U) << "said once";
    hangs = false;
    EXPECT_TRUE(soon([&] {
        manager().pollDevices();
        return half.controller(0).polls > 1 && timesLogged("has come back") == 2;
    }));
    manager().cacheBuild();
    EXPECT_EQ(sick.count('B'), 3);
    EXPECT_THAT(names(1), ElementsAre("s", "h1", "h2", "z"));
}

/// A poll that waits five seconds for disks that hang puts the next one off by nothing.
TEST(StorageManager, PollsBeginEveryTenSecondsHoweverLongTheyTake) {
    logEverything(storageOnly);
    clockSpeed = 50;
    constexpr auto patience = 5000ms / 50;
    constexpr auto interval = 10000ms / 50;
    std::atomic<Clock::duration> last{};
    std::atomic<Clock::duration> shortest{1h};
    FakeFactory factory({{.name = "c", .polled = [&] { std::this_thread::sleep_for(patience); }}});
    factory.polled = [&] {
        const auto now = Clock::now().time_since_epoch();
        if (last.load() != Clock::duration{})
            shortest = std::min(shortest.load(), now - last.load());
        last = now;
    };
    const RunningManager running;
    EXPECT_TRUE(soon([&] { return factory.count('P') >= 6; }));
    EXPECT_LT(shortest.load(), interval + patience);
    EXPECT_GT(shortest.load(), interval / 2);
}

TEST(StorageManager, WhoAnswersLateIsPublishedThen) {
    logEverything(storageOnly);
    clockSpeed = 100;
    std::atomic<bool> hangs{true};
    FakeFactory factory({{.name = "a"}, {.name = "late", .discovered = [&] {
                                             while (hangs)
                                                 std::this_thread::sleep_for(1ms);
                                         }}});
    manager().cacheBuild();
    EXPECT_THAT(names(1), ElementsAre("a"));
    hangs = false;
    EXPECT_TRUE(soon([&] {
        manager().pollDevices();
        return names(1).size() == 2;
    }));
    EXPECT_THAT(names(2), ElementsAre("a-0", "late-0"));
    EXPECT_EQ(factory.count('B'), 1);
}

TEST(StorageManager, WhoAnswersLateAndNotWholeTakesNothingAway) {
    logEverything(storageOnly);
    clockSpeed = 100;
    std::atomic<bool> hangs{false};
    FakeFactory factory({{.name = "late", .revision = [&]() -> std::string {
                              if (!hangs) return "";
                              while (hangs)
                                  std::this_thread::sleep_for(1ms);
                              throw std::runtime_error("the list of its drives");
                          }}});
    manager().cacheBuild();
    hangs = true;
    manager().cacheBuild();
    hangs = false;
    EXPECT_TRUE(soon([&] {
        manager().pollDevices();
        return timesLogged("has come back") == 1;
    }));
    EXPECT_THAT(names(2), ElementsAre("late-0"));
    EXPECT_THAT(names(3), ElementsAre("late"));
}

TEST(StorageManager, WhoAnswersAfterItHasGoneIsNotShown) {
    logEverything(storageOnly);
    clockSpeed = 100;
    std::atomic<bool> hangs{true};
    FakeFactory factory({{.name = "gone", .discovered = [&] {
                              while (hangs)
                                  std::this_thread::sleep_for(1ms);
                          }}});
    manager().cacheBuild();
    factory.shutdownFactory();
    manager().cacheBuild();
    hangs = false;
    EXPECT_TRUE(soon([&] {
        manager().pollDevices();
        return timesLogged("has come back") == 1;
    }));
    EXPECT_THAT(names(1), IsEmpty());
}

TEST(StorageStop, WaitsForNobodyForLong) {
    logEverything(storageOnly);
    std::atomic<bool> hangs{true};
    const auto hang = [&] {
        while (hangs)
            std::this_thread::sleep_for(1ms);
    };
    FakeFactory factory({{.name = "c", .discovered = hang}});
    FakeFactory second;
    second.discovered = hang;
    RunningManager running;
    EXPECT_TRUE(soon([&] { return second.count('B') == 1; }));
    const auto begin = Clock::now();
    running.stop();
    EXPECT_LT(Clock::now() - begin, 2s);
    EXPECT_LT(logs().find("Resource manager stop in progress."),
              logs().find("Wait for resource manager stop completed"));
    EXPECT_EQ(factory.count('S'), 1);
    EXPECT_THAT(names(1), IsEmpty());
    hangs = false;
    EXPECT_TRUE(soon([] { return FakeController::alive == 0; })) << "it owns what it touches";
}

TEST(StorageStop, NeverWaitsForALoopThatDoesNotRun) {
    logEverything(storageOnly);
    FakeFactory factory({{.name = "c"}});
    manager().stopResourceManagerJob();
    EXPECT_THAT(logs(), HasSubstr("Wait for resource manager stop completed with 0."));
    EXPECT_EQ(factory.journal(), "");
    manager().init();  // a thread that comes late
    EXPECT_EQ(factory.journal(), "S");
    manager().stopResourceManagerJob();
}

struct StopMoment {
    const char* name;
    const char* journal;  ///< what the factory was asked in all
    bool ready;           ///< whether a build had been completed
    void (*script)(FakeFactory&, ControllerScript&);
};
void PrintTo(const StopMoment& moment, std::ostream* out) {
    *out << moment.name;
}
class StorageStopMoments : public testing::TestWithParam<StopMoment> {};

std::atomic<bool> hangs{false};
void noteAndHang() {
    hangs = true;
    hang();
}

TEST_P(StorageStopMoments, AreEndedSoonAndReportNothingHalf) {
    logEverything(storageOnly);
    clockSpeed = 200;
    ControllerScript script{.name = "c"};
    FakeFactory factory;
    GetParam().script(factory, script);
    FakeFactory second({script, {.name = "after"}});
    RunningManager running;
    EXPECT_TRUE(soon([] { return hangs.load(); }));
    // It is asked beside the one that hangs, on another thread.
    EXPECT_TRUE(soon([&] { return second.journal() + "S" == GetParam().journal; }));
    const auto begin = Clock::now();
    running.stop();
    EXPECT_LT(Clock::now() - begin, 5s);
    EXPECT_EQ(second.journal(), GetParam().journal);
    EXPECT_EQ(manager().isInventoryReady(0), GetParam().ready);
    EXPECT_EQ(names(1).empty(), !GetParam().ready);
    EXPECT_EQ(FakeController::alive, 0);
}
INSTANTIATE_TEST_SUITE_P(
    Moments, StorageStopMoments,
    testing::Values(
        StopMoment{
            "FactoryDiscovers", "BS", false,
            [](FakeFactory& factory, ControllerScript&) { factory.discovered = noteAndHang; }},
        StopMoment{"ControllerDiscovers", "BS", false,
                   [](FakeFactory&, ControllerScript& script) { script.discovered = noteAndHang; }},
        StopMoment{"FactoryPolls", "BPS", true,
                   [](FakeFactory& factory, ControllerScript&) { factory.polled = noteAndHang; }},
        StopMoment{"ControllerPolls", "BPS", true,
                   [](FakeFactory&, ControllerScript& script) { script.polled = noteAndHang; }}),
    [](const auto& row) { return row.param.name; });

TEST(StorageManager, AnybodyMayAskAnythingAtAnyTime) {
    logEverything(storageOnly);
    clockSpeed = 2000;
    FakeFactory factory({{.name = "a", .disks = 20}, {.name = "b", .disks = 20}});
    RunningManager running;
    std::atomic<bool> done{false};
    std::vector<std::thread> askers;
    for (unsigned seed = 0; seed < 3; ++seed) {
        askers.emplace_back([&done, seed] {
            std::mt19937 random(seed);
            std::vector<Json::Value> records;
            while (!done) {
                switch (random() % 5) {
                    case 0:
                        SASResourceManager::invalidateInventoryCache();
                        break;
                    case 1:
                        SASResourceManager::sendInventorytToRMCOnCacheBuild();
                        break;
                    case 2:
                        manager().isInventoryReady(static_cast<int>(random() % 9));
                        break;
                    case 3:
                        manager().isRunning();
                        break;
                    default:
                        manager().getInventoryJsonObject2(2, records);
                        EXPECT_EQ(records.size() % 20, 0U) << "half a controller";
                }
            }
        });
    }
    EXPECT_TRUE(soon([&] { return factory.count('B') > 50 && factory.count('P') > 0; }));
    running.stop();
    done = true;
    for (std::thread& asker : askers)
        asker.join();
    EXPECT_EQ(FakeController::alive, 0);
}

TEST(StorageEvents, CarryTheirRecordsAfterTheFirstInventory) {
    logEverything(storageOnly);
    FakeFactory factory({{.name = "c1"}, {.name = "c2", .disks = 0}});
    Rmc rmc;
    tav::test::Service service(100);
    ASSERT_TRUE(rmc.waitForCommands(1));
    const Json::Value inventory = parseJson(rmc.commands()[0].payload)["HostDataCollection"];
    EXPECT_EQ(inventory["StorageControllers"].size(), 2U);
    EXPECT_EQ(inventory["Drives"].size(), 1U);
    EXPECT_EQ(inventory["Volumes"].size(), 2U);
    EXPECT_TRUE(soon([] { return tavJsonAggregator::getInstance()->isInventorySent(); }));

    tavDiskInfo disk;
    disk.setSerialNumber("D7");
    SASResourceManager::generateEvent(538, "0123456789ABCDEF", true, disk);
    SASResourceManager::generateEvent(683, false, tavLogicalDiskInfo());
    manager().generateTestEvent(541, "0123456789ABCDEF", false);  // there is none
    constexpr struct {
        int id;
        const char *type, *key, *value;
    } samples[] = {{397, "Controller", "FirmwareVersion", "5.0.0.1139"},
                   {398, "Controller", "SerialNumber", "NotAvailable"},
                   {538, "Drive", "Revision", "SN03"},
                   {539, "Drive", "MediaType", "HDD"},
                   {540, "Drive", "PartNumber", "NotAvailable"},
                   {681, "Volume", "VolumeType", "RAID1"},
                   {683, "Volume", "DurableName", "600605B00C70BA40220AE7772BABEEB3"}};
    for (const auto& sample : samples)
        manager().generateTestEvent(sample.id, "FEDCBA9876543210", false);

    std::vector<Json::Value> events;
    for (const auto& command : rmc.commands()) {
        if (command.name == "MPEventGen") events.push_back(parseJson(command.payload));
    }
    ASSERT_EQ(events.size(), 2 + std::size(samples));
    EXPECT_EQ(events[0]["ID"].asInt(), 538);
    EXPECT_EQ(events[0]["Source"].asString(), "TAV");
    EXPECT_EQ(events[0]["PhysicalLocation"].asString(), "0123456789ABCDEF");
    EXPECT_EQ(events[0]["VariableData"]["Data"]["SerialNumber"].asString(), "D7");
    EXPECT_EQ(events[1]["ID"].asInt(), 683);
    EXPECT_FALSE(events[1].isMember("PhysicalLocation"));
    for (std::size_t i = 0; i < std::size(samples); ++i) {
        const Json::Value& event = events[2 + i];
        EXPECT_EQ(event["ID"].asInt(), samples[i].id);
        EXPECT_EQ(event["Source"].asString(), "TAV-CLI");
        EXPECT_EQ(event["PhysicalLocation"].asString(), "FEDCBA9876543210");
        EXPECT_EQ(event["VariableData"]["Type"].asString(), samples[i].type);
        EXPECT_EQ(event["VariableData"]["EventInfo"].asString(), "Injected Event");
        EXPECT_EQ(event["VariableData"]["Data"][samples[i].key].asString(), samples[i].value);
    }
}

}  // namespace
