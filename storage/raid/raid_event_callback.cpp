/// The way of an event from the vendor library's call to the registered handler.
#include <algorithm>
#include <exception>
#include <mutex>
#include <optional>
#include <span>
#include <string>

#include "core/Log.h"
#include "storage/raid/raid_event_record.h"
#include "storage/raid/tavSASLSIEvent.h"
#include "storage/raid/tavStoreLibInterface.h"

using tav::here;

namespace {

constexpr tav::ModuleLog logger{"LSI_EVENT_INTERF"};

constexpr int libraryClassOffset = 2;  // the library counts from -2

std::string controllerSerial(std::uint32_t controllerId) {
    const CTRL_INFO controller =
        tavStoreLibInterface::getInstance()->getControllerInventory(controllerId);
    return controller.serialNumber.empty() ? sasEventNotAvailable : controller.serialNumber;
}

TAV_SAS_EVENT_DETAIL translate(const tav::RaidEventRecord& record) {
    TAV_SAS_EVENT_DETAIL event;
    event.eventCode = record.code;
    event.eventClass = static_cast<std::uint32_t>(record.eventClass + libraryClassOffset);
    event.locale = tav::raidLocaleText(record.locale, record.code);
    event.controllerId = record.controllerId;
    event.controllerSerial = controllerSerial(record.controllerId);
    event.description = record.text;
    return event;
}

/// Names the drive by its serial number and the slot that the library knows it in, if it does.
void lookUpDrive(TAV_SAS_EVENT_DETAIL& event) {
    const auto drives =
        tavStoreLibInterface::getInstance()->getPDInventoryForCtrl(event.controllerId);
    const auto drive = std::find_if(drives.begin(), drives.end(), [&](const PD_INFO& candidate) {
        return candidate.deviceId == event.deviceId;
    });
    if (drive == drives.end()) return;
    event.driveSlot = drive->slotNumber;
    if (!drive->serialNumber.empty()) event.driveSerial = drive->serialNumber;
}

void decodeDrive(const tav::RaidEventRecord& record, TAV_SAS_EVENT_DETAIL& event) {
    const auto drive = tav::raidDriveOf(record);
    if (!drive) {
        logger.info(here(),
                    "Ignoring LSI MegaRAID PD-locale event argument type: [%d]; Event code: [0x%x]",
                    record.argumentType, record.code);
        return;
    }
    event.deviceId = drive->deviceId;
    event.driveSlot = drive->slot;
    if (const auto state = tav::raidNewDriveStateOf(record)) event.newDriveState = *state;
    lookUpDrive(event);
}

void decodeVolume(const tav::RaidEventRecord& record, TAV_SAS_EVENT_DETAIL& event) {
    if (const auto volume = tav::raidVolumeOf(record)) {
        event.volumeTargetId = *volume;
        return;
    }
    logger.info(here(),
                "Ignoring LSI MegaRAID LD-locale event argument type: [%d]; Event code: [0x%x]",
                record.argumentType, record.code);
}

void decodeArgument(const tav::RaidEventRecord& record, TAV_SAS_EVENT_DETAIL& event) {
    if (event.locale == tav::locale::drive) decodeDrive(record, event);
    if (event.locale == tav::locale::volume) decodeVolume(record, event);
}

void dispatch(const tav::RaidEventRecord& record) {
    TAV_SAS_EVENT_DETAIL event = translate(record);
    decodeArgument(record, event);
    tavStoreLibInterface::getInstance()->cacheBuild(event.locale);
    // Where a drive has taken the place of another one, it is the one that the event names.
    if (event.deviceId != sasEventNoNumber) lookUpDrive(event);
    if (const auto handler = tavSASLSIEvent::_tavSASFunc.load()) handler(&event);
}

/// Held while an event is handled: they stay in order, and none waits for the cache that another
/// one is building. Nobody but the callbacks takes it.
std::mutex& dispatchLock() {
    static std::mutex* const lock = new std::mutex;  // outlives every thread
    return *lock;
}

}  // namespace

void AENCallBack(_SL_EVENT_DETAIL_T* notification) {
    const tavRemoveLockEx::Callback callback(tavSASLSIEvent::epRemoveLock);
    if (!callback.mayRun() || notification == nullptr) return;
    try {
        const std::lock_guard<std::mutex> held(dispatchLock());
        if (const auto record = tav::decodeRaidEvent(std::as_bytes(std::span(notification, 1)))) {
            dispatch(*record);
        }
    } catch (const std::exception& error) {
        logger.error(here(), "An event of a RAID controller is lost: %s", error.what());
    }
}
