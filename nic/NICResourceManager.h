#pragma once

#include <atomic>
#include <ctime>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "core/InventoryCache.h"
#include "core/ManagerLoop.h"
#include "core/tavResourceManager.h"
#include "nic/PhyAdapterInventory.h"

namespace tav {

/// Display strings of an interface's state and health.
struct NicCondition {
    std::string state;
    std::string health;

    bool operator==(const NicCondition&) const = default;
};

}  // namespace tav

/// The manager of Ethernet interfaces. Rebuilds its inventory every 30 seconds and looks for
/// changed links ten seconds after each rebuild; in between NICEventMonitor tells it what the
/// kernel reports. Raises event 680 when the health of an interface has returned to OK. Locks:
/// those of its loop and cache, and changesLock_ (docs/architecture.md); none is held while host
/// commands run, events are raised or a push is asked for, but for the build lock.
class TAV_API NICResourceManager final : public tavResourceManager {
 public:
    static NICResourceManager* getInstance();

    void cacheBuild() override;
    void stopResourceManagerJob() override;
    void init() override;
    void startInventory() override;
    int getInventoryJsonObject(std::vector<Json::Value>& records) override;
    bool isRunning() override;
    bool isInventoryReady(int iteration) override;

    /// Whether the host lists an interface with another link status than the inventory has.
    /// Manager's thread.
    bool checkLinkState();

    /// Condition of an interface of the inventory; none for one that is not in it. Any thread.
    std::optional<tav::NicCondition> getHealthOfIntf(const char* name) const;

    /// Replaces the condition of an interface of the inventory; nothing happens to one that is not
    /// in it. A build that is running takes the change over. Any thread.
    void updateStateAndHealth(const char* name, const std::string& state,
                              const std::string& health);

    /// The interfaces of the inventory. Any thread.
    std::vector<PhyAdapterInventory> getNICInventory() const;

    /// Sends an event about an interface. Any thread.
    static void generateEvent(int id, const std::string& location, bool critical,
                              const std::string& name, const PhyAdapterInventory& record);

    /// Sends a test event about a sample interface. Any thread.
    static void generateTestEvent(int id, const std::string& location);

 private:
    struct Inventory {
        std::vector<PhyAdapterInventory> adapters;
        std::vector<Json::Value> records;
    };
    struct Change {
        std::string name;
        tav::NicCondition condition;
    };

    static std::optional<std::vector<std::vector<std::string>>> getInterfaceDetails();
    static std::optional<Inventory> getInventory();
    static void createJsonStringUsingJsonCpp(Inventory& inventory);
    static void apply(const Change& change, Inventory& inventory);
    std::vector<PhyAdapterInventory> publish(tav::InventoryCache<Inventory>::Build& build,
                                             Inventory inventory);
    std::vector<PhyAdapterInventory> compareStatus(const Inventory& current, std::size_t previous);

    tav::ManagerLoop loop_;
    tav::Readiness readiness_;
    tav::InventoryCache<Inventory> cache_;
    std::time_t lastRefreshTime_ = 0;  ///< end of the last build; manager's thread only

    /// Guards what follows, and keeps a change from falling between a build and its publication.
    std::mutex changesLock_;
    bool building_ = false;
    std::vector<Change> changesDuringBuild_;
    /// Health by interface name that the next comparison starts from: that of the last one, or what
    /// an interface has fallen to since.
    std::map<std::string, std::string> comparedHealth_;
};
