#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "core/tavConfig.h"
#include "tests/support/Files.h"

namespace {

using tav::test::writeFile;

constexpr const char* path = "/etc/config/orn/tav/tav.conf";

tavConfig parse(const std::string& text) {
    return tavConfig::fromText(text, nullptr);
}

/// A file whose one interesting member is `member`.
tavConfig with(const std::string& member) {
    return parse(R"({"x": 1, )" + member + "}");
}

TEST(Config, NumbersFallBackOneByOne) {
    const struct {
        const char* written;
        int expected;
    } rows[] = {{"\"15\"", 15},
                {"15", 15},
                {"\" +7\"", 7},
                {"\"15s\"", 15},
                {"\"0\"", 10},
                {"\"-5\"", 10},
                {"\"abc\"", 10},
                {"\"\"", 10},
                {"null", 10},
                {"2147483647", 2147483647},
                {"2147483648", 10},
                {"1e17", 10},
                {"1e20", 10},
                {"1E400", 10},
                {"2.147483648e9", 10},
                {"1.5e1", 15},
                {"18446744073709551615", 10},
                {"99999999999999999999999", 10},
                {"\"99999999999999999999999\"", 10},
                {"12.9", 12},
                {"true", 10},
                {"[15]", 10},
                {"{\"a\":15}", 10}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.written);
        const std::string value = row.written;
        EXPECT_EQ(with("\"IPMIDoorBellMonitorInterval\":" + value).getDoorBellSleepInterval(),
                  row.expected);
        EXPECT_EQ(with("\"InventoryQueryIntervalInSeconds\":" + value).getInventoryQueryInterval(),
                  row.expected);
    }
    EXPECT_EQ(with("\"y\":1").getInventoryPushIntervalSettings(), 1440);
    EXPECT_EQ(with("\"y\":1").getUnhandledExceptionToSimulate(), -1);
    EXPECT_EQ(with("\"SimulateUnhandledException\":\"11\"").getUnhandledExceptionToSimulate(), 11);
}

TEST(Config, WordsAreMatchedInAnyCaseAndKeptAsWritten) {
    const struct {
        const char* written;
        const char* level;
        const char* mode;
    } rows[] = {{"\"error\"", "error", "test"},    {"\"INFO\"", "INFO", "test"},
                {"\"debug\"", "Warning", "test"},  {"\"Inject\"", "Warning", "Inject"},
                {"\"\"", "Warning", "test"},       {"[\"Info\"]", "Warning", "test"},
                {"\"Warnin\"", "Warning", "test"}, {"7", "Warning", "test"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.written);
        const std::string value = row.written;
        EXPECT_EQ(with("\"LoggingLevel\":" + value).getTAVLoggingLevel(), row.level);
        EXPECT_EQ(with("\"CliMode\":" + value).getTestEventSettings(), row.mode);
    }
    EXPECT_TRUE(with("\"EnableDebugLog\":\"TRUE\"").getDebugLogSettings());
    EXPECT_TRUE(with("\"EnableDebugLog\":true").getDebugLogSettings());
    EXPECT_FALSE(with("\"EnableDebugLog\":\"yes\"").getDebugLogSettings());
    EXPECT_FALSE(with("\"EnableDebugLog\":1").getDebugLogSettings());
    EXPECT_EQ(with("\"TAVLogLocation\":\"\"").getTAVLogFileLocation(), "syslog");
    EXPECT_EQ(with("\"TAVLogLocation\":{\"a\":1}").getTAVLogFileLocation(), "syslog");
    EXPECT_EQ(with("\"DebugLogLocation\":\"/a b\"").getTAVDebugLogFileLocation(), "/a b");
}

TEST(Config, EnabledResources) {
    const struct {
        const char* written;
        bool host, storage, ethernet;
    } rows[] = {{R"(["StorageControllers","EthernetDevices"])", false, true, true},
                {R"(["All","HostOSInfo"])", true, true, true},
                {R"(["HostOSInfo","all"])", true, true, true},
                {R"(["hostosinfo"])", true, false, false},
                {R"([7,null,["All"],{"All":1},"HostOSInfo "])", false, false, false},
                {R"([])", false, false, false},
                {R"("All")", false, false, false},
                {R"({"0":"All"})", false, false, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.written);
        const tavConfig config = with("\"EnableResources\":" + std::string(row.written));
        EXPECT_EQ(config.isResourceEnabled(1), row.host);
        EXPECT_EQ(config.isResourceEnabled(2), row.storage);
        EXPECT_EQ(config.isResourceEnabled(3), row.ethernet);
        for (const int never : {-1, 0, 4, 5, 6})
            EXPECT_FALSE(config.isResourceEnabled(never));
    }
}

TEST(Config, RefreshIntervals) {
    const tavConfig config = with(R"("CacheRefreshInSeconds":
        {"Global": "120", "StorageControllers": 45, "EthernetDevices": "x", "HostOSInfo": ""})");
    EXPECT_EQ(config.getrefreshInterval("StorageControllers"), 45);
    EXPECT_EQ(config.getrefreshInterval("EthernetDevices"), 3600) << "present but invalid";
    EXPECT_EQ(config.getrefreshInterval("HostOSInfo"), 120) << "empty: as the common one says";
    EXPECT_EQ(config.getrefreshInterval("GPUDevices"), 120);
    EXPECT_EQ(config.getrefreshInterval("gpudevices"), 0) << "names are matched exactly";
    for (const char* section : {"[]", "\"60\"", "{}", "{\"Global\": -1}"}) {
        SCOPED_TRACE(section);
        EXPECT_EQ(with("\"CacheRefreshInSeconds\":" + std::string(section))
                      .getrefreshInterval("FibreChannelDevices"),
                  3600);
    }
}

TEST(Config, WhatIsNoConfigurationGivesTheBuiltInDefaults) {
    const std::string deep(100'000, '[');
    const std::string nested = "{\"a\":1,\"b\":" + deep + "}";
    for (const std::string& text :
         {std::string(), std::string("{"), std::string("{}"), std::string("[1,2,3]"),
          std::string("\"All\""), std::string(R"({"LoggingLevel":"Error"})"), deep, nested,
          std::string(R"({"a":1,"b")"),
          R"({"a":1,"LoggingLevel":"Info"})" + std::string(1U << 20U, ' '), std::string(1000, '\0'),
          std::string("\xff\xfe{")}) {
        SCOPED_TRACE(text.substr(0, 30));
        const tavConfig config = parse(text);
        EXPECT_TRUE(config.isDefaultSettingsApplied());
        EXPECT_TRUE(config.isResourceEnabled(1));
        EXPECT_EQ(config.getrefreshInterval("EthernetDevices"), 30);
        EXPECT_EQ(config.getUnhandledExceptionToSimulate(), 0);
        EXPECT_EQ(config.getTAVLoggingLevel(), "Warning");
    }
    const tavConfig invalidUtf8 = with("\"TAVLogLocation\":\"/tmp/\xff\"");
    EXPECT_FALSE(invalidUtf8.isDefaultSettingsApplied());
    EXPECT_EQ(invalidUtf8.getTAVLogFileLocation(), "/tmp/\xff");
}

TEST(Config, IsReadFromItsFileOnce) {
    writeFile(path, R"({"LoggingLevel":"Info","CliMode":"inject","pad":")" +
                        std::string(1'000'000, 'x') + "\"}");
    EXPECT_EQ(tavConfig::getInstance()->getTestEventSettings(), "inject");
    writeFile(path, R"({"LoggingLevel":"Info","CliMode":"test"})");
    EXPECT_EQ(tavConfig::getInstance()->getTestEventSettings(), "inject");
}

TEST(Config, DirectoryInThePlaceOfTheFile) {
    std::filesystem::create_directories(path);
    EXPECT_TRUE(tavConfig::getInstance()->isDefaultSettingsApplied());
}

TEST(Config, PipeInThePlaceOfTheFileIsNotWaitedFor) {
    ASSERT_EQ(::mkfifo(path, 0600), 0);
    EXPECT_TRUE(tavConfig::getInstance()->isDefaultSettingsApplied());
}

TEST(Config, ReportsWhatBecameOfEachSetting) {
    std::vector<tavSettingReport> reports;
    tavConfig::fromText(R"({"LogingLevel": "Info", "EnableResources": ["HostOSInfo", "Storage"],
        "EnableDebugLog": "yes", "CaptureUnhandledExceptionStack": "False", "CliMode": "Inject",
        "PushInventoryFrequencyInMinutes": 0, "CacheRefreshInSeconds": {"Global": 60, "Host": 5, "HostOSInfo": []}})",
                        &reports);
    const auto outcome = [&](const std::string& key) {
        const auto report = std::find_if(reports.begin(), reports.end(),
                                         [&](const auto& entry) { return entry.key == key; });
        return report == reports.end() ? -1 : static_cast<int>(report->outcome);
    };
    using Outcome = tavSettingReport::Outcome;
    EXPECT_EQ(outcome("LogingLevel"), static_cast<int>(Outcome::Unknown));
    EXPECT_EQ(outcome("LoggingLevel"), static_cast<int>(Outcome::Absent));
    EXPECT_EQ(outcome("EnableDebugLog"), static_cast<int>(Outcome::Invalid));
    EXPECT_EQ(outcome("CaptureUnhandledExceptionStack"), static_cast<int>(Outcome::Accepted));
    EXPECT_EQ(outcome("CliMode"), static_cast<int>(Outcome::Accepted));
    EXPECT_EQ(outcome("EnableResources[0]"), static_cast<int>(Outcome::Accepted));
    EXPECT_EQ(outcome("EnableResources[1]"), static_cast<int>(Outcome::Invalid));
    EXPECT_EQ(outcome("PushInventoryFrequencyInMinutes"), static_cast<int>(Outcome::Invalid));
    EXPECT_EQ(outcome("CacheRefreshInSeconds.Global"), static_cast<int>(Outcome::Accepted));
    EXPECT_EQ(outcome("CacheRefreshInSeconds.Host"), static_cast<int>(Outcome::Unknown));
    EXPECT_EQ(outcome("CacheRefreshInSeconds.HostOSInfo"), static_cast<int>(Outcome::Invalid));
}

}  // namespace
