#pragma once

#include <string>
#include <utility>
#include <vector>

#include "storage/SASResourceManager.h"
#include "storage/raid/raid_event_record.h"
#include "storage/raid/tavMegaRAIDController.h"
#include "storage/raid/tavMegaRAIDControllerFactory.h"
#include "storage/raid/tavSASLSIEvent.h"
#include "tests/support/FakeRaidLibrary.h"
#include "tests/support/Rmc.h"
#include "tests/support/Service.h"

namespace tav::test {

using Controllers = std::vector<Reference<ItavStorageController>>;

/// What one round of the storage manager finds.
struct RaidInventory {
    int result = 0;
    std::vector<tavStorageControllerInfo> controllers;
    std::vector<tavDiskInfo> disks;
    std::vector<tavLogicalDiskInfo> volumes;
};

inline Controllers takeControllers(std::vector<ItavStorageController*> pointers) {
    Controllers references;
    for (ItavStorageController* const pointer : pointers)
        references.emplace_back(pointer);
    return references;
}

/// Discovers as the storage manager does.
inline RaidInventory discoverRaid() {
    RaidInventory inventory;
    std::vector<ItavStorageController*> found;
    inventory.result = tavMegaRAIDControllerFactory::getInstance()->discoverControllers(found);
    for (const auto& controller : takeControllers(std::move(found))) {
        tavStorageControllerInfo info;
        if (controller->discoverInventory(info) < 0) continue;
        inventory.controllers.push_back(info);
        std::vector<tavDiskInfo> disks;
        std::vector<tavLogicalDiskInfo> volumes;
        controller->discoverPhysicalDiskInventory(disks);
        controller->discoverLogicalDiskInventory(volumes);
        inventory.disks.insert(inventory.disks.end(), disks.begin(), disks.end());
        inventory.volumes.insert(inventory.volumes.end(), volumes.begin(), volumes.end());
        controller->enableEvents();
    }
    return inventory;
}

inline std::string conditionText(const tavStatusInfo& resource) {
    return std::string(displayText(resource.getState())) + "/" + displayText(resource.getHealth());
}

/// Lets events pass that wait for the first inventory.
inline void sendFirstInventory(Rmc& rmc) {
    Service service(200);
    rmc.waitForCommands(2);
    while (!tavJsonAggregator::getInstance()->isInventorySent())
        std::this_thread::yield();
}

/// A controller with a mirrored volume, and a place of its own for it.
inline FakeController fakeController(std::uint32_t id, const std::string& serial) {
    return {id,
            serial,
            static_cast<std::uint8_t>(0x65 + id),
            {{8, 0, serial + "-A"}, {9, 1, serial + "-B"}},
            {{0, 3, {8, 9}}}};
}

}  // namespace tav::test
