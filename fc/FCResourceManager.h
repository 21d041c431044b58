#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Waiting.h"
#include "core/InventoryCache.h"
#include "core/ManagerLoop.h"
#include "core/tavResourceManager.h"
#include "fc/FCPortLedgers.h"
#include "fc/FCRecords.h"

namespace tav {
class FCPortQuestions;
}

/// The manager of the host's Fibre Channel ports: one record per host of the kernel's Fibre Channel
/// transport class. It rebuilds its inventory at its refresh interval and when the kernel tells of
/// a port, looks once at the ports' states ten to nineteen seconds after each build, and raises an
/// event when a port's health has changed. The job manager does not start it: whoever wants it runs
/// init() on a thread of its own. Locks: those of its loop and cache (docs/architecture.md); none
/// is held while events are raised or a push is asked for.
class TAV_API FCResourceManager final : public tavResourceManager {
 public:
    static FCResourceManager* getInstance();

    void cacheBuild() override;
    void stopResourceManagerJob() override;
    void init() override;
    void startInventory() override;
    int getInventoryJsonObject(std::vector<Json::Value>& records) override;
    bool isRunning() override;
    bool isInventoryReady(int iteration) override;
    void requestStop() override { loop_.requestStop(); }
    /// What is sent holds no ports: asks for no push.
    void rebuild() override { loop_.requestRefresh(); }
    void reset() override;

    /// Raises a test event with that ID and made-up values, which tell no location. Any thread.
    void generateTestEvent(int eventId, const std::string& location);

    /// The ports of the last build, in the order of their hosts' names. Any thread.
    std::vector<tavFCDeviceInfo> getFCInventory() const;

    // The following keep no state; any thread.

    /// Attributes of the SCSI host whose directory is `dir`, under the names that the drivers give
    /// them; "Not Available" where there is none, and for a path above 1,023 characters.
    static std::string getFcHBASerialNum(const char* dir);
    static std::string getFcHBAFWVer(const char* dir);
    static std::string getFcHBARomVer(const char* dir);

    /// The adapter's model by its PCI subsystem (device ID × 65536 + vendor ID). `modelOut` holds
    /// 131 characters; `*convergedOut`, where given, becomes 1 for a converged network adapter,
    /// else 0.
    static void getFcaHostCntlrModel(unsigned long key, char* modelOut, int* convergedOut);
    /// Its part number; empty when it is not known.
    static std::string getFcaHostCntlrPartNumber(unsigned long key);

    /// What the attribute "port_state" says, and how healthy a port in that state is.
    static TAV_RESOURCE_STATE getState(const char* portState);
    static TAV_RESOURCE_HEALTH getHealth(TAV_RESOURCE_STATE state);
    /// "0x20000000c9112233" as "20:00:00:00:c9:11:22:33"; "Not Available" for what is no such name.
    static std::string portWWNtoString(const char* name);
    /// The explaining text of an event.
    static std::string getDescription(int eventId);
    /// Fills in the port's object: everything but its condition.
    static void jsonInventory(Json::Value& record, const tavFCDeviceInfo& port);
    /// The details that an event carries.
    static Json::Value getVariableData(const tavFCDeviceInfo& port, int eventId);

 private:
    /// What a build makes.
    struct Inventory {
        std::vector<tavFCDeviceInfo> ports;
        std::vector<Json::Value> records;
    };

    FCResourceManager();
    ~FCResourceManager();

    /// Absent where there is no host with Fibre Channel.
    std::optional<std::vector<tav::FoundFcPort>> discover();
    static std::optional<tav::FoundFcPort> readPort(const std::string& host);
    static std::optional<tav::FoundFcPort> readState(const std::string& host);
    std::optional<tav::FoundFcPort> silentPort(const std::string& host) const;
    static bool fca_select(const std::string& entry, const std::vector<std::string>& fcaHosts);

    static std::vector<Json::Value> createJsonStringUsingJsonCpp(
        const std::vector<tavFCDeviceInfo>& ports);
    static void raiseEvents(const std::vector<tav::FCPortLedgers::Change>& changes);
    static void raiseEvent(const tav::FCPortLedgers::Change& change, int eventId);
    bool waitOnPortState(std::size_t limit);
    std::chrono::seconds sinceLastBuild() const;

    tav::ManagerLoop loop_;
    tav::Readiness readiness_;
    tav::InventoryCache<Inventory> cache_;
    tav::FCPortLedgers ports_;                  ///< manager's thread only, as is what follows
    std::optional<tav::Stopwatch> sinceBuild_;  ///< none before the first build
    std::unique_ptr<tav::FCPortQuestions> questions_;
};
