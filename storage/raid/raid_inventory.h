#pragma once

#include <cstdint>
#include <string>

#include "base/Export.h"
#include "storage/model/storage_location.h"
#include "storage/model/tavDiskInfo.h"
#include "storage/model/tavLogicalDiskInfo.h"
#include "storage/model/tavStorageControllerInfo.h"
#include "storage/raid/tavStoreLibInterface.h"

/// Turns what the vendor library tells into inventory records. Texts that it does not tell read
/// "NotAvailable". Any thread.
namespace tav {

/// The health that the library's code stands for: 1 OK, 2 Warning, 4 Critical, any other Unknown.
TAV_API TAV_RESOURCE_HEALTH getHealthEnum(std::uint32_t code);

/// The state that inventory shows of a drive in that state of the firmware.
TAV_API TAV_RESOURCE_STATE stateOfDrive(std::uint16_t firmwareState);

/// Leaves the condition alone: the library tells none of a controller.
TAV_API void describeController(const CTRL_INFO& record, const std::string& pciLocation,
                                tavStorageControllerInfo& info);

/// `pciLocation` is that of the drive's controller.
TAV_API tavDiskInfo toDisk(const PD_INFO& record, const std::string& pciLocation);

TAV_API tavLogicalDiskInfo toVolume(const LD_INFO& record);

}  // namespace tav
