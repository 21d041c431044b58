#pragma once

#include <optional>
#include <string>
#include <vector>

#include "storage/model/tavDiskInfo.h"

/// What the kernel's SCSI classes list, by the controller behind which it stands. Any thread.
namespace tav {

/// The target of a symbolic link; none when it cannot be read, errno tells why.
std::optional<std::string> linkTargetOf(const std::string& path);

/// The number behind the first `part` of a path ("/ata" in ".../ata3/host2"); -1 for none.
int numberBehind(const std::string& path, const char* part);

/// The PCI function nearest to the device on a sysfs path ("0000:3b:00.0"); empty for none.
std::string nearestPciLocation(const std::string& path);

/// Lists all SCSI devices anew. A discovery of controllers does it once, so that the cost of
/// finding the devices of each does not grow with the number of controllers.
void scanScsiDevices();

/// The devices that the last scan has found behind a controller, sorted by their addresses. Scans
/// first when nobody has.
std::vector<DiskAddress> scsiDevicesBehind(const std::string& pciLocation);

}  // namespace tav
