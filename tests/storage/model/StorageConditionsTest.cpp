#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "storage/model/storage_conditions.h"

namespace {

using tav::Condition;
using tav::DiskReadings;

Condition controllerWith(const std::vector<TAV_RESOURCE_STATE>& portStates) {
    std::vector<tavStorageControllerPortInfo> ports(portStates.size());
    for (std::size_t index = 0; index < ports.size(); ++index)
        ports[index].setState(portStates[index]);
    return tav::controllerCondition(ports);
}

TEST(ControllerCondition, FollowsFromItsPorts) {
    constexpr auto up = TAV_STATE_RUNNING;
    constexpr auto made = TAV_STATE_CREATED;
    constexpr auto back = TAV_STATE_RECOVERY;
    constexpr auto gone = TAV_STATE_OFFLINE;
    constexpr auto odd = TAV_STATE_CANCEL;
    struct Row {
        std::vector<TAV_RESOURCE_STATE> ports;
        TAV_RESOURCE_STATE state;
        TAV_RESOURCE_HEALTH health;
    };
    const Row rows[] = {
        {{}, TAV_STATE_RUNNING, TAV_HEALTH_OK},
        {{up, made, up}, TAV_STATE_RUNNING, TAV_HEALTH_OK},
        {{back, back, up, up}, TAV_STATE_RECOVERING, TAV_HEALTH_WARNING},
        {{back, back, back, up}, TAV_STATE_RECOVERING, TAV_HEALTH_CRITICAL},
        {{back}, TAV_STATE_RECOVERING, TAV_HEALTH_CRITICAL},
        {{gone, odd, up, up}, TAV_STATE_DEGRADED, TAV_HEALTH_WARNING},
        {{gone, back, up, up}, TAV_STATE_DEGRADED, TAV_HEALTH_WARNING},
        {{gone, odd, gone, up}, TAV_STATE_DEGRADED, TAV_HEALTH_CRITICAL},
        {{gone, up}, TAV_STATE_DEGRADED, TAV_HEALTH_CRITICAL},
        {{gone, gone}, TAV_STATE_OFFLINE, TAV_HEALTH_CRITICAL},
        {{gone, odd}, TAV_STATE_FAILED, TAV_HEALTH_CRITICAL},
        {{odd, odd}, TAV_STATE_FAILED, TAV_HEALTH_CRITICAL},
    };
    for (const Row& row : rows) {
        const Condition found = controllerWith(row.ports);
        EXPECT_EQ(found.state, row.state) << testing::PrintToString(row.ports);
        EXPECT_EQ(found.health, row.health) << testing::PrintToString(row.ports);
    }
}

TEST(PortCondition, FollowsFromTheHostsState) {
    const auto at = [](std::optional<std::string> state, long since, long now) {
        const tav::PortCondition found = tav::portCondition(state, since, now);
        return std::string(tav::displayText(found.condition.state)) + '/' +
               tav::displayText(found.condition.health) + ' ' + std::to_string(found.recoverySince);
    };
    EXPECT_EQ(at(std::nullopt, 5, 100), "Offline/Critical 0");
    EXPECT_EQ(at("RUNNING", 5, 100), "Running/OK 0");
    EXPECT_EQ(at("created", 0, 100), "Created/OK 0");
    EXPECT_EQ(at("recovery", 0, 100), "Running/OK 100");
    EXPECT_EQ(at("recovery", 100, 159), "Running/OK 100");
    EXPECT_EQ(at("recovery", 100, 160), "Recovery/Warning 100");
    EXPECT_EQ(at("deleted/recovery", 100, 160), "Deleted/Recovery/Critical 0");
    EXPECT_EQ(at("no state of ours", 0, 1), "Unknown/Critical 0");
    EXPECT_EQ(at("", 5, 100), "Offline/Critical 0") << "as one that cannot be read";
}

TEST(ControllerTransition, OnlyThreeAreReported) {
    int reported = 0;
    for (const auto from :
         {TAV_HEALTH_UNKNOWN, TAV_HEALTH_CRITICAL, TAV_HEALTH_OK, TAV_HEALTH_WARNING}) {
        for (const auto to :
             {TAV_HEALTH_UNKNOWN, TAV_HEALTH_CRITICAL, TAV_HEALTH_OK, TAV_HEALTH_WARNING}) {
            const auto* const transition = tav::controllerTransition(from, to);
            if (transition == nullptr) continue;
            ++reported;
            const bool recovered = from == TAV_HEALTH_CRITICAL && to == TAV_HEALTH_OK;
            EXPECT_EQ(transition->eventId, recovered ? 397 : 398);
            EXPECT_EQ(transition->serviceEvent, !recovered);
        }
    }
    EXPECT_EQ(reported, 3);
}

std::string judged(const DiskReadings& readings, bool namesTemperatures = false) {
    const tav::DiskJudgement judgement = tav::judgeDisk(readings, "unreadable", namesTemperatures);
    return std::string(tav::displayText(judgement.condition.state)) + ' ' + judgement.eventInfo;
}

TEST(DiskJudgement, ByErrorsWearAndTemperature) {
    EXPECT_EQ(judged({.errors = 0}), "Running ");
    EXPECT_EQ(judged({.errors = -1, .wear = 99}), "Failed unreadable");
    EXPECT_EQ(judged({.wear = 94}), "Running ");
    EXPECT_EQ(
        judged({.wear = 95}),
        "Predictive failure [SSD Wear percentage (95); Threshold (95)], [0 errors reported in "
        "Summary SMART error log / Informational Exceptions log page.]");
    EXPECT_EQ(
        judged({.errors = 7}, true),
        "Predictive failure [SSD Wear percentage (-1); Threshold (95)], [Current Temp (-1 C); "
        "Max Operating Temperature (-1 C)], [7 errors reported in Summary SMART error log / "
        "Informational Exceptions log page.]");
    struct Row {
        int current, maximum;
        bool runs;
    };
    for (const Row& row :
         {Row{60, 60, true}, Row{61, 60, false}, Row{255, 60, true}, Row{100, 0, true},
          Row{100, -1, true}, Row{100, 255, true}, Row{-5, 60, true}}) {
        DiskReadings readings;
        tav::setTemperatures(row.current, row.maximum, readings);
        EXPECT_EQ(judged(readings).starts_with("Running"), row.runs)
            << row.current << '/' << row.maximum;
    }
    for (const int notAvailable : {-1, -4, 255})
        EXPECT_EQ(tav::availableWear(notAvailable), -1);
    EXPECT_EQ(tav::availableWear(254), 254);
}

TEST(DiskTransition, ByTheNewState) {
    const auto event = [](TAV_RESOURCE_STATE from, TAV_RESOURCE_STATE to,
                          std::optional<TAV_RESOURCE_STATE> reported = std::nullopt) {
        const auto* const transition = tav::diskTransition(from, to, reported.value_or(from));
        return transition == nullptr ? 0 : transition->eventId;
    };
    EXPECT_EQ(event(TAV_STATE_OFFLINE, TAV_STATE_RUNNING), 540);
    EXPECT_EQ(event(TAV_STATE_RUNNING, TAV_STATE_PREDICTIVE_FAILURE), 539);
    EXPECT_EQ(event(TAV_STATE_OFFLINE, TAV_STATE_FAILED), 538);
    EXPECT_EQ(event(TAV_STATE_RUNNING, TAV_STATE_OFFLINE), 538);
    EXPECT_EQ(event(TAV_STATE_PREDICTIVE_FAILURE, TAV_STATE_OFFLINE), 538);
    EXPECT_EQ(event(TAV_STATE_FAILED, TAV_STATE_OFFLINE), 0) << "it was reported already";
    EXPECT_EQ(event(TAV_STATE_FAILED, TAV_STATE_OFFLINE, TAV_STATE_RUNNING), 538)
        << "nobody has heard that it failed";
    EXPECT_EQ(event(TAV_STATE_FAILED, TAV_STATE_OFFLINE, TAV_STATE_UNKNOWN), 538);
    EXPECT_EQ(event(TAV_STATE_RUNNING, TAV_STATE_OFFLINE, TAV_STATE_FAILED), 538);
    EXPECT_EQ(event(TAV_STATE_RUNNING, TAV_STATE_RUNNING), 0);
    EXPECT_EQ(event(TAV_STATE_RUNNING, TAV_STATE_UNKNOWN), 0);
}

}  // namespace
