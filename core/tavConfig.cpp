#include "core/tavConfig.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <limits>
#include <memory>
#include <optional>
#include <utility>
#include <variant>

#include <strings.h>

#include <json/reader.h>
#include <json/value.h>

#include "base/Files.h"

namespace {

constexpr const char* configurationPath = "/etc/config/orn/tav/tav.conf";
constexpr const char* all = "All";
constexpr const char* commonInterval = "Global";

/// In the order in which their refresh intervals are read.
constexpr std::array resourceNames = {"FibreChannelDevices", "StorageControllers",
                                      "NVMeControllers",     "HostOSInfo",
                                      "EthernetDevices",     "GPUDevices"};
/// Those of them for which the configuration starts nobody.
constexpr std::array unmanagedNames = {"FibreChannelDevices", "GPUDevices"};
constexpr const char* enablesNothing = "enables nothing";

bool isEquals(std::string_view a, std::string_view b) {
    return a.size() == b.size() && ::strncasecmp(a.data(), b.data(), a.size()) == 0;
}

template <class Words>
bool isOneOf(std::string_view text, const Words& words) {
    return std::any_of(words.begin(), words.end(),
                       [&](std::string_view word) { return isEquals(text, word); });
}

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
    if (value.type() == Json::realValue) return std::to_string(value.asDouble());
    return value.asString();
}

std::optional<Json::Value> parseObject(std::string_view text) try {
    if (text.size() > tavConfig::fileSizeLimit) return std::nullopt;
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

/// The members of one object of the parsed file, and what became of each.
class tavConfig::Reader {
    using Outcome = tavSettingReport::Outcome;

 public:
    /// `prefix` stands before the reported keys; `reports` may be null.
    Reader(const Json::Value& members, std::string prefix, std::vector<tavSettingReport>* reports)
        : members_(members.isObject() ? members : Json::Value::nullSingleton()),
          prefix_(std::move(prefix)),
          reports_(reports) {}

    Reader section(const char* key) const { return {members_[key], prefix_ + key + ".", reports_}; }

    const Json::Value& value(const char* key) const { return members_[key]; }
    std::string text(const char* key) const { return textOf(members_[key]); }

    long positive(const char* key, long otherwise) {
        const std::string written = text(key);
        const std::optional<long> number = parsePositive(written);
        const long used = number.value_or(otherwise);
        report(key, number.has_value(), written, std::to_string(used));
        return used;
    }

    void report(const char* key, bool accepted, const std::string& written,
                const std::string& used) {
        const Outcome outcome = !members_.isMember(key)        ? Outcome::Absent
                                : accepted && !written.empty() ? Outcome::Accepted
                                                               : Outcome::Invalid;
        add({prefix_ + key, outcome, written, used});
    }

    void reportElement(const char* key, std::size_t index, bool accepted, const std::string& name) {
        const bool enables = accepted && !isOneOf(name, unmanagedNames);
        add({prefix_ + key + "[" + std::to_string(index) + "]",
             accepted ? Outcome::Accepted : Outcome::Invalid, name,
             enables ? name : enablesNothing});
    }

    template <class IsKnown>
    void reportUnknownMembers(IsKnown isKnown) {
        for (const std::string& key : members_.getMemberNames()) {
            if (!isKnown(key)) add({prefix_ + key, Outcome::Unknown, text(key.c_str()), ""});
        }
    }

 private:
    void add(tavSettingReport entry) {
        if (reports_ != nullptr) reports_->push_back(std::move(entry));
    }

    const Json::Value& members_;
    std::string prefix_;
    std::vector<tavSettingReport>* reports_;
};

/// Where each setting comes from, what it may be, what it is otherwise, and where it is kept. Each
/// kind of rule reads a setting from the file, or sets what applies without a file.
struct tavConfig::Rules {
    /// On only by the word "true".
    struct Switch {
        bool tavConfig::*member;

        void read(tavConfig& config, Reader& reader, const char* key) const {
            const std::string written = reader.text(key);
            const bool on = isEquals(written, "true");
            config.*member = on;
            reader.report(key, on || isEquals(written, "false"), written, on ? "true" : "false");
        }
        void applyWithoutFile(tavConfig& config) const { config.*member = false; }
    };

    /// One of some words in any case, kept as written.
    struct Word {
        std::string tavConfig::*member;
        std::array<std::string_view, 3> accepted;
        const char* otherwise;

        void read(tavConfig& config, Reader& reader, const char* key) const {
            const std::string written = reader.text(key);
            const bool isAccepted = !written.empty() && isOneOf(written, accepted);
            config.*member = isAccepted ? written : otherwise;
            reader.report(key, isAccepted, written, config.*member);
        }
        void applyWithoutFile(tavConfig& config) const { config.*member = otherwise; }
    };

    /// Any text.
    struct Text {
        std::string tavConfig::*member;
        const char* otherwise;

        void read(tavConfig& config, Reader& reader, const char* key) const {
            const std::string written = reader.text(key);
            config.*member = written.empty() ? otherwise : written;
            reader.report(key, true, written, config.*member);
        }
        void applyWithoutFile(tavConfig& config) const { config.*member = otherwise; }
    };

    struct Number {
        int tavConfig::*member;
        int otherwise;
        int withoutFile;

        void read(tavConfig& config, Reader& reader, const char* key) const {
            config.*member = static_cast<int>(reader.positive(key, otherwise));
        }
        void applyWithoutFile(tavConfig& config) const { config.*member = withoutFile; }
    };

    /// A list of names; an absent one enables nothing, but without a file everything is enabled.
    struct Resources {
        std::vector<std::string> tavConfig::*member;

        void read(tavConfig& config, Reader& reader, const char* key) const {
            std::vector<std::string>& names = config.*member;
            names.clear();
            if (!reader.value(key).isArray()) {
                reader.report(key, false, reader.text(key), "nothing is enabled");
                return;
            }
            for (const Json::Value& element : reader.value(key)) {
                const std::string name = textOf(element);
                const bool isKnown = isEquals(name, all) || isOneOf(name, resourceNames);
                reader.reportElement(key, names.size(), isKnown, name);
                names.push_back(name);
                if (isEquals(names.front(), all)) {
                    names = {all};
                    return;
                }
            }
            if (names.empty()) reader.report(key, true, "[]", "nothing is enabled");
        }
        void applyWithoutFile(tavConfig& config) const { config.*member = {all}; }
    };

    /// A resource without an interval of its own keeps the common one; an invalid interval of its
    /// own gives the default instead, so that a typing error never looks as if it had been obeyed.
    struct Intervals {
        std::map<std::string, long> tavConfig::*member;
        long otherwise;
        long withoutFile;

        void read(tavConfig& config, Reader& reader, const char* key) const {
            Reader section = reader.section(key);
            const long common = section.positive(commonInterval, otherwise);
            for (const char* name : resourceNames) {
                if (section.text(name).empty()) {
                    (config.*member)[name] = common;
                    section.report(name, false, "", std::to_string(common));
                } else {
                    (config.*member)[name] = section.positive(name, otherwise);
                }
            }
            section.reportUnknownMembers([](const std::string& name) {
                return name == commonInterval ||
                       std::find(resourceNames.begin(), resourceNames.end(), name) !=
                           resourceNames.end();
            });
        }
        void applyWithoutFile(tavConfig& config) const {
            for (const char* name : resourceNames)
                (config.*member)[name] = withoutFile;
        }
    };

    struct Setting {
        const char* key;
        std::variant<Switch, Word, Text, Number, Resources, Intervals> rule;
    };

    /// In the order in which they are read.
    static constexpr std::array settings = {
        Setting{"EnableResources", Resources{&tavConfig::enabledResources}},
        Setting{"LoggingLevel",
                Word{&tavConfig::loggingLevel, {"Info", "Error", "Warning"}, "Warning"}},
        Setting{"EnableDebugLog", Switch{&tavConfig::debugLogEnabled}},
        Setting{"CliMode", Word{&tavConfig::cliMode, {"test", "inject"}, "test"}},
        Setting{"CacheRefreshInSeconds", Intervals{&tavConfig::refreshIntervals, 3600, 30}},
        Setting{"PushInventoryFrequencyInMinutes",
                Number{&tavConfig::pushIntervalMinutes, 1440, 1440}},
        Setting{"TAVLogLocation", Text{&tavConfig::logLocation, "syslog"}},
        Setting{"DebugLogLocation", Text{&tavConfig::debugLogLocation, "syslog"}},
        Setting{"IPMIDoorBellMonitorInterval", Number{&tavConfig::doorBellIntervalMinutes, 10, 10}},
        Setting{"InventoryQueryIntervalInSeconds",
                Number{&tavConfig::queryIntervalSeconds, 10, 10}},
        Setting{"CaptureUnhandledExceptionStack", Switch{&tavConfig::captureStack}},
        Setting{"SimulateUnhandledException", Number{&tavConfig::exceptionToSimulate, -1, 0}},
    };

    static bool isKey(std::string_view text) {
        return std::any_of(settings.begin(), settings.end(),
                           [&](const Setting& setting) { return text == setting.key; });
    }
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
    } else {
        Reader reader(*root, "", reports);
        config.readSettings(reader);
    }
    return config;
}

void tavConfig::initConfigSettings() {
    const auto text = tav::readRegularFile(configurationPath, fileSizeLimit);
    *this = fromText(text.value_or(std::string()), nullptr);
}

void tavConfig::setDefaultValues() {
    for (const Rules::Setting& setting : Rules::settings)
        std::visit([&](const auto& rule) { rule.applyWithoutFile(*this); }, setting.rule);
    defaultSettingsApplied = true;
}

void tavConfig::readSettings(Reader& reader) {
    for (const Rules::Setting& setting : Rules::settings)
        std::visit([&](const auto& rule) { rule.read(*this, reader, setting.key); }, setting.rule);
    reader.reportUnknownMembers(Rules::isKey);
}

bool tavConfig::checkForResourceString(const std::string& name) const {
    return isOneOf(name, enabledResources) || isOneOf(all, enabledResources);
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
    return isResourceNamed(static_cast<MODULE_NAME>(type));
}

bool tavConfig::isResourceNamed(MODULE_NAME type) const {
    return checkForResourceString(TAV_MODULE_NAME_MAP.at(type));
}
