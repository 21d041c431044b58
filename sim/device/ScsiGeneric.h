#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>

#include <scsi/sg.h>

#include "sim/device/DeviceTable.h"

namespace tav::sim {

/// Where the facts of the disk behind /dev/sgN are: a file sgN. While it exists, so does the node.
/// The file is read anew for every open and command, so that a disk can change at any moment:
/// "present=no" unplugs it, "answers=no" lets it hang until the command's time is over, or the
/// milliseconds that "patience" gives, "hang=command" and "hang=open" for as long as that stands.
inline constexpr const char* disksOfThisProcess = "/run/sim/disks/";

/// Completes a SG_IO request as the kernel does for a good answer: at most as many bytes as there
/// is room for, and the residual count.
void completeWithData(sg_io_hdr& request, std::span<const std::uint8_t> data);
/// The same for a check condition.
void completeWithSense(sg_io_hdr& request, std::span<const std::uint8_t> sense);

/// A /dev/sgN whose commands a test answers: fills the request in and returns 0 or an error number.
using ScsiScript = std::function<int(sg_io_hdr& request)>;
std::shared_ptr<Device> scriptedScsiDevice(ScsiScript script);

}  // namespace tav::sim
