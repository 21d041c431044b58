#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "sim/rmc/Controller.h"
#include "sim/rmc/Summary.h"

namespace {

using namespace std::chrono_literals;
using tav::sim::Bytes;
using tav::sim::Controller;
using tav::sim::Outcome;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// Sends "{}" as an event: one frame.
Outcome sendEvent(Controller& controller) {
    Bytes frame(60);
    const std::string name = "MPEventGen";
    frame[2] = 0x14;
    std::copy(name.begin(), name.end(), frame.begin() + 3);
    frame[23] = 3;
    frame[27] = '{';
    frame[28] = '}';
    return controller.handle({1, 0x3A, 0, 0x80, frame}, 1);
}

Outcome ask(Controller& controller, std::uint8_t netFn, std::uint8_t command, Bytes data = {}) {
    return controller.handle({7, netFn, 0, command, std::move(data)}, 1);
}

TEST(Controller, AnswersWhatAMachineAsks) {
    Controller controller;
    const Outcome deviceId = ask(controller, 0x06, 0x01);
    EXPECT_EQ(deviceId.answer->sequence, 7);
    EXPECT_EQ(deviceId.answer->netFn, 0x07);
    EXPECT_EQ(deviceId.answer->data.size(), 15u);
    EXPECT_EQ(ask(controller, 0x06, 0x36).answer->data.size(), 5u);
    EXPECT_THAT(ask(controller, 0x34, 0x08).answer->data, ElementsAre(1, 0, 0, 0));
    EXPECT_EQ(ask(controller, 0x34, 0x08, {1}).answer->completionCode, 0xC7);
    EXPECT_EQ(ask(controller, 0x06, 0x99).answer->completionCode, 0xC1);
    EXPECT_EQ(ask(controller, 0x06, 0x2E, {1}).control, tav::sim::BmcControl::InterruptOn);
    EXPECT_EQ(ask(controller, 0x06, 0x2E, {0}).control, tav::sim::BmcControl::InterruptOff);
    EXPECT_THAT(controller.handle({1, 0x3A, 1, 0x80, Bytes(60)}, 1).violations, Not(IsEmpty()));
    EXPECT_THAT(ask(controller, 0x3A, 0x81, {0}).violations, Not(IsEmpty()));
}

TEST(Controller, RingsTheDoorBellsInTheirOrder) {
    Controller controller;
    EXPECT_EQ(controller.injections().add("doorbell=WriteInventory, please"), "");
    EXPECT_EQ(controller.injections().add("doorbell="), "");
    EXPECT_EQ(controller.injections().add("doorbell=" + std::string(254, 'x')), "");
    EXPECT_NE(controller.injections().add("doorbell=" + std::string(255, 'x')), "");
    for (const std::string& text : {std::string("WriteInventory, please"), std::string(),
                                    std::string(254, 'x'), std::string()}) {
        EXPECT_EQ(ask(controller, 0x3A, 0x81).answer->data, Bytes(text.begin(), text.end()));
    }
}

TEST(Controller, FailsAsOrderedAndOnlyThen) {
    Controller controller;
    auto& injections = controller.injections();
    ASSERT_EQ(injections.add("status=4,exit=9,command=MPEventGen,nth=2,frame=last"), "");
    EXPECT_TRUE(sendEvent(controller).finished);
    const Outcome refused = sendEvent(controller);
    EXPECT_EQ(refused.answer->data[0], 4);
    EXPECT_EQ(refused.answer->data[3], 9);
    EXPECT_FALSE(refused.finished);
    EXPECT_EQ(refused.refused->payload, "{}");
    EXPECT_THAT(refused.struck, HasSubstr("nth=2"));
    EXPECT_TRUE(sendEvent(controller).finished);

    ASSERT_EQ(injections.add("lost,nth=all"), "");
    ASSERT_EQ(injections.add("truncate=2,late=40,request=34/08"), "");
    for (int round = 0; round < 3; ++round) {
        const Outcome lost = sendEvent(controller);
        EXPECT_FALSE(lost.answer);
        EXPECT_TRUE(lost.finished) << "the command has arrived all the same";
    }
    const Outcome late = ask(controller, 0x34, 0x08);
    EXPECT_EQ(late.delay, 40ms);
    EXPECT_EQ(late.answer->data.size(), 2u);
    EXPECT_EQ(ask(controller, 0x34, 0x08).delay, 0ms);

    Controller other;
    ASSERT_EQ(other.injections().add("code=0xC0,frame=1"), "");
    EXPECT_EQ(sendEvent(other).answer->completionCode, 0xC0);
    for (const char* order : {"", "frame=1", "status=256", "status=", "nth=0,lost", "lost=1",
                              "request=3A,lost", "late=-1", "truncate=1,,lost"}) {
        EXPECT_NE(other.injections().add(order), "") << order;
    }
}

TEST(Controller, TakesOrdersBack) {
    Controller controller;
    auto& injections = controller.injections();
    for (const char* order : {"lost,nth=all", "status=4,nth=2", "code=0xC0,nth=2"})
        ASSERT_EQ(injections.add(order), "");
    EXPECT_FALSE(sendEvent(controller).answer);
    EXPECT_EQ(injections.add("withdraw=lost,nth=all"), "");
    EXPECT_NE(injections.add("withdraw=lost,nth=all"), "") << "it is no longer waiting";
    EXPECT_EQ(sendEvent(controller).answer->data[0], 4);
    EXPECT_EQ(injections.add("withdraw=all"), "");
    const Outcome proper = sendEvent(controller);
    EXPECT_TRUE(proper.finished);
    EXPECT_EQ(proper.struck, "");
}

TEST(Summary, ShowsWhatAPersonWantsToKnowOfAnyDocument) {
    const auto summary = [](const char* name, const std::string& payload) {
        return tav::sim::summaryOf({name, payload, 3});
    };
    const std::string inventory =
        summary("WriteInventory", R"({"HostDataCollection":{"Drives":[{},{}],"Oem":{"HostOSInfo":{
            "HostName":"rack\u001b[2J7","OSMemorySummary":{"TotalSystemMemoryGiB":23},
            "IPv4Addresses":[{"Address":"10.0.0.2"},{"Address":"10.0.0.3"}]}}}})");
    EXPECT_THAT(inventory, HasSubstr("rack.[2J7\n")) << "no control character reaches a terminal";
    EXPECT_THAT(inventory, HasSubstr("23 GiB"));
    EXPECT_THAT(inventory, HasSubstr("10.0.0.2, 10.0.0.3\n"));
    EXPECT_THAT(inventory, HasSubstr("2 drives\n"));
    EXPECT_THAT(summary("MPEventGen", R"({"ID":356})"), HasSubstr("operating system has booted"));
    for (const char* odd : {"[]", "{", R"({"ID":[],"IPv4Addresses":7})", R"({"ID":9e99})",
                            R"({"HostDataCollection":[{"Oem":1}]})"}) {
        EXPECT_NE(summary("MPEventGen", odd), "");
        EXPECT_NE(summary("WriteInventory", odd), "");
    }
}

}  // namespace
