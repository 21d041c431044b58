#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// The condition of a resource, as every resource of the system states it: storage, network
/// interfaces, Fibre Channel ports and the host alike. The numbers are stored, compared and logged.

enum TAV_RESOURCE_STATE : std::uint8_t {
    TAV_STATE_UNKNOWN = 0,
    TAV_STATE_BYPASSED = 1,
    TAV_STATE_CANCEL = 2,
    TAV_STATE_CANCEL_RECOVERY = 3,
    TAV_STATE_CREATED = 4,
    TAV_STATE_DEGRADED = 5,
    TAV_STATE_DELETED = 6,
    TAV_STATE_DELETED_RECOVERY = 7,
    TAV_STATE_DIAGNOSTIC_MODE = 8,
    TAV_STATE_DOWN = 9,
    TAV_STATE_ERROR = 10,
    TAV_STATE_FAILED = 11,
    TAV_STATE_LINKDOWN = 12,
    TAV_STATE_LOOPBACK = 13,
    TAV_STATE_OFFLINE = 14,
    TAV_STATE_ONLINE = 15,
    TAV_STATE_OPTIMAL = 16,
    TAV_STATE_OTHER = 17,
    TAV_STATE_PARTIALLY_DEGRADED = 18,
    TAV_STATE_PREDICTIVE_FAILURE = 19,
    TAV_STATE_REBUILD = 20,
    TAV_STATE_RECOVERING = 21,
    TAV_STATE_RECOVERY = 22,
    TAV_STATE_RUNNING = 23,
    TAV_STATE_UNCONFIGURED_BAD = 24,
};

/// Not in order of severity.
enum TAV_RESOURCE_HEALTH : std::uint8_t {
    TAV_HEALTH_UNKNOWN = 0,
    TAV_HEALTH_CRITICAL = 1,
    TAV_HEALTH_OK = 2,
    TAV_HEALTH_WARNING = 3,
};

/// Display strings by value. Index them through the two functions below, which bear any value.
inline constexpr std::array<const char*, 25> tavResourceStateMap{
    "Unknown",
    "Bypassed",
    "Cancel",
    "Cancel/Recovery",
    "Created",
    "Degraded",
    "Deleted",
    "Deleted/Recovery",
    "Diagnostic mode",
    "Down",
    "Error",
    "Failed",
    "Linkdown",
    "Loopback",
    "Offline",
    "Online",
    "Optimal",
    "Other",
    "Partially degraded",
    "Predictive failure",
    "Rebuild",
    "Recovering",
    "Recovery",
    "Running",
    "Unconfigured bad",
};
inline constexpr std::array<const char*, 4> tavResourceHealthMap{"Unknown", "Critical", "OK",
                                                                 "Warning"};
static_assert(tavResourceStateMap.size() == TAV_STATE_UNCONFIGURED_BAD + 1);
static_assert(tavResourceHealthMap.size() == TAV_HEALTH_WARNING + 1);

namespace tav {

/// "Unknown" for a value outside the enumeration.
constexpr const char* displayText(TAV_RESOURCE_STATE state) {
    return tavResourceStateMap[state < tavResourceStateMap.size() ? state : TAV_STATE_UNKNOWN];
}

/// "Unknown" for a value outside the enumeration.
constexpr const char* displayText(TAV_RESOURCE_HEALTH health) {
    return tavResourceHealthMap[health < tavResourceHealthMap.size() ? health : TAV_HEALTH_UNKNOWN];
}

}  // namespace tav
