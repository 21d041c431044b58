#include "storage/raid/raid_inventory.h"

#include <iterator>
#include <vector>

#include "storage/ItavStorageController.h"
#include "storage/model/storage_conditions.h"
#include "storage/model/storage_utils.h"

namespace tav {
namespace {

std::string orNotAvailable(const std::string& text) {
    return text.empty() ? notAvailable : text;
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

TAV_RESOURCE_STATE stateOfDrive(std::uint16_t firmwareState) {
    return stateOfText(tavStoreLibInterface::getFWStateString(firmwareState));
}

void describeController(const CTRL_INFO& record, const std::string& pciLocation,
                        tavStorageControllerInfo& info) {
    info.setModel(modelOf(record));
    info.setSerialNumber(orNotAvailable(record.serialNumber));
    info.setFirmwareVersion(orNotAvailable(record.firmwareVersion));
    info.setProtocol(record.interfaceType);
    info.setChipsetID(record.pciId);
    info.setBoardID(record.pciSubsystem);
    info.setPhysicalLocation(controllerLocation(pciLocation));
    info.setDescription(controllerDescription(pciLocation));
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
    disk.setPhysicalLocation(driveLocation(pciLocation, static_cast<int>(record.slotNumber)));
    disk.setState(stateOfText(record.firmwareState));
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
    volume.setState(stateOfText(record.state));
    volume.setHealth(getHealthEnum(record.health));
    return volume;
}

}  // namespace tav
