/// What NVMe controllers answer, also what no sane one would: the replies, and the judgement of
/// them.
#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "storage/nvme/nvme_conditions.h"
#include "storage/nvme/nvme_device.h"
#include "storage/nvme/nvme_replies.h"
#include "storage/nvme/nvme_sysfs.h"

namespace {

using namespace tav::nvme;
using testing::HasSubstr;
using testing::IsEmpty;

using Data = std::vector<std::uint8_t>;

Bytes bytesOf(const Data& data) {
    return std::as_bytes(std::span(data));
}

void put(Data& data, std::size_t at, std::uint64_t value, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i, value >>= 8U)
        data[at + i] = static_cast<std::uint8_t>(value);
}

void put(Data& data, std::size_t at, const std::string& text) {
    std::memcpy(data.data() + at, text.data(), text.size());
}

TEST(NvmeReplies, ControllersIdentifyThemselves) {
    Data data(4096);
    put(data, 4,
        std::string("  S1-2              ") + "MODEL X" + std::string(33, ' ') + "FW1     ");
    put(data, 266, 343, 2);
    put(data, 268, 353, 2);
    const auto identity = controllerIdentity(bytesOf(data));
    ASSERT_TRUE(identity);
    EXPECT_EQ(identity->serialNumber, "S1-2");
    EXPECT_EQ(identity->model, "MODEL X");
    EXPECT_EQ(identity->firmwareRevision, "FW1");
    EXPECT_EQ(identity->warningKelvins, 343);
    EXPECT_EQ(identity->criticalKelvins, 353);

    put(data, 4, std::string("A\0junk", 6));
    put(data, 266, 0xFFFF, 2);
    put(data, 268, 273, 2);
    const auto odd = controllerIdentity(bytesOf(data));
    EXPECT_EQ(odd->serialNumber, "A");
    EXPECT_EQ(odd->warningKelvins, 0) << "a temperature that none reaches";
    EXPECT_EQ(odd->criticalKelvins, 0) << "one that all have";

    for (const Data& none : {Data(), Data(4095, 'x'), Data(4096), Data(4096, 0xFF)})
        EXPECT_FALSE(controllerIdentity(bytesOf(none)));
    EXPECT_TRUE(controllerIdentity(bytesOf(Data(8192, 'x')))) << "one of a later version";
}

TEST(NvmeReplies, SizesOfNamespaces) {
    const struct {
        std::uint64_t blocks;
        std::uint8_t format;   // FLBAS
        std::uint8_t shift;    // LBADS
        std::size_t formatAt;  // its index
        std::optional<std::uint64_t> bytes;
    } rows[] = {
        {1953525168, 0, 9, 0, 1953525168ULL * 512},
        {100, 0x13, 12, 3, 100 * 4096},        // metadata at the end of the block: bit 4
        {100, 0x21, 12, 17, 100 * 4096},       // the index' upper bits
        {0, 0, 9, 0, 0},                       // no size
        {100, 0, 0, 0, std::nullopt},          // a format that is not available
        {100, 0, 64, 0, std::nullopt},         // blocks of no size that there is
        {1ULL << 60U, 0, 9, 0, std::nullopt},  // more than can be counted
    };
    for (const auto& row : rows) {
        Data data(4096);
        put(data, 0, row.blocks, 8);
        data[24] = 1;  // so that it is not all zeros
        data[26] = row.format;
        data[128 + 4 * row.formatAt + 2] = row.shift;
        EXPECT_EQ(namespaceBytes(bytesOf(data)), row.bytes) << row.blocks << ' ' << +row.shift;
    }
    for (const Data& none : {Data(), Data(383, 1), Data(4096), Data(4096, 0xFF)})
        EXPECT_FALSE(namespaceBytes(bytesOf(none)));
}

/// A log that is well, and its judgement with one thing changed.
TEST(NvmeConditions, EveryWayToBeUnwellHasItsText) {
    const struct {
        std::size_t at;
        std::uint64_t value;
        std::size_t size;
        tav::Condition condition;
        const char* text;
    } rows[] = {
        {7, 1, 1, tav::running, ""},
        {0, 0x01, 1, tav::predictiveFailure, "[Available spare (100 %); Threshold (10 %)]"},
        {0, 0x02, 1, tav::predictiveFailure, "[Current Temp (38 C), beyond a threshold]"},
        {0, 0x04, 1, tav::predictiveFailure,
         "[Media or internal errors have degraded its reliability.]"},
        {0, 0x08, 1, tav::failed, "[The media has become read-only.]"},
        {0, 0x10, 1, tav::predictiveFailure, "[The backup of its volatile memory has failed.]"},
        {0, 0x20, 1, tav::predictiveFailure,
         "[Its persistent memory region has become read-only or unreliable.]"},
        {0, 0xC0, 1, tav::running, ""},  // reserved
        {0, 0x0C, 1, tav::failed,
         "[The media has become read-only.], [Media or internal errors have degraded its "
         "reliability.]"},
        {3, 10, 1, tav::running, ""},  // at the threshold
        {3, 9, 1, tav::predictiveFailure, "[Available spare (9 %); Threshold (10 %)]"},
        {3, 101, 1, tav::running, ""},  // no percentage
        {4, 101, 1, tav::running, ""},
        {4, 100, 1, tav::running, ""},
        {5, 94, 1, tav::running, ""},
        {5, 95, 1, tav::predictiveFailure, "[SSD Wear percentage (95); Threshold (95)]"},
        {5, 255, 1, tav::predictiveFailure, "[SSD Wear percentage (255); Threshold (95)]"},
        {1, 342, 2, tav::running, ""},
        {1, 343, 2, tav::predictiveFailure, "[Current Temp (70 C); Warning Temperature (70 C)]"},
        {1, 353, 2, tav::predictiveFailure, "[Current Temp (80 C); Critical Temperature (80 C)]"},
        {1, 0, 2, tav::running, ""},       // 0 K: not reported
        {1, 0xFFFF, 2, tav::running, ""},  // no temperature
        {160, 1, 8, tav::predictiveFailure, "[1 media and data integrity errors]"},
        {175, 1, 1, tav::predictiveFailure,
         "[18446744073709551615 media and data integrity errors]"},
    };
    for (const auto& row : rows) {
        Data data(512);
        put(data, 1, 311, 2);
        put(data, 3, 0x0A64, 2);  // spare 100 %, threshold 10 %
        put(data, row.at, row.value, row.size);
        const auto log = healthLog(bytesOf(data));
        ASSERT_TRUE(log);
        const tav::DiskJudgement judgement = judgeDrive({*log, 343, 353});
        EXPECT_EQ(judgement.eventInfo, row.text) << row.at << ": " << row.value;
        EXPECT_EQ(judgement.condition, row.condition) << row.at << ": " << row.value;
    }
    const HealthLog hot{.kelvins = 400};
    EXPECT_EQ(judgeDrive({hot, 0, 0}).condition, tav::running) << "without thresholds";
    for (const Data& none : {Data(), Data(511, 1), Data(512), Data(512, 0xFF)})
        EXPECT_FALSE(healthLog(bytesOf(none)));
    Data later(1024);
    later[3] = 100;
    EXPECT_TRUE(healthLog(bytesOf(later)));
}

TEST(NvmeConditions, StatesOfControllers) {
    const struct {
        std::optional<std::string> word;
        ControllerState state;
        const char* host;
    } rows[] = {{"live", ControllerState::Live, "running"},
                {"new", ControllerState::InReset, "recovery"},
                {"resetting", ControllerState::InReset, "recovery"},
                {"connecting", ControllerState::InReset, "recovery"},
                {"deleting", ControllerState::Leaving, "offline"},
                {"deleting (no IO)", ControllerState::Leaving, "offline"},
                {"dead", ControllerState::Dead, "failed"},
                {"", ControllerState::Unknown, "running"},
                {"sleeping", ControllerState::Unknown, "running"},
                {std::nullopt, ControllerState::Gone, "offline"}};
    for (const auto& row : rows) {
        EXPECT_EQ(controllerState(row.word), row.state) << row.word.value_or("none");
        EXPECT_STREQ(hostState(row.state), row.host);
    }
}

TEST(NvmeDevice, WhatHasBecomeOfACommand) {
    const struct {
        int result, error;
        Outcome outcome;
        const char* text;
    } rows[] = {{0, EIO, Outcome::Answered, ""},
                {0x4109, 0, Outcome::Refused, "NVMe status 0x109"},
                {0x0109, 0, Outcome::Refused, "NVMe status 0x109"},
                {0x4002, 0, Outcome::Refused, "NVMe status 0x002"},
                {0x4001, 0, Outcome::Refused, "NVMe status 0x001"},
                {0x400B, 0, Outcome::Refused, "NVMe status 0x00B"},
                {0x0371, 0, Outcome::Silent, "NVMe status 0x371"},
                {0x0007, 0, Outcome::Silent, "NVMe status 0x007"},
                {0x4006, 0, Outcome::Failed, "NVMe status 0x006"},
                {0x0209, 0, Outcome::Failed, "NVMe status 0x209"},
                {-1, EINTR, Outcome::Silent, "Error number: 4"},
                {-1, EAGAIN, Outcome::NotReady, "Error number: 11"},
                {-1, ENODEV, Outcome::Gone, "Error number: 19"},
                {-1, EACCES, Outcome::Failed, "Error number: 13"}};
    for (const auto& row : rows) {
        const Completion completion = completionOf(row.result, row.error);
        EXPECT_EQ(completion.outcome, row.outcome) << row.result << ' ' << row.error;
        if (row.result == 0) continue;
        EXPECT_EQ(textOf(completion), row.text);
    }
}

TEST(NvmeSysfs, NamesOfNamespaces) {
    const struct {
        const char* name;
        const char* blockDevice;
        bool isPath;
    } rows[] = {{"nvme0n1", "nvme0n1", false},
                {"nvme12n34", "nvme12n34", false},
                {"nvme3c10n2", "nvme3n2", true}};
    for (const auto& row : rows) {
        const auto parsed = parseNamespaceName(row.name);
        ASSERT_TRUE(parsed) << row.name;
        EXPECT_EQ(parsed->blockDevice, row.blockDevice);
        EXPECT_EQ(parsed->isPath, row.isPath);
    }
    for (const char* other :
         {"", "nvme", "nvme0", "nvme0n", "nvmen1", "nvme0n1p1", "nvme0c1", "ng0n1", "nvme-1n1",
          "nvme0n-1", "nvme0cn1", "hwmon2", "nvme99999999999n1"})
        EXPECT_FALSE(parseNamespaceName(other)) << other;
}

}  // namespace
