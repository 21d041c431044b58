#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "core/InventoryCache.h"
#include "core/ManagerLoop.h"
#include "core/tavResourceManager.h"
#include "rmc/tavEventHandler.h"
#include "storage/model/tavInventoryBase.h"
#include "storage/storage_inventory.h"

namespace tav {
class StorageRounds;
struct ToldLists;
}  // namespace tav

/// The manager of storage: rebuilds the inventory of all controllers, drives and volumes at the
/// configured interval and whenever somebody invalidates it, polls the controllers every 10
/// seconds, and raises storage events. It reaches the hardware through the registered factories
/// (tavRegistryManager) alone. Locks: those of its loop and cache (docs/architecture.md); only the
/// build lock is held while factories and controllers are called, and none while a push is asked
/// for.
class TAV_API SASResourceManager final : public tavResourceManager {
 public:
    static SASResourceManager* getInstance();

    void cacheBuild() override;
    /// Unlike the other managers this one also waits until its loop, if it runs, has released every
    /// controller and is about to end.
    void stopResourceManagerJob() override;
    void init() override;
    void startInventory() override;
    /// Storage has several kinds of records and hands them out by kind only: does nothing.
    int getInventoryJsonObject(std::vector<Json::Value>& records) override;
    /// Kinds: 0 and 1 the controllers, 2 the drives, 3 the volumes; none of any other kind. For the
    /// shapes of the records see storage/storage_inventory.h.
    int getInventoryJsonObject2(int kind, std::vector<Json::Value>& records) override;
    /// Also warns when there is a controller that reports no events.
    bool isRunning() override;
    bool isInventoryReady(int iteration) override;
    void requestStop() override;
    void rebuild() override;
    void reset() override;

    /// The records of that kind as the last completed build left them. Any thread.
    void fetchPrevInventoryOfType(int kind, std::vector<Json::Value>& records) const;

    /// Looks for changes at every factory and controller. Manager's thread.
    void pollDevices();

    /// Publishes what a controller has found by itself since the last build. A controller that no
    /// build has met is left to the next one. Any thread; before the events that tell the same.
    static void updateInventory(const ItavStorageController& controller,
                                const tav::StorageRecords& records);

    /// Whether a build is under way, which may have passed by what the caller knows. Any thread.
    static bool isBuilding() { return getInstance()->cache_.isBuildInProgress(); }

    /// Becomes the number of the first pushed inventory that tells what the next build to begin has
    /// found (see tavJsonAggregator); 0 until that build has been published. Any thread.
    using ToldBy = std::shared_ptr<const std::atomic<std::uint64_t>>;
    static ToldBy toldByNextBuild();

    /// Asks for a build as soon as may be. Any thread, also a controller inside a build.
    static void invalidateInventoryCache();

    /// Asks for a push after the next build to complete. Any thread. A build that is under way may
    /// have passed by what the request is about; then the one after it asks for a push as well.
    static void sendInventorytToRMCOnCacheBuild();

    /// Raises an event about the record, waits until it is sent and tells what became of it.
    /// `location` is a location code or a placeholder; the form without one is for resources that
    /// have none. Any thread.
    static tav::EventOutcome generateEvent(int eventID, const std::string& location,
                                           bool serviceEvent, const tavInventoryBase& record);
    static tav::EventOutcome generateEvent(int eventID, bool serviceEvent,
                                           const tavInventoryBase& record);

    /// Raises a test event with a made-up record. Event IDs: 397 and 398 for a controller, 538 to
    /// 540 for a drive, 681 and 683 for a volume; nothing is raised for any other. Any thread.
    void generateTestEvent(int eventID, const std::string& location, bool serviceEvent);
    /// The event that it sends; none for another ID.
    static std::optional<tavEvent> testEvent(int eventID, const std::string& location,
                                             bool serviceEvent);

 private:
    SASResourceManager();
    ~SASResourceManager();

    std::unique_ptr<tav::StorageRounds> makeRounds();
    bool beginLoop();
    void endLoop();
    void waitForLoopEnd();
    void processResourceManagerStop();
    std::shared_ptr<std::atomic<std::uint64_t>> takeToldBy();
    void publishLate(tav::StorageGeneration::Part part, tav::ToldLists told);

    tav::ManagerLoop loop_;
    std::unique_ptr<tav::StorageRounds> rounds_;  ///< another one after each stop
    tav::Readiness readiness_;
    tav::InventoryCache<tav::StorageGeneration> cache_;
    std::mutex toldByLock_;  ///< guards the pointer, and is held for nothing else
    std::shared_ptr<std::atomic<std::uint64_t>> toldByNextBuild_;  ///< null: nobody has asked
    std::time_t lastRefreshTime_ = 0;  ///< begin of the last build's round; loop's own
    std::time_t lastPollTime_ = 0;     ///< likewise of the last poll's

    std::mutex loopStateLock_;  ///< guards the two flags below and is held for nothing else
    std::condition_variable loopEnded_;
    bool inited_ = false;
    bool loopRuns_ = false;
};
