#include <algorithm>
#include <iterator>
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
    struct Codes {
        std::uint32_t first, last;
        const char* locale;
    };
    const Codes known[] = {
        {0x02, 0x02, "BBU_EVENT"},         {0x0B, 0x0B, "CTRL_EVENT"}, {0x4F, 0x4F, "LD_EVENT"},
        {0x76, 0x76, "PD_EVENT"},          {0x84, 0x89, "PD_EVENT"},   {0x8A, 0x8B, "LD_EVENT"},
        {0xE7, 0xE8, "CONFIG_CHNG_EVENT"}, {0xF4, 0xF5, "PD_EVENT"},   {0x106, 0x106, "PD_EVENT"},
        {0x120, 0x121, "PD_EVENT"},        {0x12A, 0x12A, "PD_EVENT"}, {0x143, 0x146, "CTRL_EVENT"},
        {0x14D, 0x14E, "PD_EVENT"},        {0x188, 0x189, "PD_EVENT"}, {0x21F, 0x220, "PD_EVENT"}};
    for (std::uint32_t code = 0; code < 0x300; ++code) {
        const auto* const row = std::find_if(
            std::begin(known), std::end(known),
            [code](const Codes& codes) { return codes.first <= code && code <= codes.last; });
        const std::string expected = row == std::end(known) ? "" : row->locale;
        EXPECT_EQ(tav::raidLocaleText(3, code), expected) << std::hex << code;
        EXPECT_EQ(tav::raidLocaleText(0, code), expected) << std::hex << code;
    }
    const std::map<std::uint16_t, const char*> single{
        {0x01, "LD_EVENT"},          {0x02, "PD_EVENT"},      {0x04, "ENCLOSURE_EVENT"},
        {0x08, "BBU_EVENT"},         {0x10, "SAS_EVENT"},     {0x20, "CTRL_EVENT"},
        {0x40, "CONFIG_CHNG_EVENT"}, {0x80, "CLUSTER_EVENT"}, {0xFFFF, "ALL_EVENT"}};
    for (const auto& [locale, text] : single)
        EXPECT_EQ(tav::raidLocaleText(locale, 0x0B), text) << "whatever the code";
}

}  // namespace
