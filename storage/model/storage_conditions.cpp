#include "storage/model/storage_conditions.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include <strings.h>

#include "base/printed.h"

namespace tav {
namespace {

/// The ports of a controller, counted by what they are worth to it.
struct PortCounts {
    std::size_t all = 0, online = 0, recovering = 0, offline = 0, other = 0;

    std::size_t gone() const { return offline + other; }
};

std::size_t PortCounts::*counterOf(TAV_RESOURCE_STATE state) {
    switch (state) {
        case TAV_STATE_CREATED:
        case TAV_STATE_RUNNING:
            return &PortCounts::online;
        case TAV_STATE_RECOVERY:
            return &PortCounts::recovering;
        case TAV_STATE_OFFLINE:
            return &PortCounts::offline;
        default:
            return &PortCounts::other;
    }
}

PortCounts countPorts(const std::vector<tavStorageControllerPortInfo>& ports) {
    PortCounts counts;
    counts.all = ports.size();
    for (const tavStorageControllerPortInfo& port : ports)
        ++(counts.*counterOf(port.getState()));
    return counts;
}

struct ControllerRule {
    bool (*applies)(const PortCounts& ports);
    Condition condition;
};

/// The first rule that applies decides. "All but one" is written as a sum, so that it holds for
/// controllers without ports.
constexpr std::array controllerRules = {
    ControllerRule{[](const PortCounts& p) { return p.online == p.all; }, running},
    ControllerRule{[](const PortCounts& p) {
                       return p.online > 0 && p.recovering > 0 && p.recovering + 1 < p.all &&
                              p.gone() == 0;
                   },
                   {TAV_STATE_RECOVERING, TAV_HEALTH_WARNING}},
    ControllerRule{[](const PortCounts& p) { return p.recovering + 1 >= p.all && p.gone() == 0; },
                   {TAV_STATE_RECOVERING, TAV_HEALTH_CRITICAL}},
    ControllerRule{[](const PortCounts& p) { return p.gone() > 0 && p.gone() + 1 < p.all; },
                   {TAV_STATE_DEGRADED, TAV_HEALTH_WARNING}},
    ControllerRule{[](const PortCounts& p) { return p.gone() + 1 == p.all; },
                   {TAV_STATE_DEGRADED, TAV_HEALTH_CRITICAL}},
    ControllerRule{[](const PortCounts& p) { return p.offline == p.all; }, offline},
    ControllerRule{[](const PortCounts& p) { return p.gone() == p.all; }, failed},
};

constexpr const char* portsLost =
    "At least three ports of the Intel SATA RAID controller have gone offline or will be removed "
    "from the system, or have been in recovery state for >= 60 seconds.";

constexpr std::array controllerTransitions = {
    ControllerTransition{TAV_HEALTH_CRITICAL, TAV_HEALTH_OK, 397, false,
                         "All ports of the controller are now online."},
    ControllerTransition{TAV_HEALTH_OK, TAV_HEALTH_CRITICAL, 398, true, portsLost},
    ControllerTransition{TAV_HEALTH_WARNING, TAV_HEALTH_CRITICAL, 398, true, portsLost},
};

constexpr std::array diskTransitions = {
    DiskTransition{TAV_STATE_RUNNING, false, 540, false},
    DiskTransition{TAV_STATE_PREDICTIVE_FAILURE, false, 539, true},
    DiskTransition{TAV_STATE_FAILED, false, 538, true},
    DiskTransition{TAV_STATE_OFFLINE, true, 538, true},
};

bool isWorking(TAV_RESOURCE_STATE state) {
    return state == TAV_STATE_RUNNING || state == TAV_STATE_PREDICTIVE_FAILURE;
}

bool isBroken(TAV_RESOURCE_STATE state) {
    return state == TAV_STATE_FAILED || state == TAV_STATE_OFFLINE;
}

constexpr int notToldByDisk = 255;

std::string reasonOf(const DiskReadings& readings, bool namesTemperatures) {
    const std::string wear = printed("[SSD Wear percentage (%d); Threshold (95)], ", readings.wear);
    const std::string temperatures =
        printed("[Current Temp (%d C); Max Operating Temperature (%d C)], ", readings.temperature,
                readings.maximumTemperature);
    const std::string errors = printed(
        "[%d errors reported in Summary SMART error log / Informational Exceptions log "
        "page.]",
        readings.errors);
    return wear + (namesTemperatures ? temperatures : "") + errors;
}

}  // namespace

TAV_RESOURCE_STATE stateOfText(std::string_view text) {
    const std::string wanted(text);
    const auto* const found =
        std::find_if(tavResourceStateMap.begin(), tavResourceStateMap.end(),
                     [&](const char* name) { return ::strcasecmp(name, wanted.c_str()) == 0; });
    if (found == tavResourceStateMap.end()) return TAV_STATE_UNKNOWN;
    return static_cast<TAV_RESOURCE_STATE>(found - tavResourceStateMap.begin());
}

PortCondition portCondition(const std::optional<std::string>& hostState, long recoverySince,
                            long now) {
    if (!hostState || hostState->empty()) return {offline, 0};
    const TAV_RESOURCE_STATE state = stateOfText(*hostState);
    switch (state) {
        case TAV_STATE_CREATED:
        case TAV_STATE_RUNNING:
            return {{state, TAV_HEALTH_OK}, 0};
        case TAV_STATE_RECOVERY: {
            const long since = recoverySince == 0 ? now : recoverySince;
            if (now - since >= longRecovery) return {{state, TAV_HEALTH_WARNING}, since};
            return {running, since};
        }
        default:
            return {{state, TAV_HEALTH_CRITICAL}, 0};
    }
}

Condition controllerCondition(const std::vector<tavStorageControllerPortInfo>& ports) {
    const PortCounts counts = countPorts(ports);
    const auto* const rule =
        std::find_if(controllerRules.begin(), controllerRules.end(),
                     [&](const ControllerRule& candidate) { return candidate.applies(counts); });
    return rule == controllerRules.end() ? Condition{} : rule->condition;
}

const ControllerTransition* controllerTransition(TAV_RESOURCE_HEALTH from, TAV_RESOURCE_HEALTH to) {
    const auto* const found =
        std::find_if(controllerTransitions.begin(), controllerTransitions.end(),
                     [&](const auto& row) { return row.from == from && row.to == to; });
    return found == controllerTransitions.end() ? nullptr : found;
}

int availableWear(int answer) {
    return answer < 0 || answer == notToldByDisk ? -1 : answer;
}

void setTemperatures(int current, int maximum, DiskReadings& readings) {
    const bool hasCurrent = current != notToldByDisk;
    const bool hasMaximum = maximum > 0 && maximum != notToldByDisk;
    readings.temperature = hasCurrent ? current : -1;
    readings.maximumTemperature = hasMaximum ? maximum : -1;
    readings.hasTemperatures = hasCurrent && hasMaximum;
}

DiskJudgement judgeDisk(const DiskReadings& readings, const char* unreadable,
                        bool namesTemperatures) {
    if (readings.errors < 0) return {failed, unreadable};
    const bool isTooHot =
        readings.hasTemperatures && readings.temperature > readings.maximumTemperature;
    if (readings.errors == 0 && readings.wear < wornOut && !isTooHot) return {running, ""};
    return {predictiveFailure, reasonOf(readings, namesTemperatures || readings.hasTemperatures)};
}

const DiskTransition* diskTransition(TAV_RESOURCE_STATE from, TAV_RESOURCE_STATE to,
                                     TAV_RESOURCE_STATE reported) {
    if (from == to) return nullptr;
    const auto* const found = std::find_if(
        diskTransitions.begin(), diskTransitions.end(), [&](const DiskTransition& row) {
            return row.to == to && (!row.onlyOnce || isWorking(from) || !isBroken(reported));
        });
    return found == diskTransitions.end() ? nullptr : found;
}

}  // namespace tav
