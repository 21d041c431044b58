#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "rmc/tavEventHandler.h"
#include "storage/SASResourceManager.h"
#include "storage/kernel/tavStorageController.h"
#include "storage/raid/raid_event_rules.h"
#include "storage/raid/raid_ledgers.h"
#include "storage/raid/tavStoreLibInterface.h"

/// A MegaRAID controller: answers from the vendor library's cache and decides what becomes of the
/// library's events.
///
/// The storage manager's thread discovers; events come on the library's threads. The controller's
/// lock guards inventory and conditions; neither the library nor the storage manager is called
/// while it is held (docs/architecture.md).
class TAV_API tavMegaRAIDController : public tavStorageController {
 public:
    explicit tavMegaRAIDController(const CTRL_INFO& record);

    /// Negative when the library cannot be used or does not know the controller (any more).
    int discoverInventory(tavStorageControllerInfo& info) override;
    /// Drives and volumes are appended: the manager gathers those of all controllers in one list.
    int discoverPhysicalDiskInventory(std::vector<tavDiskInfo>& disks) override;
    int discoverLogicalDiskInventory(std::vector<tavLogicalDiskInfo>& volumes) override;

    /// Registers for the events of all controllers unless those of this one come already. False
    /// only for a controller that has been removed.
    bool enableEvents() override;
    /// Whether this controller's own events come.
    bool isEventsEnabled() override;
    /// The registration serves all controllers: it ends with the last of them.
    void disableEvents() override {}
    /// The library reports changes by itself.
    void poll() override {}
    void processDeviceRemoval() override;
    void processDeviceAddition(ItavStorageController*) override {}

    tavStorageControllerInfo getInventory() const override;
    std::vector<tavDiskInfo> getPhysicalDrivesInventory() const override;
    std::vector<tavLogicalDiskInfo> getLogicalDiskInventory() const override;
    using tavStorageController::getInventory;
    using tavStorageController::getLogicalDiskInventory;
    using tavStorageController::getPhysicalDrivesInventory;

    virtual std::string getDeviceName() const;
    virtual void setDeviceName(std::string name);
    /// Whether the last discovery of controllers has found this one.
    virtual bool getDeviceDetected() const { return detected_; }
    virtual void setDeviceDetected(bool detected) { detected_ = detected; }

    /// The library's number of the controller, which may change from discovery to discovery.
    std::uint32_t getControllerID() const { return controllerId_; }
    void setControllerID(std::uint32_t id) { controllerId_ = id; }

    /// Whether the library's record is of this controller: by the serial number, or by the PCI
    /// location, or by its number, whichever is the first that both are known of.
    bool isRecord(const CTRL_INFO& record) const;
    /// Whether the event is of this controller.
    bool isConcernedBy(const TAV_SAS_EVENT_DETAIL& event) const;

    /// Changes the conditions of the resource that the event names, and raises what the tables say.
    /// Library's threads.
    void analyzeAndGenerateEvent(TAV_SAS_EVENT_DETAIL* event);

    /// What the raised events say of the firmware's.
    static std::string getAddEventInfo(const TAV_SAS_EVENT_DETAIL* event);

    /// `disks` receives the controller's drives that are members of the volume.
    void getPhyDiskListForLD(const tavLogicalDiskInfo& volume,
                             std::vector<tavDiskInfo>& disks) const;

    static std::atomic<bool> isLSILibLoaded;
    static std::atomic<bool> isAENRegistered;  ///< of some controllers at least
    static std::atomic<int> totalLSICtrls;     ///< controllers that have not been removed

 protected:
    ~tavMegaRAIDController() override = default;

 private:
    using Controller = tav::RaidResource<tavStorageControllerInfo>;
    using Drives = tav::RaidResources<tavDiskInfo>;
    using Volumes = tav::RaidResources<tavLogicalDiskInfo>;

    /// What is left to be done about an event once the lock has been released.
    struct Consequence {
        const tav::RaidEventRule* rule = nullptr;
        bool changesCondition = false;
        std::unique_ptr<tavInventoryBase> record{};  ///< what is raised is about it
        std::string location{};                      ///< of the record; empty for volumes
        tav::Condition condition{};                  ///< that the event tells of
    };

    /// Take over what the library's cache holds; whether that differs from what they had before.
    bool lookAtDrives(Drives::Gone gone);
    bool lookAtVolumes(Volumes::Gone gone);
    bool look(const TAV_SAS_EVENT_DETAIL& event);
    void publish();
    void noteAcknowledged();
    void noteUntold();
    static tav::EventOutcome raise(const Consequence& consequence);
    Consequence analyze(const TAV_SAS_EVENT_DETAIL& event);
    Consequence analyzeVolumeEvent(const TAV_SAS_EVENT_DETAIL& event);
    Consequence analyzeDriveEvent(const TAV_SAS_EVENT_DETAIL& event);
    Consequence analyzeControllerEvent(const TAV_SAS_EVENT_DETAIL& event);
    void noteReported(const TAV_SAS_EVENT_DETAIL& event, const tav::Condition& condition);
    Drives::Entry* driveOf(const TAV_SAS_EVENT_DETAIL& event);
    Volumes::Entry* volumeOf(const TAV_SAS_EVENT_DETAIL& event);

    std::atomic<std::uint32_t> controllerId_;
    std::atomic<bool> detected_{true};
    std::string deviceName_;
    Controller controller_;
    Drives drives_;             ///< by serial number, and by device id
    Volumes volumes_;           ///< by durable name, and by target id
    bool hasDrives_ = false;    ///< discovered once
    bool hasVolumes_ = false;   ///< discovered once
    std::uint64_t toldBy_ = 0;  ///< the inventory that tells what the last event has made; 0: none
    /// The same of an event that has come during a build; null: none.
    SASResourceManager::ToldBy toldByNextBuild_;
};

/// The handler of the library's events: gives the event to the controller it is about.
TAV_API void handleEvent(TAV_SAS_EVENT_DETAIL* event);
