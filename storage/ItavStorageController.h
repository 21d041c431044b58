#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "storage/model/tavDiskInfo.h"
#include "storage/model/tavLogicalDiskInfo.h"
#include "storage/model/tavStorageControllerFamily.h"
#include "storage/model/tavStorageControllerInfo.h"
#include "storage/tavRemoveLock.h"

/// One storage controller, whatever its family. Reached through its factory; the storage resource
/// manager's thread discovers and polls, and a family may add threads of its own: implementations
/// guard their state themselves.
class TAV_API ItavStorageController : public tavRemoveLock {
 public:
    /// The three discoveries fill in what is found and return a negative number on failure. A
    /// removed controller answers with its last known inventory.
    virtual int discoverInventory(tavStorageControllerInfo& info) = 0;
    virtual int discoverPhysicalDiskInventory(std::vector<tavDiskInfo>& disks) = 0;
    virtual int discoverLogicalDiskInventory(std::vector<tavLogicalDiskInfo>& volumes) = 0;

    /// Whether this is the controller with these PCI IDs (see tavStorageControllerInfo) at this PCI
    /// address. `extra` is for families that need more than that to tell their controllers apart.
    virtual bool isMatchingController(std::uint32_t chipsetID, std::uint32_t boardID,
                                      const std::string& pciLocation, std::uint32_t extra) = 0;

    /// False when the controller has been removed or cannot report events.
    virtual bool enableEvents() = 0;
    virtual bool isEventsEnabled() = 0;
    virtual void disableEvents() = 0;

    /// Looks for changes and raises their events.
    virtual void poll() = 0;

    /// Marks the controller removed, reports everything behind it as gone, and drops the factory's
    /// reference: the caller needs one of its own if it goes on using the controller.
    virtual void processDeviceRemoval() = 0;

    /// Takes over what was last known and reported of a controller that has come back as this one.
    virtual void processDeviceAddition(ItavStorageController* predecessor) = 0;

 protected:
    ~ItavStorageController() override = default;
};
