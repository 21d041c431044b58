#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/Waiting.h"
#include "core/InventoryCache.h"
#include "core/ManagerLoop.h"
#include "core/tavResourceManager.h"
#include "nic/LinkLedgers.h"
#include "nic/PhyAdapterInventory.h"
#include "rmc/tavEventHandler.h"

/// The manager of Ethernet interfaces. Rebuilds its inventory every 30 seconds and looks once for
/// changed links, ten to nineteen seconds after each rebuild; in between NICEventMonitor tells it
/// what the kernel reports. Raises event 680 when the health of an interface has returned to OK,
/// and asks for a push when what no event tells has lasted from one rebuild to the next. Locks:
/// those of its loop and cache, and linksLock_ (docs/architecture.md); none is held while host
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
    void rebuild() override;
    void reset() override;

    /// Whether the host lists an interface with another link status than the inventory has.
    /// Manager's thread.
    bool checkLinkState();

    /// Condition of an interface of the inventory; none for one that is not in it. Any thread.
    std::optional<tav::NicCondition> getHealthOfIntf(const char* name) const;

    /// Replaces the condition of an interface of the inventory; nothing happens to one that is not
    /// in it. It is newer than what a build tells that is running. Costs what one interface costs,
    /// and readers do not wait for it. Any thread.
    void updateStateAndHealth(const char* name, const std::string& state,
                              const std::string& health);

    /// The interfaces of the inventory. Any thread.
    std::vector<PhyAdapterInventory> getNICInventory() const;

    /// Sends an event about an interface. Any thread.
    static void generateEvent(int id, const std::string& location, bool critical,
                              const std::string& name, const PhyAdapterInventory& record);

    /// Sends a test event about a sample interface. Any thread.
    static void generateTestEvent(int id, const std::string& location);
    /// The event that it sends.
    static tavEvent testEvent(int id, const std::string& location);

 private:
    struct Inventory {
        std::vector<tav::SharedInterface> interfaces;  ///< in the order of the list
    };
    using Rows = std::vector<std::vector<std::string>>;

    static std::optional<Rows> getInterfaceDetails();
    static std::optional<std::vector<tav::FoundInterface>> getInventory();
    static void logInstances(const Inventory& inventory);
    bool isAnotherLink(const std::string& name, const std::string& linkStatus) const;
    tav::LinkNews takeList(std::vector<tav::FoundInterface> found, tav::LookClock::time_point begun,
                           tav::InventoryCache<Inventory>::Build& build);
    void noteTold();
    static void raiseRecoveries(const std::vector<tav::SharedInterface>& recovered);

    tav::ManagerLoop loop_;
    tav::Readiness readiness_;
    tav::InventoryCache<Inventory> cache_;
    std::optional<tav::Stopwatch> sinceBuild_;  ///< manager's thread only

    /// Guards the ledgers, and that what is published follows them. Readers do not take it.
    mutable std::mutex linksLock_;
    tav::LinkLedgers links_;
};
