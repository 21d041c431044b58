#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "base/Export.h"
#include "core/tavResourceManager.h"

/// What became of one member of a configuration file.
struct tavSettingReport {
    enum class Outcome { Accepted, Absent, Invalid, Unknown };

    std::string key;      ///< "LoggingLevel", "CacheRefreshInSeconds.Global", "EnableResources[1]"
    Outcome outcome;      ///< Unknown: no such setting; it is ignored
    std::string written;  ///< the text found in the file
    std::string used;     ///< the value that applies
};

/// The configuration of the process: read once from "/etc/config/orn/tav/tav.conf", never written,
/// never reloaded. Missing and invalid values are replaced one by one; a file that cannot be used
/// at all, or is larger than fileSizeLimit, is replaced by the built-in defaults. All getters may
/// be called from any thread.
class TAV_API tavConfig {
 public:
    static constexpr std::size_t fileSizeLimit = 1U << 20U;

    /// The instance; the first call reads the file.
    static tavConfig* getInstance();

    /// The configuration that a file with this text gives. `reports`, when not null, receives one
    /// entry per setting, in the order in which they are read, then one per unknown member.
    static tavConfig fromText(std::string_view text, std::vector<tavSettingReport>* reports);

    bool getDebugLogSettings() const { return debugLogEnabled; }
    std::string getTAVDebugLogFileLocation() const { return debugLogLocation; }
    std::string getTAVLogFileLocation() const { return logLocation; }
    std::string getTAVLoggingLevel() const { return loggingLevel; }
    /// "test" or "inject", in the letters of the file. Nothing in the library goes by it.
    std::string getTestEventSettings() const { return cliMode; }
    /// Always false.
    bool getSendTestEventSettings(const std::string& text) const;

    /// Seconds between two rebuilds of that resource's inventory; 0 for an unknown name.
    long getrefreshInterval(const std::string& resourceName) const;
    /// Minutes between two inventory pushes.
    int getInventoryPushIntervalSettings() const { return pushIntervalMinutes; }
    /// Seconds between two questions whether the managers are ready.
    int getInventoryQueryInterval() const { return queryIntervalSeconds; }
    /// Minutes between two looks at the door bell.
    int getDoorBellSleepInterval() const { return doorBellIntervalMinutes; }

    bool isUnhandledExceptionStackCaptureEnabled() const { return captureStack; }
    /// Number of the fault to simulate; anything but 6 and 11 simulates none.
    int getUnhandledExceptionToSimulate() const { return exceptionToSimulate; }

    /// Whether the resource type (a MODULE_NAME) is enabled. Only types 1 to 3 can be.
    bool isResourceEnabled(int type) const;
    /// Whether "EnableResources" names the resource type, or "All". Of types that no manager of
    /// their own looks after: what the service has been asked to report.
    bool isResourceNamed(MODULE_NAME type) const;

    /// Whether the file could not be used, so that the built-in defaults apply.
    bool isDefaultSettingsApplied() const { return defaultSettingsApplied; }

 private:
    class Reader;
    struct Rules;

    tavConfig() = default;

    void initConfigSettings();
    void setDefaultValues();
    void readSettings(Reader& reader);
    bool checkForResourceString(const std::string& name) const;

    bool debugLogEnabled = false;
    std::string cliMode;
    std::vector<std::string> enabledResources;
    std::string debugLogLocation;
    std::string logLocation;
    std::string loggingLevel;
    std::map<std::string, long> refreshIntervals;
    bool captureStack = false;
    int exceptionToSimulate = 0;
    int doorBellIntervalMinutes = 0;
    int pushIntervalMinutes = 0;
    int queryIntervalSeconds = 0;
    bool defaultSettingsApplied = false;
};
