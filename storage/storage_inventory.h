#pragma once

#include <vector>

#include <json/value.h>

#include "base/Export.h"
#include "storage/model/tavDiskInfo.h"
#include "storage/model/tavLogicalDiskInfo.h"
#include "storage/model/tavStorageControllerInfo.h"

namespace tav {

/// What the controllers of all factories have found.
struct StorageRecords {
    std::vector<tavStorageControllerInfo> controllers;
    std::vector<tavDiskInfo> disks;
    std::vector<tavLogicalDiskInfo> volumes;
};

/// The records as they stand in the inventory document. All values are texts unless noted.
struct StorageInventory {
    /// {"Model", "SerialNumber", "FirmwareVersion", "Protocol", "Status": {"State", "Health"},
    /// "Oem": {"Description", "PhysicalLocation"}}
    std::vector<Json::Value> controllers;
    /// {"SerialNumber", "PartNumber", "Model", "CapacityBytes": unsigned number, "Protocol",
    /// "MediaType", "Revision", "Status": {"State", "Health"}, "Oem": {"Slot": integer,
    /// "PhysicalLocation"}}
    std::vector<Json::Value> drives;
    /// {"DurableName", "VolumeType", "CapacityBytes": unsigned number, "Drives": [identifier, ...],
    /// "Status": {"State", "Health"}, "Oem": {"DeviceName"}}
    std::vector<Json::Value> volumes;
};

/// Discovers every controller of every registered factory and what is behind it, and lets the
/// controllers report events. Whatever fails or throws costs its own records and no others. Ends
/// early, with what there is, when the thread is asked to stop.
TAV_API StorageRecords discoverStorage();

TAV_API StorageInventory renderStorage(const StorageRecords& records);

}  // namespace tav
