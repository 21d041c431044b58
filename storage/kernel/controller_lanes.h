#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "base/LaneGroup.h"
#include "storage/model/tavDiskInfo.h"
#include "storage/model/tavStorageControllerInfo.h"

/// The lanes of a controller that the kernel knows: one for itself and its ports, one for each
/// disk.
namespace tav {

/// What a question brings.
struct DeviceAnswer {
    std::optional<tavStorageControllerInfo> controller{};
    std::optional<tavDiskInfo> disk{};
    bool isExamined = false;  ///< all was asked, not the condition alone
};

/// By the disk's SCSI address; the controller's own has the empty one.
using ControllerLanes = LaneGroup<std::string, DeviceAnswer>;

/// How long an answer is waited for, and a round lasts at most.
inline constexpr std::chrono::seconds devicePatience{5};
inline constexpr std::chrono::seconds deviceRound{20};
/// A disk that has not answered for longer than a command and the kernel's error handling take has
/// failed.
inline constexpr std::chrono::seconds silenceIsFailure{90};

/// The pool of all controllers; made when it is first asked for, also after it has been closed.
std::shared_ptr<Lanes> deviceLanes();
/// Ends it: waits for what ends within the limit, and lets go of the rest.
void closeDeviceLanes(const TimeLimit& limit);

}  // namespace tav
