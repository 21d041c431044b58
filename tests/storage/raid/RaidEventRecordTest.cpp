#include <map>
#include <span>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "storage/raid/raid_event_record.h"
#include "tests/support/RaidEventBytes.h"

namespace {

using tav::test::RaidEventBytes;

TEST(RaidEventRecord, EveryFieldComesFromItsPlace) {
    const auto bytes = RaidEventBytes{}
                           .controller(0x01020304)
                           .code(0x11121314)
                           .locale(0x2122)
                           .eventClass(-2)
                           .argument(15, {0x09, 0x01, 0xFC, 0x05, 0x18, 0, 0, 0, 0x11, 0, 0, 0})
                           .text(std::string(128, 'x'))
                           .bytes();
    const auto event = tav::decodeRaidEvent(bytes);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->controllerId, 0x01020304U);
    EXPECT_EQ(event->code, 0x11121314U);
    EXPECT_EQ(event->locale, 0x2122);
    EXPECT_EQ(event->eventClass, -2);
    EXPECT_EQ(event->text, std::string(128, 'x')) << "a text without its NUL";
    const auto drive = tav::raidDriveOf(*event);
    ASSERT_TRUE(drive);
    EXPECT_EQ(drive->deviceId, 0x0109);
    EXPECT_EQ(drive->enclosure, 0xFC);
    EXPECT_EQ(drive->slot, 5);
    EXPECT_EQ(tav::raidNewDriveStateOf(*event), 0x11);
    EXPECT_FALSE(tav::decodeRaidEvent(std::span(bytes).first(tav::raidEventSize - 1)));
}

/// Numbers its arguments, so that a reference tells the offset it was read from.
tav::RaidEventRecord withArgument(std::uint8_t type) {
    std::vector<std::uint8_t> argument(tav::raidArgumentsSize);
    for (std::size_t i = 0; i < argument.size(); ++i)
        argument[i] = static_cast<std::uint8_t>(i);
    return *tav::decodeRaidEvent(RaidEventBytes{}.argument(type, argument).bytes());
}

TEST(RaidEventRecord, ReferencesStandWhereTheArgumentTypeHasThem) {
    const std::map<int, int> drives{{1, 0},  {10, 0},  {11, 0}, {14, 0}, {22, 0}, {23, 0},
                                    {28, 0}, {33, 0},  {34, 0}, {44, 0}, {45, 0}, {48, 0},
                                    {49, 0}, {51, 0},  {53, 0}, {57, 0}, {12, 8}, {13, 8},
                                    {15, 0}, {26, 16}, {29, 0}, {35, 0}};
    const std::map<int, int> volumes{{2, 0},  {3, 0},  {5, 0},  {7, 0},  {21, 0}, {39, 0},
                                     {40, 0}, {41, 0}, {43, 0}, {47, 0}, {49, 0}, {55, 0},
                                     {4, 8},  {6, 16}, {8, 0},  {9, 8}};
    for (int type = 0; type < 256; ++type) {
        const auto event = withArgument(static_cast<std::uint8_t>(type));
        const auto drive = tav::raidDriveOf(event);
        ASSERT_EQ(drive.has_value(), drives.contains(type)) << type;
        if (drive) {
            EXPECT_EQ(drive->slot, drives.at(type) + 3) << type;
        }
        const auto volume = tav::raidVolumeOf(event);
        ASSERT_EQ(volume.has_value(), volumes.contains(type)) << type;
        if (volume) {
            EXPECT_EQ(*volume & 0xFF, volumes.at(type)) << type;
        }
        EXPECT_EQ(tav::raidNewDriveStateOf(event).has_value(), type == 15) << type;
    }
    EXPECT_EQ(tav::raidNewDriveStateOf(withArgument(15)), 0xFFFF) << "no state has 32 bits";
}

TEST(RaidEventRecord, SeveralLocalesAreResolvedByTheCode) {
    struct Case {
        std::uint16_t locale;
        std::uint32_t code;
        const char* text;
    };
    const Case cases[] = {
        {0x0001, 0x84, "LD_EVENT"},
        {0x0002, 0x8A, "PD_EVENT"},
        {0x0004, 0, "ENCLOSURE_EVENT"},
        {0x0008, 0, "BBU_EVENT"},
        {0x0010, 0, "SAS_EVENT"},
        {0x0020, 0, "CTRL_EVENT"},
        {0x0040, 0, "CONFIG_CHNG_EVENT"},
        {0x0080, 0, "CLUSTER_EVENT"},
        {0xFFFF, 0x84, "ALL_EVENT"},
        {0x0003, 0x4F, "LD_EVENT"},
        {3, 0x4E, ""},
        {3, 0x50, ""},
        {3, 0x8A, "LD_EVENT"},
        {3, 0x8B, "LD_EVENT"},
        {3, 0x8C, ""},
        {3, 0x76, "PD_EVENT"},
        {3, 0x83, ""},
        {3, 0x84, "PD_EVENT"},
        {3, 0x89, "PD_EVENT"},
        {3, 0xF4, "PD_EVENT"},
        {3, 0xF5, "PD_EVENT"},
        {3, 0xF6, ""},
        {3, 0x106, "PD_EVENT"},
        {3, 0x120, "PD_EVENT"},
        {3, 0x121, "PD_EVENT"},
        {3, 0x122, ""},
        {3, 0x12A, "PD_EVENT"},
        {3, 0x14C, ""},
        {3, 0x14D, "PD_EVENT"},
        {3, 0x14E, "PD_EVENT"},
        {3, 0x188, "PD_EVENT"},
        {3, 0x189, "PD_EVENT"},
        {3, 0x18A, ""},
        {3, 0x21E, ""},
        {3, 0x21F, "PD_EVENT"},
        {3, 0x220, "PD_EVENT"},
        {3, 0x0B, "CTRL_EVENT"},
        {3, 0x142, ""},
        {3, 0x143, "CTRL_EVENT"},
        {3, 0x146, "CTRL_EVENT"},
        {3, 0x147, ""},
        {0, 0x02, "BBU_EVENT"},
        {0, 0xE7, "CONFIG_CHNG_EVENT"},
        {0, 0xE8, "CONFIG_CHNG_EVENT"},
        {0, 0xE9, ""},
    };
    for (const Case& one : cases)
        EXPECT_EQ(tav::raidLocaleText(one.locale, one.code), one.text)
            << std::hex << one.locale << ' ' << one.code;
}

}  // namespace
