#include "core/tavConfig.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <utility>

#include <strings.h>

#include <json/reader.h>
#include <json/value.h>

#include "base/Files.h"
#include "core/tavResourceManager.h"

namespace {

constexpr const char* configurationPath = "/etc/config/orn/tav/tav.conf";
constexpr std::size_t configurationSizeLimit = 64U << 20U;
constexpr const char* all = "All";
constexpr const char* refreshSection = "CacheRefreshInSeconds";

constexpr std::array refreshKeys = {"Global",          "FibreChannelDevices", "StorageControllers",
                                    "NVMeControllers", "HostOSInfo",          "EthernetDevices",
                                    "GPUDevices"};
/// In the order in which their refresh intervals are read.
constexpr auto resourceNames = std::span(refreshKeys).subspan(1);

constexpr std::array topLevelKeys = {"EnableResources",
                                     "LoggingLevel",
                                     "EnableDebugLog",
                                     "CliMode",
                                     refreshSection,
                                     "PushInventoryFrequencyInMinutes",
                                     "TAVLogLocation",
                                     "DebugLogLocation",
                                     "IPMIDoorBellMonitorInterval",
                                     "InventoryQueryIntervalInSeconds",
                                     "CaptureUnhandledExceptionStack",
                                     "SimulateUnhandledException"};

struct TextRule {
    std::string_view key;
    std::array<std::string_view, 3> accepted;  ///< empty entries accept nothing
    const char* otherwise;
};

constexpr std::array textRules = {
    TextRule{"LoggingLevel", {"Info", "Error", "Warning"}, "Warning"},
    TextRule{"CliMode", {"test", "inject", ""}, "test"},
};

struct NumberRule {
    std::string_view key;
    long otherwise;
};

constexpr std::array numberRules = {
    NumberRule{"CacheRefreshInterval", 3600},
    NumberRule{"RMCCacheSendInterval", 1440},
    NumberRule{"IPMIDBSleepInterval", 10},
    NumberRule{"SimulateUnhandledException", -1},
    NumberRule{"InventoryQueryIntervalInSeconds", 10},
};

constexpr std::array boolKeys = {std::string_view("EnableDebugLog"),
                                 std::string_view("CaptureUnhandledExceptionStack")};

/// A number above the range of a signed 32-bit integer is not a number here.
std::optional<long> parsePositive(const std::string& text) {
    errno = 0;
    char* end = nullptr;
    const long number = std::strtol(text.c_str(), &end, 10);
    if (end == text.c_str() || errno == ERANGE) return std::nullopt;
    if (number <= 0 || number > std::numeric_limits<std::int32_t>::max()) return std::nullopt;
    return number;
}

/// The text form of a scalar; arrays and objects have none.
std::string textOf(const Json::Value& value) {
    if (value.isArray() || value.isObject()) return {};
    // The shortest form of a large number ("1e+20") would read as another, small one.
    if (value.isDouble() && !value.isIntegral()) return std::to_string(value.asDouble());
    return value.asString();
}

std::optional<Json::Value> parseObject(std::string_view text) try {
    const std::unique_ptr<Json::CharReader> parser(Json::CharReaderBuilder().newCharReader());
    Json::Value root;
    std::string errors;
    if (!parser->parse(text.data(), text.data() + text.size(), &root, &errors)) return std::nullopt;
    if (!root.isObject()) return std::nullopt;
    return root;
} catch (const std::exception&) {  // thrown for a document that is nested too deeply
    return std::nullopt;
}

}  // namespace

/// Reads settings from the parsed file and reports what became of each.
class tavConfig::Reader {
    using Outcome = tavSettingReport::Outcome;

 public:
    Reader(const Json::Value& root, std::vector<tavSettingReport>* reports)
        : section_(&root), root_(root), reports_(reports) {}

    /// Scalars are read from this member object from now on.
    void enterSection(const char* name) {
        const Json::Value& section = root_[name];
        section_ = section.isObject() ? &section : &Json::Value::nullSingleton();
        prefix_ = std::string(name) + ".";
    }
    void leaveSection() {
        section_ = &root_;
        prefix_.clear();
    }

    bool hasText(const char* key) const { return !text(key).empty(); }
    std::string text(const char* key) const {
        return section_->isObject() ? textOf((*section_)[key]) : std::string();
    }

    std::string string(const char* key) {
        const std::string written = text(key);
        std::string used = validateString(written, key);
        report(key, written == used, written, used);
        return used;
    }

    bool boolean(const char* key) {
        const std::string written = text(key);
        const bool used = validateBool(written, key);
        report(key, used || isEquals(written, "false"), written, used ? "true" : "false");
        return used;
    }

    /// `rule` names the setting's rule for numbers, which differs from its key in the file.
    long number(const char* key, std::string_view rule) {
        const std::string written = text(key);
        const long used = validateNumerical(written, rule);
        report(key, parsePositive(written).has_value(), written, std::to_string(used));
        return used;
    }

    std::string location(const char* key) {
        const std::string written = text(key);
        std::string used = written.empty() ? "syslog" : written;
        report(key, true, written, used);
        return used;
    }

    std::vector<std::string> resources(const char* key) {
        const Json::Value& written = root_[key];
        std::vector<std::string> names;
        if (!written.isArray()) {
            report(key, false, text(key), "nothing is enabled");
            return names;
        }
        for (const Json::Value& element : written) {
            std::string name = textOf(element);
            reportResource(key, names.size(), name);
            names.push_back(std::move(name));
            if (isEquals(names.front(), all)) return {all};
        }
        return names;
    }

    /// The value that a setting without a text of its own keeps.
    void keep(const char* key, const std::string& used) { report(key, false, text(key), used); }

    template <class Keys>
    void reportUnknownMembers(const Keys& known) {
        if (!section_->isObject()) return;
        for (const std::string& key : section_->getMemberNames()) {
            if (std::find(known.begin(), known.end(), key) == known.end()) {
                add({prefix_ + key, Outcome::Unknown, textOf((*section_)[key]), ""});
            }
        }
    }

 private:
    void report(const char* key, bool accepted, const std::string& written,
                const std::string& used) {
        const bool member = section_->isObject() && section_->isMember(key);
        const Outcome outcome = !member                        ? Outcome::Absent
                                : accepted && !written.empty() ? Outcome::Accepted
                                                               : Outcome::Invalid;
        add({prefix_ + key, outcome, written, used});
    }

    void reportResource(const char* key, std::size_t index, const std::string& name) {
        const bool known =
            isEquals(name, all) ||
            std::any_of(resourceNames.begin(), resourceNames.end(),
                        [&](const char* resource) { return isEquals(name, resource); });
        add({std::string(key) + "[" + std::to_string(index) + "]",
             known ? Outcome::Accepted : Outcome::Invalid, name, known ? name : "enables nothing"});
    }

    void add(tavSettingReport entry) {
        if (reports_ != nullptr) reports_->push_back(std::move(entry));
    }

    const Json::Value* section_;
    const Json::Value& root_;
    std::string prefix_;
    std::vector<tavSettingReport>* reports_;
};

tavConfig* tavConfig::getInstance() {
    static tavConfig* const instance = [] {
        auto config = std::unique_ptr<tavConfig>(new tavConfig);
        config->initConfigSettings();
        return config.release();
    }();
    return instance;
}

tavConfig tavConfig::fromText(std::string_view text, std::vector<tavSettingReport>* reports) {
    tavConfig config;
    const std::optional<Json::Value> root = parseObject(text);
    if (!root || root->size() < 2) {
        config.setDefaultValues();
        return config;
    }
    Reader reader(*root, reports);
    config.readSettings(reader);
    reader.reportUnknownMembers(topLevelKeys);
    return config;
}

void tavConfig::initConfigSettings() {
    const auto text = tav::readRegularFile(configurationPath, configurationSizeLimit);
    *this = fromText(text.value_or(std::string()), nullptr);
}

void tavConfig::setDefaultValues() {
    *this = tavConfig();
    setCommonCacheRefreshInterval("30");
    defaultSettingsApplied = true;
}

void tavConfig::readSettings(Reader& reader) {
    enabledResources = reader.resources("EnableResources");
    loggingLevel = reader.string("LoggingLevel");
    debugLogEnabled = reader.boolean("EnableDebugLog");
    cliMode = reader.string("CliMode");
    readCacheRefreshIntervals(reader);
    pushIntervalMinutes =
        static_cast<int>(reader.number("PushInventoryFrequencyInMinutes", "RMCCacheSendInterval"));
    logLocation = reader.location("TAVLogLocation");
    debugLogLocation = reader.location("DebugLogLocation");
    doorBellIntervalMinutes =
        static_cast<int>(reader.number("IPMIDoorBellMonitorInterval", "IPMIDBSleepInterval"));
    queryIntervalSeconds = static_cast<int>(
        reader.number("InventoryQueryIntervalInSeconds", "InventoryQueryIntervalInSeconds"));
    captureStack = reader.boolean("CaptureUnhandledExceptionStack");
    exceptionToSimulate =
        static_cast<int>(reader.number("SimulateUnhandledException", "SimulateUnhandledException"));
}

/// A resource without an interval of its own keeps the common one; an invalid interval of its own
/// gives the default instead, so that a typing error never looks as if it had been obeyed.
void tavConfig::readCacheRefreshIntervals(Reader& reader) {
    reader.enterSection(refreshSection);
    setCommonCacheRefreshInterval(std::to_string(reader.number("Global", "CacheRefreshInterval")));
    for (const char* name : resourceNames) {
        if (reader.hasText(name)) {
            refreshIntervals[name] = reader.number(name, "CacheRefreshInterval");
        } else {
            reader.keep(name, std::to_string(refreshIntervals[name]));
        }
    }
    reader.reportUnknownMembers(refreshKeys);
    reader.leaveSection();
}

void tavConfig::setCommonCacheRefreshInterval(const std::string& value) {
    const long seconds = validateNumerical(value, "CacheRefreshInterval");
    for (const char* name : resourceNames) {
        refreshIntervals[name] = seconds;
    }
}

bool tavConfig::isEquals(std::string_view a, std::string_view b) {
    return a.size() == b.size() && ::strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::string tavConfig::validateString(const std::string& value, std::string_view key) {
    for (const TextRule& rule : textRules) {
        if (rule.key != key) continue;
        const bool accepted =
            !value.empty() &&
            std::any_of(rule.accepted.begin(), rule.accepted.end(),
                        [&](std::string_view word) { return isEquals(value, word); });
        return accepted ? value : rule.otherwise;
    }
    return {};
}

bool tavConfig::validateBool(const std::string& value, std::string_view key) {
    const bool known = std::find(boolKeys.begin(), boolKeys.end(), key) != boolKeys.end();
    return known && isEquals(value, "true");
}

long tavConfig::validateNumerical(const std::string& value, std::string_view key) {
    for (const NumberRule& rule : numberRules) {
        if (rule.key == key) return parsePositive(value).value_or(rule.otherwise);
    }
    return -1;
}

bool tavConfig::checkForResourceString(const std::string& name) const {
    return std::any_of(enabledResources.begin(), enabledResources.end(),
                       [&](const std::string& enabled) {
                           return isEquals(enabled, name) || isEquals(enabled, all);
                       });
}

bool tavConfig::getSendTestEventSettings(const std::string& /*text*/) const {
    return false;
}

long tavConfig::getrefreshInterval(const std::string& resourceName) const {
    const auto interval = refreshIntervals.find(resourceName);
    return interval == refreshIntervals.end() ? 0 : interval->second;
}

bool tavConfig::isResourceEnabled(int type) const {
    if (type < HOST_OS_INFO || type > ETHERNET_DEVICES) return false;
    return checkForResourceString(TAV_MODULE_NAME_MAP.at(static_cast<MODULE_NAME>(type)));
}
