#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include <json/value.h>

#include "base/Export.h"

/// Kinds of resources. The values index threads and stand in configuration tables.
enum MODULE_NAME : int {
    FIBRE_CHANNEL_DEVICES = 0,
    HOST_OS_INFO = 1,
    STORAGE_CONTROLLERS = 2,
    ETHERNET_DEVICES = 3,
    NVME_CONTROLLERS = 4,
    GPU_DEVICES = 5,
};

/// Loops over all resource types run from 0 to one below this.
inline constexpr int RESOURCE_TYPE_COUNT = 6;

/// Where a resource type stands in a table of RESOURCE_TYPE_COUNT entries.
constexpr std::size_t resourceTypeIndex(MODULE_NAME type) {
    return static_cast<std::size_t>(type);
}

/// The names of the resource types, as configuration, inventory and events spell them.
inline const std::map<MODULE_NAME, std::string> TAV_MODULE_NAME_MAP = {
    {FIBRE_CHANNEL_DEVICES, "FibreChannelDevices"}, {HOST_OS_INFO, "HostOSInfo"},
    {STORAGE_CONTROLLERS, "StorageControllers"},    {ETHERNET_DEVICES, "EthernetDevices"},
    {NVME_CONTROLLERS, "NVMeControllers"},          {GPU_DEVICES, "GPUDevices"},
};

/// What the job manager, the aggregator and the command-line server ask of a resource manager.
/// Managers are process-wide singletons that nobody deletes through this interface.
class TAV_API tavResourceManager {
 public:
    /// Rebuilds the inventory once: discovers the resources, raises events for changes, and asks
    /// for a push when one is wanted. Runs on the manager's own thread.
    virtual void cacheBuild() = 0;

    /// Asks the manager's loop to end. May wait until it has let go of what it holds, as storage's
    /// does. Any thread.
    virtual void stopResourceManagerJob() = 0;

    /// The body of the manager's thread: prepares the manager, then runs startInventory().
    virtual void init() = 0;

    /// The refresh loop; returns when the manager has been asked to stop.
    virtual void startInventory() = 0;

    /// Replaces `records` by the inventory, one value per top-level record. Never waits for a
    /// build: returns 0 with the current inventory, or 1 with the previous one while a build is in
    /// progress. Any thread.
    virtual int getInventoryJsonObject(std::vector<Json::Value>& records) = 0;

    /// The same for managers that keep several kinds of records, by kind. Any thread.
    virtual int getInventoryJsonObject2(int kind, std::vector<Json::Value>& records);

    /// Whether the manager holds a built inventory; tries three times, seconds apart. Any thread.
    virtual bool isRunning() = 0;

    /// Whether the inventory may be sent now. `iteration` is the aggregator's waiting round, 0 to
    /// 8; a manager that is not ready in the last round asks for a push itself once it is. Any
    /// thread.
    virtual bool isInventoryReady(int iteration) = 0;

    /// The same, and waits for nothing. Any thread.
    virtual void requestStop() { stopResourceManagerJob(); }

    /// What the inventory says may have become another without an event: has the manager's loop
    /// build anew, and ask for a push afterwards. Any thread.
    virtual void rebuild() {}

    /// Forgets a stop and what was built before it: init() then begins as it did the first time.
    /// While no thread is in init(); one that cannot be started again does nothing.
    virtual void reset() {}

 protected:
    ~tavResourceManager() = default;
};
