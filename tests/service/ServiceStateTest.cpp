#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/JsonText.h"
#include "core/ProcessStatus.h"
#include "service/Metrics.h"
#include "service/ServiceState.h"
#include "tests/support/Service.h"

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

tavd::ServiceState busyState() {
    tavd::ServiceState state;
    state.started = 1'700'000'000;
    state.now = 1'700'000'300;
    state.deliveries.inventories = {
        1'700'000'100, 1'700'000'200, 3, "silent \"\n\x1b\xff", 1250ms, 7, 4};
    state.events = {{{538, tav::EventOutcome::Delivered}, 2},
                    {{538, tav::EventOutcome::Failed}, 1},
                    {{0, tav::EventOutcome::Dropped}, 5}};
    state.rmc.frames = 1234;
    state.rmc.failures.at(static_cast<std::size_t>(tav::RmcStep::Silence)) = 4;
    state.managers = {{"Host\"OS\\\nInfo\xff", {3, 1500ms, 1'700'000'050}, {}}};
    state.standingStill = {{"tav-storage", 12s}};
    state.unanswered = {{"disk 7:0:3:0", "its \xe2\x80\xae \xff condition", 1'700'000'040}};
    state.use = {{1.5, 6'000'000, 1'000'000'000, 13, 99}, 39, 20'000};
    state.inventoryBytes = 5871;
    return state;
}

TEST(ServiceState, MetricsAsThatCommunityWritesThem) {
    const std::string text = tavd::renderMetrics(busyState());
    for (const char* const line :
         {"# TYPE tav_inventory_pushes_total counter\n",
          "tav_inventory_pushes_total{outcome=\"failed\"} 4\n",
          "tav_inventory_failures_in_a_row 3\n",
          "tav_inventory_last_acknowledged_timestamp_seconds 1700000100\n",
          "tav_inventory_last_push_duration_seconds 1.25\n", "tav_inventory_size_bytes 5871\n",
          "# TYPE tav_events_total counter\n"
          "tav_events_total{id=\"0\",outcome=\"dropped\"} 5\n"
          "tav_events_total{id=\"538\",outcome=\"delivered\"} 2\n"
          "tav_events_total{id=\"538\",outcome=\"failed\"} 1\n",
          "tav_rmc_frames_total 1234\n", "tav_rmc_failures_total{step=\"silence\"} 4\n",
          "tav_manager_build_duration_seconds_sum{manager=\"Host\\\"OS\\\\\\nInfo\xef\xbf\xbd\"} "
          "1.5\n",
          "tav_devices_not_answering 1\n", "tav_loops_standing_still 1\n",
          "# TYPE tav_up gauge\ntav_up 1\n", "tav_process_cpu_seconds_total 1.5\n",
          "tav_process_open_fds 39\n", "tav_process_start_time_seconds 1700000000\n"}) {
        EXPECT_THAT(text, HasSubstr(line));
    }
    EXPECT_EQ(text.find("\nprocess_"), std::string::npos)
        << "the exporter has metrics of that name itself and refuses a second one";
    tavd::ServiceState young;
    young.stopped = 5;
    const std::string nothingYet = tavd::renderMetrics(young);
    EXPECT_THAT(nothingYet, HasSubstr("tav_up 0\n"));
    EXPECT_THAT(nothingYet, HasSubstr("tav_event_deliveries_total{outcome=\"failed\"} 0\n"))
        << "so that a first failure is an increase";
    EXPECT_THAT(nothingYet, Not(HasSubstr("timestamp_seconds")))
        << "a moment that has not been is not one in 1970";
}

TEST(ServiceState, HealthIsJsonWhateverItsTextsHold) {
    const tavd::ServiceState state = busyState();
    const Json::Value health = tav::test::parseJson(tavd::renderHealth(state));
    EXPECT_EQ(health["Unanswered"][0]["What"], "its \xe2\x80\xae \xef\xbf\xbd condition");
    EXPECT_EQ(health["StandingStill"][0]["Loop"], "tav-storage");
    EXPECT_EQ(health["FailuresByStep"]["silence"], 4);
    EXPECT_EQ(health["Started"], Json::Int64{state.started});
    EXPECT_FALSE(health.isMember("Stopped"));
    const auto record = tav::parseDeliveryRecord(health);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->inventories.took, 1250ms);
    EXPECT_EQ(record->inventories.failures, 3U);
    for (const char* const broken : {"[]", "{}", "{\"Inventories\":7,\"Events\":{}}",
                                     R"({"Inventories":{"Why":{}},"Events":{}})"}) {
        EXPECT_FALSE(tav::parseDeliveryRecord(tav::test::parseJson(broken))) << broken;
    }
}

TEST(ServiceState, AProcessIsNamedByAnything) {
    const std::string line =
        "123 (a) R (b) S 1 2 3 4 5 6 7 8 9 10 250 50 0 0 20 0 13 0 1328 4096 3 "
        "18446744073709551615 "
        "1 1\n";
    const auto status = tav::parseProcessStatus(line);
    ASSERT_TRUE(status);
    EXPECT_EQ(status->threads, 13U);
    EXPECT_EQ(status->startTicks, 1328U);
    EXPECT_EQ(status->virtualBytes, 4096U);
    EXPECT_GT(status->cpuSeconds, 0);
    for (std::size_t size = 0; size < line.find("4096 3") + 4; ++size)
        EXPECT_FALSE(tav::parseProcessStatus(line.substr(0, size))) << size;
}

}  // namespace
