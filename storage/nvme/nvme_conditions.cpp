#include "storage/nvme/nvme_conditions.h"

#include <algorithm>
#include <array>
#include <cinttypes>

#include "base/printed.h"
#include "storage/nvme/nvme_records.h"

namespace tav::nvme {
namespace {

constexpr int kelvinsAtFreezing = 273;

bool warns(const Readings& readings, CriticalWarning bit) {
    return (readings.log.warnings & bit) != 0;
}

bool reaches(const Readings& readings, int threshold) {
    return threshold > 0 && readings.log.kelvins >= threshold;
}

bool isSpareLow(const Readings& readings) {
    const HealthLog& log = readings.log;
    const bool isBelow = log.spare >= 0 && log.spare < log.spareThreshold;
    return isBelow || warns(readings, spareBelowThreshold);
}

bool isCriticallyHot(const Readings& readings) {
    return reaches(readings, readings.criticalKelvins);
}

bool isHot(const Readings& readings) {
    return reaches(readings, readings.warningKelvins) && !isCriticallyHot(readings);
}

bool isBeyondOtherThreshold(const Readings& readings) {
    return warns(readings, temperatureBeyondThreshold) && !isHot(readings) &&
           !isCriticallyHot(readings);
}

std::string temperatureText(const Readings& readings, const char* name, int threshold) {
    return printed("[Current Temp (%d C); %s (%d C)]", readings.log.kelvins - kelvinsAtFreezing,
                   name, threshold - kelvinsAtFreezing);
}

struct Rule {
    bool (*applies)(const Readings& readings);
    Condition condition;
    std::string (*text)(const Readings& readings);
};

/// All that apply are named; the first one decides the condition.
constexpr std::array rules = {
    Rule{[](const Readings& r) { return warns(r, mediaReadOnly); }, failed,
         [](const Readings&) { return std::string("[The media has become read-only.]"); }},
    Rule{isSpareLow, predictiveFailure,
         [](const Readings& r) {
             return printed("[Available spare (%d %%); Threshold (%d %%)]", r.log.spare,
                            r.log.spareThreshold);
         }},
    Rule{[](const Readings& r) { return warns(r, reliabilityDegraded); }, predictiveFailure,
         [](const Readings&) {
             return std::string("[Media or internal errors have degraded its reliability.]");
         }},
    Rule{[](const Readings& r) { return warns(r, volatileBackupFailed); }, predictiveFailure,
         [](const Readings&) {
             return std::string("[The backup of its volatile memory has failed.]");
         }},
    Rule{[](const Readings& r) { return warns(r, persistentRegionUnreliable); }, predictiveFailure,
         [](const Readings&) {
             return std::string(
                 "[Its persistent memory region has become read-only or unreliable.]");
         }},
    Rule{[](const Readings& r) { return r.log.used >= wornOut; }, predictiveFailure,
         [](const Readings& r) {
             return printed("[SSD Wear percentage (%d); Threshold (%d)]", r.log.used, wornOut);
         }},
    Rule{isCriticallyHot, predictiveFailure,
         [](const Readings& r) {
             return temperatureText(r, "Critical Temperature", r.criticalKelvins);
         }},
    Rule{isHot, predictiveFailure,
         [](const Readings& r) {
             return temperatureText(r, "Warning Temperature", r.warningKelvins);
         }},
    Rule{isBeyondOtherThreshold, predictiveFailure,
         [](const Readings& r) {
             if (r.log.kelvins < 0) return std::string("[Temperature beyond a threshold]");
             return printed("[Current Temp (%d C), beyond a threshold]",
                            r.log.kelvins - kelvinsAtFreezing);
         }},
    Rule{[](const Readings& r) { return r.log.mediaErrors > 0; }, predictiveFailure,
         [](const Readings& r) {
             return printed("[%" PRIu64 " media and data integrity errors]", r.log.mediaErrors);
         }},
};

struct StateWord {
    const char* word;
    ControllerState state;
};
constexpr std::array stateWords = {
    StateWord{"live", ControllerState::Live},
    StateWord{"new", ControllerState::InReset},
    StateWord{"resetting", ControllerState::InReset},
    StateWord{"connecting", ControllerState::InReset},
    StateWord{"reconnecting", ControllerState::InReset},  // of older kernels
    StateWord{"deleting", ControllerState::Leaving},
    StateWord{"deleting (no IO)", ControllerState::Leaving},
    StateWord{"dead", ControllerState::Dead},
};

}  // namespace

DiskJudgement judgeDrive(const Readings& readings) {
    DiskJudgement judgement{running, ""};
    for (const Rule& rule : rules) {
        if (!rule.applies(readings)) continue;
        if (judgement.eventInfo.empty()) {
            judgement.condition = rule.condition;
        } else {
            judgement.eventInfo += ", ";
        }
        judgement.eventInfo += rule.text(readings);
    }
    return judgement;
}

ControllerState controllerState(const std::optional<std::string>& word) {
    if (!word) return ControllerState::Gone;
    const auto* const found = std::find_if(stateWords.begin(), stateWords.end(),
                                           [&](const StateWord& row) { return *word == row.word; });
    return found == stateWords.end() ? ControllerState::Unknown : found->state;
}

const char* hostState(ControllerState state) {
    switch (state) {
        case ControllerState::Live:
        case ControllerState::Unknown:  // says nothing against it
            return "running";
        case ControllerState::InReset:
            return "recovery";
        case ControllerState::Dead:
            return "failed";
        case ControllerState::Leaving:
        case ControllerState::Gone:
            return "offline";
    }
    return "";
}

const char* controllerEventInfo(TAV_RESOURCE_STATE now) {
    switch (now) {
        case TAV_STATE_RUNNING:
            return "The NVMe controller is live again.";
        case TAV_STATE_RECOVERING:
            return "The NVMe controller has been in reset for >= 60 seconds.";
        case TAV_STATE_FAILED:
            return "The NVMe controller is dead: the kernel has given it up.";
        case TAV_STATE_OFFLINE:
            return "The NVMe controller has been removed from the system.";
        default:
            return "";
    }
}

}  // namespace tav::nvme
