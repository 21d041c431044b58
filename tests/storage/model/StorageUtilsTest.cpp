#include <array>
#include <climits>
#include <cstring>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "storage/model/storage_tables.h"
#include "storage/model/storage_utils.h"

namespace {

TEST(StorageUtils, TheModelIsTheFirstRowThatFits) {
    struct Case {
        std::uint32_t chipset;
        std::uint8_t mask;
        const char* beginning;  // null: none
        std::uint8_t flags;
    };
    const std::vector<Case> cases{
        {0x28268086, 0, "Intel C600", 1},
        {0x28268086, 1, "Intel C600", 1},
        {0x28268086, 2, nullptr, 0},
        {0x28268086, 255, "Intel C600", 1},
        {0x005D1000, 0, "9361-4i", 2},
        {0x005D1000, 3, "9361-4i", 2},
        {0x005D1000, 1, nullptr, 0},
        {0x005D1001, 0, nullptr, 0},
        {0, 0, nullptr, 0},
    };
    for (const Case& given : cases) {
        std::uint8_t flags = 0xAA;
        const char* const model =
            getStorageControllerModel(given.chipset, 0x12345678, given.mask, &flags);
        EXPECT_EQ(flags, given.flags);
        ASSERT_EQ(model != nullptr, given.beginning != nullptr) << std::hex << given.chipset;
        if (model != nullptr) {
            EXPECT_TRUE(std::string_view(model).starts_with(given.beginning));
            EXPECT_EQ(getStorageControllerModel(given.chipset, 0, given.mask), model);
        }
    }
}

TEST(StorageUtils, PartNumbersAreFoundByTheExactModel) {
    std::set<std::string> models;
    for (const tavStorageDrive& drive : gStorageDriveList) {
        EXPECT_TRUE(models.insert(drive.model).second) << drive.model;
        char buffer[60];
        std::memset(buffer, '#', sizeof buffer);
        EXPECT_EQ(getDiskPartNumber(drive.model, buffer), drive.partNumber);
        EXPECT_STREQ(buffer, drive.partNumber);
        EXPECT_FALSE(std::string(buffer).empty());
    }
    using namespace std::string_view_literals;
    char buffer[60] = "untouched";
    for (const std::string_view model :
         {""sv, "ST91000640N"sv, "ST91000640NS "sv, "st91000640ns"sv, "ST91000640NS\0"sv}) {
        EXPECT_EQ(getDiskPartNumber(model, buffer), "");
    }
    EXPECT_STREQ(buffer, "untouched");
}

TEST(StorageUtils, PciAddressesAreFoundInPaths) {
    struct Case {
        const char* path;
        std::ptrdiff_t position;  // -1: none
    };
    const std::vector<Case> cases{
        {"../../devices/pci0000:00/0000:00:1c.0/0000:03:00.0/host0/scsi_host/host0", 24},
        {"/0000:03:00.0", 0},
        {"/0000:", 0},
        {"/0000", -1},
        {"/00g0:00", -1},
        {"/00000:00", -1},
        {"0000:03:00.0", -1},
        {"//aBcD:x", 1},
        {"/", -1},
        {"", -1},
    };
    for (const Case& given : cases) {
        const char* const found = strstr_pcilocation(given.path);
        EXPECT_EQ(found == nullptr ? -1 : found - given.path, given.position) << given.path;
    }
    EXPECT_EQ(strstr_pcilocation(nullptr), nullptr);
    const char* const nearest = strstr_pcilocation(strstr_pcilocation(cases[0].path) + 1);
    EXPECT_EQ(std::string(nearest + 1, 12), "0000:03:00.0");
}

TEST(StorageUtils, WhiteSpaceIsCutOffAtBothEnds) {
    for (const auto& [given, expected] :
         std::vector<std::pair<std::string, const char*>>{{" \t ST9 1000\r\n ", "ST9 1000"},
                                                          {"   ", ""},
                                                          {"", ""},
                                                          {"x", "x"},
                                                          {"\xFFx ", "\xFFx"}}) {
        std::string text = given;
        EXPECT_STREQ(trim_surrounding_whitespace(text.data()), expected);
    }
    EXPECT_EQ(trim_surrounding_whitespace(nullptr), nullptr);
}

TEST(StorageUtils, AtaTextsAreSwappedAndNeverReadPastTheData) {
    constexpr std::string_view swapped = "..TS01234567";
    const auto identify = std::as_bytes(std::span(swapped));
    struct Case {
        std::size_t size, first, count;
        const char* expected;
    };
    for (const Case& given : std::vector<Case>{{12, 1, 3, "ST1032"},
                                               {12, 1, 5, "ST10325476"},
                                               {12, 4, 9, "5476"},
                                               {7, 1, 5, "ST10"},
                                               {12, 6, 1, ""},
                                               {12, 99, 1, ""},
                                               {0, 0, 4, ""}}) {
        std::array<char, 20> text{};
        const std::size_t size =
            get_ata_string(text.data(), identify.first(given.size), given.first, given.count);
        EXPECT_STREQ(text.data(), given.expected);
        EXPECT_EQ(size, std::strlen(given.expected));
    }
}

TEST(StorageUtils, GreatestCommonDivisors) {
    EXPECT_EQ(compute_gcd(30, 10), 10);
    EXPECT_EQ(compute_gcd(10, 45), 5);
    EXPECT_EQ(compute_gcd(7, 0), 7);
    EXPECT_EQ(compute_gcd(0, 7), 7);
    EXPECT_EQ(compute_gcd(0, 0), 0);
    EXPECT_EQ(compute_gcd(-30, 10), 10);
    EXPECT_EQ(compute_gcd(7, -21), 7);
    EXPECT_EQ(compute_gcd(LONG_MIN, -1), 1) << "a division that no processor can do";
    EXPECT_EQ(compute_gcd(LONG_MIN, LONG_MIN), LONG_MAX);
}

}  // namespace
