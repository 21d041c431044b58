#include "storage/raid_inventory.h"

#include <cstddef>
#include <vector>

#include <strings.h>

#include "core/tavUtils.h"
#include "hwlib/tavPhyLoc.h"
#include "storage/ItavStorageController.h"
#include "storage/storage_utils.h"

namespace tav {
namespace {

constexpr const char* refusedLocation = "FFFFFFFFFFFFFF00";  // what cannot be encoded
constexpr const char* noInstance = "NA";

// Where a PCI location is: rack, chassis position and slot.
constexpr std::size_t geoSlot = 2;

std::string orNotAvailable(const std::string& text) {
    return text.empty() ? notAvailable : text;
}

/// The first `count` parts of a place, all of them known; otherwise empty.
std::vector<std::string> placeOf(const std::string& pciLocation, std::size_t count) {
    std::vector<std::string> place = tavUtils().getGeoIDInfo(pciLocation);
    if (place.size() < count) return {};
    place.resize(count);
    for (const std::string& part : place)
        if (part.empty()) return {};
    return place;
}

std::string locationCode(const std::vector<std::string>& place, physloc_type_t type) {
    if (place.empty()) return noLocation;
    std::string code = tavPhyLoc::getPhyLoc(place, type, noInstance);
    return code == refusedLocation ? noLocation : code;
}

std::string driveLocation(const std::string& pciLocation, std::uint32_t slot) {
    constexpr std::uint32_t widestSlot = 255;
    std::vector<std::string> place = placeOf(pciLocation, geoSlot);
    if (place.empty() || slot > widestSlot) return noLocation;
    place.push_back(std::to_string(slot));
    return locationCode(place, PHYSLOC_DRIVE_SLOT);
}

std::string modelOf(const CTRL_INFO& record) {
    const char* const model =
        getStorageControllerModel(record.pciId, record.pciSubsystem, TAV_FAMILY_MEGARAID);
    return model == nullptr ? notAvailable : model;
}

}  // namespace

TAV_RESOURCE_HEALTH getHealthEnum(std::uint32_t code) {
    constexpr TAV_RESOURCE_HEALTH healthTable[] = {TAV_HEALTH_UNKNOWN, TAV_HEALTH_OK,
                                                   TAV_HEALTH_WARNING, TAV_HEALTH_UNKNOWN,
                                                   TAV_HEALTH_CRITICAL};
    return code < std::size(healthTable) ? healthTable[code] : TAV_HEALTH_UNKNOWN;
}

TAV_RESOURCE_STATE resourceStateOf(std::string_view text) {
    const std::string wanted(text);
    for (std::size_t state = 0; state < tavResourceStateMap.size(); ++state) {
        if (::strcasecmp(tavResourceStateMap[state], wanted.c_str()) == 0) {
            return static_cast<TAV_RESOURCE_STATE>(state);
        }
    }
    return TAV_STATE_UNKNOWN;
}

TAV_RESOURCE_STATE stateOfDrive(std::uint16_t firmwareState) {
    return resourceStateOf(tavStoreLibInterface::getFWStateString(firmwareState));
}

void describeController(const CTRL_INFO& record, const std::string& pciLocation,
                        tavStorageControllerInfo& info) {
    info.setModel(modelOf(record));
    info.setSerialNumber(orNotAvailable(record.serialNumber));
    info.setFirmwareVersion(orNotAvailable(record.firmwareVersion));
    info.setProtocol(record.interfaceType);
    info.setChipsetID(record.pciId);
    info.setBoardID(record.pciSubsystem);
    info.setPhysicalLocation(locationCode(placeOf(pciLocation, geoSlot + 1), PHYSLOC_PCIE_SLOT));
    info.setDescription("PCI " + pciLocation + " " + tavUtils().getGeoIDStr(pciLocation));
}

tavDiskInfo toDisk(const PD_INFO& record, const std::string& pciLocation) {
    tavDiskInfo disk;
    disk.setSerialNumber(orNotAvailable(record.serialNumber));
    disk.setModel(orNotAvailable(record.model));
    disk.setPartNumber(orNotAvailable(getDiskPartNumber(record.model)));
    disk.setRevision(orNotAvailable(record.revision));
    disk.setCapacityBytes(record.capacityBytes);
    disk.setMediaType(record.mediaType);
    disk.setProtocol(record.interfaceType);
    disk.setSlot(static_cast<int>(record.slotNumber));
    disk.setPhysicalLocation(driveLocation(pciLocation, record.slotNumber));
    disk.setState(resourceStateOf(record.firmwareState));
    disk.setHealth(getHealthEnum(record.health));
    return disk;
}

tavLogicalDiskInfo toVolume(const LD_INFO& record) {
    tavLogicalDiskInfo volume;
    volume.setLogicalDiskID(std::to_string(record.targetId));
    volume.setDurableName(record.durableName);
    volume.setDeviceName(notAvailable);
    volume.setRAIDLevel(record.raidLevel);
    volume.setCapacityBytes(record.capacityBytes);
    for (const std::string& drive : record.memberDrives)
        volume.addPhysicalDisk(drive);
    volume.setState(resourceStateOf(record.state));
    volume.setHealth(getHealthEnum(record.health));
    return volume;
}

}  // namespace tav
