#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/Ledger.h"
#include "core/Unanswered.h"
#include "storage/ItavStorageController.h"
#include "storage/model/storage_conditions.h"

namespace tav {
class ModuleLog;
struct DeviceAnswer;
struct DiskRegister;
template <class Key, class Answer>
class LaneGroup;
}  // namespace tav

/// What reports changes of a controller and its disks, as a set of flags.
enum tavStorageControllerFlags : std::uint32_t {
    TAV_CONTROLLER_REPORTS_ITSELF = 1,  ///< controller and ports are not polled for events
    TAV_DISKS_REPORT_THEMSELVES = 2,    ///< disks are not polled for events
    TAV_EVENTS_ENABLED = 4,
};

/// A storage controller as the kernel's SCSI layer shows it: its SCSI hosts are its ports, and the
/// disks behind them are asked with SCSI and ATA commands. The base of all families.
///
/// Reached by any thread; discoveries and polls take turns. Its ports and each of its disks are
/// asked in lanes of their own (storage/kernel/controller_lanes.h), so that no call waits for one
/// that hangs for longer than a round lasts. One recursive lock guards the inventory and the flags;
/// it is not held while ports and disks are asked, an event is raised or the manager is called.
class TAV_API tavStorageController : public ItavStorageController {
 public:
    /// Claims a PCI function of which the model table knows any family. The claimed controller
    /// holds one reference, for the caller. False for no claim; `out` is left alone then.
    static bool claimDevice(std::uint32_t chipsetID, std::uint32_t boardID,
                            const std::string& pciLocation, ItavStorageController*& out);

    /// Claims any PCI function; its model is the name that the PCI ID database has for it.
    static bool claimAnyDevice(std::uint32_t chipsetID, std::uint32_t boardID,
                               const std::string& pciLocation, ItavStorageController*& out);

    /// What is found is appended to the lists. 0; the last known inventory of a removed one. -1 of
    /// a controller that has not answered yet, and of drives when the thread is asked to stop.
    int discoverInventory(tavStorageControllerInfo& info) override;
    int discoverPhysicalDiskInventory(std::vector<tavDiskInfo>& disks) override;
    int discoverLogicalDiskInventory(std::vector<tavLogicalDiskInfo>& volumes) override;
    bool isMatchingController(std::uint32_t chipsetID, std::uint32_t boardID,
                              const std::string& pciLocation, std::uint32_t extra) override;
    bool enableEvents() override;
    bool isEventsEnabled() override { return true; }
    void disableEvents() override;
    void poll() override;
    void processDeviceRemoval() override;
    void processDeviceAddition(ItavStorageController* predecessor) override;

    virtual std::uint32_t getChipsetID() const;
    virtual std::uint32_t getBoardID() const;
    virtual std::string getPciLocation() const;
    /// Ports are sysfs paths ("/sys/class/scsi_host/host3"); indices must be below their number.
    virtual std::vector<std::string> getPortVector() const;
    virtual std::string getPort(std::size_t index) const;
    virtual void setPort(std::size_t index, const std::string& port);
    virtual void addPort(const std::string& port);
    virtual void clearPortList();
    virtual std::size_t getPortListSize() const;
    virtual void deletePort(std::size_t index);
    virtual std::uint8_t getFamilyFlags() const;

    /// Copies of what was last found. The forms with a list append to it; 0.
    virtual int getInventory(tavStorageControllerInfo& info) const;
    virtual tavStorageControllerInfo getInventory() const;
    virtual int getPhysicalDrivesInventory(std::vector<tavDiskInfo>& disks) const;
    virtual std::vector<tavDiskInfo> getPhysicalDrivesInventory() const;
    virtual int getLogicalDiskInventory(std::vector<tavLogicalDiskInfo>& volumes) const;
    virtual std::vector<tavLogicalDiskInfo> getLogicalDiskInventory() const;

    /// The kernel's numbers of a port's SCSI host and ATA port; -1 for none.
    virtual int getHostNumberForControllerPort(std::size_t index) const;
    virtual int getATAPortForControllerPort(std::size_t index) const;

    /// Empty where the controller tells none.
    virtual std::string discoverFirmwareVersion();
    virtual std::string discoverSerialNumber();
    /// Brings the port's state, health and time of recovery up to date.
    virtual void discoverControllerPortStatus(tavStorageControllerPortInfo& port);
    /// Stores the disk's slot in its record, -1 where it is not known; 0, or -1 then.
    virtual int discoverPhysicalDiskSlotNumber(tavDiskInfo& disk);
    /// Brings the disk's state, health and their reason up to date.
    virtual void discoverPhysicalDiskStatus(tavDiskInfo& disk);
    /// Whether the disk belongs into the inventory.
    virtual bool validatePhysicalDisk(const tavDiskInfo& disk);
    virtual void computeControllerStatus(TAV_RESOURCE_STATE& state, TAV_RESOURCE_HEALTH& health);
    /// Takes over the disks that a discovery has found, compared with those before, and keeps what
    /// has vanished.
    virtual void synchronizePhysicalDrivesInventory();

 protected:
    /// An event that is raised once the lock has been released.
    struct PendingEvent {
        int eventId;
        std::string location;
        bool serviceEvent;
        std::unique_ptr<tavInventoryBase> record;
        std::string link;          ///< the disk's; empty for the controller
        tav::Condition condition;  ///< what it tells
    };

    tavStorageController();
    tavStorageController(std::uint32_t chipsetID, std::uint32_t boardID, std::string pciLocation,
                         std::uint8_t family);
    ~tavStorageController() override;

    /// Hands a new controller to its factory; the line about it goes to the log of its family.
    static bool claim(tavStorageController* controller, const tav::ModuleLog& familyLog,
                      ItavStorageController*& out);

    /// The code of a disk's location, as far as the host knows it now.
    virtual std::string diskLocation(const tavDiskInfo& disk) const;
    /// Where a disk is recognised in the next discovery, together with its serial number.
    virtual std::string diskPlace(const tavDiskInfo& disk) const;
    /// Why a disk that was not found any more is offline; empty leaves it as it is.
    virtual std::string vanishedReason(const tavDiskInfo& disk) const;
    /// The same of a disk whose controller is gone.
    virtual std::string removedReason(const tavDiskInfo& disk) const;

    // What differs where the kernel shows a controller otherwise than as SCSI hosts.

    /// Fills in what the controller is: not where it sits, nor its ports. In its lane.
    virtual void describeController(tavStorageControllerInfo& found);
    /// Where the kernel lists disks behind the controller now, in their order. Asks no device.
    virtual std::vector<tav::DiskAddress> listDisks() const;
    /// All about one disk; none for what does not belong into the inventory. `known` is what is
    /// known at that address. In the disk's lane.
    virtual std::optional<tavDiskInfo> examineDisk(const tav::DiskAddress& address,
                                                   const std::optional<tavDiskInfo>& known);
    /// Whether a disk that this controller does not reach any more is reached through another one.
    /// It belongs to that one then, and has not gone.
    virtual bool isReachedOtherwise(const tavDiskInfo& disk) const;
    /// How texts name a disk by its address: "SCSI link: 0:0:0:0".
    virtual std::string addressText(const std::string& link) const;
    /// What an event says about a change of the controller's health; `now` is its new state.
    virtual std::string controllerEventInfo(const tav::ControllerTransition& transition,
                                            TAV_RESOURCE_STATE now) const;
    /// What the kernel says of a port, in the words for the states of SCSI hosts; none when it
    /// cannot be read.
    virtual std::optional<std::string> portState(const std::string& port) const;

    mutable std::recursive_mutex lock_;  ///< guards what follows
    std::string pciLocation_;
    std::vector<std::string> ports_;
    std::uint8_t family_ = 0;
    std::uint32_t flags_ = 0;

 private:
    using DiskEvents = std::vector<PendingEvent>;

    bool isBeyondTable() const;
    bool raisesControllerEvents() const;
    bool raisesDiskEvents() const;
    using Lanes = tav::LaneGroup<std::string, tav::DeviceAnswer>;
    using Examined = std::map<std::string, std::optional<tavDiskInfo>>;

    tav::Reference<tavStorageController> self();
    Lanes& lanes();
    void askController();
    void askPorts();
    void askDisk(const tav::DiskAddress& address);
    void askDiskStatus(const tavDiskInfo& disk);
    void collectAnswers(Examined* examined = nullptr);
    void take(const std::string& link, tav::DeviceAnswer answer, Examined* examined);
    void takeController(tav::DeviceAnswer answer);
    void noteSilentDisks();

    tavStorageControllerInfo examineController(tavStorageControllerInfo found,
                                               const std::vector<std::string>& ports);
    tavStorageControllerInfo examinePorts(tavStorageControllerInfo found);
    void enterController(tavStorageControllerInfo found);
    void enterPorts(tavStorageControllerInfo found);
    void lookAtController();
    bool reportController(const tav::Condition& before);
    bool reportDisk(const tav::Ledger<tavDiskInfo>& ledger, const tavDiskInfo& previous,
                    const tav::Condition& before);
    tav::Ledger<tavDiskInfo>* ledgerAt(const std::string& link);
    void indexDisks();
    bool locate(tavDiskInfo& disk) const;
    void locateKnownDisks();
    void letGo(const std::vector<tav::DiskAddress>& stillListed);
    std::optional<tavDiskInfo> knownDisk(const std::string& link);
    tav::DiskRegister diskRegister();
    void enterFound(const std::vector<tav::DiskAddress>& listed, Examined examined);
    void enterPolledDisk(tavDiskInfo found);
    void publishChanges();
    void noteReported(const PendingEvent& event);
    void noteAcknowledged();

    std::recursive_mutex roundLock_;  ///< one discovery or poll at a time; before the other lock
    std::unique_ptr<Lanes> lanes_;    ///< of whoever holds the round
    std::map<std::string, tav::Unanswered> silent_;  ///< by SCSI address; "" is itself

    // Under the lock, too. What the controller and its ports are, what each disk is.
    tav::Ledger<tavStorageControllerInfo> controller_{tavStorageControllerInfo()};
    bool isDescribed_ = false;  ///< a discovery has been answered
    bool isMissed_ = false;     ///< by a discovery that has not waited for its answer
    std::vector<tav::Ledger<tavDiskInfo>> disks_;
    std::unordered_map<std::string, std::size_t> diskAt_;  ///< the disk of each SCSI address
    std::optional<std::vector<tavDiskInfo>> found_;        ///< by a discovery, not yet taken over
    DiskEvents pendingEvents_;
    bool hasChanged_ = false;    ///< so that the published inventory does not say the same any more
    bool isUntold_ = false;      ///< something has changed of which no event tells
    bool isNewlyBuilt_ = false;  ///< a discovery's result, published before the next poll
    std::uint64_t toldBy_ = 0;   ///< the inventory that tells all of this; 0 for none
    bool invalidates_ = false;   ///< the manager is to look at everything anew
};
