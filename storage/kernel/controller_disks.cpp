// The part of tavStorageController that keeps its disks: who is there, and what each has become.
#include <utility>

#include "base/StopSignal.h"
#include "core/Log.h"
#include "storage/kernel/controller_lanes.h"
#include "storage/kernel/disk_ledgers.h"
#include "storage/kernel/disk_probe.h"
#include "storage/kernel/tavStorageController.h"
#include "storage/model/storage_location.h"
#include "storage/scsi/scsi_scan.h"
#include "storage/scsi/scsi_turn.h"

using tav::here;

namespace {

constexpr tav::ModuleLog logger{"STOR_CTLR"};

using Lock = std::lock_guard<std::recursive_mutex>;

void logPlace(const std::string& pciLocation, const tavDiskInfo& disk) {
    const tav::RackPlace place = tav::rackPlace(pciLocation);
    logger.debug(here(), "Disk: HBA pciloc=[%s] rack=[%s] upos=[%s] disk slot=[%s] phyloc=[%s]",
                 pciLocation.c_str(), place.rack.c_str(), place.position.c_str(),
                 std::to_string(disk.getSlot()).c_str(), disk.getPhysicalLocation().c_str());
}

}  // namespace

int tavStorageController::discoverPhysicalDiskSlotNumber(tavDiskInfo& disk) {
    disk.setSlot(-1);
    return -1;
}

bool tavStorageController::validatePhysicalDisk(const tavDiskInfo& /*disk*/) {
    return true;
}

void tavStorageController::discoverPhysicalDiskStatus(tavDiskInfo& disk) {
    const tav::DiskJudgement judgement =
        tav::diskStatus(disk, isBeyondTable() ? tav::OtherProtocols::JudgedByAnswers
                                              : tav::OtherProtocols::NotJudged);
    assign(disk, judgement.condition);
    disk.setEventInfoString(judgement.eventInfo);
}

/// Null for none. Under the lock.
tav::DiskLedger* tavStorageController::ledgerAt(const std::string& link) {
    const auto found = diskAt_.find(link);
    return found == diskAt_.end() ? nullptr : &disks_[found->second];
}

void tavStorageController::indexDisks() {
    diskAt_.clear();
    // Behind those that the last discovery found stand those that had gone.
    for (std::size_t index = 0; index < disks_.size(); ++index)
        diskAt_.emplace(disks_[index].record().getOSSCSILink(), index);
}

/// The host may tell its locations later than its disks. False: there is nothing new.
bool tavStorageController::locate(tavDiskInfo& disk) const {
    if (tav::isLocation(disk.getPhysicalLocation())) return false;
    disk.setPhysicalLocation(diskLocation(disk));
    return tav::isLocation(disk.getPhysicalLocation());
}

/// By its place a disk is recognised. Under the lock.
void tavStorageController::locateKnownDisks() {
    for (tav::DiskLedger& ledger : disks_) {
        tavDiskInfo disk = ledger.record();
        if (locate(disk)) ledger.look(std::move(disk));
    }
}

/// What others reach, of the disks that are not listed behind this controller now. Under the lock.
void tavStorageController::letGo(const std::vector<tav::DiskAddress>& stillListed) {
    const auto isListed = [&](const tavDiskInfo& disk) {
        return std::any_of(stillListed.begin(), stillListed.end(), [&](const auto& address) {
            return address.link == disk.getOSSCSILink();
        });
    };
    const auto count = std::erase_if(disks_, [&](const tav::DiskLedger& ledger) {
        return isReachedOtherwise(ledger.record()) && !isListed(ledger.record());
    });
    if (count == 0) return;
    hasChanged_ = true;
    indexDisks();
}

std::optional<tavDiskInfo> tavStorageController::knownDisk(const std::string& link) {
    const Lock held(lock_);
    const tav::DiskLedger* const ledger = ledgerAt(link);
    return ledger == nullptr ? std::nullopt : std::optional(ledger->record());
}

std::vector<tav::DiskAddress> tavStorageController::listDisks() const {
    return tav::scsiDevicesBehind(getPciLocation());
}

bool tavStorageController::isReachedOtherwise(const tavDiskInfo& /*disk*/) const {
    return false;
}

std::string tavStorageController::addressText(const std::string& link) const {
    return "SCSI link: " + link;
}

/// A disk that was known and cannot be opened now is still itself.
std::optional<tavDiskInfo> tavStorageController::examineDisk(
    const tav::DiskAddress& address, const std::optional<tavDiskInfo>& known) {
    const std::string& link = address.link;
    const tav::scsi::Turn turn;
    const tav::GenericNode node = tav::openGenericNode(link);
    if (!node.file.isOpen()) {
        if (node.path.empty()) {
            logger.debug(here(), "%s: Failed to get generic device.", link.c_str());
        } else {
            logger.debug(here(), "%s: Unable to open %s: (%d %d). Skipping device.", link.c_str(),
                         node.path.c_str(), -1, node.error);
        }
        if (!known) return std::nullopt;
        tavDiskInfo unopened = *known;
        discoverPhysicalDiskStatus(unopened);
        return unopened;
    }
    tavDiskInfo disk;
    if (!tav::describeDisk(link, node.file.get(), known ? &*known : nullptr, disk)) {
        return std::nullopt;
    }
    if (isBeyondTable() && disk.getProtocol().empty()) disk.setProtocol("Unknown");
    disk.setATAPort(address.ataPort);
    discoverPhysicalDiskSlotNumber(disk);
    disk.setPhysicalLocation(diskLocation(disk));
    logPlace(getPciLocation(), disk);
    if (!validatePhysicalDisk(disk)) {
        logger.debug(here(), "%s: Not allowed as physical drive during validation.", link.c_str());
        return std::nullopt;
    }
    disk.setOSSGHandle(node.file.get());
    discoverPhysicalDiskStatus(disk);
    disk.setOSSGHandle(-1);
    return disk;
}

int tavStorageController::discoverPhysicalDiskInventory(std::vector<tavDiskInfo>& disks) {
    if (isRemoved()) {
        logger.debug(here(), "%s: Return last known PD inventory for removed controller.",
                     getPciLocation().c_str());
        return getPhysicalDrivesInventory(disks);
    }
    const Lock round(roundLock_);
    const std::string pciLocation = getPciLocation();
    const std::uint32_t chipsetID = getChipsetID();
    const std::uint32_t boardID = getBoardID();
    logger.debug(here(), "Gathering disk inventory for controller @ %s [0x%X, 0x%X] [%d].",
                 pciLocation.c_str(), chipsetID, boardID, static_cast<int>(getPortListSize()));
    const std::vector<tav::DiskAddress> listed = listDisks();
    for (const tav::DiskAddress& address : listed) {
        logger.debug(here(), "%s: Device is presented by controller 0x%X 0x%X @ [%s]",
                     address.link.c_str(), chipsetID, boardID, pciLocation.c_str());
        askDisk(address);
    }
    Examined examined;
    collectAnswers(&examined);
    // What a stop leaves out must not look as if it had vanished.
    if (tav::stopRequested()) return -1;
    enterFound(listed, std::move(examined));
    publishChanges();
    return getPhysicalDrivesInventory(disks);
}

/// What is known of a disk that has not answered yet stands.
void tavStorageController::enterFound(const std::vector<tav::DiskAddress>& listed,
                                      Examined examined) {
    const Lock held(lock_);
    if (isRemoved()) return;
    letGo(listed);
    locateKnownDisks();
    std::vector<tavDiskInfo> found;
    for (const tav::DiskAddress& address : listed) {
        const auto answer = examined.find(address.link);
        std::optional<tavDiskInfo> disk =
            answer == examined.end() ? knownDisk(address.link) : std::move(answer->second);
        if (!disk) continue;
        locate(*disk);
        found.push_back(std::move(*disk));
    }
    found_ = std::move(found);
    synchronizePhysicalDrivesInventory();
    lanes().forgetUnless(
        [&](const std::string& link) { return link.empty() || ledgerAt(link) != nullptr; });
}

int tavStorageController::discoverLogicalDiskInventory(std::vector<tavLogicalDiskInfo>& volumes) {
    return getLogicalDiskInventory(volumes);
}

std::string tavStorageController::diskLocation(const tavDiskInfo& disk) const {
    return tav::driveLocation(getPciLocation(), disk.getSlot());
}

std::string tavStorageController::diskPlace(const tavDiskInfo& disk) const {
    if (tav::isLocation(disk.getPhysicalLocation())) return disk.getPhysicalLocation();
    return disk.getSlot() < 0 ? disk.getOSSCSILink() : std::to_string(disk.getSlot());
}

std::string tavStorageController::vanishedReason(const tavDiskInfo& disk) const {
    return disk.getEventInfoString();
}

std::string tavStorageController::removedReason(const tavDiskInfo& disk) const {
    return disk.getEventInfoString();
}

tav::DiskRegister tavStorageController::diskRegister() {
    return {[this](const tavDiskInfo& disk) { return diskPlace(disk); },
            [this](const tavDiskInfo& disk, const std::string& place) {
                isUntold_ = true;
                logger.info(here(),
                            "%s - %s: Detected new disk at previously-empty location in current "
                            "discovery cycle.",
                            disk.getOSSCSILink().c_str(), place.c_str());
            },
            [this](tavDiskInfo& disk) {
                logger.info(here(),
                            "%s - %s: Disk detected as offline in the current discovery cycle.",
                            disk.getOSSCSILink().c_str(), disk.getPhysicalLocation().c_str());
                disk.setEventInfoString(vanishedReason(disk));
            },
            [this](const tav::DiskLedger& disk, const tavDiskInfo& before,
                   const tav::DiskLedger::Change& change) {
                hasChanged_ = true;
                isUntold_ |= !reportDisk(disk, before, change.before);
            }};
}

void tavStorageController::synchronizePhysicalDrivesInventory() {
    const Lock held(lock_);
    if (!found_) return;
    tav::enter(*std::exchange(found_, std::nullopt), diskRegister(), disks_);
    indexDisks();
    isNewlyBuilt_ = true;
}

void tavStorageController::enterPolledDisk(tavDiskInfo found) {
    tav::DiskLedger* const ledger = ledgerAt(found.getOSSCSILink());
    const bool isOther = ledger == nullptr || samenessOf(ledger->record().getMemory(),
                                                         found.getMemory()) == tav::Sameness::Other;
    if (isOther) return;
    const bool isReplaced = found.getMemory().isReplaced;
    if (found.getCapacityBytes() != ledger->record().getCapacityBytes()) {
        isUntold_ = true;
        invalidates_ = true;
    }
    found.setPhysicalLocation(ledger->record().getPhysicalLocation());
    const auto change = ledger->look(std::move(found));
    invalidates_ |= isReplaced;
    if (!change) return;
    hasChanged_ = true;
    const bool isRaised = reportDisk(*ledger, ledger->record(), change->before);
    isUntold_ |= !isRaised;
    invalidates_ |= isRaised && ledger->now() == tav::running;
}
