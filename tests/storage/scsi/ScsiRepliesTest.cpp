/// What any bytes mean that the queries' own table does not reach: pages that callers keep.
#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include "hwlib/sysfs/sysfs_readers.h"
#include "storage/scsi/scsi_info.h"
#include "storage/scsi/scsi_replies.h"
#include "storage/scsi/scsi_turn.h"
#include "tests/storage/scsi/Hexadecimal.h"

namespace {

using tav::test::bytes;
using tav::test::Bytes;

TEST(ScsiReplies, WhatHasBecomeOfACommand) {
    using tav::scsi::Outcome;
    const struct {
        unsigned info;
        unsigned short host, driver;
        const char* sense;
        Outcome outcome;
    } rows[] = {
        {SG_INFO_OK, 0, 0, "", Outcome::Answered},
        {SG_INFO_CHECK, 3, 0, "70 00 05", Outcome::TimedOut},
        {SG_INFO_CHECK, 0, 0x16, "70 00 05", Outcome::TimedOut},  // with a suggestion
        {SG_INFO_CHECK, 0, 8, "70 00 05", Outcome::Refused},
        {SG_INFO_CHECK, 0, 8, "72 0B", Outcome::Aborted},
        {SG_INFO_CHECK, 0, 8, "70 00 03", Outcome::Failed},
        {SG_INFO_CHECK, 7, 0, "", Outcome::Failed},
    };
    for (const auto& row : rows) {
        Bytes sense = bytes(row.sense);
        sg_io_hdr completed{};
        completed.info = row.info;
        completed.host_status = row.host;
        completed.driver_status = row.driver;
        completed.sbp = sense.data();
        completed.mx_sb_len = completed.sb_len_wr = static_cast<unsigned char>(sense.size());
        EXPECT_EQ(tav::scsi::outcomeOf(completed), row.outcome)
            << row.host << ' ' << row.driver << row.sense;
    }
}

TEST(ScsiReplies, SasTemperatures) {
    const struct {
        const char* page;
        int current;
        int reference;
    } rows[] = {
        {"0D 00 00 0C 00 00 03 02 00 1E 00 01 03 02 00 41", 30, 65},
        {"0D 00 00 06 00 00 03 02 00 FF", 255, 0},
        {"0D 00 00 0B 00 00 03 02 00 1E 00 01 03 02 00", 30, 0},
        {"0D 00 00 05 00 00 03 02 00", 0, 0},
        {"0D 00 00 00", 0, 0},
        {"0D 00 00 0C 00 02 03 02 00 1E 01 01 03 02 00 41", 0, 0},
    };
    for (const auto& row : rows) {
        const Bytes page = bytes(row.page);  // no byte more than the page says: watched by asan
        EXPECT_EQ(sas_parse_current(page.data()), row.current) << row.page;
        EXPECT_EQ(sas_parse_mcot(page.data()), row.reference) << row.page;
    }
}

TEST(ScsiReplies, SataTemperatures) {
    const auto change = [](std::size_t at, std::uint8_t value, std::size_t length = 96) {
        Bytes page(96);
        page[0] = 1;
        page[2] = 5;
        page[8] = 0xF6;
        page[15] = 0x40;
        page[88] = 60;
        page[95] = 0x80;
        page[at] = value;
        page.resize(length);
        return page;
    };
    Bytes highRevision = change(0, 0);
    highRevision[1] = 1;
    constexpr int none = 1000;
    const struct {
        const char* name;
        Bytes page;
        int current;
        int maximum;
    } rows[] = {
        {"valid or supported", change(3, 0), -10, 60},
        {"no revision", change(0, 0), none, none},
        {"the revision's high byte", highRevision, -10, 60},
        {"another page", change(2, 4), none, none},
        {"no mark", change(15, 0x3F), none, 60},
        {"no mark for the maximum", change(95, 0x3F), -10, none},
        {"one byte short", change(3, 0, 95), -10, none},
        {"no maximum", change(3, 0, 16), -10, none},
        {"no flags", change(3, 0, 15), none, none},
        {"shortest", change(3, 0, 9), none, none},
        {"nothing", {}, none, none},
    };
    for (const auto& row : rows) {
        int current = none;
        int maximum = none;
        EXPECT_EQ(sata_parse_current(row.page.data(), row.page.size(), &current),
                  row.current != none);
        EXPECT_EQ(sata_parse_mcot(row.page.data(), row.page.size(), &maximum), row.maximum != none);
        EXPECT_EQ(current, row.current) << row.name;
        EXPECT_EQ(maximum, row.maximum) << row.name;
    }
}

TEST(ScsiReplies, IdentifyData) {
    const auto put = [](Bytes& data, std::size_t word, const std::string& text) {
        for (std::size_t i = 0; i < text.size(); ++i)
            data[2 * word + (i ^ 1U)] = static_cast<std::uint8_t>(text[i]);
    };
    const auto identity = [](const Bytes& data) {
        const auto found = tav::scsi::ataIdentity(std::as_bytes(std::span(data)));
        if (!found) return std::string("absent");
        return found->serialNumber + '|' + found->firmwareRevision + '|' + found->model + '|' +
               std::to_string(found->capabilities) + '|' + std::to_string(found->majorVersion) +
               '|' + std::to_string(found->rotationRate);
    };
    Bytes whole(512);
    put(whole, 10, "     S N 1          ");
    put(whole, 23, "FW 1    ");
    put(whole, 27, "MODEL 7" + std::string(32, ' ') + "Z");
    whole[98] = 0x0F;
    whole[161] = 0x02;
    whole[434] = 0x20;
    whole[435] = 0x1C;
    const std::string texts = "S N 1|FW 1|MODEL 7" + std::string(32, ' ') + "Z|15|512|7200";
    EXPECT_EQ(identity(whole), texts);
    Bytes longer = whole;
    longer.push_back(0xFF);
    EXPECT_EQ(identity(longer), texts);
    Bytes blank = whole;
    std::fill_n(&blank[20], 20, 0xFF);
    std::fill_n(&blank[54], 40, 0x00);
    put(blank, 23, std::string("A\0B     ", 8));
    EXPECT_EQ(identity(blank), "|A||15|512|7200");

    Bytes damaged = whole;
    damaged[510] = 0xA5;
    EXPECT_EQ(identity(damaged), "absent");
    unsigned sum = 0;
    for (const std::uint8_t byte : damaged)
        sum += byte;
    damaged[511] = static_cast<std::uint8_t>(0U - sum);
    EXPECT_EQ(identity(damaged), texts) << "with its checksum";
    EXPECT_EQ(identity(Bytes(512)), "absent");
    EXPECT_EQ(identity(Bytes(512, 0xFF)), "absent");
    EXPECT_EQ(identity(Bytes(whole.begin(), whole.end() - 1)), "absent");
    EXPECT_EQ(identity({}), "absent");
}

TEST(ScsiReplies, SenseKeys) {
    const struct {
        const char* sense;
        int key;
    } rows[] = {
        {"70 00 05", 5}, {"F1 00 2B 00", 11}, {"72 05", 5},
        {"73 FB", 11},   {"70 00", -1},       {"72", -1},
        {"", -1},        {"6F 05 05", -1},    {"74 05 05", -1},
    };
    for (const auto& row : rows) {
        const Bytes sense = bytes(row.sense);
        EXPECT_EQ(tav::scsi::senseKey(std::as_bytes(std::span(sense))).value_or(-1), row.key)
            << row.sense;
    }
}

TEST(ScsiReplies, DirectoriesOfAtaLogs) {
    const auto lists = [](bool (*parse)(tav::scsi::Bytes, std::uint8_t), const char* text,
                          std::uint8_t entry) {
        const Bytes page = bytes(text);
        return parse(std::as_bytes(std::span(page)), entry);
    };
    EXPECT_TRUE(lists(tav::scsi::directoryLists, "01 00 00 00 00 01", 2));
    EXPECT_TRUE(lists(tav::scsi::directoryLists, "01 00 00 00 08 00", 2));
    EXPECT_FALSE(lists(tav::scsi::directoryLists, "01 00 00 00 01 00", 1));
    EXPECT_FALSE(lists(tav::scsi::directoryLists, "01 00 00 00 01", 2)) << "cut short";
    const char* const pages = "01 00 00 00 00 00 00 00 02 00 05 07";
    EXPECT_TRUE(lists(tav::scsi::statisticsList, pages, 5));
    EXPECT_FALSE(lists(tav::scsi::statisticsList, pages, 7)) << "behind the list";
    EXPECT_FALSE(lists(tav::scsi::statisticsList, "01 00 00 00 00 00 00 00 FF 00 05", 7));
    EXPECT_FALSE(lists(tav::scsi::statisticsList, "01 00 00 00 00 00 00 00", 0));
}

TEST(ScsiReplies, InquiryFields) {
    const std::string inquiry = std::string("\xE5\0\6\x12\x33\0\0\0", 8) + "  VENDOR" +
                                std::string("PRODUCT  \0\0 \0\0\0\0", 16) + "REV ";
    const struct {
        char* (*parse)(const unsigned char*, std::size_t);
        std::size_t needed;
        const char* value;
    } rows[] = {{inq_parse_type, 1, "5"},
                {inq_parse_vendor, 16, "VENDOR"},
                {inq_parse_prodID, 32, "PRODUCT"},
                {inq_parse_rev, 36, "REV"}};
    for (const auto& row : rows) {
        for (std::size_t length = 0; length <= inquiry.size(); ++length) {
            const Bytes data(inquiry.begin(),
                             inquiry.begin() + static_cast<std::ptrdiff_t>(length));
            const tav::OwnedText text(row.parse(data.data(), length));
            EXPECT_STREQ(text.get(), length >= row.needed ? row.value : nullptr);
        }
    }
    const Bytes blank(36, ' ');
    EXPECT_STREQ(tav::OwnedText(inq_parse_vendor(blank.data(), blank.size())).get(), "");
}

TEST(ScsiReplies, DurableNames) {
    const std::string t10 = "02 01 00 02 41 42 ";
    const std::string port = "61 93 00 02 50 01 ";
    const std::string eui = "01 02 00 02 AA 01 ";
    const std::string naa = "01 03 00 03 50 00 C5 ";
    const struct {
        const char* name;
        std::string page;
        const char* expected;  ///< null: none
    } rows[] = {
        {"the best of many", "00 83 00 19 " + t10 + port + eui + naa, "5000C5"},
        {"the first of equals", "00 83 00 0D " + naa + eui, "5000C5"},
        {"second best", "00 83 00 0C " + t10 + eui, "AA01"},
        {"a vendor's own in binary", "00 83 00 06 01 00 00 02 0F F0", "0FF0"},
        {"text and port only", "00 83 00 0C " + t10 + port, nullptr},
        {"cut short", "00 83 00 07 01 03 00 03 50 00", nullptr},
        {"longer than the page", "00 83 00 06 " + naa, nullptr},
        {"what is behind a descriptor that is too long", "00 83 00 0D 01 02 00 FF AA 01 " + naa,
         nullptr},
        {"empty designator", "00 83 00 04 01 03 00 00", nullptr},
        {"another page", "00 80 00 07 " + naa, nullptr},
        {"page length beyond the data", "00 83 FF FF " + naa, "5000C5"},
        {"no header", "00 83 00", nullptr},
    };
    for (const auto& row : rows) {
        const Bytes page = bytes(row.page);
        const auto name = tav::scsi::durableName(std::as_bytes(std::span(page)));
        EXPECT_EQ(name,
                  row.expected == nullptr ? std::nullopt : std::optional<std::string>(row.expected))
            << row.name;
    }
}

}  // namespace
