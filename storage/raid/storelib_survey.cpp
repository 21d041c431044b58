#include "storage/raid/storelib_survey.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <utility>

#include "core/Log.h"

namespace tav::storelib {
namespace {

constexpr ModuleLog logger{"LSI_INTERF"};

constexpr std::uint32_t supportedPciId = 0x005D1000;
constexpr std::uint32_t defaultBlockSize = 512;

template <class Record, class Matches>
const Record* findIn(const std::vector<Record>& records, Matches matches) {
    const auto found = std::find_if(records.begin(), records.end(), matches);
    return found == records.end() ? nullptr : &*found;
}

const PD_INFO* driveOf(const std::vector<PD_INFO>& drives, std::uint32_t deviceId) {
    return findIn(drives, [&](const PD_INFO& drive) { return drive.deviceId == deviceId; });
}

template <class Record>
const std::vector<Record>& listOf(std::uint32_t id,
                                  const std::map<std::uint32_t, std::vector<Record>>& lists) {
    static const auto* const none = new std::vector<Record>;  // outlives every thread
    const auto list = lists.find(id);
    return list == lists.end() ? *none : list->second;
}

bool areTold(const std::string& one, const std::string& other) {
    return !one.empty() && !other.empty();
}

bool isSameController(const CTRL_INFO& one, const CTRL_INFO& other) {
    if (areTold(one.serialNumber, other.serialNumber)) {
        return one.serialNumber == other.serialNumber;
    }
    return !areTold(one.pciLocation, other.pciLocation) || one.pciLocation == other.pciLocation;
}

std::vector<std::string> serialNumbersOf(const SL_PD_IN_LD_LIST_T& members,
                                         const std::vector<PD_INFO>& drives) {
    std::vector<std::string> serials;
    for (std::size_t index = 0; index < countIn(members.deviceIds, members.count); ++index) {
        const PD_INFO* const drive = driveOf(drives, members.deviceIds[index]);
        if (drive != nullptr) serials.push_back(drive->serialNumber);
    }
    return serials;
}

}  // namespace

const CTRL_INFO* Snapshot::controller(std::uint32_t id) const {
    return findIn(controllers,
                  [&](const CTRL_INFO& candidate) { return candidate.controllerId == id; });
}

const std::vector<PD_INFO>& Snapshot::drivesOf(std::uint32_t controllerId) const {
    return listOf(controllerId, drives);
}

const std::vector<LD_INFO>& Snapshot::volumesOf(std::uint32_t controllerId) const {
    return listOf(controllerId, volumes);
}

// --- Controllers ---------------------------------------------------------------------------------

void Survey::readControllers(Snapshot& next) const {
    logger.debug(here(), "Total controllers found: %zu", controllers_.size());
    next.controllers.clear();
    for (const std::uint32_t controller : controllers_)
        if (auto record = readController(controller)) next.controllers.push_back(*record);
}

/// None for one of another model.
std::optional<CTRL_INFO> Survey::readController(std::uint32_t controller) const {
    CTRL_INFO fresh;
    fresh.controllerId = controller & controllerIdMask;
    fresh.interfaceType = "SAS/SATA";
    fresh.serialNumber = readSerialNumber(controller);
    const CTRL_INFO* known = known_.controller(fresh.controllerId);

    const auto record = std::make_unique<_MR_CTRL_INFO>();
    if (commands_.controllerInfo(controller, *record) != success) {
        return known != nullptr && isSameController(*known, fresh) ? *known : fresh;
    }
    fresh.pciId = pciIdOf(*record);
    if (fresh.pciId != supportedPciId) {
        logger.info(here(),
                    "Skipping the controller as vendorID is incorrect.vendorID= \t\t\t\t   "
                    "0x%X,chipsetID= 0x%08X",
                    unsigned{record->vendorId}, fresh.pciId);
        return std::nullopt;
    }
    fresh.pciSubsystem = std::uint32_t{record->subDeviceId} << 16U | record->subVendorId;
    fresh.firmwareVersion = fieldText({record->packageVersion, sizeof record->packageVersion});
    SL_PCI_INFO_T location{};
    if (commands_.pciInfo(controller, location) == success) {
        fresh.pciLocation = pciLocationText(location);
    }
    if (known != nullptr && isSameController(*known, fresh)) {
        if (fresh.serialNumber.empty()) fresh.serialNumber = known->serialNumber;
        if (fresh.pciLocation.empty()) fresh.pciLocation = known->pciLocation;
    }
    return fresh;
}

std::string Survey::readSerialNumber(std::uint32_t controller) const {
    if (!isMegaRaid(controller)) return {};
    std::array<char, safeIdSize> safeId{};
    if (commands_.safeId(controller, safeId.data()) != success) return {};
    _MR_MFC_MFG record{};
    if (commands_.manufacturingRecord(controller, 0, record) != success) return {};
    return fieldText({record.serialNumber, sizeof record.serialNumber});
}

template <class Record>
const std::vector<Record>& Survey::knownOf(
    std::uint32_t id, const std::map<std::uint32_t, std::vector<Record>>& lists,
    const Snapshot& next) const {
    static const auto* const none = new std::vector<Record>;  // outlives every thread
    const CTRL_INFO* const before = known_.controller(id);
    const CTRL_INFO* const now = next.controller(id);
    if (before != nullptr && now != nullptr && !isSameController(*before, *now)) return *none;
    return listOf(id, lists);
}

// --- Drives --------------------------------------------------------------------------------------

void Survey::readDrives(Snapshot& next) const {
    std::map<std::uint32_t, std::vector<PD_INFO>> drives;
    for (const std::uint32_t controller : controllers_) {
        const std::uint32_t id = controller & controllerIdMask;
        drives[id] = readDrives(controller, knownOf(id, known_.drives, next));
    }
    next.drives = std::move(drives);
}

std::vector<PD_INFO> Survey::readDrives(std::uint32_t controller,
                                        const std::vector<PD_INFO>& known) const {
    const auto list = std::make_unique<_MR_PD_LIST>();
    if (const auto status = commands_.driveList(controller, *list, sizeof *list);
        status != success) {
        logger.warning(here(),
                       "The drives of controller [%u] could not be asked for (rval=[0x%x]); the "
                       "%zu known ones stand.",
                       controller & controllerIdMask, status, known.size());
        return known;
    }
    const std::size_t count = countIn(list->entries, list->count);
    logger.debug(here(), "Number of PD found %d", static_cast<int>(list->count));
    std::vector<PD_INFO> drives;
    drives.reserve(count);
    for (std::size_t index = 0; index < count; ++index) {
        const std::uint16_t deviceId = list->entries[index].deviceId;
        const PD_INFO* const before = driveOf(known, deviceId);
        const auto askedAt = LookClock::now();
        _MR_PD_INFO record{};
        if (commands_.driveInfo(controller, deviceId, record) != success) {
            if (before != nullptr) drives.push_back(*before);
            continue;
        }
        auto drive = toDrive(record, deviceId);
        if (!drive) continue;
        drive->askedAt = askedAt;
        const bool isKnownPlace = before != nullptr && before->slotNumber == drive->slotNumber;
        if (drive->serialNumber.empty() && isKnownPlace) {
            drive->serialNumber = before->serialNumber;
        }
        drives.push_back(*std::move(drive));
    }
    return drives;
}

// --- Volumes -------------------------------------------------------------------------------------

void Survey::readVolumes(Snapshot& next) const {
    std::map<std::uint32_t, std::vector<LD_INFO>> volumes;
    for (const std::uint32_t controller : controllers_) {
        const std::uint32_t id = controller & controllerIdMask;
        volumes[id] = readVolumes(controller, next.drivesOf(id), knownOf(id, known_.volumes, next));
    }
    next.volumes = std::move(volumes);
}

std::vector<LD_INFO> Survey::readVolumes(std::uint32_t controller,
                                         const std::vector<PD_INFO>& drives,
                                         const std::vector<LD_INFO>& known) const {
    logger.debug(here(), "Entering buildLDInfo");
    const auto list = std::make_unique<_MR_LD_LIST>();
    if (commands_.volumeList(controller, *list) != success) {
        logger.error(here(),
                     "An Error occurred in gathering list of logical drives from storelib library");
        return known;
    }
    logger.debug(here(), "# of Logical Drives : %d", static_cast<int>(list->count));
    std::vector<LD_INFO> volumes;
    for (std::size_t index = 0; index < countIn(list->entries, list->count); ++index) {
        const std::uint8_t targetId = list->entries[index].targetId;
        const LD_INFO* const before =
            findIn(known, [&](const LD_INFO& volume) { return volume.targetId == targetId; });
        const auto askedAt = LookClock::now();
        _MR_LD_INFO record{};
        if (const auto status = commands_.volumeInfo(controller, targetId, record);
            status != success) {
            logger.warning(here(),
                           "CtrlId [%d]: FireLDInfo failed: (rval=[0x%x], targetId=[0x%x], "
                           "i=[%u], LD count=[%u])",
                           static_cast<int>(controller & controllerIdMask), status,
                           unsigned{targetId}, static_cast<unsigned>(index),
                           static_cast<unsigned>(list->count));
            if (before != nullptr) volumes.push_back(*before);
            continue;
        }
        LD_INFO volume = toVolume(record, defaultBlockSize);
        volume.askedAt = askedAt;
        const bool isKnown = before != nullptr && before->durableName == volume.durableName;
        readMembers(controller, targetId, record, drives, isKnown ? before : nullptr, volume);
        volumes.push_back(std::move(volume));
    }
    return volumes;
}

/// The volume's drives and its size, which is told in blocks of its first drive. `known` is the
/// same volume as it was before, or null.
void Survey::readMembers(std::uint32_t controller, std::uint8_t targetId, const _MR_LD_INFO& record,
                         const std::vector<PD_INFO>& drives, const LD_INFO* known,
                         LD_INFO& volume) const {
    SL_PD_IN_LD_LIST_T members{};
    const bool isTold = commands_.volumeDrives(controller, targetId, members) == success;
    if (isTold) volume.memberDrives = serialNumbersOf(members, drives);
    const auto blockSize = isTold ? readBlockSize(controller, members) : std::nullopt;
    if (blockSize) volume.capacityBytes = capacityOf(record, *blockSize);
    if (known == nullptr) return;
    if (!isTold) volume.memberDrives = known->memberDrives;
    if (!blockSize) volume.capacityBytes = known->capacityBytes;
}

/// None when it could not be asked for.
std::optional<std::uint32_t> Survey::readBlockSize(std::uint32_t controller,
                                                   const SL_PD_IN_LD_LIST_T& members) const {
    if (members.count == 0) return defaultBlockSize;
    _MR_PD_INFO record{};
    if (commands_.driveInfo(controller, members.deviceIds[0], record) != success) {
        return std::nullopt;
    }
    return record.userDataBlockSize == 0 ? defaultBlockSize : record.userDataBlockSize;
}

}  // namespace tav::storelib
