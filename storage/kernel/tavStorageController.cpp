#include "storage/kernel/tavStorageController.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <unordered_map>
#include <utility>

#include "base/StopSignal.h"
#include "base/Waiting.h"
#include "base/printed.h"
#include "core/Log.h"
#include "core/tavUtils.h"
#include "hwlib/pci/pci.h"
#include "hwlib/sysfs/sysfs_readers.h"
#include "storage/kernel/change_texts.h"
#include "storage/kernel/controller_lanes.h"
#include "storage/kernel/disk_ledgers.h"
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

std::string firstPortAttribute(const std::vector<std::string>& ports, const char* name) {
    return ports.empty() ? "" : portAttribute(ports.front(), name).value_or("");
}

/// The number of the port's ATA port; -1 for none.
int ataPortOf(const std::string& port) {
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

/// The driver of the PCI function that the port belongs to: one or two directories up.
std::string driverOf(const std::string& port) {
    for (const char* const up : {"/device/../driver", "/device/../../driver"}) {
        const std::string driver = tav::linkTargetOf(port + up).value_or("");
        if (!driver.empty()) return driver.substr(driver.rfind('/') + 1);
    }
    return {};
}

std::string orNotAvailable(std::string text) {
    return text.empty() ? tav::notAvailable : std::move(text);
}

/// By the model table, else by the PCI ID database: the names of vendor and device.
std::string modelOf(const tavStorageControllerInfo& controller, std::uint8_t family,
                    const std::string& pciLocation) {
    const char* const model =
        getStorageControllerModel(controller.getChipsetID(), controller.getBoardID(), family);
    if (model != nullptr) return model;
    const PciNodePtr node = PciGetnode_str(pciLocation.c_str());
    if (!node || !node->deviceEntry) return {};
    const std::string vendor = node->vendorEntry ? node->vendorEntry->name + ' ' : "";
    return vendor + node->deviceEntry->name;
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

}  // namespace

tavStorageController::tavStorageController(std::uint32_t chipsetID, std::uint32_t boardID,
                                           std::string pciLocation, std::uint8_t family)
    : pciLocation_(std::move(pciLocation)), family_(family) {
    tavStorageControllerInfo identity;
    identity.setChipsetID(chipsetID);
    identity.setBoardID(boardID);
    controller_.look(std::move(identity));
}

tavStorageController::tavStorageController() = default;
tavStorageController::~tavStorageController() = default;

bool tavStorageController::claimDevice(std::uint32_t chipsetID, std::uint32_t boardID,
                                       const std::string& pciLocation,
                                       ItavStorageController*& out) {
    std::uint8_t family = 0;
    if (getStorageControllerModel(chipsetID, boardID, 0, &family) == nullptr) return false;
    return claim(new (std::nothrow) tavStorageController(chipsetID, boardID, pciLocation, family),
                 logger, out);
}

bool tavStorageController::claimAnyDevice(std::uint32_t chipsetID, std::uint32_t boardID,
                                          const std::string& pciLocation,
                                          ItavStorageController*& out) {
    return claim(new (std::nothrow)
                     tavStorageController(chipsetID, boardID, pciLocation, TAV_FAMILY_OTHER),
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
    return getChipsetID() == chipsetID && getBoardID() == boardID &&
           getPciLocation() == pciLocation;
}

std::uint32_t tavStorageController::getChipsetID() const {
    return getInventory().getChipsetID();
}

std::uint32_t tavStorageController::getBoardID() const {
    return getInventory().getBoardID();
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
    return controller_.record();
}

int tavStorageController::getPhysicalDrivesInventory(std::vector<tavDiskInfo>& disks) const {
    append(getPhysicalDrivesInventory(), disks);
    return 0;
}

std::vector<tavDiskInfo> tavStorageController::getPhysicalDrivesInventory() const {
    const Lock held(lock_);
    std::vector<tavDiskInfo> disks;
    disks.reserve(disks_.size());
    for (const tav::DiskLedger& ledger : disks_)
        disks.push_back(ledger.record());
    return disks;
}

int tavStorageController::getLogicalDiskInventory(std::vector<tavLogicalDiskInfo>& volumes) const {
    append(getLogicalDiskInventory(), volumes);
    return 0;
}

std::vector<tavLogicalDiskInfo> tavStorageController::getLogicalDiskInventory() const {
    return {};
}

int tavStorageController::getHostNumberForControllerPort(std::size_t index) const {
    return tav::numberBehind(getPort(index), "/host");
}

int tavStorageController::getATAPortForControllerPort(std::size_t index) const {
    return ataPortOf(getPort(index));
}

// --- Ports and the controller --------------------------------------------------------------------

std::string tavStorageController::discoverFirmwareVersion() {
    std::string text = firstPortAttribute(getPortVector(), "firmware_revision");
    logger.debug(here(), "%s: SCSI HOST HBA Firmware: %s", getPciLocation().c_str(), text.c_str());
    return text;
}

std::string tavStorageController::discoverSerialNumber() {
    std::string text = firstPortAttribute(getPortVector(), "board_tracer");
    logger.debug(here(), "%s: SCSI HOST HBA Board Tracer: %s", getPciLocation().c_str(),
                 text.c_str());
    return text;
}

std::optional<std::string> tavStorageController::portState(const std::string& port) const {
    return portAttribute(port, "state");
}

void tavStorageController::discoverControllerPortStatus(tavStorageControllerPortInfo& port) {
    const std::string name = port.getOSInstanceName();
    const long before = port.getLastRecoveryTimestamp();
    const tav::PortCondition found =
        tav::portCondition(portState(name), before, static_cast<long>(tav::secondsNow()));
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
    const tav::Condition condition =
        tav::controllerCondition(controller_.record().getControllerPortVector());
    state = condition.state;
    health = condition.health;
}

void tavStorageController::describeController(tavStorageControllerInfo& found) {
    found.setProtocol("SAS/SATA");
    found.setModel(orNotAvailable(modelOf(found, getFamilyFlags(), getPciLocation())));
    found.setFirmwareVersion(orNotAvailable(discoverFirmwareVersion()));
    found.setSerialNumber(orNotAvailable(discoverSerialNumber()));
}

/// All about the controller. A port that was known goes on with the time of its recovery.
tavStorageControllerInfo tavStorageController::examineController(
    tavStorageControllerInfo found, const std::vector<std::string>& ports) {
    const std::string pciLocation = getPciLocation();
    describeController(found);
    found.setPhysicalLocation(tav::controllerLocation(pciLocation));
    found.setDescription(tav::controllerDescription(pciLocation));
    logPlace(pciLocation, found);
    std::unordered_map<std::string, long> recoveries;
    for (const tavStorageControllerPortInfo& port : found.getControllerPortVector())
        recoveries[port.getOSInstanceName()] = port.getLastRecoveryTimestamp();
    found.clearControllerPortList();
    for (const std::string& name : ports) {
        tavStorageControllerPortInfo port;
        port.setOSInstanceName(name);
        port.setATAPort(ataPortOf(name));
        port.setDriverName(driverOf(name));
        port.setLastRecoveryTimestamp(recoveries[name]);
        discoverControllerPortStatus(port);
        found.addControllerPort(port);
    }
    return found;
}

/// The condition of its ports alone.
tavStorageControllerInfo tavStorageController::examinePorts(tavStorageControllerInfo found) {
    for (std::size_t index = 0; index < found.getControllerPortListSize(); ++index) {
        tavStorageControllerPortInfo port = found.getControllerPort(index);
        discoverControllerPortStatus(port);
        found.setControllerPort(index, port);
    }
    return found;
}

/// Takes over a record of the controller, whose condition is not known yet.
void tavStorageController::enterController(tavStorageControllerInfo found) {
    assign(found, controller_.now());
    controller_.look(std::move(found));
    lookAtController();
}

/// Follows what the ports have become.
void tavStorageController::lookAtController() {
    tav::Condition condition;
    computeControllerStatus(condition.state, condition.health);
    const auto change = controller_.look(condition);
    if (!change) return;
    hasChanged_ = true;
    isUntold_ |= !reportController(change->before);
}

/// Takes over a poll's look at the ports.
void tavStorageController::enterPorts(tavStorageControllerInfo found) {
    const tavStorageControllerInfo& known = controller_.record();
    bool hasChanged = false;
    for (std::size_t index = 0; index < found.getControllerPortListSize(); ++index) {
        const tavStorageControllerPortInfo port = found.getControllerPort(index);
        const tav::Condition before = conditionOf(known.getControllerPort(index));
        if (conditionOf(port) == before) continue;
        const tav::ChangeTexts change(conditionOf(port), before);
        logger.info(here(), "%s: Detected port status change. [%s, %s, %s, %s]",
                    port.getOSInstanceName().c_str(), change.state, change.previousState,
                    change.health, change.previousHealth);
        hasChanged = true;
    }
    controller_.look(std::move(found));
    if (hasChanged) lookAtController();
}

int tavStorageController::discoverInventory(tavStorageControllerInfo& info) {
    if (isRemoved()) {
        logger.debug(here(), "%s: Return last known inventory for removed controller.",
                     getPciLocation().c_str());
        return getInventory(info);
    }
    const Lock round(roundLock_);
    noteAcknowledged();
    logger.debug(here(), "Gathering inventory for controller @ %s [0x%X, 0x%X] [%d].",
                 getPciLocation().c_str(), getChipsetID(), getBoardID(),
                 static_cast<int>(getPortListSize()));
    askController();
    collectAnswers();
    const Lock held(lock_);
    info = controller_.record();
    isMissed_ = !isDescribed_;
    return isDescribed_ ? 0 : -1;
}

// --- Lanes ---------------------------------------------------------------------------------------

/// For a question, which may outlast everybody else who uses the controller.
tav::Reference<tavStorageController> tavStorageController::self() {
    return tav::shareReference(*this);
}

tavStorageController::Lanes& tavStorageController::lanes() {
    if (!lanes_) lanes_ = std::make_unique<Lanes>(tav::deviceLanes(), tav::devicePatience);
    return *lanes_;
}

void tavStorageController::askController() {
    lanes().ask("", "its description and its ports",
                [self = self(), known = getInventory(), ports = getPortVector()] {
                    return tav::DeviceAnswer{.controller = self->examineController(known, ports),
                                             .isExamined = true};
                });
}

void tavStorageController::askPorts() {
    lanes().ask(
        "", "the state of its ports",
        [self = self(), known = getInventory()] {
            return tav::DeviceAnswer{.controller = self->examinePorts(known)};
        },
        tav::Awaited::UnlessItHung);
}

void tavStorageController::askDisk(const tav::DiskAddress& address) {
    lanes().ask(
        address.link, "its identity", [self = self(), address, known = knownDisk(address.link)] {
            return tav::DeviceAnswer{.disk = self->examineDisk(address, known), .isExamined = true};
        });
}

void tavStorageController::askDiskStatus(const tavDiskInfo& disk) {
    lanes().ask(
        disk.getOSSCSILink(), "its condition",
        [self = self(), disk = tavDiskInfo(disk)]() mutable {
            tav::lookForBlockDevice(disk);
            self->discoverPhysicalDiskStatus(disk);
            return tav::DeviceAnswer{.disk = std::move(disk)};
        },
        tav::Awaited::UnlessItHung);
}

/// Waits for what has been asked. What comes of it leaves at once.
void tavStorageController::collectAnswers(Examined* examined) {
    lanes().collect(
        tav::TimeLimit(tav::deviceRound),
        [&](const std::string& link, tav::DeviceAnswer answer) {
            take(link, std::move(answer), examined);
        },
        [&] { publishChanges(); });
    noteSilentDisks();
    publishChanges();
}

void tavStorageController::take(const std::string& link, tav::DeviceAnswer answer,
                                Examined* examined) {
    const Lock held(lock_);
    silent_.erase(link);
    if (isRemoved()) return;
    if (link.empty()) {
        takeController(std::move(answer));
    } else if (answer.isExamined && examined != nullptr) {
        (*examined)[link] = std::move(answer.disk);
    } else if (ledgerAt(link) != nullptr) {
        if (answer.disk) enterPolledDisk(std::move(*answer.disk));
    } else if (answer.disk) {
        invalidates_ = true;  // the discovery that asked has not waited for it
    }
}

void tavStorageController::takeController(tav::DeviceAnswer answer) {
    if (answer.isExamined) {
        isDescribed_ = true;
        invalidates_ |= std::exchange(isMissed_, false);
        enterController(std::move(*answer.controller));
    } else if (answer.controller->getControllerPortListSize() ==
               controller_.record().getControllerPortListSize()) {
        enterPorts(std::move(*answer.controller));
    }
}

/// A disk that does not even time out has failed, too.
void tavStorageController::noteSilentDisks() {
    const Lock held(lock_);
    if (isRemoved()) return;
    lanes().forEachUnanswered([this](const std::string& link, const auto& unanswered) {
        if (unanswered.since < tav::silenceIsFailure) return;
        silent_.try_emplace(link, link.empty() ? "controller " + pciLocation_ : "disk " + link,
                            unanswered.what);
        std::optional<tavDiskInfo> disk = knownDisk(link);
        if (!disk || conditionOf(*disk) == tav::offline || conditionOf(*disk) == tav::failed)
            return;
        const long long seconds =
            std::chrono::duration_cast<std::chrono::seconds>(unanswered.since).count();
        disk->setEventInfoString(
            tav::printed("The disk drive (%s) has not answered for %lld seconds. It was asked for "
                         "%s.",
                         addressText(link).c_str(), seconds, unanswered.what.c_str()));
        logger.warning(here(), "%s", disk->getEventInfoString().c_str());
        assign(*disk, tav::failed);
        enterPolledDisk(std::move(*disk));
    });
}

// --- Polling, removal and return -----------------------------------------------------------------

void tavStorageController::poll() {
    if (isRemoved()) return;
    const Lock round(roundLock_);
    noteAcknowledged();
    {
        const Lock held(lock_);
        if (raisesControllerEvents()) askPorts();
        if (raisesDiskEvents()) {
            for (const tav::DiskLedger& ledger : disks_)
                askDiskStatus(ledger.record());
        }
    }
    collectAnswers();
}

void tavStorageController::processDeviceRemoval() {
    {
        const Lock held(lock_);
        if (isRemoved()) return;
        logger.info(here(), "Controller @ [%s] removal processing started.", pciLocation_.c_str());
        setRemoved();
        tavStorageControllerInfo gone = controller_.record();
        for (std::size_t index = 0; index < gone.getControllerPortListSize(); ++index) {
            tavStorageControllerPortInfo port = gone.getControllerPort(index);
            assign(port, tav::offline);
            port.setLastRecoveryTimestamp(0);
            gone.setControllerPort(index, port);
        }
        enterController(std::move(gone));
        letGo({});
        for (tav::DiskLedger& ledger : disks_) {
            tavDiskInfo lost = ledger.record();
            if (ledger.now() != tav::offline) lost.setEventInfoString(removedReason(lost));
            assign(lost, tav::offline);
            const auto change = ledger.look(std::move(lost));
            if (!change) continue;
            hasChanged_ = true;
            isUntold_ |= !reportDisk(ledger, ledger.record(), change->before);
        }
    }
    publishChanges();
    releaseReference();
}

void tavStorageController::processDeviceAddition(ItavStorageController* predecessor) {
    auto* const other = dynamic_cast<tavStorageController*>(predecessor);
    if (other == nullptr || other == this) return;
    const Lock held(lock_);
    const Lock otherHeld(other->lock_);
    controller_ = other->controller_;
    isDescribed_ = other->isDescribed_;
    disks_ = other->disks_;
    indexDisks();
    flags_ = other->flags_;
}
