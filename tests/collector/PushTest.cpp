#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include <poll.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "collector/tavJobManager.h"
#include "core/Logger.h"
#include "core/News.h"
#include "core/tavUtils.h"
#include "host/HostResourceManager.h"
#include "rmc/DeliveryRecord.h"
#include "rmc/tavEventHandler.h"
#include "rmc/tavipmi.h"
#include "tests/support/FailingThreads.h"
#include "tests/support/Rmc.h"
#include "tests/support/Service.h"

namespace {

using namespace std::chrono_literals;
using tav::sim::IpmiRequest;
using tav::sim::Reply;
using tav::test::clockFails;
using tav::test::clockSpeed;
using tav::test::logEverything;
using tav::test::logs;
using tav::test::parseJson;
using tav::test::Rmc;
using tav::test::Service;
using tav::test::writeCommand;
using tav::test::writeConfiguration;
using tav::test::writeHostCommands;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Clock = std::chrono::steady_clock;

constexpr const char* hostOnly = R"("EnableResources":["HostOSInfo"])";

tavEvent event(int id, std::string location, Json::Value data = Json::Value()) {
    return {id,  std::move(location), "M",  false, "2019-03-07 14:05:09",
            "P", std::move(data),     "TAV"};
}

/// Lets events pass that wait for the first inventory.
void sendFirstInventory(const Rmc& rmc) {
    {
        Service service(200);
        while (!tavJsonAggregator::getInstance()->isInventorySent() || rmc.commands().size() < 2) {
            std::this_thread::sleep_for(1ms);
        }
    }
    clockSpeed = 200;  // a service that has stopped leaves the real one
}

TEST(Push, FirstInventoryFollowsTheReadinessWait) {
    logEverything(hostOnly);
    writeHostCommands();
    Rmc rmc;
    Service service(100);
    ASSERT_TRUE(rmc.waitForCommands(2));
    service.stop();
    EXPECT_THAT(rmc.names(), ElementsAre("MPEventGen", "WriteInventory"));
    const Json::Value document = parseJson(rmc.commands()[1].payload);
    ASSERT_EQ(document.getMemberNames(), std::vector<std::string>{"HostDataCollection"});
    ASSERT_EQ(document["HostDataCollection"].getMemberNames(), std::vector<std::string>{"Oem"});
    const Json::Value& host = document["HostDataCollection"]["Oem"]["HostOSInfo"];
    EXPECT_EQ(host["OSName"].asString(), "TestOS");
    EXPECT_EQ(host["OSMemorySummary"]["TotalSystemMemoryGiB"].asDouble(), 4.0);
    EXPECT_THAT(rmc.commands()[1].payload, Not(HasSubstr("\n")));
    EXPECT_THAT(rmc.violations(), IsEmpty());
    EXPECT_THAT(logs(), HasSubstr("184 JSON_AGGR: Dropping inventory send request"));
    EXPECT_EQ(rmc.device().stillOpen(), 0U);
}

TEST(Push, WithoutARequestTheFirstInventoryComesOneIntervalLater) {
    logEverything(R"("EnableResources":["HostOSInfo"], "PushInventoryFrequencyInMinutes": 60)");
    writeHostCommands();
    Rmc rmc;
    Service service(5000, false);
    ASSERT_TRUE(rmc.waitForCommands(1));
    const auto begin = Clock::now();
    ASSERT_TRUE(rmc.waitForCommands(3)) << "one inventory after another";
    EXPECT_GT(Clock::now() - begin, 700ms) << "3,600 s of the fast clock and more";
    EXPECT_THAT(rmc.names(), ElementsAre("MPEventGen", "WriteInventory", "WriteInventory"));
}

TEST(Push, EachDoorBellRequestCausesOnePush) {
    logEverything(R"("EnableResources":["HostOSInfo"], "IPMIDoorBellMonitorInterval": 1)");
    writeHostCommands();
    Rmc rmc;
    rmc.ring({"", "WriteInventory", "other", "please WriteInventory now", ""});
    Service service(200);
    ASSERT_TRUE(rmc.waitForCommands(4));
    std::this_thread::sleep_for(700ms);  // two more looks at the door bell
    EXPECT_THAT(rmc.names(),
                ElementsAre("MPEventGen", "WriteInventory", "WriteInventory", "WriteInventory"));
}

TEST(Push, AManagerThatIsNotReadyDelaysItForNineRoundsAndThenPushesByItself) {
    logEverything(hostOnly);
    writeHostCommands();
    writeCommand("esxtop", "while [ ! -e /tmp/go ]; do sleep 0.01; done");
    Rmc rmc;
    Service service(100);
    while (!tavJsonAggregator::getInstance()->isInventorySent())
        std::this_thread::sleep_for(1ms);
    EXPECT_THAT(logs(), HasSubstr("iteration no. 9"));
    EXPECT_THAT(logs(), HasSubstr("271 JSON_AGGR: RM 1 not ready with inventory"));
    EXPECT_THAT(logs(), HasSubstr("404 JSON_AGGR: No inventory information found!"));
    EXPECT_THAT(rmc.names(), ElementsAre("MPEventGen"));
    tav::test::writeFile("/tmp/go", "");
    ASSERT_TRUE(rmc.waitForCommands(2));
    EXPECT_THAT(rmc.names(), ElementsAre("MPEventGen", "WriteInventory"));
    EXPECT_THAT(logs(), HasSubstr("hostRM Requesting cache push"));
}

TEST(Push, NothingEnabledSendsNothing) {
    logEverything(R"("EnableResources":[])");
    Rmc rmc;
    Service service(1000);
    while (!tavJsonAggregator::getInstance()->isInventorySent())
        std::this_thread::sleep_for(1ms);
    service.stop();
    EXPECT_THAT(rmc.device().requests(), IsEmpty());
}

TEST(Push, AFailedTransferIsLoggedAndTheNextRequestSendsTheWholeDocument) {
    logEverything(hostOnly);
    writeHostCommands();
    Rmc rmc;
    std::atomic<int> inventories{0};
    rmc.intercept([&](const IpmiRequest& request) -> std::optional<Reply> {
        const bool inventory =
            request.data.size() == 60 && request.data[2] == 0x14 && request.data[3] == 'W';
        if (inventory && ++inventories == 1) return Reply::answer({4, 0, 0, 1});
        return std::nullopt;
    });
    Service service(200);
    while (inventories == 0)
        std::this_thread::sleep_for(1ms);
    while (!tavJsonAggregator::getInstance()->isInventorySent())
        std::this_thread::sleep_for(1ms);
    EXPECT_THAT(logs(), HasSubstr("[Cli entries full] and Cmd Exit Status is 0x1"));
    EXPECT_THAT(
        logs(),
        HasSubstr("491 JSON_AGGR: An Error occurred in delivering inventory string to RMC!"));
    tavJsonAggregator::getInstance()->sendInventory(true);
    ASSERT_TRUE(rmc.waitForCommands(2));
    EXPECT_EQ(rmc.names().back(), "WriteInventory");
}

/// Refuses inventories while `failing`.
void refuseInventories(Rmc& rmc, const std::atomic<bool>& failing, std::atomic<int>& tries) {
    rmc.intercept([&](const IpmiRequest& request) -> std::optional<Reply> {
        const bool inventory =
            request.data.size() == 60 && request.data[2] == 0x14 && request.data[3] == 'W';
        if (inventory) ++tries;
        if (!inventory || !failing) return std::nullopt;
        return Reply::answer({4, 0, 0, 1});
    });
}

template <class Condition>
bool becomesTrue(Condition condition) {
    const auto begin = Clock::now();
    while (!condition()) {
        if (Clock::now() - begin > 20s) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

TEST(Push, OnRequestAFailedInventoryIsSentAgainLaterAndLaterUntilOneIsAcknowledged) {
    logEverything(hostOnly);
    writeHostCommands();
    std::atomic<bool> failing{true};
    std::atomic<int> tries{0};
    Rmc rmc;
    refuseInventories(rmc, failing, tries);
    tavJsonAggregator& aggregator = *tavJsonAggregator::getInstance();
    aggregator.repeatUntilAcknowledged();
    Service service(500);
    std::vector<Clock::time_point> moments;
    for (int number = 1; number <= 7; ++number) {
        ASSERT_TRUE(becomesTrue([&] { return tries >= number; }));
        moments.push_back(Clock::now());
        if (number == 6) failing = false;
    }
    ASSERT_TRUE(becomesTrue([&] { return aggregator.acknowledgedInventories() >= 7; }));
    const int sent = tries;
    const std::vector<int> minutes = {1, 2, 4, 8, 10, 10};
    for (std::size_t i = 0; i < minutes.size(); ++i) {
        const auto pause = (moments[i + 1] - moments[i]) * 500;
        EXPECT_GE(pause, std::chrono::minutes(minutes[i]) - 20s) << i;
        EXPECT_LT(pause, std::chrono::minutes(minutes[i]) + 150s) << i;
    }
    std::this_thread::sleep_for(1400ms);  // more than ten minutes
    EXPECT_EQ(tries, sent);
}

TEST(Push, OnRequestALostEventIsMadeGoodByAnInventoryAMinuteLater) {
    logEverything(hostOnly);
    writeHostCommands();
    Rmc rmc;
    tavJsonAggregator& aggregator = *tavJsonAggregator::getInstance();
    aggregator.repeatUntilAcknowledged();
    Service service(200);
    ASSERT_TRUE(rmc.waitForCommands(2));
    ASSERT_TRUE(becomesTrue([&] { return aggregator.acknowledgedInventories() == 1; }));
    rmc.intercept([](const IpmiRequest&) { return Reply::answer({5, 0, 0, 0}); });
    EXPECT_EQ(tavEventHandler().deliverEvent(event(538, "x")), tav::EventOutcome::Failed);
    rmc.intercept(nullptr);
    std::this_thread::sleep_for(150ms);
    EXPECT_EQ(aggregator.acknowledgedInventories(), 1U) << "only half a minute has passed";
    EXPECT_TRUE(becomesTrue([&] { return aggregator.acknowledgedInventories() == 2; }));
    EXPECT_EQ(tavEventHandler().deliverEvent(event(538, "x")), tav::EventOutcome::Delivered);
    std::this_thread::sleep_for(700ms);  // more than two minutes
    EXPECT_EQ(aggregator.acknowledgedInventories(), 2U);
}

/// A manager that notes for which inventories it is asked.
class NotingManager final : public tavResourceManager {
 public:
    void cacheBuild() override {}
    void stopResourceManagerJob() override {}
    void init() override {}
    void startInventory() override {}
    int getInventoryJsonObject(std::vector<Json::Value>& records) override {
        numbers.push_back(tavJsonAggregator::getInstance()->begunInventories());
        if (asked) std::exchange(asked, nullptr)();
        if (!hasNothing) records.emplace_back(Json::objectValue)["Name"] = "x";
        return 0;
    }
    bool isRunning() override { return true; }
    bool isInventoryReady(int) override { return true; }

    std::vector<std::uint64_t> numbers;
    std::atomic<bool> hasNothing{false};
    std::function<void()> asked;  ///< called once, while an inventory is collected
};

/// The only manager of the services in these tests.
NotingManager& notingManager() {
    static NotingManager manager;
    tav::registerManager(
        HOST_OS_INFO, +[]() -> tavResourceManager* { return &manager; });
    return manager;
}

/// Of a service whose first inventory has been acknowledged.
class LostEvents : public testing::Test {
 protected:
    void SetUp() override {
        logEverything(hostOnly);
        aggregator_.repeatUntilAcknowledged();
        service_.emplace(500);
        ASSERT_TRUE(becomesAcknowledged(1));
    }

    void loseOne() {
        rmc_.intercept([](const IpmiRequest&) { return Reply::answer({5, 0, 0, 0}); });
        EXPECT_EQ(tavEventHandler().deliverEvent(event(538, "x")), tav::EventOutcome::Failed);
        rmc_.intercept(nullptr);
    }

    bool becomesAcknowledged(std::uint64_t number) {
        return becomesTrue([&] { return aggregator_.acknowledgedInventories() == number; });
    }

    NotingManager& manager_ = notingManager();
    tavJsonAggregator& aggregator_ = *tavJsonAggregator::getInstance();
    Rmc rmc_;
    std::optional<Service> service_;
};

TEST_F(LostEvents, WhileAnInventoryIsCollectedAreMadeGoodByAnother) {
    manager_.asked = [&] { loseOne(); };
    aggregator_.sendInventory(true);
    EXPECT_TRUE(becomesAcknowledged(2));
    EXPECT_TRUE(becomesAcknowledged(3)) << "the second may be older than the event's cause";
}

TEST_F(LostEvents, AreStillToBeMadeGoodWhenTheManagersHaveNothing) {
    manager_.hasNothing = true;
    loseOne();
    ASSERT_TRUE(becomesTrue([&] { return aggregator_.begunInventories() == 2; }));
    EXPECT_EQ(aggregator_.acknowledgedInventories(), 1U);
    manager_.hasNothing = false;
    EXPECT_TRUE(becomesAcknowledged(3));
}

TEST(Push, ARequestWhileAnInventoryIsOnItsWayIsAnsweredByTheNextOne) {
    logEverything(hostOnly);
    writeHostCommands();
    tavJsonAggregator& aggregator = *tavJsonAggregator::getInstance();
    std::atomic<int> asked{0};
    Rmc rmc;
    rmc.intercept([&](const IpmiRequest& request) -> std::optional<Reply> {
        const bool begins =
            request.data.size() == 60 && request.data[2] == 0x14 && request.data[3] == 'W';
        if (begins && ++asked == 1) {
            for (int time = 0; time < 3; ++time)
                aggregator.sendInventory(true);
        }
        return std::nullopt;
    });
    Service service(200);
    EXPECT_TRUE(becomesTrue([&] { return aggregator.acknowledgedInventories() == 2; }));
    std::this_thread::sleep_for(100ms);  // 20 s of the fast clock
    EXPECT_EQ(asked, 2) << "one for all three";
}

TEST(Push, ManagersLearnWhichInventoriesTheControllerKnows) {
    logEverything(hostOnly);
    const NotingManager& manager = notingManager();
    std::atomic<bool> failing{true};
    std::atomic<int> tries{0};
    Rmc rmc;
    refuseInventories(rmc, failing, tries);
    tavJsonAggregator& aggregator = *tavJsonAggregator::getInstance();
    tavJsonAggregator::collectInventory();  // not for the controller
    Service service(200);
    ASSERT_TRUE(becomesTrue([&] { return aggregator.isInventorySent(); }));
    EXPECT_EQ(aggregator.acknowledgedInventories(), 0U);
    failing = false;
    aggregator.sendInventory(true);
    ASSERT_TRUE(becomesTrue([&] { return aggregator.acknowledgedInventories() == 2; }));
    service.stop();
    EXPECT_THAT(manager.numbers, ElementsAre(0U, 1U, 2U));
}

struct StopMoment {
    const char* name;
    const char* hangingCommand;  ///< of the host; null for none
    bool deadController;
    std::chrono::milliseconds moment;  ///< real time after the start
};
void PrintTo(const StopMoment& moment, std::ostream* out) {
    *out << moment.name;
}

/// How many descriptors are open once those that live as long as the process are, and the far end
/// of the simulated device that was opened last.
std::size_t descriptorsWithSingletons() {
    CPlusPlusLogging::Logger::loggerInit();
    HostResourceManager::getInstance();
    tavJsonAggregator::getInstance();
    tavIPMIDBService::getInstance();
    tav::newsDescriptor();
    tavUtils().getIPAddresses();
    { const ipmi::IPMIUtils opened; }
    return tav::test::openDescriptors();
}

class StopAt : public testing::TestWithParam<StopMoment> {};

TEST_P(StopAt, EndsSoon) {
    const StopMoment& at = GetParam();
    logEverything(hostOnly);
    writeHostCommands();
    if (at.hangingCommand != nullptr) writeCommand(at.hangingCommand, "sleep 1000");
    Rmc rmc;
    if (at.deadController) rmc.intercept([](const IpmiRequest&) { return Reply::never(); });
    const std::size_t descriptors = descriptorsWithSingletons();
    Service service(at.deadController ? 20 : 100);
    std::this_thread::sleep_for(at.moment);
    const auto begin = Clock::now();
    service.stop();
    EXPECT_LT(Clock::now() - begin, 1500ms);
    EXPECT_EQ(rmc.device().stillOpen(), 0U);
    EXPECT_EQ(tav::test::openDescriptors(), descriptors);
}

INSTANTIATE_TEST_SUITE_P(
    Moments, StopAt,
    testing::Values(StopMoment{"AtOnce", nullptr, false, 0ms},
                    StopMoment{"WhileTheHostSettles", nullptr, false, 50ms},
                    StopMoment{"WhileIdle", nullptr, false, 600ms},
                    StopMoment{"InTheBootLog", "awk", false, 250ms},
                    StopMoment{"InTheVersionCommand", "localcli", false, 250ms},
                    StopMoment{"InTheMemorySample", "esxtop", false, 250ms},
                    StopMoment{"InATransferToADeadController", nullptr, true, 900ms}),
    [](const auto& moment) { return moment.param.name; });

TEST(Push, StartsAgainAfterAStopAndNotTwice) {
    logEverything(R"("EnableResources":[], "IPMIDoorBellMonitorInterval": 1)");
    Rmc rmc;
    clockSpeed = 500;
    for (int round = 0; round < 3; ++round) {
        tavJsonAggregator::getInstance()->sendInventory(false);
        tavIPMIDBService::starttavIPMIDBService();
        tavJsonAggregator::getInstance()->sendInventory(false);
        tavIPMIDBService::starttavIPMIDBService();
        const std::size_t asked = rmc.device().requests().size();
        EXPECT_TRUE(becomesTrue([&] { return rmc.device().requests().size() > asked; })) << round;
        tavJsonAggregator::stoptavJsonAggregator();
        tavIPMIDBService::stoptavIPMIDBService();
    }
    EXPECT_THAT(logs(), HasSubstr("The push thread already runs"));
    EXPECT_THAT(logs(), HasSubstr("The door-bell monitor already runs"));
}

TEST(Push, ARequestThatAStopHasLeftIsAnsweredAfterTheNextStart) {
    logEverything(R"("EnableResources":["HostOSInfo"], "PushInventoryFrequencyInMinutes": 60)");
    writeHostCommands();
    Rmc rmc;
    sendFirstInventory(rmc);
    tavJsonAggregator::getInstance()->sendInventory(true);
    Service service(200, false);
    EXPECT_TRUE(rmc.waitForCommands(3)) << "and not 3,600 s later, which are 18 here";
    EXPECT_THAT(rmc.names(), ElementsAre("MPEventGen", "WriteInventory", "WriteInventory"));
}

TEST(Push, AFailingClockEndsTheWaitsAndTheStopStillJoins) {
    logEverything(hostOnly);
    writeHostCommands();
    Rmc rmc;
    clockFails = true;
    Service service(100);
    while (logs().find("HOST_RM: Failed to get current time! (errno: 5)") == std::string::npos) {
        std::this_thread::sleep_for(1ms);
    }
    service.stop();
    EXPECT_THAT(rmc.names(), ElementsAre("MPEventGen"));
    const std::string log = logs();
    const std::size_t ended = log.find("142 JSON_AGGR: Failed to get current time! (errno: 5)");
    EXPECT_NE(ended, std::string::npos);
    EXPECT_EQ(log.find("JSON_AGGR: Failed to get current time!", ended + 20), std::string::npos);
    EXPECT_THAT(logs(), HasSubstr("122 IPMI_DB: Failed to get current time! (error no: 5)"));
}

TEST(Push, ThreadsThatCannotBeCreatedAreLoggedAndTheStopGoesOn) {
    logEverything(hostOnly);
    {
        const tav::test::FailingThreads failing;
        EXPECT_FALSE(tavJobManager::getInstance()->startResourceManagers());
        const Service service(100);
    }
    EXPECT_THAT(logs(), HasSubstr("114 JOB_MGR: Error:unable to create thread"));
    EXPECT_THAT(logs(), HasSubstr("JSON_AGGR: Error: Unable to create thread: "));
    EXPECT_THAT(logs(), HasSubstr("165 IPMI_DB: Error: Unable to create thread: "));
    EXPECT_THAT(logs(), HasSubstr("050 IPMI_DB: Error: Unable to join thread: 22"));
}

TEST(Events, TheirJson) {
    logEverything(hostOnly);
    writeHostCommands();
    Rmc rmc;
    sendFirstInventory(rmc);
    const std::size_t before = rmc.commands().size();
    Json::Value data;
    data["Text"] = "line\nend \xff";
    tavEventHandler handler;
    handler.generateEvent(event(538, "0003000106010005", data));
    for (const char* none :
         {"", "NotApplicable", "Not Applicable", "NotAvailable", "Not Available"}) {
        handler.generateEvent(event(539, none, Json::Value(Json::objectValue)));
    }
    handler.generateEvent(event(540, "NOT AVAILABLE"));
    const auto commands = rmc.commands();
    ASSERT_EQ(commands.size(), before + 7);
    EXPECT_THAT(rmc.violations(), IsEmpty());

    const Json::Value first = parseJson(commands[before].payload);
    Json::Value expected;
    expected["HostName"] = tavUtils().readHostName();
    expected["OSVersion"] = "1.2";
    expected["OSType"] = 104;
    expected["IPv4Addresses"][0]["Address"] = "127.0.0.1";
    expected["ID"] = 538;
    expected["Source"] = "TAV";
    expected["EventTime"] = "2019-03-07 14:05:09";
    expected["PhysicalLocation"] = "0003000106010005";
    expected["VariableData"]["Text"] = first["VariableData"]["Text"];
    EXPECT_EQ(first, expected);
    EXPECT_THAT(commands[before].payload, Not(testing::ContainsRegex("[\n\r\t]|: ")));
    for (std::size_t i = before + 1; i < before + 6; ++i) {
        const Json::Value json = parseJson(commands[i].payload);
        EXPECT_FALSE(json.isMember("PhysicalLocation"));
        EXPECT_TRUE(json.isMember("VariableData")) << "an empty object is not nothing";
    }
    const Json::Value last = parseJson(commands.back().payload);
    EXPECT_EQ(last["PhysicalLocation"].asString(), "NOT AVAILABLE");
    EXPECT_FALSE(last.isMember("VariableData"));
}

TEST(Events, OnlyThoseOfTheHostPassBeforeTheFirstInventory) {
    clockSpeed = 1000;
    Rmc rmc;
    std::vector<int> dropped;
    for (const int id : {356, 538, 359, 680, 360, 708, 434, 435, 433}) {
        const auto outcome = tavEventHandler().deliverEvent(event(id, "x"));
        if (outcome == tav::EventOutcome::Dropped) dropped.push_back(id);
    }
    EXPECT_THAT(dropped, ElementsAre(538, 680, 708, 433));
    std::vector<int> ids;
    for (const auto& command : rmc.commands())
        ids.push_back(parseJson(command.payload)["ID"].asInt());
    EXPECT_THAT(ids, ElementsAre(356, 359, 360, 434, 435));
}

TEST(Events, TheLastOnesAreKeptWithWhatBecameOfThem) {
    clockSpeed = 1000;
    Rmc rmc;
    tav::newsTaken();
    tavEventHandler().deliverEvent(event(356, "x"));
    rmc.intercept([](const IpmiRequest&) { return Reply::answer({5, 0, 0, 0}); });
    Json::Value forwarded;
    forwarded["ID"] = "no number";
    EXPECT_EQ(tavEventHandler().forwardEvent(forwarded), tav::EventOutcome::Failed);
    tavEventHandler().deliverEvent(event(538, "x"));
    const std::vector<tav::EventNote> events = tav::recentEvents();
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[0].outcome, tav::EventOutcome::Delivered);
    EXPECT_EQ(events[0].text, rmc.commands().at(0).payload) << "as it was sent";
    EXPECT_EQ(events[1].id, 0);
    EXPECT_EQ(events[1].why, "Provided command not supported");
    EXPECT_EQ(events[2].outcome, tav::EventOutcome::Dropped);
    EXPECT_EQ(parseJson(events[2].text)["ID"], 538);
    pollfd news{tav::newsDescriptor(), POLLIN, 0};
    EXPECT_EQ(::poll(&news, 1, 0), 1);
}

TEST(Events, WhatIsKeptOfThemIsBounded) {
    const std::string large(60'000, 'x');
    for (int id = 1; id <= 300; ++id)
        tavEventHandler().deliverEvent(event(1000 + id, "x"));
    EXPECT_EQ(tav::recentEvents().size(), 100U);
    EXPECT_EQ(tav::recentEvents().back().id, 1300);
    const tav::EventTotals totals = tav::eventTotals();
    EXPECT_EQ(totals.size(), 65U);
    EXPECT_EQ(totals.at({0, tav::EventOutcome::Dropped}), 236U);
    for (int id = 1; id <= 5; ++id)
        tavEventHandler().deliverEvent(event(id, "x", Json::Value(large)));
    EXPECT_EQ(tav::recentEvents().size(), 2U);
    tavEventHandler().deliverEvent(event(6, "x", Json::Value(large + large + large)));
    EXPECT_EQ(tav::recentEvents().size(), 1U) << "the last one is kept, whatever its size";
}

TEST(Events, FailuresAreLogged) {
    logEverything();
    clockSpeed = 1000;
    Rmc rmc;
    rmc.intercept([](const IpmiRequest&) { return Reply::answer({5, 0, 0, 0}); });
    tavEventHandler().generateEvent(event(356, "x"));
    EXPECT_THAT(logs(), HasSubstr("EVT_HANDLER: FAILURE in logging event to RMC"));
    const tav::test::FailingThreads failing;
    EXPECT_EQ(tavEventHandler().deliverEvent(event(356, "x")), tav::EventOutcome::Failed);
    EXPECT_THAT(logs(), HasSubstr("EVT_HANDLER: Unable to spawn a thread to handle event."));
}

TEST(Events, TwoHundredFromTwentyThreadsWhileAnInventoryIsSent) {
    logEverything(hostOnly);
    writeHostCommands();
    Rmc rmc;
    sendFirstInventory(rmc);
    const std::size_t before = rmc.commands().size();
    const std::string document = "{\"Inventory\":\"" + std::string(100'000, 'x') + "\"}";
    constexpr int threads = 20;
    constexpr int each = 10;
    std::vector<std::thread> raisers;
    raisers.emplace_back(
        [&] { EXPECT_EQ(ipmi::IPMIUtils::RMC_CLI_Cmd_Execution("WriteInventory", document), 0); });
    for (int thread = 0; thread < threads; ++thread) {
        raisers.emplace_back([thread] {
            for (int number = 0; number < each; ++number) {
                Json::Value data;
                data["Thread"] = thread;
                data["Number"] = number;
                tavEventHandler().generateEvent(event(538, "x", data));
            }
        });
    }
    for (std::thread& raiser : raisers)
        raiser.join();
    EXPECT_THAT(rmc.violations(), IsEmpty());
    const auto commands = rmc.commands();
    ASSERT_EQ(commands.size(), before + threads * each + 1);
    std::vector<int> next(threads, 0);
    for (std::size_t i = before; i < commands.size(); ++i) {
        if (commands[i].name == "WriteInventory") continue;
        const Json::Value data = parseJson(commands[i].payload)["VariableData"];
        EXPECT_EQ(data["Number"].asInt(), next.at(data["Thread"].asUInt())++);
    }
}

}  // namespace
