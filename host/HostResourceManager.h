#pragma once

#include <ctime>
#include <vector>

#include "core/InventoryCache.h"
#include "core/ManagerLoop.h"
#include "core/tavResourceManager.h"
#include "host/HostRecords.h"
#include "rmc/tavEventHandler.h"

/// The manager of the host itself: its name, operating system, memory and addresses, rebuilt every
/// 60 seconds. Once per boot of the host it raises the boot event and, where the host's summary log
/// tells, one for the shutdown before. Locks: those of its loop and cache (docs/architecture.md);
/// none is held while events are raised or a push is asked for.
class TAV_API HostResourceManager final : public tavResourceManager {
 public:
    static HostResourceManager* getInstance();

    void cacheBuild() override;
    void stopResourceManagerJob() override;
    void init() override;
    void startInventory() override;
    int getInventoryJsonObject(std::vector<Json::Value>& records) override;
    bool isRunning() override;
    bool isInventoryReady(int iteration) override;
    void requestStop() override { loop_.requestStop(); }
    void reset() override;

    /// Raises a test event with that ID. Any thread.
    void generateTestEvent(int eventId);
    /// The event that it sends.
    static tavEvent testEvent(int eventId);

    /// The host records of the last build: one, or none before the first. Any thread.
    std::vector<tavHostOSInfo> getHostInventory() const;

 private:
    /// What a build makes.
    struct Inventory {
        std::vector<tavHostOSInfo> hosts;
        std::vector<Json::Value> records;
    };

    /// The host as it is, over what was `known` of it: what cannot be asked stands.
    static tavHostOSInfo populateHostInfo(tavHostOSInfo known);
    static tavCollectionInfo populateCollectionInfo();
    static void getTotalPhysicalMemory(tavHostOSInfo& host);
    void genOSBootLogic();
    static void sendOSBootEvent();
    static bool readStartupValue(long& sent);
    static void updateStartupFile();

    tav::ManagerLoop loop_;
    tav::Readiness readiness_;
    tav::InventoryCache<Inventory> cache_;
    std::time_t lastRefreshTime_ = 0;  ///< end of the last build; manager's thread only
};
