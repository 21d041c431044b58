#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "storage/model/storage_conditions.h"
#include "storage/nvme/nvme_replies.h"

/// The decisions about the condition of NVMe controllers and drives. Pure functions and tables.
namespace tav::nvme {

/// How the condition of a drive is judged: its log, and the controller's own thresholds (kelvins; 0
/// for none).
struct Readings {
    HealthLog log{};
    int warningKelvins = 0;
    int criticalKelvins = 0;
};
DiskJudgement judgeDrive(const Readings& readings);

/// What the kernel says of a controller (its "state" attribute).
enum class ControllerState : std::uint8_t {
    Live,
    InReset,  ///< also while it comes up
    Leaving,  ///< it is being removed
    Dead,     ///< the kernel has given it up
    Gone,     ///< there is no such controller
    Unknown,  ///< it does not tell, or in a word that we do not know
};
/// By its word; none: there is no such controller.
ControllerState controllerState(const std::optional<std::string>& word);

/// The state of a SCSI host that stands for it, so that a controller is judged as a port is.
const char* hostState(ControllerState state);

/// Why a controller's health has changed, by the state that it has come to.
const char* controllerEventInfo(TAV_RESOURCE_STATE now);

}  // namespace tav::nvme
