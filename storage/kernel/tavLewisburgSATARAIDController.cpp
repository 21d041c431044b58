#include "storage/kernel/tavLewisburgSATARAIDController.h"

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

#include "base/printed.h"
#include "core/Log.h"
#include "storage/kernel/imsm_version.h"
#include "storage/model/storage_location.h"
#include "storage/model/storage_utils.h"
#include "storage/scsi/scsi_scan.h"

using tav::here;

namespace {

constexpr tav::ModuleLog logger{"STOR_LB"};

using Lock = std::lock_guard<std::recursive_mutex>;

/// Orders by the number of the SCSI host in the names; those without one come first, and stay as
/// they are among themselves.
template <class Entry, class NameOf>
void orderByHost(std::vector<Entry>& entries, NameOf nameOf) {
    std::stable_sort(entries.begin(), entries.end(), [&](const Entry& a, const Entry& b) {
        return tav::numberBehind(nameOf(a), "/host") < tav::numberBehind(nameOf(b), "/host");
    });
}

}  // namespace

tavLewisburgSATARAIDController::tavLewisburgSATARAIDController(std::uint32_t chipsetID,
                                                               std::uint32_t boardID,
                                                               std::string pciLocation)
    : tavStorageController(chipsetID, boardID, std::move(pciLocation), TAV_FAMILY_INTEL_SATA_RAID) {
}

bool tavLewisburgSATARAIDController::claimDevice(std::uint32_t chipsetID, std::uint32_t boardID,
                                                 const std::string& pciLocation,
                                                 ItavStorageController*& out) {
    if (getStorageControllerModel(chipsetID, boardID, TAV_FAMILY_INTEL_SATA_RAID) == nullptr) {
        return false;
    }
    return claim(new (std::nothrow) tavLewisburgSATARAIDController(chipsetID, boardID, pciLocation),
                 logger, out);
}

int tavLewisburgSATARAIDController::discoverInventory(tavStorageControllerInfo& info) {
    {
        const Lock held(lock_);
        portsOrdered_ = false;
    }
    return tavStorageController::discoverInventory(info);
}

std::string tavLewisburgSATARAIDController::discoverFirmwareVersion() {
    return getIMSMFirmwareVersion(getPciLocation());
}

void tavLewisburgSATARAIDController::computeControllerStatus(TAV_RESOURCE_STATE& state,
                                                             TAV_RESOURCE_HEALTH& health) {
    const Lock held(lock_);
    if (!std::exchange(portsOrdered_, true)) orderPorts();
    tavStorageController::computeControllerStatus(state, health);
}

void tavLewisburgSATARAIDController::orderPorts() {
    orderByHost(ports_, [](const std::string& port) { return port; });
    std::vector<tavStorageControllerPortInfo> records = info_.getControllerPortVector();
    orderByHost(records, [](const auto& port) { return port.getOSInstanceName(); });
    info_.clearControllerPortList();
    for (const tavStorageControllerPortInfo& port : records)
        info_.addControllerPort(port);
}

int tavLewisburgSATARAIDController::discoverPhysicalDiskSlotNumber(tavDiskInfo& disk) {
    disk.setSlot(getDiskSlotNumberFromATAPort(disk));
    return disk.getSlot() < 0 ? -1 : 0;
}

int tavLewisburgSATARAIDController::getDiskSlotNumberFromATAPort(const tavDiskInfo& disk) const {
    const Lock held(lock_);
    int base = -1;
    bool isOurs = false;
    for (std::size_t index = 0; index < info_.getControllerPortListSize(); ++index) {
        const int ataPort = info_.getControllerPort(index).getATAPort();
        if (ataPort < 0) continue;
        base = base < 0 ? ataPort : std::min(base, ataPort);
        isOurs |= ataPort == disk.getATAPort();
    }
    const std::string link = disk.getOSSCSILink();
    if (!isOurs) {
        logger.debug(here(), "Unable to determine disk slot # from ATA ports. (%s, %s, %s, %d, %d)",
                     pciLocation_.c_str(), link.c_str(), disk.getSerialNumber().c_str(),
                     disk.getATAPort(), base);
        return -1;
    }
    const int slot = disk.getATAPort() - base;
    logger.debug(here(), "Disk %s found @ Slot [%d]; (ATA port: [%d]; ATA port base: [%d])",
                 link.c_str(), slot, disk.getATAPort(), base);
    return slot;
}

std::string tavLewisburgSATARAIDController::diskIdentity(const tavDiskInfo& disk) const {
    return tav::isLocation(disk.getPhysicalLocation()) ? disk.getPhysicalLocation()
                                                       : disk.getOSSCSILink();
}

void tavLewisburgSATARAIDController::logUnidentified(const char* /*which*/, std::size_t index,
                                                     const tavDiskInfo& disk) const {
    logger.debug(here(),
                 "Skipping disk @ index %zu due to invalid location info and SCSI link. [%s, %d]",
                 index, disk.getPhysicalLocation().c_str(), disk.getSlot());
}

std::string tavLewisburgSATARAIDController::vanishedReason(const tavDiskInfo& disk) const {
    return tav::printed(
        "Disk (SCSI link: %s) detected to be offline in the current discovery "
        "cycle.",
        disk.getOSSCSILink().c_str());
}
