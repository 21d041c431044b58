#pragma once

#include <memory>
#include <vector>

#include <json/value.h>

#include "base/Export.h"
#include "storage/model/tavDiskInfo.h"
#include "storage/model/tavLogicalDiskInfo.h"
#include "storage/model/tavStorageControllerInfo.h"

class ItavStorageController;
class ItavStorageControllerFactory;

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
    /// "PhysicalLocation", and of an NVMe drive "Namespace": unsigned number}}
    std::vector<Json::Value> drives;
    /// {"DurableName", "VolumeType", "CapacityBytes": unsigned number, "Drives": [identifier, ...],
    /// "Status": {"State", "Health"}, "Oem": {"DeviceName"}}
    std::vector<Json::Value> volumes;
};

/// What is published: the inventory of each controller, in the order of their discovery. A part
/// never changes; factory and controller only tell whose it is, and may be gone.
struct TAV_API StorageGeneration {
    struct Part {
        const ItavStorageControllerFactory* factory = nullptr;
        const ItavStorageController* controller = nullptr;
        std::shared_ptr<const StorageInventory> inventory;
    };
    std::vector<Part> parts;

    const Part* partOf(const ItavStorageController& controller) const;
};

TAV_API StorageInventory renderStorage(const StorageRecords& records);

/// Whether both say the same of the same resources, in whatever order, but for their conditions.
TAV_API bool saysSameButForConditions(const StorageInventory& one, const StorageInventory& other);

}  // namespace tav
