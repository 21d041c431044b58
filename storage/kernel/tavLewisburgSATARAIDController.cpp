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

/// By the number of the SCSI host in the name; those without one come first, and stay as they are
/// among themselves.
bool isOfEarlierHost(const std::string& port, const std::string& other) {
    return tav::numberBehind(port, "/host") < tav::numberBehind(other, "/host");
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
        std::stable_sort(ports_.begin(), ports_.end(), isOfEarlierHost);
    }
    return tavStorageController::discoverInventory(info);
}

std::string tavLewisburgSATARAIDController::discoverFirmwareVersion() {
    return getIMSMFirmwareVersion(getPciLocation());
}

int tavLewisburgSATARAIDController::discoverPhysicalDiskSlotNumber(tavDiskInfo& disk) {
    disk.setSlot(getDiskSlotNumberFromATAPort(disk));
    return disk.getSlot() < 0 ? -1 : 0;
}

int tavLewisburgSATARAIDController::getDiskSlotNumberFromATAPort(const tavDiskInfo& disk) const {
    const tavStorageControllerInfo controller = getInventory();
    int base = -1;
    bool isOurs = false;
    for (const tavStorageControllerPortInfo& port : controller.getControllerPortVector()) {
        const int ataPort = port.getATAPort();
        if (ataPort < 0) continue;
        base = base < 0 ? ataPort : std::min(base, ataPort);
        isOurs |= ataPort == disk.getATAPort();
    }
    const std::string link = disk.getOSSCSILink();
    if (!isOurs) {
        logger.debug(here(), "Unable to determine disk slot # from ATA ports. (%s, %s, %s, %d, %d)",
                     getPciLocation().c_str(), link.c_str(), disk.getSerialNumber().c_str(),
                     disk.getATAPort(), base);
        return -1;
    }
    const int slot = disk.getATAPort() - base;
    logger.debug(here(), "Disk %s found @ Slot [%d]; (ATA port: [%d]; ATA port base: [%d])",
                 link.c_str(), slot, disk.getATAPort(), base);
    return slot;
}

std::string tavLewisburgSATARAIDController::diskPlace(const tavDiskInfo& disk) const {
    return tav::isLocation(disk.getPhysicalLocation()) ? disk.getPhysicalLocation()
                                                       : disk.getOSSCSILink();
}

std::string tavLewisburgSATARAIDController::vanishedReason(const tavDiskInfo& disk) const {
    return tav::printed(
        "Disk (SCSI link: %s) detected to be offline in the current discovery "
        "cycle.",
        disk.getOSSCSILink().c_str());
}
