#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "nic/NicTables.h"

namespace {

using tav::AdapterStatus;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string header =
    "Name    PCI Device    Driver  Admin Status  Link Status  Speed  Duplex  MAC Address  MTU  D\n"
    "------  ------------  ------  ------------  -----------  -----  ------  -----------  ---  -\n";

TEST(NicList, KeepsTheDescriptionWholeAndDropsShortLines) {
    const auto rows =
        tav::parseNicList(header +
                          "vmnic0  0000:01:00.0  igbn  Up  Up  1000  Full  02:00:00:00:01:00  1500 "
                          " Intel  I350 \tGb\n"
                          "vmnic1  0000:01:00.1  igbn  Up  Down  0  Half  02:00:00:00:01:01  1500\n"
                          "\n"
                          "vmnic2 0000:02:00.0 x Up Up 1 Full m 9000 \xff\xfe");
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_THAT(rows[0], ElementsAre("vmnic0", "0000:01:00.0", "igbn", "Up", "Up", "1000", "Full",
                                     "02:00:00:00:01:00", "1500", "Intel I350 Gb"));
    EXPECT_EQ(rows[1][tav::NIC_COLUMN_DESCRIPTION], "\xff\xfe");
}

TEST(NicList, HasNoRowsWithoutTwoLinesOfHeader) {
    EXPECT_THAT(tav::parseNicList(""), IsEmpty());
    EXPECT_THAT(tav::parseNicList(header), IsEmpty());
    EXPECT_THAT(tav::parseNicList("a b c d e f g h i j"), IsEmpty());
    std::string long_ = header;
    for (int row = 0; row < 5000; ++row)
        long_ += "n" + std::to_string(row) + " b c d e f g h i j\n";
    EXPECT_EQ(tav::parseNicList(long_).size(), 5000U);
}

TEST(NicList, LinksAreLinesOfTwoWords) {
    const auto links =
        tav::parseNicLinks("Name Link\n---- ----\nvmnic0 Up\nvmnic1\na b c\nv2 Down");
    ASSERT_EQ(links.size(), 2U);
    EXPECT_EQ(links[0].name + links[0].status, "vmnic0Up");
    EXPECT_EQ(links[1].name + links[1].status, "v2Down");
}

TEST(NicDetails, TakesTheTextBehindTheFirstColonOfTheLine) {
    const std::string details =
        "   Cable Type: Twisted Pair\n   Firmware Version without one\n"
        "      Firmware Version:  1.63, 0x8: b\n   Firmware Version: other\n";
    EXPECT_EQ(tav::nicDetail(details, "Firmware Version"), " 1.63, 0x8: b");
    EXPECT_EQ(tav::nicDetail(details, "Cable "), "Twisted Pair");
    EXPECT_EQ(tav::nicDetail(details, "Wake"), std::nullopt);
    EXPECT_EQ(tav::nicDetail("Cable Type:", "Cable "), "");
}

TEST(NicNames, OnlyWhatCanBeAnInterface) {
    for (const char* name : {"vmnic0", "eth0.12", "br-lan", "a:1", "fifteen_letters"})
        EXPECT_TRUE(tav::isInterfaceName(name)) << name;
    for (const char* name :
         {"", "-n", ".x", "a b", "$(id)", "a;b", "a/b", "a\nb", "sixteen__letters", "\xc3\xa4"}) {
        EXPECT_FALSE(tav::isInterfaceName(name)) << name;
    }
    EXPECT_TRUE(tav::isPciAddressText("0000:3B:00.0"));
    EXPECT_FALSE(tav::isPciAddressText("0000:3b:00.0;id"));
}

struct StatusRow {
    const char* link;
    const char* cable;
    AdapterStatus status;
    const char* state;
    const char* health;
};

TEST(AdapterStatus, ByLinkAndCable) {
    constexpr StatusRow rows[] = {
        {"Up", "", AdapterStatus::Running, "Running", "OK"},
        {"uP", "", AdapterStatus::Running, "Running", "OK"},
        {"DOWN", "Twisted Pair", AdapterStatus::Down, "Down", "Unknown"},
        {"unknown", "Twisted Pair", AdapterStatus::Failed, "Failed", "Critical"},
        {"Dormant", "Twisted Pair", AdapterStatus::Running, "Running", "OK"},
        {"Dormant", "  \n", AdapterStatus::Other, "Other", "Unknown"},
        {"", "", AdapterStatus::Other, "Other", "Unknown"},
    };
    for (const StatusRow& row : rows) {
        const AdapterStatus status = tav::adapterStatus(row.link, row.cable);
        EXPECT_EQ(status, row.status) << row.link << '/' << row.cable;
        EXPECT_STREQ(tav::displayText(tav::conditionOf(status).state), row.state);
        EXPECT_STREQ(tav::displayText(tav::conditionOf(status).health), row.health);
    }
}

TEST(PartNumber, NeedsVendorAndModel) {
    EXPECT_STREQ(tav::nicPartNumber("Intel Corporation 82599ES"), "E10G42BTDA");
    EXPECT_STREQ(tav::nicPartNumber("Intel(R) Ethernet X520-2"), "E10G42BTDA");
    EXPECT_STREQ(tav::nicPartNumber("Broadcom 82599ES"), "");
    EXPECT_STREQ(tav::nicPartNumber("intel i350"), "");
    EXPECT_STREQ(tav::nicPartNumber(""), "");
}

}  // namespace
