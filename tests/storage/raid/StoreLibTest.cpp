/// The vendor library's interface: what its records mean, and what it makes of a library that
/// fails, lies or is slow.
#include <array>
#include <csignal>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "storage/raid/storelib_commands.h"
#include "storage/raid/storelib_lane.h"
#include "storage/raid/tavStoreLibInterface.h"
#include "tests/support/FakeRaidLibrary.h"
#include "tests/support/FastWaiting.h"
#include "tests/support/Files.h"

namespace {

namespace storelib = tav::storelib;
using tav::test::FakeRaidLibrary;
using tav::test::logEverything;
using tav::test::logs;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

tavStoreLibInterface& library() {
    return *tavStoreLibInterface::getInstance();
}

TEST(StoreLibRecords, ADrive) {
    _MR_PD_INFO record{};
    std::memcpy(record.productId, "ST600 MM0009    ", 16);
    std::memcpy(record.revision, "N004", 4);
    std::memset(record.vendorSpecific, ' ', sizeof record.vendorSpecific);
    std::memcpy(record.vendorSpecific + 3, "WFK 0001", 8);
    record.rawSize = 3;
    record.userDataBlockSize = 4096;
    record.slotNumber = 7;
    struct Row {
        std::uint16_t state;
        std::uint8_t interfaceType, mediaType;
        const char *stateText, *interfaceText, *mediaText;
        std::uint32_t health;
    };
    for (const Row& row : {Row{0x18, 0x2F, 0, "Online", "SAS", "HDD", 1},
                           Row{0x11, 0x30, 1, "Failed", "SATA", "SSD", 4},
                           Row{0x01, 0x10, 2, "Unconfigured bad", "Prallel SCSI", "SSD", 4},
                           Row{0x14, 0x40, 0, "Rebuild", "FC", "HDD", 1},
                           Row{0x118, 0x02, 0, "Unknown", "Unknown", "HDD", 3}}) {
        record.firmwareState = row.state;
        record.interfaceType = row.interfaceType;
        record.mediaType = row.mediaType;
        const auto drive = storelib::toDrive(record, 9);
        ASSERT_TRUE(drive);
        EXPECT_EQ(drive->firmwareState, row.stateText);
        EXPECT_EQ(drive->interfaceType, row.interfaceText);
        EXPECT_EQ(drive->mediaType, row.mediaText);
        EXPECT_EQ(drive->health, row.health);
        EXPECT_EQ(drive->serialNumber, "WFK0001") << "no blank is left";
        EXPECT_EQ(drive->model, "ST600MM0009");
        EXPECT_EQ(drive->revision, "N004");
        EXPECT_EQ(drive->capacityBytes, 12288U);
        EXPECT_EQ(drive->slotNumber * 100 + drive->deviceId, 709U);
    }
    record.scsiDeviceType = 13;
    EXPECT_FALSE(storelib::toDrive(record, 9)) << "an enclosure";
}

TEST(StoreLibRecords, AVolume) {
    _MR_LD_INFO record{};
    record.targetId = 5;
    record.state = 1;
    record.size = 4097;
    record.identifier[0] = 0x60;
    record.identifier[15] = 0xAF;
    const LD_INFO volume = storelib::toVolume(record, 512);
    EXPECT_EQ(volume.durableName, "600000000000000000000000000000af");
    EXPECT_EQ(volume.capacityBytes, 2U << 20U) << "whole mebibytes";
    EXPECT_EQ(volume.state, "Partially degraded");
    EXPECT_EQ(volume.health, 2U);
    EXPECT_STREQ(storelib::raidLevelText(1, 0, 0, 1), "RAID1");
    EXPECT_STREQ(storelib::raidLevelText(1, 0, 0, 2), "RAID01");
    EXPECT_STREQ(storelib::raidLevelText(5, 3, 0, 0), "RAID5");
    EXPECT_STREQ(storelib::raidLevelText(5, 3, 0, 2), "");
    EXPECT_STREQ(storelib::raidLevelText(0x11, 0, 0, 4), "PRL11 with Spanning");
    EXPECT_STREQ(storelib::raidLevelText(6, 0, 3, 2), "SRL 3");
    EXPECT_STREQ(storelib::raidLevelText(2, 0, 3, 2), "");
}

constexpr std::uint32_t failed = 0x8002;

tav::test::FakeController oneController() {
    return {0, "SV1", 0x65, {{8, 0, "A"}, {9, 1, "B"}}, {{0, 3, {9, 8, 77}}}};
}

TEST(StoreLib, CachesWhatTheLibraryTells) {
    logEverything();
    FakeRaidLibrary fake({oneController()});
    fake.change([](auto& controllers) {
        controllers[0].drives.push_back({0, 2, "OF NO VOLUME"});
        controllers[0].drives[1].blockSize = 4096;
    });
    ASSERT_EQ(library().tavStoreInit(), 1);
    library().lane().run([] { library().cacheBuild("All"); });  // work within work is done at once
    const auto controllers = library().getControllerCollection();
    ASSERT_THAT(controllers, SizeIs(1));
    EXPECT_EQ(controllers[0].serialNumber, "SV1");
    EXPECT_EQ(controllers[0].pciLocation, "0000:65:00.0");
    EXPECT_EQ(controllers[0].firmwareVersion, "24.21.0-0151");
    EXPECT_EQ(library().getControllerID("0000:65:00.0"), 0);
    EXPECT_EQ(library().getControllerID("0000:66:00.0"), -1);
    ASSERT_THAT(library().getLDInventoryForCtrl(0), SizeIs(1));
    EXPECT_THAT(library().getLDInventoryForCtrl(0)[0].memberDrives, ElementsAre("B", "A"));
    EXPECT_EQ(library().getLDInventoryForCtrl(0)[0].capacityBytes, 4ULL << 30U);
    EXPECT_THAT(library().getPDInventoryForCtrl(7), IsEmpty());
    EXPECT_THAT(logs(), Not(HasSubstr("Simulation Mode")));
}

TEST(StoreLib, AnswersSingleQuestionsOfItsFirstController) {
    FakeRaidLibrary fake({oneController(), {1, "SV2", 0x66, {}, {}}});
    EXPECT_NE(library().UnInitializeLibrary(), storelib::success) << "not loaded yet";
    ASSERT_EQ(library().tavStoreInit(), 1);
    const auto list = std::make_unique<SL_CTRL_LIST_T>();
    const auto controller = std::make_unique<_MR_CTRL_INFO>();
    const auto drives = std::make_unique<_MR_PD_LIST>();
    const auto enclosures = std::make_unique<_MR_ENCL_LIST>();
    _MR_PD_INFO fired{}, drive{};
    _MR_LD_INFO volume{};
    _MR_MFC_MFG made{};
    std::array<char, 41> safeId{};
    const std::array statuses = {library().getCtrlList(list.get()),
                                 library().getCtrlInfoFunc(controller.get()),
                                 library().GetPDListFunc(drives.get(), sizeof *drives),
                                 library().GetEnclListFunc(enclosures.get()),
                                 library().FirePDInfo(&fired, 8),
                                 library().PDInfo(&drive, 9),
                                 library().FireLDInfo(&volume, 0),
                                 library().GetMFCMFG(&made, 0),
                                 library().getCtrlSafeID(safeId.data())};
    EXPECT_THAT(statuses, testing::Each(storelib::success));
    EXPECT_EQ(list->count * 10 + list->controllerIds[1], 21U);
    EXPECT_EQ(controller->pciDeviceId, 0x005D);
    EXPECT_EQ(drives->count * 10 + drives->entries[1].deviceId, 29U);
    EXPECT_EQ(enclosures->reserved0[0], 7);
    EXPECT_EQ(std::string({fired.vendorSpecific[0], drive.vendorSpecific[0]}), "AB");
    EXPECT_EQ(volume.state, 3);
    EXPECT_STREQ(made.serialNumber, "SV1");
    EXPECT_STREQ(safeId.data(), "SV1");
    EXPECT_EQ(library().getCtrlPCILoc(), "0000:65:00.0");
    EXPECT_EQ(library().getCtrlFWVersion(), "24.21.0-0151");
    EXPECT_NE(library().PDInfo(&drive, 7), storelib::success);
    fake.fail(1, 0, failed, 1);
    fake.fail(1, 11, failed, 1);
    EXPECT_EQ(library().getCtrlFWVersion() + library().getCtrlPCILoc(), "");
    library().unloadDLL(0);
    EXPECT_NE(library().getCtrlList(list.get()), storelib::success);
}

TEST(StoreLib, KeepsTheHandlerThatTheProcessHasForItsChildren) {
    const FakeRaidLibrary fake({oneController()});
    std::array<struct sigaction, 4> present{};
    present[1].sa_handler = SIG_IGN;
    present[2].sa_handler = [](int) {};
    present[3].sa_sigaction = [](int, siginfo_t*, void*) {};
    present[3].sa_flags = SA_SIGINFO;
    for (std::size_t row = 0; row < present.size(); ++row) {
        ::sigaction(SIGCHLD, &present[row], nullptr);
        ASSERT_EQ(library().tavStoreInit(), 1);
        struct sigaction now {};
        ::sigaction(SIGCHLD, nullptr, &now);
        EXPECT_EQ(now.sa_handler == tavStoreLibInterface::sighdlr, row < 2) << row;
        library().unloadDLLs();
    }
}

TEST(StoreLib, AScopeRebuildsNoMoreThanItNames) {
    FakeRaidLibrary fake({oneController()});
    ASSERT_EQ(library().tavStoreInit(), 1);
    library().cacheBuild("All");
    fake.change([](auto& controllers) {
        controllers[0].drives[0].state = 0x11;
        controllers[0].volumes.clear();
    });
    library().cacheBuild("PD_EVENT");
    EXPECT_EQ(library().getPDInventoryForCtrl(0)[0].firmwareState, "Failed");
    EXPECT_THAT(library().getLDInventoryForCtrl(0), SizeIs(1));
    library().cacheBuild("BBU_EVENT");
    EXPECT_THAT(library().getLDInventoryForCtrl(0), SizeIs(1));
    library().cacheBuild("LD_EVENT");
    EXPECT_THAT(library().getLDInventoryForCtrl(0), IsEmpty());
}

/// Everything that the cache says, in words.
std::string cached() {
    std::string text;
    for (const CTRL_INFO& controller : library().getControllerCollection()) {
        text += controller.serialNumber + " at " + controller.pciLocation + " with " +
                controller.firmwareVersion + ":";
        for (const PD_INFO& drive : library().getPDInventoryForCtrl(controller.controllerId))
            text += " " + drive.serialNumber + " " + drive.firmwareState;
        for (const LD_INFO& volume : library().getLDInventoryForCtrl(controller.controllerId)) {
            text += " volume of " + std::to_string(volume.capacityBytes);
            for (const std::string& member : volume.memberDrives)
                text += " " + member;
        }
        text += "\n";
    }
    return text;
}

TEST(StoreLib, WhatCannotBeAskedForStands) {
    FakeRaidLibrary fake({oneController(), {1, "SV2", 0x66, {{3, 0, "C"}}, {}}});
    ASSERT_EQ(library().tavStoreInit(), 1);
    library().cacheBuild("All");
    const std::string known = cached();
    EXPECT_EQ(known,
              "SV1 at 0000:65:00.0 with 24.21.0-0151: A Online B Online volume of 536870912 B A\n"
              "SV2 at 0000:66:00.0 with 24.21.0-0151: C Online\n");
    struct Row {
        std::uint8_t type, code;
        const char* what;
    };
    for (const Row& row :
         {Row{0, 3, "list of controllers"}, Row{1, 0, "controller"}, Row{1, 4, "list of drives"},
          Row{1, 11, "place"}, Row{1, 13, "list of volumes"}, Row{2, 0, "drive"},
          Row{3, 0, "volume"}, Row{3, 11, "members"}, Row{6, 3, "serial number"}}) {
        fake.fail(row.type, row.code, failed, 1000);
        library().cacheBuild("All");
        EXPECT_EQ(cached(), known) << row.what;
        fake.fail(row.type, row.code, failed, 0);
    }
    fake.fail(3, 11, failed, 1);
    fake.change([](auto& controllers) { controllers[0].volumes[0].made = 1; });
    library().cacheBuild("All");
    EXPECT_THAT(library().getLDInventoryForCtrl(0)[0].memberDrives, IsEmpty())
        << "those of a volume that has the number of another now";
    // What is not there any more has gone, and one that could not be read may be another by now.
    fake.fail(1, 4, failed, 1);
    fake.change([](auto& controllers) { controllers = {{0, "SV3", 0x67, {{8, 0, "D"}}, {}}}; });
    library().cacheBuild("All");
    EXPECT_EQ(cached(), "SV3 at 0000:67:00.0 with 24.21.0-0151:\n");
    library().cacheBuild("All");
    EXPECT_EQ(cached(), "SV3 at 0000:67:00.0 with 24.21.0-0151: D Online\n");
}

TEST(StoreLib, AControllerThatCannotBeReadIsStillListed) {
    FakeRaidLibrary fake({oneController(), {1, "SV2", 0x66, {}, {}}});
    ASSERT_EQ(library().tavStoreInit(), 1);
    fake.fail(1, 0, failed, 1);
    library().cacheBuild("CTRL_EVENT");
    EXPECT_EQ(cached(), "SV1 at  with :\nSV2 at 0000:66:00.0 with 24.21.0-0151:\n");
}

TEST(StoreLib, AFailedInitialisationIsNotRetried) {
    logEverything();
    FakeRaidLibrary fake({oneController()});
    fake.fail(0, 0, 0x802B, 1);
    EXPECT_EQ(library().tavStoreInit(), 0);
    EXPECT_THAT(logs(), HasSubstr("User Access level incorrect, administrator privilege required"));
    EXPECT_THAT(logs(), HasSubstr("InitLib failed for MegaRAID SAS Controller!!"));
    EXPECT_EQ(library().tavStoreInit(), 1) << "the entry point is known";
    library().cacheBuild("All");
    EXPECT_THAT(library().getControllerCollection(), IsEmpty());
}

TEST(StoreLib, WithoutControllersItCannotBeUsed) {
    logEverything();
    const FakeRaidLibrary fake({});
    EXPECT_EQ(library().tavStoreInit(), 0);
    EXPECT_THAT(logs(), HasSubstr("No LSI MR controllers found"));
}

std::mt19937& randomBytes() {
    static std::mt19937 generator(4711);
    return generator;
}

/// Answers every command with success and with bytes of its own choice; counts lie.
std::uint32_t answerNonsense(_SL_LIB_CMD_PARAM_T* command) {
    auto* const data = static_cast<unsigned char*>(command->data);
    for (std::uint32_t index = 0; data != nullptr && index < command->dataSize; ++index) {
        // The frame's own fields stay: they say where the answer goes.
        if (command->commandType == 6) break;
        data[index] = static_cast<unsigned char>(randomBytes()());
    }
    if (command->commandType == 6) {
        const auto* const frame = static_cast<SL_DCMD_FRAME_T*>(command->data);
        std::memset(frame->output, 'x', frame->outputSize);  // no NUL anywhere
    }
    if (command->commandType == 1 && command->commandCode == 0) {
        static_cast<_MR_CTRL_INFO*>(command->data)->vendorId = 0x1000;
        static_cast<_MR_CTRL_INFO*>(command->data)->pciDeviceId = 0x005D;
    }
    return 0;
}

TEST(StoreLib, AnyBytesAndCountsAreSurvived) {
    const FakeRaidLibrary fake({oneController()});
    ASSERT_EQ(library().tavStoreInit(), 1);
    tavStoreLibInterface::pfnProcessLibCommandMR = answerNonsense;
    tavStoreLibInterface::pfnProcessLibCommand = answerNonsense;
    library().cacheBuild("All");
    EXPECT_THAT(library().getControllerIds(), SizeIs(64)) << "as many as there is room for";
    for (const CTRL_INFO& controller : library().getControllerCollection()) {
        EXPECT_LE(controller.serialNumber.size(), 30U);
        library().getPDInventoryForCtrl(controller.controllerId);
    }
}

TEST(StoreLib, AnInitialisationThatHangsHoldsNobodyUp) {
    logEverything();
    tav::test::clockSpeed = 200;
    FakeRaidLibrary fake({oneController()});
    fake.hang(0, 0);
    EXPECT_EQ(library().tavStoreInit(), 0);
    EXPECT_THAT(logs(), HasSubstr("does not answer: it was asked for its initialisation 10 s ago"));
    library().cacheBuild("All");
    EXPECT_THAT(cached(), IsEmpty());
    fake.release();
    while (logs().find("Inventory cache invalidated.") == std::string::npos)
        std::this_thread::yield();
    library().cacheBuild("All");
    EXPECT_THAT(cached(), HasSubstr("SV1"));
}

TEST(StoreLib, AReaderDuringABuildGetsTheLastCompleteGeneration) {
    logEverything();
    tav::test::clockSpeed = 200;
    FakeRaidLibrary fake({oneController()});
    ASSERT_EQ(library().tavStoreInit(), 1);
    library().cacheBuild("All");
    fake.change([](auto& controllers) { controllers[0].drives.pop_back(); });
    library().cacheBuild("All");
    for (const auto& [type, code] : {std::pair{0, 3}, {1, 0}, {1, 4}, {1, 13}}) {
        fake.hang(static_cast<std::uint8_t>(type), static_cast<std::uint8_t>(code));
        std::thread builder([] { library().cacheBuild("All"); });
        fake.waitForHanging();
        EXPECT_THAT(library().getPDInventoryForCtrl(0), SizeIs(1)) << type << "/" << code;
        EXPECT_THAT(library().getLDInventoryForCtrl(0), SizeIs(1)) << type << "/" << code;
        fake.release();
        builder.join();
    }
    EXPECT_THAT(logs(), HasSubstr("Failed to acquire lock."));
}

}  // namespace
