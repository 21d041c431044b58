#include "storage/kernel/tavStorageController.h"

#include <algorithm>
#include <new>
#include <unordered_map>
#include <utility>

#include "base/StopSignal.h"
#include "base/Waiting.h"
#include "core/Log.h"
#include "core/tavUtils.h"
#include "hwlib/sysfs/sysfs_readers.h"
#include "storage/SASResourceManager.h"
#include "storage/kernel/disk_probe.h"
#include "storage/model/storage_location.h"
#include "storage/model/storage_utils.h"
#include "storage/scsi/scsi_scan.h"

using tav::here;

namespace {

constexpr tav::ModuleLog logger{"STOR_CTLR"};

using Lock = std::lock_guard<std::recursive_mutex>;

template <class Record>
void append(const std::vector<Record>& records, std::vector<Record>& list) {
    list.insert(list.end(), records.begin(), records.end());
}

/// The text of an attribute in a port's directory; none when it cannot be read.
std::optional<std::string> portAttribute(const std::string& port, const char* name) {
    const tav::OwnedText text(get_sysfs_str((port + '/' + name).c_str()));
    if (!text) return std::nullopt;
    return std::string(text.get());
}

/// The driver of the PCI function that the port belongs to: one or two directories up.
std::string driverOf(const std::string& port) {
    for (const char* const up : {"/device/../driver", "/device/../../driver"}) {
        const std::string driver = tav::linkTargetOf(port + up).value_or("");
        if (!driver.empty()) return driver.substr(driver.rfind('/') + 1);
    }
    return {};
}

tav::Condition conditionOf(const tavStatusInfo& resource) {
    return {resource.getState(), resource.getHealth()};
}

void assign(tavStatusInfo& resource, const tav::Condition& condition) {
    resource.setState(condition.state);
    resource.setHealth(condition.health);
}

std::string orNotAvailable(std::string text) {
    return text.empty() ? tav::notAvailable : std::move(text);
}

void logPlace(const std::string& pciLocation, const tavStorageControllerInfo& controller) {
    const tav::RackPlace place = tav::rackPlace(pciLocation);
    const std::string location = controller.getPhysicalLocation();
    const std::string description = controller.getDescription();
    if (place.rack.empty()) {
        logger.debug(here(), "pciloc=[%s] phyloc=[%s] Description=[%s]", pciLocation.c_str(),
                     location.c_str(), description.c_str());
        return;
    }
    logger.debug(here(), "pciloc=[%s] rack=[%s] upos=[%s] slot=[%s] phyloc=[%s] Description=[%s]",
                 pciLocation.c_str(), place.rack.c_str(), place.position.c_str(),
                 place.slot.c_str(), location.c_str(), description.c_str());
}

void logPlace(const std::string& pciLocation, const tavDiskInfo& disk) {
    const tav::RackPlace place = tav::rackPlace(pciLocation);
    logger.debug(here(), "Disk: HBA pciloc=[%s] rack=[%s] upos=[%s] disk slot=[%s] phyloc=[%s]",
                 pciLocation.c_str(), place.rack.c_str(), place.position.c_str(),
                 std::to_string(disk.getSlot()).c_str(), disk.getPhysicalLocation().c_str());
}

/// The four display strings of a change, for its log line.
struct Change {
    Change(const tavStatusInfo& current, const tavStatusInfo& previous)
        : state(tav::displayText(current.getState())),
          previousState(tav::displayText(previous.getState())),
          health(tav::displayText(current.getHealth())),
          previousHealth(tav::displayText(previous.getHealth())) {}
    const char *state, *previousState, *health, *previousHealth;
};

}  // namespace

tavStorageController::tavStorageController(std::uint32_t chipsetID, std::uint32_t boardID,
                                           std::string pciLocation, std::uint8_t family)
    : pciLocation_(std::move(pciLocation)), family_(family) {
    info_.setChipsetID(chipsetID);
    info_.setBoardID(boardID);
}

bool tavStorageController::claimDevice(std::uint32_t chipsetID, std::uint32_t boardID,
                                       const std::string& pciLocation,
                                       ItavStorageController*& out) {
    std::uint8_t family = 0;
    if (getStorageControllerModel(chipsetID, boardID, 0, &family) == nullptr) return false;
    return claim(new (std::nothrow) tavStorageController(chipsetID, boardID, pciLocation, family),
                 logger, out);
}

bool tavStorageController::claim(tavStorageController* controller, const tav::ModuleLog& familyLog,
                                 ItavStorageController*& out) {
    if (controller == nullptr) return false;
    familyLog.info(here(), "Claimed device [%s 0x%x 0x%x].", controller->pciLocation_.c_str(),
                   controller->getChipsetID(), controller->getBoardID());
    out = controller;
    return true;
}

// --- Identity and copies -------------------------------------------------------------------------

bool tavStorageController::isMatchingController(std::uint32_t chipsetID, std::uint32_t boardID,
                                                const std::string& pciLocation,
                                                std::uint32_t /*extra*/) {
    const Lock held(lock_);
    return info_.getChipsetID() == chipsetID && info_.getBoardID() == boardID &&
           pciLocation_ == pciLocation;
}

std::uint32_t tavStorageController::getChipsetID() const {
    const Lock held(lock_);
    return info_.getChipsetID();
}

std::uint32_t tavStorageController::getBoardID() const {
    const Lock held(lock_);
    return info_.getBoardID();
}

std::string tavStorageController::getPciLocation() const {
    const Lock held(lock_);
    return pciLocation_;
}

std::vector<std::string> tavStorageController::getPortVector() const {
    const Lock held(lock_);
    return ports_;
}

std::string tavStorageController::getPort(std::size_t index) const {
    const Lock held(lock_);
    return ports_[index];
}

void tavStorageController::setPort(std::size_t index, const std::string& port) {
    const Lock held(lock_);
    ports_[index] = port;
}

void tavStorageController::addPort(const std::string& port) {
    const Lock held(lock_);
    ports_.push_back(port);
}

void tavStorageController::clearPortList() {
    const Lock held(lock_);
    ports_.clear();
}

std::size_t tavStorageController::getPortListSize() const {
    const Lock held(lock_);
    return ports_.size();
}

void tavStorageController::deletePort(std::size_t index) {
    const Lock held(lock_);
    ports_.erase(ports_.begin() + static_cast<std::ptrdiff_t>(index));
}

std::uint8_t tavStorageController::getFamilyFlags() const {
    const Lock held(lock_);
    return family_;
}

int tavStorageController::getInventory(tavStorageControllerInfo& info) const {
    info = getInventory();
    return 0;
}

tavStorageControllerInfo tavStorageController::getInventory() const {
    const Lock held(lock_);
    return info_;
}

int tavStorageController::getPhysicalDrivesInventory(std::vector<tavDiskInfo>& disks) const {
    append(getPhysicalDrivesInventory(), disks);
    return 0;
}

std::vector<tavDiskInfo> tavStorageController::getPhysicalDrivesInventory() const {
    const Lock held(lock_);
    return disks_;
}

int tavStorageController::getLogicalDiskInventory(std::vector<tavLogicalDiskInfo>& volumes) const {
    append(getLogicalDiskInventory(), volumes);
    return 0;
}

std::vector<tavLogicalDiskInfo> tavStorageController::getLogicalDiskInventory() const {
    const Lock held(lock_);
    return volumes_;
}

int tavStorageController::getHostNumberForControllerPort(std::size_t index) const {
    return tav::numberBehind(getPort(index), "/host");
}

int tavStorageController::getATAPortForControllerPort(std::size_t index) const {
    const std::string port = getPort(index);
    const std::optional<std::string> target = tav::linkTargetOf(port);
    if (!target) {
        logger.debug(here(), "Unable to determine ATA port number for %s. readlink failed! (%d)",
                     port.c_str(), errno);
        return -1;
    }
    const int number = tav::numberBehind(*target, "/ata");
    if (number < 0) {
        logger.debug(here(), "No ATA port number found for %s (%s).", port.c_str(),
                     target->c_str());
    }
    return number;
}

// --- Events --------------------------------------------------------------------------------------

bool tavStorageController::enableEvents() {
    const Lock held(lock_);
    if (isRemoved()) return false;
    flags_ |= TAV_EVENTS_ENABLED;
    return true;
}

void tavStorageController::disableEvents() {
    const Lock held(lock_);
    flags_ &= ~std::uint32_t{TAV_EVENTS_ENABLED};
}

bool tavStorageController::raisesControllerEvents() const {
    return (flags_ & (TAV_EVENTS_ENABLED | TAV_CONTROLLER_REPORTS_ITSELF)) == TAV_EVENTS_ENABLED;
}

bool tavStorageController::raisesDiskEvents() const {
    return (flags_ & (TAV_EVENTS_ENABLED | TAV_DISKS_REPORT_THEMSELVES)) == TAV_EVENTS_ENABLED;
}

/// Not under the lock: an event takes as long as the management controller does.
void tavStorageController::raisePendingEvents() {
    std::vector<PendingEvent> events;
    bool invalidates = false;
    {
        const Lock held(lock_);
        events.swap(pendingEvents_);
        invalidates = std::exchange(invalidates_, false);
    }
    for (const PendingEvent& event : events) {
        SASResourceManager::generateEvent(event.eventId, event.location, event.serviceEvent,
                                          *event.record);
    }
    if (invalidates) SASResourceManager::invalidateInventoryCache();
}

void tavStorageController::generateEventOnStatusChange() {
    const std::string location = info_.getPhysicalLocation();
    if (info_.getHealth() == previousInfo_.getHealth() || !tav::isLocation(location) ||
        previousInfo_.getState() == TAV_STATE_UNKNOWN) {
        return;
    }
    const Change change(info_, previousInfo_);
    logger.info(here(),
                "%s: Detected controller status change. [CurrState=%s, PrevState=%s, "
                "CurrHealth=%s, PrevHealth=%s]",
                pciLocation_.c_str(), change.state, change.previousState, change.health,
                change.previousHealth);
    const tav::ControllerTransition* const transition =
        tav::controllerTransition(previousInfo_.getHealth(), info_.getHealth());
    if (transition == nullptr) {
        logger.info(here(),
                    "%s: Event not generated for controller status change. [CurrState=%s, "
                    "PrevState=%s, CurrHealth=%s, PrevHealth=%s]",
                    pciLocation_.c_str(), change.state, change.previousState, change.health,
                    change.previousHealth);
        return;
    }
    info_.setEventInfoString(transition->eventInfo);
    pendingEvents_.push_back({transition->eventId, location, transition->serviceEvent,
                              std::make_unique<tavStorageControllerInfo>(info_)});
}

bool tavStorageController::generateEventOnStatusChange(const tavDiskInfo& current,
                                                       const tavDiskInfo& previous) {
    if (current.getState() == previous.getState()) return false;
    const std::string oldLocation = previous.getPhysicalLocation();
    const std::string newLocation = current.getPhysicalLocation();
    const std::string link = current.getOSSCSILink();
    const Change change(current, previous);
    if (!tav::isLocation(oldLocation) && !tav::isLocation(newLocation)) {
        logger.info(here(),
                    "%s: Invalid physical location detected. [OldLoc=%s, NewLoc=%s, CurrState=%s, "
                    "PrevState=%s, CurrHealth=%s, PrevHealth=%s]",
                    link.c_str(), oldLocation.c_str(), newLocation.c_str(), change.state,
                    change.previousState, change.health, change.previousHealth);
        return false;
    }
    const std::string& location = tav::isLocation(newLocation) ? newLocation : oldLocation;
    logger.info(here(),
                "%s: %s - Detected disk status change. [CurrState=%s, PrevState=%s, CurrHealth=%s, "
                "PrevHealth=%s]",
                link.c_str(), location.c_str(), change.state, change.previousState, change.health,
                change.previousHealth);
    // What was never known cannot have changed.
    const tav::DiskTransition* const transition =
        previous.getState() == TAV_STATE_UNKNOWN
            ? nullptr
            : tav::diskTransition(previous.getState(), current.getState());
    if (transition == nullptr) {
        logger.info(here(), "%s: Event not generated for disk status change.", link.c_str());
        return false;
    }
    pendingEvents_.push_back({transition->eventId, location, transition->serviceEvent,
                              std::make_unique<tavDiskInfo>(current)});
    return true;
}

// --- Ports and the controller --------------------------------------------------------------------

std::string tavStorageController::discoverFirmwareVersion() {
    const Lock held(lock_);
    std::string text =
        ports_.empty() ? "" : portAttribute(ports_.front(), "firmware_revision").value_or("");
    logger.debug(here(), "%s: SCSI HOST HBA Firmware: %s", pciLocation_.c_str(), text.c_str());
    return text;
}

std::string tavStorageController::discoverSerialNumber() {
    const Lock held(lock_);
    std::string text =
        ports_.empty() ? "" : portAttribute(ports_.front(), "board_tracer").value_or("");
    logger.debug(here(), "%s: SCSI HOST HBA Board Tracer: %s", pciLocation_.c_str(), text.c_str());
    return text;
}

void tavStorageController::discoverControllerPortStatus(tavStorageControllerPortInfo& port) {
    const std::string name = port.getOSInstanceName();
    const long before = port.getLastRecoveryTimestamp();
    const tav::PortCondition found = tav::portCondition(portAttribute(name, "state"), before,
                                                        static_cast<long>(tav::secondsNow()));
    if (found.recoverySince != 0 && before == 0) {
        logger.info(here(), "Controller port [%s] went into recovery mode.", name.c_str());
    }
    if (found.condition.state == TAV_STATE_RECOVERY) {
        logger.info(here(), "Controller port [%s] in recovery mode for atleast 60 seconds.",
                    name.c_str());
    }
    assign(port, found.condition);
    port.setLastRecoveryTimestamp(found.recoverySince);
}

void tavStorageController::computeControllerStatus(TAV_RESOURCE_STATE& state,
                                                   TAV_RESOURCE_HEALTH& health) {
    const Lock held(lock_);
    const tav::Condition condition = tav::controllerCondition(info_.getControllerPortVector());
    state = condition.state;
    health = condition.health;
}

/// One record per port; a port that was known goes on with the time of its recovery.
std::vector<tavStorageControllerPortInfo> tavStorageController::discoverPorts() {
    std::unordered_map<std::string, long> recoveries;
    for (const tavStorageControllerPortInfo& port : previousInfo_.getControllerPortVector())
        recoveries[port.getOSInstanceName()] = port.getLastRecoveryTimestamp();
    std::vector<tavStorageControllerPortInfo> found;
    for (std::size_t index = 0; index < ports_.size(); ++index) {
        tavStorageControllerPortInfo& port = found.emplace_back();
        port.setOSInstanceName(ports_[index]);
        port.setATAPort(getATAPortForControllerPort(index));
        port.setDriverName(driverOf(ports_[index]));
        port.setLastRecoveryTimestamp(recoveries[ports_[index]]);
        discoverControllerPortStatus(port);
    }
    return found;
}

int tavStorageController::discoverInventory(tavStorageControllerInfo& info) {
    if (isRemoved()) {
        const Lock held(lock_);
        logger.debug(here(), "%s: Return last known inventory for removed controller.",
                     pciLocation_.c_str());
        info = previousInfo_;
        return 0;
    }
    {
        const Lock held(lock_);
        logger.debug(here(), "Gathering inventory for controller @ %s [0x%X, 0x%X] [%d].",
                     pciLocation_.c_str(), info_.getChipsetID(), info_.getBoardID(),
                     static_cast<int>(ports_.size()));
        const char* const model =
            getStorageControllerModel(info_.getChipsetID(), info_.getBoardID(), family_);
        info_.setProtocol("SAS/SATA");
        info_.setModel(model == nullptr ? tav::notAvailable : model);
        info_.setFirmwareVersion(orNotAvailable(discoverFirmwareVersion()));
        info_.setSerialNumber(orNotAvailable(discoverSerialNumber()));
        info_.setPhysicalLocation(tav::controllerLocation(pciLocation_));
        info_.setDescription(tav::controllerDescription(pciLocation_));
        logPlace(pciLocation_, info_);
        info_.clearControllerPortList();
        for (const tavStorageControllerPortInfo& port : discoverPorts())
            info_.addControllerPort(port);
        tav::Condition condition;
        computeControllerStatus(condition.state, condition.health);
        assign(info_, condition);
        if (raisesControllerEvents()) generateEventOnStatusChange();
        previousInfo_ = info_;
        info = info_;
    }
    raisePendingEvents();
    return 0;
}

// --- Disks ---------------------------------------------------------------------------------------

int tavStorageController::discoverPhysicalDiskSlotNumber(tavDiskInfo& disk) {
    disk.setSlot(-1);
    return -1;
}

bool tavStorageController::validatePhysicalDisk(const tavDiskInfo& /*disk*/) {
    return true;
}

void tavStorageController::discoverPhysicalDiskStatus(tavDiskInfo& disk) {
    bool isReplaced = false;
    const tav::DiskJudgement judgement = tav::diskStatus(disk, isReplaced);
    assign(disk, judgement.condition);
    disk.setEventInfoString(judgement.eventInfo);
    if (isReplaced) {
        const Lock held(lock_);
        invalidates_ = true;
    }
}

/// False for what does not belong into the inventory.
bool tavStorageController::describeDisk(const std::string& link, int ataPort, tavDiskInfo& disk) {
    const tav::GenericNode node = tav::openGenericNode(link);
    if (node.path.empty()) {
        logger.debug(here(), "%s: Failed to get generic device.", link.c_str());
        return false;
    }
    if (!node.file.isOpen()) {
        logger.debug(here(), "%s: Unable to open %s: (%d %d). Skipping device.", link.c_str(),
                     node.path.c_str(), -1, node.error);
        return false;
    }
    if (!tav::describeDisk(link, node.file.get(), disk)) return false;
    disk.setATAPort(ataPort);
    discoverPhysicalDiskSlotNumber(disk);
    disk.setPhysicalLocation(tav::driveLocation(pciLocation_, disk.getSlot()));
    logPlace(pciLocation_, disk);
    if (!validatePhysicalDisk(disk)) {
        logger.debug(here(), "%s: Not allowed as physical drive during validation.", link.c_str());
        return false;
    }
    disk.setOSSGHandle(node.file.get());
    discoverPhysicalDiskStatus(disk);
    disk.setOSSGHandle(-1);
    return true;
}

int tavStorageController::discoverPhysicalDiskInventory(std::vector<tavDiskInfo>& disks) {
    if (isRemoved()) {
        const Lock held(lock_);
        logger.debug(here(), "%s: Return last known PD inventory for removed controller.",
                     pciLocation_.c_str());
        append(previousDisks_, disks);
        return 0;
    }
    {
        const Lock held(lock_);
        logger.debug(here(), "Gathering disk inventory for controller @ %s [0x%X, 0x%X] [%d].",
                     pciLocation_.c_str(), info_.getChipsetID(), info_.getBoardID(),
                     static_cast<int>(ports_.size()));
        std::vector<tavDiskInfo> found;
        for (const tav::ScsiDevice& device : tav::scsiDevicesBehind(pciLocation_)) {
            // What a stop leaves out must not look as if it had vanished.
            if (tav::stopRequested()) return -1;
            logger.debug(here(), "%s: Device is presented by controller 0x%X 0x%X @ [%s]",
                         device.link.c_str(), info_.getChipsetID(), info_.getBoardID(),
                         pciLocation_.c_str());
            tavDiskInfo disk;
            if (describeDisk(device.link, device.ataPort, disk)) found.push_back(std::move(disk));
        }
        if (tav::stopRequested()) return -1;
        disks_ = std::move(found);
        synchronizePhysicalDrivesInventory();
        previousDisks_ = disks_;
        append(disks_, disks);
    }
    raisePendingEvents();
    return 0;
}

int tavStorageController::discoverLogicalDiskInventory(std::vector<tavLogicalDiskInfo>& volumes) {
    return getLogicalDiskInventory(volumes);
}

std::string tavStorageController::diskIdentity(const tavDiskInfo& disk) const {
    if (tav::isLocation(disk.getPhysicalLocation())) return disk.getPhysicalLocation();
    return disk.getSlot() < 0 ? "" : std::to_string(disk.getSlot());
}

void tavStorageController::logUnidentified(const char* which, std::size_t index,
                                           const tavDiskInfo& disk) const {
    logger.debug(here(), "Skipping %s @ index %zu due to invalid location info. [%s, %d]", which,
                 index, disk.getPhysicalLocation().c_str(), disk.getSlot());
}

std::string tavStorageController::vanishedReason(const tavDiskInfo& disk) const {
    return disk.getEventInfoString();
}

void tavStorageController::synchronizePhysicalDrivesInventory() {
    const Lock held(lock_);
    // Of two disks that claim one place the first has it; the other one counts as new there.
    std::unordered_map<std::string, std::size_t> current;
    for (std::size_t index = 0; index < disks_.size(); ++index) {
        const std::string identity = diskIdentity(disks_[index]);
        if (identity.empty()) {
            logUnidentified("disk", index, disks_[index]);
        } else {
            current.emplace(identity, index);
        }
    }
    for (std::size_t index = 0; index < previousDisks_.size(); ++index) {
        const tavDiskInfo& previous = previousDisks_[index];
        const std::string identity = diskIdentity(previous);
        if (identity.empty()) {
            logUnidentified("prev disk", index, previous);
            continue;
        }
        const auto match = current.find(identity);
        if (match == current.end()) {
            keepVanishedDisk(previous);
        } else {
            compareDisk(disks_[match->second], previous);
            current.erase(match);
        }
    }
    for (const auto& [identity, index] : current) {
        logger.info(here(),
                    "%s - %s: Detected new disk at previously-empty location in current discovery "
                    "cycle.",
                    disks_[index].getOSSCSILink().c_str(), identity.c_str());
    }
}

void tavStorageController::keepVanishedDisk(const tavDiskInfo& previous) {
    logger.info(here(), "%s - %s: Disk detected as offline in the current discovery cycle.",
                previous.getOSSCSILink().c_str(), previous.getPhysicalLocation().c_str());
    tavDiskInfo vanished = previous;
    assign(vanished, tav::offline);
    vanished.setEventInfoString(vanishedReason(previous));
    if (raisesDiskEvents()) generateEventOnStatusChange(vanished, previous);
    disks_.push_back(std::move(vanished));
}

/// A disk with another serial number is another disk: the one before is gone, and what has come in
/// its place is compared with an empty one.
void tavStorageController::compareDisk(const tavDiskInfo& current, const tavDiskInfo& previous) {
    if (!raisesDiskEvents()) return;
    const std::string serial = current.getSerialNumber();
    const std::string known = previous.getSerialNumber();
    if (serial == known) {
        generateEventOnStatusChange(current, previous);
        return;
    }
    tavDiskInfo gone = previous;
    assign(gone, tav::offline);
    gone.setEventInfoString(tav::serialChangeReason(serial, known));
    generateEventOnStatusChange(gone, previous);
    generateEventOnStatusChange(current, gone);
}

// --- Polling, removal and return -----------------------------------------------------------------

void tavStorageController::poll() {
    if (isRemoved()) return;
    {
        const Lock held(lock_);
        if (raisesControllerEvents() && pollPorts()) {
            tav::Condition condition;
            computeControllerStatus(condition.state, condition.health);
            assign(info_, condition);
            generateEventOnStatusChange();
            previousInfo_ = info_;
        }
        if (raisesDiskEvents()) pollDisks();
    }
    raisePendingEvents();
}

/// Whether a port has changed.
bool tavStorageController::pollPorts() {
    bool hasChanged = false;
    for (std::size_t index = 0; index < info_.getControllerPortListSize(); ++index) {
        tavStorageControllerPortInfo port = info_.getControllerPort(index);
        const tavStorageControllerPortInfo before = port;
        discoverControllerPortStatus(port);
        info_.setControllerPort(index, port);
        if (conditionOf(port) == conditionOf(before)) continue;
        const Change change(port, before);
        logger.info(here(), "%s: Detected port status change. [%s, %s, %s, %s]",
                    port.getOSInstanceName().c_str(), change.state, change.previousState,
                    change.health, change.previousHealth);
        hasChanged = true;
    }
    return hasChanged;
}

void tavStorageController::pollDisks() {
    const std::size_t known = std::min(disks_.size(), previousDisks_.size());
    for (std::size_t index = 0; index < known && !tav::stopRequested(); ++index) {
        tavDiskInfo& disk = disks_[index];
        tavDiskInfo& previous = previousDisks_[index];
        discoverPhysicalDiskStatus(disk);
        if (tav::stopRequested()) return;  // what it cut short must not be reported
        const bool isRaised = generateEventOnStatusChange(disk, previous);
        if (isRaised && disk.getState() == TAV_STATE_RUNNING) invalidates_ = true;
        assign(previous, conditionOf(disk));
        previous.setEventInfoString(disk.getEventInfoString());
    }
}

void tavStorageController::processDeviceRemoval() {
    {
        const Lock held(lock_);
        if (isRemoved()) return;
        logger.info(here(), "Controller @ [%s] removal processing started.", pciLocation_.c_str());
        setRemoved();
        for (std::size_t index = 0; index < info_.getControllerPortListSize(); ++index) {
            tavStorageControllerPortInfo port = info_.getControllerPort(index);
            assign(port, tav::offline);
            info_.setControllerPort(index, port);
        }
        tav::Condition condition;
        computeControllerStatus(condition.state, condition.health);
        assign(info_, condition);
        if (raisesControllerEvents()) generateEventOnStatusChange();
        previousDisks_.resize(disks_.size());
        for (std::size_t index = 0; index < disks_.size(); ++index) {
            assign(disks_[index], tav::offline);
            if (raisesDiskEvents()) {
                generateEventOnStatusChange(disks_[index], previousDisks_[index]);
            }
        }
        previousInfo_ = info_;
        previousDisks_ = disks_;
    }
    raisePendingEvents();
    releaseReference();
}

void tavStorageController::processDeviceAddition(ItavStorageController* predecessor) {
    auto* const other = dynamic_cast<tavStorageController*>(predecessor);
    if (other == nullptr || other == this) return;
    const Lock held(lock_);
    const Lock otherHeld(other->lock_);
    info_ = other->info_;
    previousInfo_ = other->previousInfo_;
    disks_ = other->disks_;
    previousDisks_ = other->previousDisks_;
    flags_ = other->flags_;
}
