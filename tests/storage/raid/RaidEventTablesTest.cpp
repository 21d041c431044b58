#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/RaidServer.h"

namespace {

using namespace tav::test;
using testing::HasSubstr;

constexpr std::uint8_t absent = 77;
constexpr const char* hostOnly = R"("EnableResources":["HostOSInfo"])";

/// One event: of the drive with a device id, of the volume with a target id, or of the controller.
struct Step {
    std::uint32_t code;
    int eventClass;  // 0 to 6
    std::uint8_t resource = 0;
    std::uint8_t newState = 0xFF;
};

struct Row {
    std::vector<Step> events;  ///< what is expected counts for the last
    std::vector<int> raised;
    const char* condition;  ///< of the resource afterwards
    const char* line = "";
    const char* inventory = "";  ///< "push" (and invalidate), "invalidate"
};

RaidEventBytes notification(std::uint16_t locale, const Step& step) {
    RaidEventBytes event;
    event.controller(0).code(step.code).locale(locale).eventClass(step.eventClass - 2).text("text");
    if (locale == 0x0001) event.argument(3, {step.resource});
    if (locale == 0x0002) {
        const std::uint8_t slot = step.resource == absent ? absent : 1;
        event.argument(15, {step.resource, 0, 252, slot, 0x18, 0, 0, 0, step.newState, 0, 0, 0});
    }
    return event;
}

/// Where both logs were.
class LogMark {
 public:
    std::string linesSince() const {
        return readFile(mainLog).substr(main_) + readFile(debugLog).substr(debug_);
    }

 private:
    std::size_t main_ = readFile(mainLog).size();
    std::size_t debug_ = readFile(debugLog).size();
};

class RaidEventTables : public testing::Test {
 protected:
    RaidEventTables() {
        logEverything(hostOnly);
        writeHostCommands();
        sendFirstInventory(rmc_);
    }

    void check(std::uint16_t locale, const std::vector<Row>& rows) {
        int number = 0;
        for (const Row& row : rows) {
            SCOPED_TRACE("row " + std::to_string(++number));
            FakeRaidLibrary library({fakeController(0, "SV1")});
            discoverRaid();
            for (std::size_t i = 0; i + 1 < row.events.size(); ++i)
                ASSERT_TRUE(library.fire(notification(locale, row.events[i])));
            const LogMark logged;
            const std::size_t sent = rmc_.commands().size();
            ASSERT_TRUE(library.fire(notification(locale, row.events.back())));
            expectEvents(sent, row.raised);
            const std::string log = logged.linesSince();
            EXPECT_THAT(log, HasSubstr(row.line));
            const std::string inventory = row.inventory;
            EXPECT_EQ(log.find("Signalled inventory push.") != std::string::npos,
                      inventory == "push");
            EXPECT_EQ(log.find("Inventory cache invalidated.") != std::string::npos,
                      !inventory.empty());
            EXPECT_EQ(condition(locale), row.condition);
            tavMegaRAIDControllerFactory::getInstance()->shutdownFactory();
        }
    }

    void expectEvents(std::size_t before, const std::vector<int>& expected) {
        std::vector<int> raised;
        const auto commands = rmc_.commands();
        for (std::size_t i = before; i < commands.size(); ++i)
            raised.push_back(parseJson(commands[i].payload)["ID"].asInt());
        EXPECT_EQ(raised, expected);
    }

    static std::string condition(std::uint16_t locale) {
        std::vector<ItavStorageController*> found;
        tavMegaRAIDControllerFactory::getInstance()->getControllers(255, found);
        const Controllers controllers = takeControllers(std::move(found));
        auto& controller = static_cast<tavMegaRAIDController&>(*controllers.at(0));
        if (locale == 0x0001) return conditionText(controller.getLogicalDiskInventory().at(0));
        if (locale == 0x0002) return conditionText(controller.getPhysicalDrivesInventory().at(1));
        return conditionText(controller.getInventory());
    }

    Rmc rmc_;
};

// clang-format off
TEST_F(RaidEventTables, Volumes) {
    const char* const bad = "Ignoring WARNING event as device is already in BAD state";
    const char* const critical = "Ignoring FATAL event as device already in CRITICAL state";
    check(0x0001, {
        {{{0x8A, 2, absent}}, {}, "Optimal/OK", "", "push"},
        {{{0x8A, 6}}, {}, "Optimal/OK", "", "push"},
        {{{0xFB, 4, absent}}, {}, "Optimal/OK", "(251, 4) received for VD[77] absent in TAV inventory."},
        {{{0xFC, 5, absent}}, {}, "Optimal/OK", "(252, 5) received for VD[77] absent in TAV inventory."},
        {{{0x8B, 2, absent}}, {}, "Optimal/OK"},
        {{{0xFA, 3}}, {}, "Partially degraded/Warning"},
        {{{0xFA, 3}, {0xFA, 3}}, {}, "Partially degraded/Warning", bad},
        {{{0xFB, 3}}, {}, "Optimal/OK", bad},
        {{{0xFB, 4}}, {681}, "Degraded/Critical"},
        {{{0xFC, 5}}, {681}, "Offline/Critical"},
        {{{0x51, 4}}, {681}, "Failed/Critical"},
        {{{0xFA, 3}, {0xFB, 5}}, {681}, "Degraded/Critical"},
        {{{0xFB, 4}, {0xFC, 4}}, {}, "Degraded/Critical", critical},
        {{{0x8B, 2}}, {}, "Optimal/OK", "Invalidate cache as LD has been deleted", "invalidate"},
        {{{0xF9, 2}}, {}, "Optimal/OK", "event ID 249  INFO event as device is already in OK state"},
        {{{0xFB, 4}, {0xF9, 2}}, {683}, "Optimal/OK"},
        {{{0xFB, 4}, {0xF8, 2}}, {}, "Degraded/Critical", "Ignoring event ID 248  INFO event"},
        {{{0xFB, 6}}, {}, "Optimal/OK"},
        {{{0xFB, 1}}, {}, "Optimal/OK", "Event received for lesser severity ignoring the FW event"},
    });
}

TEST_F(RaidEventTables, Drives) {
    const char* const bad = "Ignoring WARNING event as device is already in BAD state";
    const char* const critical = "Ignoring FATAL event as device already in CRITICAL state";
    const char* const inserted = "PD has been inserted to existing  location";
    const char* const removed = "TAV has realized that PD has been removed";
    const char* const error = "Error reported on PD [SV1-B] @ slot [1] for controller [SV1].";
    const char* const unknown = "received for PD[NotAvailable] absent in TAV inventory.";
    const char* const foreign = "State variable not recognized by TAV SAS RM. Skipping the event";
    const std::string predicted =
        "Reporting predictive failure event on PD [SV1-B] @ slot [1] for controller [SV1]";
    const std::string withPeriod = predicted + ".\n";
    const std::string withoutPeriod = predicted + "\n";
    std::vector<Row> rows{
        {{{0x57, 3, absent}}, {}, "Online/OK", unknown},
        {{{0x01, 5, absent}}, {}, "Online/OK", "Ignoring CRITICAL/FATAL/WARNING event (1, 5)"},
        {{{0x70, 2, absent}}, {}, "Online/OK", unknown},
        {{{0x57, 2, absent}}, {}, "Online/OK"},
        {{{0x5B, 2, absent}}, {}, "Online/OK", "", "push"},
        {{{0x5B, 3, absent}}, {}, "Online/OK", unknown, "push"},
        {{{0x5B, 2, 9}}, {}, "Online/OK", inserted, "push"},
        {{{0x5B, 4, 9}}, {}, "Online/OK", inserted, "push"},
        {{{0x70, 2, 9}}, {538}, "Online/Critical", removed},
        {{{0x70, 2, 9}, {0x70, 2, 9}}, {}, "Online/Critical", removed},
        {{{0x72, 2, 9, 0x11}}, {538}, "Failed/Critical", "changed New status: 17\n", "push"},
        {{{0x72, 2, 9, 0x01}}, {538}, "Unconfigured bad/Critical", "New status: 1\n", "push"},
        {{{0x72, 2, 9, 0x10}}, {538}, "Offline/Critical", "New status: 16\n", "push"},
        {{{0x72, 2, 9, 0x11}, {0x72, 2, 9, 0x01}}, {}, "Failed/Critical", "fru is already BAD state"},
        {{{0x72, 2, 9, 0x12}}, {}, "Online/OK", foreign},
        {{{0x57, 2, 9}}, {539}, "Predictive failure/Warning", withPeriod.c_str()},
        {{{0x57, 2, 9}, {0x57, 2, 9}}, {}, "Predictive failure/Warning", bad},
        {{{0x57, 3, 9}}, {539}, "Predictive failure/Warning", error},
        {{{0x57, 3, 9}}, {539}, "Predictive failure/Warning", withPeriod.c_str()},
        {{{0x57, 2, 9}, {0x57, 3, 9}}, {}, "Predictive failure/Warning", error},
        {{{0x57, 2, 9}, {0x57, 3, 9}}, {}, "Predictive failure/Warning", bad},
        {{{0x60, 3, 9}}, {539}, "Predictive failure/Warning", withoutPeriod.c_str()},
        {{{0x57, 2, 9}, {0x60, 3, 9}}, {}, "Predictive failure/Warning", bad},
        {{{0x60, 2, 9}}, {}, "Online/OK"},
        {{{0x61, 3, 9}}, {}, "Online/OK"},
        {{{0x01, 4, 9}}, {538}, "Failed/Critical"},
        {{{0x57, 5, 9}}, {538}, "Failed/Critical"},
        {{{0x01, 4, 9}, {0x70, 5, 9}}, {}, "Failed/Critical", critical},
        {{{0x01, 6, 9}}, {}, "Online/OK"},
    };
    const std::map<std::uint8_t, const char*> working{
        {0x00, "Online/OK"}, {0x02, "Online/OK"}, {0x14, "Rebuild/OK"},
        {0x18, "Online/OK"}, {0x20, "Online/OK"}, {0x40, "Online/OK"}};
    for (const auto& [state, condition] : working) {
        rows.push_back({{{0x72, 2, 9, state}}, {}, "Online/OK", "Skipping the event as fru is already OK"});
        rows.push_back({{{0x72, 2, 9, 0x11}, {0x72, 2, 9, state}}, {540}, condition, "changed New status", "push"});
    }
    check(0x0002, rows);
}

TEST_F(RaidEventTables, Controllers) {
    std::vector<Row> rows{
        {{{0x0C, 2}}, {}, "Running/OK", "Dropping the event as Device already in OK state."},
        {{{0x0C, 3}}, {}, "Running/OK"},
        {{{0x01, 4}, {0x0D, 2}}, {}, "Failed/Critical"},
        {{{0x01, 4}, {0x02, 5}}, {}, "Failed/Critical", "Dropping the event 389 as device already in CRITICAL state."},
    };
    for (const int eventClass : {4, 5, 6})
        rows.push_back({{{0x0C, eventClass}}, {398}, "Failed/Critical"});
    for (const std::uint32_t code : {0x0CU, 0x1C4U, 0x1F9U, 0x1FFU})
        rows.push_back({{{0x01, 4}, {code, 2}}, {397}, "Running/OK"});
    check(0x0020, rows);
}
// clang-format on

}  // namespace
