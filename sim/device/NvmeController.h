#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include <linux/nvme_ioctl.h>

#include "sim/device/DeviceTable.h"

namespace tav::sim {

/// Where the facts of the controller behind /dev/nvmeN are: a file nvmeN of "key=value" lines, as
/// tav-sim-server writes it. While it exists, so does the node. "present=no" and "answers=no" are
/// those of disks (sim/device/ScsiGeneric.h); "state" other than "live" lets nobody open it.
inline constexpr const char* nvmeOfThisProcess = "/run/sim/nvme/";

class DiskFacts;

/// What the controller answers, by the NVM Express base standard: Identify of itself and of its
/// namespaces, and its SMART / health information log. Fills the command's buffer and returns 0, or
/// the completion's status.
int answerAdminCommand(const DiskFacts& controller, const nvme_admin_cmd& command);

/// A /dev/nvmeN whose commands a test answers: the result of ioctl(), negative for an error number.
using NvmeScript = std::function<int(nvme_admin_cmd& command)>;
std::shared_ptr<Device> scriptedNvmeDevice(NvmeScript script);

}  // namespace tav::sim
