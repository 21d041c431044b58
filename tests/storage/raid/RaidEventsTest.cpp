#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <random>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/Waiting.h"
#include "core/Unanswered.h"
#include "storage/ItavStorageControllerFactory.h"
#include "storage/SASResourceManager.h"
#include "storage/tavRegistryManager.h"
#include "tests/support/RaidServer.h"

namespace {

using namespace std::chrono_literals;
using namespace tav::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* hostOnly = R"("EnableResources":["HostOSInfo"])";
constexpr std::uint16_t drives = 0x0002;
constexpr std::uint16_t volumes = 0x0001;
constexpr std::uint16_t controllers = 0x0020;
constexpr std::uint32_t failed = 0x8002;

RaidEventBytes driveEvent(std::uint32_t code, int eventClass, std::uint8_t id,
                          std::uint8_t newState = 0xFF, std::uint8_t slot = 0) {
    return RaidEventBytes{}
        .code(code)
        .locale(drives)
        .eventClass(eventClass - 2)
        .argument(15, {id, 0, 252, slot, 0x18, 0, 0, 0, newState, 0, 0, 0})
        .text("PD 09 failed");
}

/// Keeps a build waiting.
class SlowFactory final : public ItavStorageControllerFactory {
 public:
    int discoverControllers(std::vector<ItavStorageController*>&) override {
        isAsked = true;
        while (!answers)
            std::this_thread::sleep_for(1ms);
        return 0;
    }
    int getControllers(std::uint8_t, std::vector<ItavStorageController*>&) override { return 0; }
    void shutdownFactory() override {}
    void poll() override {}
    void deleteControllers(std::uint8_t) override {}

    std::atomic<bool> isAsked{false};
    std::atomic<bool> answers{false};

 private:
    tavRegistryManager<ItavStorageControllerFactory*> registration_{this};
};

class RaidEvents : public testing::Test {
 protected:
    RaidEvents() {
        logEverything(hostOnly);
        writeHostCommands();
        sendFirstInventory(rmc_);
        before_ = rmc_.commands().size();
    }
    ~RaidEvents() override { tavMegaRAIDControllerFactory::getInstance()->shutdownFactory(); }

    std::vector<Json::Value> events() const {
        std::vector<Json::Value> events;
        const auto commands = rmc_.commands();
        for (std::size_t i = before_; i < commands.size(); ++i)
            events.push_back(parseJson(commands[i].payload));
        return events;
    }

    std::vector<int> ids() const {
        std::vector<int> ids;
        for (const Json::Value& event : events())
            ids.push_back(event["ID"].asInt());
        return ids;
    }

    /// Sends an inventory, which the controller acknowledges.
    static void pushInventory() {
        tavJsonAggregator& inventories = *tavJsonAggregator::getInstance();
        const std::uint64_t before = inventories.acknowledgedInventories();
        clockSpeed = 200;
        inventories.sendInventory(true);
        inventories.sendInventory(false);
        while (inventories.acknowledgedInventories() == before)
            std::this_thread::sleep_for(1ms);
        tavJsonAggregator::stoptavJsonAggregator();
    }

    Rmc rmc_;
    std::size_t before_ = 0;
};

TEST_F(RaidEvents, CarryTheRecordAndTheFirmwaresText) {
    FakeRaidLibrary library({fakeController(0, "SV1")});
    discoverRaid();
    library.fire(driveEvent(0x72, 2, 9, 0x11));
    library.fire(driveEvent(0x72, 2, 9, 0x18));
    library.fire(RaidEventBytes{}.code(0xFB).locale(volumes).eventClass(2).argument(3, {0}).text(
        std::string("VD \xFF") + "00"));
    const auto raised = events();
    ASSERT_EQ(raised.size(), 3U);
    const Json::Value& failure = raised[0];
    EXPECT_EQ(failure["ID"], 538);
    EXPECT_EQ(failure["PhysicalLocation"], "FFFFFFFFFFFFFFFF");
    EXPECT_EQ(failure["VariableData"]["Data"]["SerialNumber"], "SV1-B");
    EXPECT_EQ(failure["VariableData"]["Data"]["Oem"]["Slot"], 1);
    EXPECT_EQ(failure["VariableData"]["EventInfo"],
              "[Msg # 0x0072] PD 09 failed. Please refer to MegaRAID Software User Guide for "
              "further details.");
    EXPECT_EQ(raised[1]["ID"], 540);
    EXPECT_EQ(raised[1]["VariableData"]["EventInfo"], "");
    const Json::Value& volume = raised[2];
    EXPECT_EQ(volume["ID"], 681);
    EXPECT_FALSE(volume.isMember("PhysicalLocation"));
    EXPECT_EQ(volume["VariableData"]["Type"], "Volume");
    EXPECT_EQ(volume["VariableData"]["Data"]["VolumeType"], "RAID1");
    EXPECT_EQ(volume["VariableData"]["Data"]["Oem"]["DeviceName"], "NotAvailable");
    ASSERT_EQ(volume["VariableData"]["Data"]["Drives"].size(), 2U);
    EXPECT_EQ(volume["VariableData"]["Data"]["Drives"][1]["SerialNumber"], "SV1-B");
    EXPECT_THAT(volume["VariableData"]["EventInfo"].asString(), HasSubstr("[Msg # 0x00fb] VD "));
    EXPECT_THAT(rmc_.violations(), IsEmpty());
}

TEST_F(RaidEvents, ConditionsStayUntilTheLibrarysOwnChange) {
    FakeRaidLibrary library({fakeController(0, "SV1")});
    EXPECT_EQ(conditionText(discoverRaid().disks.at(1)), "Online/OK");
    library.fire(driveEvent(0x57, 2, 9));
    library.fire(RaidEventBytes{}.code(1).locale(controllers).eventClass(2));
    library.fire(RaidEventBytes{}.code(0xFB).locale(volumes).eventClass(2).argument(3, {0}));
    const RaidInventory carried = discoverRaid();
    EXPECT_EQ(conditionText(carried.disks.at(1)), "Predictive failure/Warning");
    EXPECT_EQ(conditionText(carried.volumes.at(0)), "Degraded/Critical");
    EXPECT_EQ(conditionText(carried.controllers.at(0)), "Failed/Critical");
    library.change([](std::vector<FakeController>& all) { all[0].drives[1].id = 21; });
    EXPECT_EQ(conditionText(discoverRaid().disks.at(1)), "Predictive failure/Warning")
        << "the same drive by another number";

    library.change([](std::vector<FakeController>& all) {
        all[0].drives[1].state = 0x14;
        all[0].volumes[0].state = 1;
    });
    const RaidInventory changed = discoverRaid();
    EXPECT_EQ(conditionText(changed.disks.at(1)), "Rebuild/OK");
    EXPECT_EQ(changed.disks.at(1).getEventHealth(), TAV_HEALTH_OK) << "the reported one follows";
    EXPECT_EQ(conditionText(changed.volumes.at(0)), "Partially degraded/Warning");

    // Another drive in the same slot has nothing to do with what was said of the first.
    library.change([](std::vector<FakeController>& all) { all[0].drives[1].serial = "NEW"; });
    EXPECT_EQ(discoverRaid().disks.at(1).getEventHealth(), TAV_HEALTH_OK);
}

TEST_F(RaidEvents, InsertedAndVanishedDrivesAreKnownBySerialNumber) {
    FakeRaidLibrary library({fakeController(0, "SV1")});
    discoverRaid();
    // The library's cache forgets the drive while the event is handled; the inventory knows it.
    library.change([](std::vector<FakeController>& all) { all[0].drives.pop_back(); });
    library.fire(driveEvent(0x70, 2, 9));
    ASSERT_EQ(events().size(), 1U);
    EXPECT_EQ(events()[0]["VariableData"]["Data"]["SerialNumber"], "SV1-B");

    // In the cache since the event, in the inventory by its slot.
    library.change([](std::vector<FakeController>& all) {
        all[0].drives.push_back({20, 1, "NEW"});
    });
    library.fire(driveEvent(0x5B, 2, 20, 0xFF, 200));
    EXPECT_THAT(logs(), HasSubstr("PD has been inserted to existing  location"));
    discoverRaid();
    library.fire(driveEvent(0x72, 2, 20, 0x11));
    EXPECT_EQ(events().back()["VariableData"]["Data"]["SerialNumber"], "NEW");
}

RaidEventBytes volumeEvent(std::uint32_t code, int eventClass) {
    return RaidEventBytes{}.code(code).locale(volumes).eventClass(eventClass - 2).argument(3, {0});
}

/// The states of drive 9 and volume 0, of which nobody tells.
void become(FakeRaidLibrary& library, std::uint16_t drive, std::uint8_t volume) {
    library.change([=](std::vector<FakeController>& all) {
        all[0].drives[1].state = drive;
        all[0].volumes[0].state = volume;
    });
}

/// Two words of the library on a resource, and events of it before, between and after them.
TEST_F(RaidEvents, WhatTheLibraryTellsByItselfIsNewsToTheNextEvent) {
    FakeRaidLibrary library({fakeController(0, "SV1")});
    discoverRaid();
    // It fails, recovers without an event, and fails again.
    become(library, 0x11, 2);
    library.fire(driveEvent(0x72, 2, 9, 0x11));
    library.fire(volumeEvent(0xFB, 4));
    become(library, 0x18, 3);
    const RaidInventory recovered = discoverRaid();
    EXPECT_EQ(conditionText(recovered.disks.at(1)), "Online/OK");
    EXPECT_EQ(conditionText(recovered.volumes.at(0)), "Optimal/OK") << "not degraded for ever";
    EXPECT_THAT(logs(), HasSubstr("Signalled inventory push.")) << "as no event tells it";
    EXPECT_EQ(ids(), (std::vector<int>{538, 681}));
    become(library, 0x11, 2);
    discoverRaid();  // a build may see it before the event is handled
    library.fire(driveEvent(0x72, 2, 9, 0x11));
    library.fire(driveEvent(0x01, 4, 9));
    library.fire(volumeEvent(0xFB, 4));
    library.fire(volumeEvent(0xFB, 4));
    EXPECT_EQ(ids(), (std::vector<int>{538, 681, 538, 681})) << "each once";
    // One that goes on to another state of the same health has nothing to report.
    become(library, 0x14, 3);
    library.fire(driveEvent(0x72, 2, 9, 0x14));
    become(library, 0x18, 3);
    library.fire(driveEvent(0x72, 2, 9, 0x18));
    EXPECT_EQ(conditionText(discoverRaid().disks.at(1)), "Online/OK");
    EXPECT_EQ(ids(), (std::vector<int>{538, 681, 538, 681, 540}));
}

/// The library, asked after each event, is ahead of it: the RMC knows what the repeats say, and the
/// failure comes next.
TEST_F(RaidEvents, RepeatsThatTheLibraryHasLeftBehindRaiseNothing) {
    FakeRaidLibrary library({fakeController(0, "SV1")});
    discoverRaid();
    become(library, 0x11, 2);
    library.fire(driveEvent(0x72, 2, 9, 0x11));
    library.fire(volumeEvent(0xFB, 4));
    become(library, 0x18, 3);
    library.fire(driveEvent(0x72, 2, 9, 0x18));
    library.fire(volumeEvent(0xF9, 2));
    become(library, 0x11, 2);
    for (int repeat = 0; repeat < 2; ++repeat) {
        library.fire(driveEvent(0x72, 2, 9, 0x18));
        library.fire(volumeEvent(0xF9, 2));
    }
    EXPECT_EQ(ids(), (std::vector<int>{538, 681, 540, 683}));
    const RaidInventory ahead = discoverRaid();
    EXPECT_EQ(conditionText(ahead.disks.at(1)), "Failed/Critical");
    EXPECT_EQ(conditionText(ahead.volumes.at(0)), "Degraded/Critical");
    library.fire(driveEvent(0x72, 2, 9, 0x11));
    library.fire(volumeEvent(0xFB, 4));
    EXPECT_EQ(ids(), (std::vector<int>{538, 681, 540, 683, 538, 681}));
}

TEST_F(RaidEvents, AnEventThatWasNotDeliveredHasReportedNothing) {
    FakeRaidLibrary library({fakeController(0, "SV1")});
    discoverRaid();
    rmc_.intercept([](const auto&) { return tav::sim::Reply::failure(0xC0); });
    library.fire(driveEvent(0x01, 4, 9));
    rmc_.intercept(nullptr);
    EXPECT_EQ(conditionText(discoverRaid().disks.at(1)), "Failed/Critical");
    library.fire(driveEvent(0x01, 4, 9));
    library.fire(driveEvent(0x01, 4, 9));
    ASSERT_EQ(events().size(), 1U) << "the repeat tells it, once";
    EXPECT_EQ(events().back()["ID"], 538);
}

TEST_F(RaidEvents, WhatAnInventoryHasToldIsKnown) {
    FakeRaidLibrary library({fakeController(0, "SV1")});
    discoverRaid();
    rmc_.intercept([](const auto&) { return tav::sim::Reply::failure(0xC0); });
    library.fire(driveEvent(0x01, 4, 9));
    rmc_.intercept(nullptr);
    pushInventory();
    library.fire(driveEvent(0x01, 4, 9));
    library.fire(driveEvent(0x72, 2, 9, 0x18));
    std::vector<int> raised = ids();
    std::erase(raised, 0);  // the inventory
    EXPECT_THAT(raised, ElementsAre(540)) << "it works again, and was known not to";
}

/// The controller's firmware stops, of which only an inventory tells; a drive becomes another one
/// by itself; and the firmware starts again.
TEST_F(RaidEvents, WhatAnInventoryHasToldIsKnownWhateverChangesThen) {
    const auto controllerEvent = [](std::uint32_t code, int eventClass) {
        return RaidEventBytes{}.code(code).locale(controllers).eventClass(eventClass).text("FW");
    };
    FakeRaidLibrary library({fakeController(0, "SV1")});
    discoverRaid();
    SASResourceManager& manager = *SASResourceManager::getInstance();
    manager.cacheBuild();
    for (const bool isTold : {true, false}) {
        SCOPED_TRACE(isTold ? "an inventory has told it" : "none has");
        before_ = rmc_.commands().size();
        rmc_.intercept([](const auto&) { return tav::sim::Reply::failure(0xC0); });
        library.fire(controllerEvent(0x0F, 3));
        rmc_.intercept(nullptr);
        if (isTold) pushInventory();
        library.change([&](auto& all) { all[0].drives[1].state = isTold ? 0x11 : 0x18; });
        for (int build = 0; build < 2; ++build)  // which have told of the drive
            manager.cacheBuild();
        const int pushes = timesLogged("SASRM requesting cache push");
        library.fire(controllerEvent(0x0C, 0));
        manager.cacheBuild();
        std::vector<int> raised = ids();
        std::erase(raised, 0);  // the inventory
        EXPECT_EQ(raised, isTold ? std::vector{397} : std::vector<int>());
        EXPECT_EQ(timesLogged("SASRM requesting cache push"), pushes + (isTold ? 0 : 1))
            << "what no event tells";
    }
}

TEST_F(RaidEvents, WhatAnInventoryHasToldOfAnEventDuringABuildIsKnown) {
    FakeRaidLibrary library({fakeController(0, "SV1")});
    discoverRaid();
    SlowFactory slow;
    SASResourceManager& manager = *SASResourceManager::getInstance();
    std::thread builder([&] { manager.cacheBuild(); });
    while (!slow.isAsked)
        std::this_thread::sleep_for(1ms);
    rmc_.intercept([](const auto&) { return tav::sim::Reply::failure(0xC0); });
    library.fire(driveEvent(0x01, 4, 9));
    rmc_.intercept(nullptr);
    slow.answers = true;
    builder.join();
    manager.cacheBuild();
    pushInventory();
    library.fire(driveEvent(0x72, 2, 9, 0x18));
    std::vector<int> raised = ids();
    std::erase(raised, 0);  // the inventory
    EXPECT_THAT(raised, ElementsAre(540)) << "it works again, and was known not to";
}

TEST_F(RaidEvents, TheDriveThatTookThePlaceOfAnotherIsNamed) {
    FakeRaidLibrary library({fakeController(0, "SV1")});
    discoverRaid();
    library.change([](std::vector<FakeController>& all) { all[0].drives[1].serial = "NEW"; });
    library.fire(driveEvent(0x01, 4, 9));  // nobody has told that it was replaced
    ASSERT_EQ(events().size(), 1U);
    EXPECT_EQ(events()[0]["VariableData"]["Data"]["SerialNumber"], "NEW");
    const RaidInventory inventory = discoverRaid();
    ASSERT_EQ(inventory.disks.size(), 2U);
    EXPECT_EQ(conditionText(inventory.disks[1]), "Failed/Critical");
}

TEST_F(RaidEvents, AFailureOfADriveThatNoInventoryHasToldYetIsNews) {
    FakeRaidLibrary library({fakeController(0, "SV1")});
    discoverRaid();
    library.change([](std::vector<FakeController>& all) {
        all[0].drives[1].serial = "NEW";
        all[0].drives[1].state = 0x11;
    });
    library.fire(driveEvent(0x72, 2, 9, 0x11));
    library.fire(driveEvent(0x72, 2, 9, 0x11));
    ASSERT_THAT(ids(), ElementsAre(538));
    EXPECT_EQ(events()[0]["VariableData"]["Data"]["SerialNumber"], "NEW");
}

TEST_F(RaidEvents, ADriveThatIsPulledAndPutBackIsANewOne) {
    FakeRaidLibrary library({fakeController(0, "SV1")});
    discoverRaid();
    for (const bool isNoticed : {true, false}) {
        const std::size_t before = events().size();
        const auto list = [&](std::vector<FakeDrive> listed) {
            library.change([&](std::vector<FakeController>& all) {
                if (isNoticed) all[0].drives = std::move(listed);
            });
        };
        list({{8, 0, "SV1-A"}});
        library.fire(driveEvent(0x70, 2, 9));
        list({{8, 0, "SV1-A"}, {9, 1, "SV1-B"}});
        library.fire(driveEvent(0x5B, 2, 9));
        EXPECT_EQ(conditionText(discoverRaid().disks.at(1)), "Online/OK") << isNoticed;
        library.fire(driveEvent(0x01, 4, 9));
        EXPECT_EQ(events().size(), before + 2) << "its own failure is another one";
        library.fire(driveEvent(0x5B, 2, 9));
    }
}

TEST_F(RaidEvents, DrivesThatShareANameOrHaveNoneAreEachThemselves) {
    FakeController controller = fakeController(0, "SV1");
    controller.drives = {{8, 0, "SAME"}, {9, 1, "SAME"}, {10, 2, ""}, {11, 3, ""}};
    FakeRaidLibrary library({controller});
    discoverRaid();
    library.fire(driveEvent(0x01, 4, 9));
    library.fire(driveEvent(0x57, 2, 11));
    library.change([](std::vector<FakeController>& all) {
        std::reverse(all[0].drives.begin(), all[0].drives.end());
    });
    std::map<int, std::string> bySlot;
    for (const tavDiskInfo& disk : discoverRaid().disks)
        bySlot[disk.getSlot()] = conditionText(disk);
    EXPECT_EQ(bySlot, (std::map<int, std::string>{{0, "Online/OK"},
                                                  {1, "Failed/Critical"},
                                                  {2, "Online/OK"},
                                                  {3, "Predictive failure/Warning"}}));
}

TEST_F(RaidEvents, OfControllersThatAreGone) {
    FakeRaidLibrary library({fakeController(0, "SV1"), fakeController(1, "SV2")});
    EXPECT_EQ(discoverRaid().controllers.size(), 2U);
    library.change([](std::vector<FakeController>& all) { all.pop_back(); });
    const RaidInventory left = discoverRaid();
    ASSERT_EQ(left.controllers.size(), 1U);
    EXPECT_EQ(left.controllers[0].getSerialNumber(), "SV1");
    EXPECT_EQ(tavMegaRAIDController::totalLSICtrls, 1);
    EXPECT_EQ(library.unregistrations(), 0) << "one is left";
    TAV_SAS_EVENT_DETAIL event;
    event.eventCode = 7;
    event.locale = "CTRL_EVENT";
    event.controllerSerial = "SV2";
    for (const std::uint32_t eventClass : {3U, 4U}) {
        event.eventClass = eventClass;
        handleEvent(&event);
    }
    EXPECT_THAT(logs(), HasSubstr("Ignoring CRITICAL/FATAL/DEAD event (7, 4) received for "
                                  "controller[SV2] absent in TAV inventory."));
    EXPECT_THAT(logs(), Not(HasSubstr("event (7, 3) received")));
    EXPECT_THAT(events(), IsEmpty());

    library.change([](std::vector<FakeController>& all) { all.clear(); });
    EXPECT_EQ(discoverRaid().controllers.size(), 0U);
    EXPECT_EQ(library.unregistrations(), 1);
    EXPECT_THAT(logs(), HasSubstr("No more LSI MegaRAID controllers remaining."));
}

TEST_F(RaidEvents, ARenumberedControllerStaysTheSame) {
    FakeRaidLibrary library({fakeController(0, "SV1")});
    discoverRaid();
    library.fire(driveEvent(0x57, 2, 9));
    library.change([](std::vector<FakeController>& all) { all[0].id = 5; });
    const RaidInventory again = discoverRaid();
    ASSERT_EQ(again.disks.size(), 2U);
    EXPECT_EQ(conditionText(again.disks[1]), "Predictive failure/Warning");
    EXPECT_EQ(tavMegaRAIDController::totalLSICtrls, 1);
}

TEST_F(RaidEvents, RegistrationNamesEveryControllerThatTellsItsNewestEvent) {
    FakeRaidLibrary library({fakeController(3, "SV1"), fakeController(4, "SV2")});
    library.fail(7, 0, 0x800A, 1);
    discoverRaid();
    const std::vector<std::uint8_t> record = library.registered();
    ASSERT_EQ(record.size(), 772U);
    const std::vector<std::uint8_t> expected{1,    0,    0, 0, 4,    0, 0, 0,
                                             0xFF, 0xFF, 0, 0, 0xEC, 3, 0, 0};
    EXPECT_EQ(std::vector(record.begin(), record.begin() + 16), expected);
    EXPECT_THAT(logs(), HasSubstr("sequence info.                             Skipping AEN "
                                  "registration for this controller. (ID: [3]; rval = [0x800a])"));
    EXPECT_THAT(logs(), HasSubstr("Invalid controller"));
    std::vector<ItavStorageController*> found;
    tavMegaRAIDControllerFactory::getInstance()->getControllers(255, found);
    const Controllers known = takeControllers(std::move(found));
    EXPECT_FALSE(known[0]->isEventsEnabled());
    EXPECT_TRUE(known[1]->isEventsEnabled());

    // The next build registers for it, too, and for one that comes later.
    library.change([](auto& all) { all.push_back(fakeController(7, "SV3")); });
    discoverRaid();
    EXPECT_EQ(library.registered()[0], 3) << "all of them";
    EXPECT_EQ(library.unregistrations(), library.registrations() - 1) << "one at a time";
    for (const auto& controller : known)
        EXPECT_TRUE(controller->isEventsEnabled());
    const int registrations = library.registrations();
    discoverRaid();
    EXPECT_EQ(library.registrations(), registrations) << "it stands";
    library.fire(driveEvent(0x01, 4, 9).controller(7));
    EXPECT_EQ(ids(), (std::vector<int>{538}));
}

TEST_F(RaidEvents, OneThatIsHandledWhileTheServiceStopsIsReported) {
    FakeRaidLibrary library({fakeController(0, "SV1")});
    discoverRaid();
    library.hang(1, 4);
    std::thread caller([&] { library.fire(driveEvent(0x01, 4, 9)); });
    library.waitForHanging();
    std::thread stopper([] { tavMegaRAIDControllerFactory::getInstance()->shutdownFactory(); });
    while (logs().find("Initiating shutdown sequence.") == std::string::npos)
        std::this_thread::yield();
    library.release();
    caller.join();
    stopper.join();
    EXPECT_EQ(ids(), (std::vector<int>{538}));
}

std::size_t countInLogs(const std::string& text) {
    const std::string log = logs();
    std::size_t count = 0;
    for (auto at = log.find(text); at != std::string::npos; at = log.find(text, at + 1))
        ++count;
    return count;
}

TEST_F(RaidEvents, ALibraryThatHangsHoldsUpNeitherBuildsNorEvents) {
    FakeRaidLibrary library({fakeController(0, "SV1")});
    discoverRaid();
    clockSpeed = 200;
    library.hang(1, 4);
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(discoverRaid().disks.size(), 2U) << "the known ones stand";
        EXPECT_EQ(countInLogs("The RAID library does not answer: it was asked for a controller's "
                              "list of drives 10 s ago."),
                  1U);
    }
    ASSERT_EQ(tav::Unanswered::all().size(), 1U);
    EXPECT_EQ(tav::Unanswered::all()[0].what, "a controller's list of drives");
    library.fire(driveEvent(0x01, 4, 9));
    EXPECT_EQ(ids(), (std::vector<int>{538})) << "by what is known";
    library.change([](std::vector<FakeController>& all) { all[0].drives.pop_back(); });
    library.release();
    while (countInLogs("Inventory cache invalidated.") == 0)
        std::this_thread::yield();
    EXPECT_EQ(countInLogs("The RAID library answers again"), 1U);
    EXPECT_TRUE(tav::Unanswered::all().empty());
    EXPECT_EQ(discoverRaid().disks.size(), 1U);
    EXPECT_EQ(countInLogs("The RAID library does not answer"), 1U);
}

/// What the library shows it may show late, or not be asked for: an event of it is believed for a
/// minute, whether the library hangs, knows better, or has not noticed that all is well again.
TEST_F(RaidEvents, WhatTheLibraryGoesOnDenyingIsNotSo) {
    FakeRaidLibrary library({fakeController(0, "SV1")});
    for (const bool hangs : {false, true}) {
        discoverRaid();
        clockSpeed = 200;
        if (hangs) library.hang(1, 4);
        library.fire(driveEvent(0x72, 2, 9, 0x11));
        library.fire(driveEvent(0x01, 4, 8));
        library.fire(volumeEvent(0xFB, 4));
        const RaidInventory heard = discoverRaid();
        EXPECT_EQ(conditionText(heard.disks.at(1)), "Failed/Critical");
        EXPECT_EQ(conditionText(heard.volumes.at(0)), "Degraded/Critical");

        const std::size_t asked = countInLogs("Signalled inventory push.");
        std::this_thread::sleep_for(61000ms / clockSpeed.load());
        if (hangs) {
            EXPECT_EQ(conditionText(discoverRaid().volumes.at(0)), "Degraded/Critical")
                << "nobody denies it";
            library.release();
            while (countInLogs("The RAID library answers again") == 0)
                std::this_thread::yield();
        }
        const RaidInventory denied = discoverRaid();
        EXPECT_EQ(conditionText(denied.disks.at(1)), "Online/OK");
        EXPECT_EQ(conditionText(denied.disks.at(0)), "Failed/Critical") << "an error shows nowhere";
        EXPECT_EQ(conditionText(denied.volumes.at(0)), "Optimal/OK");
        EXPECT_GT(countInLogs("Signalled inventory push."), asked) << "as no event tells it";
    }
}

TEST_F(RaidEvents, AStopWaitsForNothingThatHangs) {
    struct Row {
        std::uint8_t type, code;
        const char* what;
    };
    FakeRaidLibrary library({fakeController(0, "SV1")});
    for (const Row& row : {Row{1, 4, "a callback in a command"}, Row{0, 2, "an unregistration"}}) {
        discoverRaid();
        library.hang(row.type, row.code);
        std::thread caller([&] { library.fire(driveEvent(0x57, 2, 9)); });
        if (row.type == 1) library.waitForHanging();
        const auto start = std::chrono::steady_clock::now();
        tavMegaRAIDControllerFactory::getInstance()->shutdownFactory();
        EXPECT_LT(std::chrono::steady_clock::now() - start, 2s) << row.what;
        library.release();
        caller.join();
    }
}

TEST_F(RaidEvents, RegistrationThatFailedIsTriedAgain) {
    FakeRaidLibrary library({fakeController(0, "SV1"), fakeController(1, "SV2")});
    library.fail(7, 0, failed, 4);  // each controller's enabling tries both
    discoverRaid();
    EXPECT_FALSE(tavMegaRAIDController::isAENRegistered);
    EXPECT_THAT(logs(), HasSubstr("Unable to register for AEN: No controllers could be selected. "
                                  "(Total: [2]; Selected: [0])"));
    library.fail(0, 1, 0x8009, 2);
    discoverRaid();
    EXPECT_THAT(logs(), HasSubstr("RegisterAENCall failed Command Timeout"));
    EXPECT_THAT(logs(), Not(HasSubstr("Invalid controller")));
    EXPECT_EQ(library.registrations(), 0);
    discoverRaid();
    EXPECT_EQ(library.registrations(), 1);
    EXPECT_TRUE(tavMegaRAIDController::isAENRegistered);
}

TEST_F(RaidEvents, NoneIsHandledAfterAnUnregistrationThatFailed) {
    FakeRaidLibrary library({fakeController(0, "SV1")});
    discoverRaid();
    library.fail(0, 2, failed, 3);
    tavMegaRAIDControllerFactory::getInstance()->shutdownFactory();
    EXPECT_EQ(library.unregistrations(), 0);
    for (const char* const attempt : {"#1", "#2", "#3"}) {
        EXPECT_THAT(logs(), HasSubstr(std::string("on attempt ") + attempt +
                                      ". (Unique ID: [0x5a5a]; rval: [0x8002])"));
    }
    EXPECT_THAT(logs(), Not(HasSubstr("#4")));
    const std::size_t logged = logs().size();
    EXPECT_TRUE(library.fire(driveEvent(0x01, 4, 9)));
    EXPECT_EQ(logs().size(), logged);
    // The standing registration serves the next controllers: nothing is reported twice.
    discoverRaid();
    EXPECT_EQ(library.registrations(), 1);
    library.fire(driveEvent(0x01, 4, 9));
    EXPECT_EQ(events().size(), 1U);
}

TEST_F(RaidEvents, UnregistrationWaitsForTheCallbackThatRuns) {
    FakeRaidLibrary library({fakeController(0, "SV1")});
    discoverRaid();
    static std::atomic<bool> inHandler, stopped, finished;
    tavSASLSIEvent::_tavSASFunc = [](TAV_SAS_EVENT_DETAIL*) {
        inHandler = true;
        stopped = tav::pauseFor(1h) == tav::Pause::Stopped;
        std::this_thread::sleep_for(100ms);
        finished = true;
    };
    std::thread caller([&] { library.fire(driveEvent(0x01, 4, 9)); });
    while (!inHandler)
        std::this_thread::yield();
    tavSASLSIEvent::getInstance()->UnregisterForAEN();
    EXPECT_TRUE(finished);
    EXPECT_TRUE(stopped) << "its waits end early";
    caller.join();
    EXPECT_EQ(library.unregistrations(), 1);
}

TEST_F(RaidEvents, OfAnyBytesAreSurvived) {
    FakeRaidLibrary library({fakeController(0, "SV1")});
    discoverRaid();
    std::mt19937 random(1);
    for (int i = 0; i < 3000; ++i) {
        RaidEventBytes event;
        auto* const bytes = static_cast<std::uint8_t*>(event.data());
        for (std::size_t at = 0; at < event.bytes().size(); ++at)
            bytes[at] = static_cast<std::uint8_t>(random());
        event.locale(static_cast<std::uint16_t>(1U << random() % 8)).controller(random() % 2);
        library.fire(event);
    }
    AENCallBack(nullptr);
    EXPECT_EQ(discoverRaid().disks.size(), 2U);
    EXPECT_THAT(rmc_.violations(), IsEmpty());
}

/// Four threads of the library that call until they are told to end.
class Storm {
 public:
    Storm(FakeRaidLibrary& library, int eventsEach) {
        for (int thread = 0; thread < 4; ++thread) {
            threads_.emplace_back([this, &library, eventsEach] {
                for (int i = 0; i < eventsEach && !end_; ++i)
                    library.fire(driveEvent(0x01, 4, i % 2 == 0 ? 8 : 9));
            });
        }
    }
    void join() {
        for (std::thread& thread : threads_)
            thread.join();
        threads_.clear();
    }
    ~Storm() {
        end_ = true;
        join();
    }

 private:
    std::atomic<bool> end_{false};
    std::vector<std::thread> threads_;
};

TEST_F(RaidEvents, AStormDuringRebuildsRaisesEachConditionOnce) {
    FakeRaidLibrary library({fakeController(0, "SV1")});
    discoverRaid();
    clockSpeed = 50;  // a command that takes 200 ms hangs
    Storm storm(library, 2500);
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(discoverRaid().disks.size(), 2U);
    storm.join();
    std::vector<std::string> failedDrives;
    for (const Json::Value& event : events())
        failedDrives.push_back(event["VariableData"]["Data"]["SerialNumber"].asString());
    EXPECT_THAT(failedDrives, testing::UnorderedElementsAre("SV1-A", "SV1-B"));
    for (const tavDiskInfo& disk : discoverRaid().disks)
        EXPECT_EQ(conditionText(disk), "Failed/Critical");
}

TEST_F(RaidEvents, AStormMeetsStopAndStart) {
    FakeRaidLibrary library({fakeController(0, "SV1")});
    clockSpeed = 50;  // a command that takes 200 ms hangs
    discoverRaid();
    Storm storm(library, 1'000'000);
    for (int i = 0; i < 20; ++i) {
        std::this_thread::sleep_for(5ms);
        tavMegaRAIDControllerFactory::getInstance()->shutdownFactory();
        EXPECT_EQ(tavMegaRAIDController::totalLSICtrls, 0);
        EXPECT_EQ(library.unregistrations(), i + 1);
        EXPECT_EQ(discoverRaid().disks.size(), 2U);
    }
}

TEST(RaidFactory, AnnouncesItself) {
    const auto& factories = tavRegistryManager<ItavStorageControllerFactory*>::getEntries();
    EXPECT_THAT(factories, testing::Contains(tavMegaRAIDControllerFactory::getInstance()));
}

}  // namespace
