#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Export.h"
#include "core/Ledger.h"
#include "storage/model/tavStorageControllerInfo.h"

/// How a ledger reads and writes the condition of a record.
inline tav::Condition conditionOf(const tavStatusInfo& record) {
    return {record.getState(), record.getHealth()};
}
inline void assign(tavStatusInfo& record, const tav::Condition& condition) {
    record.setState(condition.state);
    record.setHealth(condition.health);
}

/// The decisions about the condition of ports, controllers and disks. Pure functions and tables.
namespace tav {

inline constexpr Condition offline{TAV_STATE_OFFLINE, TAV_HEALTH_CRITICAL};
inline constexpr Condition failed{TAV_STATE_FAILED, TAV_HEALTH_CRITICAL};
inline constexpr Condition running{TAV_STATE_RUNNING, TAV_HEALTH_OK};
inline constexpr Condition predictiveFailure{TAV_STATE_PREDICTIVE_FAILURE, TAV_HEALTH_WARNING};

/// The state of that display string, in capitals or not; Unknown for any other text.
TAV_API TAV_RESOURCE_STATE stateOfText(std::string_view text);

// --- Ports ---------------------------------------------------------------------------------------

/// Seconds after which a port in recovery is no longer taken for healthy.
inline constexpr long longRecovery = 60;

struct PortCondition {
    Condition condition;
    long recoverySince = 0;  ///< by tav::secondsNow(); 0 while it is not in recovery
};

/// The condition of a port by the text of its SCSI host's state (none, or an empty one: it could
/// not be read), and by when it was first seen in recovery (0: it was not).
TAV_API PortCondition portCondition(const std::optional<std::string>& hostState, long recoverySince,
                                    long now);

// --- Controllers ---------------------------------------------------------------------------------

/// The condition of a controller by those of its ports.
TAV_API Condition controllerCondition(const std::vector<tavStorageControllerPortInfo>& ports);

/// What a change of a controller's health is reported as; null when it is not.
struct ControllerTransition {
    TAV_RESOURCE_HEALTH from, to;
    int eventId;
    bool serviceEvent;
    const char* eventInfo;
};
TAV_API const ControllerTransition* controllerTransition(TAV_RESOURCE_HEALTH from,
                                                         TAV_RESOURCE_HEALTH to);

// --- Disks ---------------------------------------------------------------------------------------

/// Percentage of an SSD's endurance from which on it is expected to fail.
inline constexpr int wornOut = 95;

/// What a disk tells of itself. A wear or temperature that it does not tell is -1.
struct DiskReadings {
    int errors = 0;  ///< negative: it could not be asked
    int wear = -1;
    int temperature = -1;
    int maximumTemperature = -1;
    bool hasTemperatures = false;  ///< both are known, so that they can be compared
};

/// The wear that a query has answered, -1 for one that is not available (below 0, or 255).
TAV_API int availableWear(int answer);
/// Current and maximum temperature in degrees Celsius, as a disk has answered: 255 is no current
/// one, and 0 or less no maximum.
TAV_API void setTemperatures(int current, int maximum, DiskReadings& readings);

struct DiskJudgement {
    Condition condition;
    std::string eventInfo;  ///< why; empty for a healthy disk
};

/// `unreadable` is the reason given for a disk that could not be asked. `namesTemperatures` says
/// whether the reason names the temperatures also when there are none.
TAV_API DiskJudgement judgeDisk(const DiskReadings& readings, const char* unreadable,
                                bool namesTemperatures);

/// What a disk's new state is reported as; null when it is not.
struct DiskTransition {
    TAV_RESOURCE_STATE to;
    bool onlyOnce;  ///< not when the RMC knows already that the disk does not work
    int eventId;
    bool serviceEvent;
};
/// `reported` is the state that the RMC knows; Unknown while it knows none.
TAV_API const DiskTransition* diskTransition(TAV_RESOURCE_STATE from, TAV_RESOURCE_STATE to,
                                             TAV_RESOURCE_STATE reported);

}  // namespace tav
