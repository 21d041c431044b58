#include "storage/raid/tavMegaRAIDController.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <utility>

#include "core/Log.h"
#include "storage/SASResourceManager.h"
#include "storage/raid/raid_event_record.h"
#include "storage/raid/raid_inventory.h"
#include "storage/raid/tavSASLSIEvent.h"

using tav::here;

namespace {

constexpr tav::ModuleLog logger{"LSI_CTLR"};

// Events are enabled, and the library reports changes of the controller and of its disks by itself.
constexpr std::uint32_t everythingByEvents = 7;

constexpr int libraryUsable = 1;

constexpr int driveWorksEvent = 540;

bool isKnown(const std::string& text) {
    return !text.empty() && text != tav::notAvailable;
}

bool areKnown(const std::string& one, const std::string& other) {
    return isKnown(one) && isKnown(other);
}

/// Empty for a drive that cannot be told from others.
std::string identityOf(const tavDiskInfo& disk) {
    const std::string serial = disk.getSerialNumber();
    return isKnown(serial) ? serial : std::string();
}

std::string identityOf(const tavLogicalDiskInfo& volume) {
    return volume.getDurableName();
}

template <class Record>
void append(const std::vector<Record>& records, std::vector<Record>& list) {
    list.insert(list.end(), records.begin(), records.end());
}

/// What the last event has reported of a resource; empty for none.
tav::ReportedHealth reportedHealth(const tavStatusInfo* resource) {
    if (resource == nullptr) return std::nullopt;
    return resource->getEventHealth();
}

void setCondition(const tav::RaidEventRule& rule, const TAV_SAS_EVENT_DETAIL& event,
                  tavStatusInfo& resource) {
    if (rule.state || rule.takesNewDriveState) {
        const TAV_RESOURCE_STATE state =
            rule.takesNewDriveState ? tav::stateOfDrive(event.newDriveState) : *rule.state;
        resource.setEventState(state);
        resource.setState(state);
    }
    if (rule.health) {
        resource.setEventHealth(*rule.health);
        resource.setHealth(*rule.health);
    }
}

void report(tav::EventReport line, const TAV_SAS_EVENT_DETAIL& event) {
    if (line != nullptr) line(event);
}

void ask(tav::InventoryRequest request) {
    if (request == tav::InventoryRequest::PushAndInvalidate) {
        SASResourceManager::sendInventorytToRMCOnCacheBuild();
    }
    if (request != tav::InventoryRequest::None) SASResourceManager::invalidateInventoryCache();
}

}  // namespace

std::atomic<bool> tavMegaRAIDController::isLSILibLoaded{false};
std::atomic<bool> tavMegaRAIDController::isAENRegistered{false};
std::atomic<int> tavMegaRAIDController::totalLSICtrls{0};

tavMegaRAIDController::tavMegaRAIDController(const CTRL_INFO& record)
    : controllerId_(record.controllerId) {
    pciLocation_ = record.pciLocation;
    family_ = TAV_FAMILY_MEGARAID;
    tav::describeController(record, pciLocation_, info_);
    info_.setState(TAV_STATE_RUNNING);
    info_.setHealth(TAV_HEALTH_OK);
    info_.setEventState(TAV_STATE_RUNNING);
    info_.setEventHealth(TAV_HEALTH_OK);
    ++totalLSICtrls;
}

int tavMegaRAIDController::discoverInventory(tavStorageControllerInfo& info) {
    if (isRemoved()) return getInventory(info);
    tavStoreLibInterface& library = *tavStoreLibInterface::getInstance();
    if (!isLSILibLoaded) {
        if (library.tavStoreInit() != libraryUsable) {
            logger.error(here(), "Issue occurred in discovering LSI MR inventory.");
            return -1;
        }
        library.cacheBuild("All");
        isLSILibLoaded = true;
    }
    const CTRL_INFO record = library.getControllerInventory(controllerId_);
    const bool isAbsent = record.interfaceType.empty();  // which every record names
    if (isAbsent || !isRecord(record)) {
        logger.warning(here(), "The RAID library does not know the controller [%s] any more.",
                       getInventory().getSerialNumber().c_str());
        return -1;
    }
    const std::lock_guard<std::recursive_mutex> held(lock_);
    // One whose PCI location cannot be read is where it was.
    if (!record.pciLocation.empty()) pciLocation_ = record.pciLocation;
    tav::describeController(record, pciLocation_, info_);
    info = info_;
    return 0;
}

int tavMegaRAIDController::discoverPhysicalDiskInventory(std::vector<tavDiskInfo>& disks) {
    if (isRemoved()) {
        append(getPhysicalDrivesInventory(), disks);
        return 0;
    }
    const std::vector<PD_INFO> records =
        tavStoreLibInterface::getInstance()->getPDInventoryForCtrl(controllerId_);
    const std::string pciLocation = getPciLocation();
    std::vector<tavDiskInfo> fresh;
    fresh.reserve(records.size());
    for (const PD_INFO& record : records)
        fresh.push_back(tav::toDisk(record, pciLocation));

    const std::lock_guard<std::recursive_mutex> held(lock_);
    driveConditions_.carry(fresh, disks_, [](const tavDiskInfo& disk) { return identityOf(disk); });
    disks_ = std::move(fresh);
    append(disks_, disks);
    return 0;
}

int tavMegaRAIDController::discoverLogicalDiskInventory(std::vector<tavLogicalDiskInfo>& volumes) {
    if (isRemoved()) {
        append(getLogicalDiskInventory(), volumes);
        return 0;
    }
    std::vector<tavLogicalDiskInfo> fresh;
    for (const LD_INFO& record :
         tavStoreLibInterface::getInstance()->getLDInventoryForCtrl(controllerId_)) {
        fresh.push_back(tav::toVolume(record));
    }
    const std::lock_guard<std::recursive_mutex> held(lock_);
    volumeConditions_.carry(fresh, volumes_,
                            [](const tavLogicalDiskInfo& volume) { return identityOf(volume); });
    volumes_ = std::move(fresh);
    append(volumes_, volumes);
    return 0;
}

bool tavMegaRAIDController::enableEvents() {
    if (isRemoved()) return false;
    {
        const std::lock_guard<std::recursive_mutex> held(lock_);
        flags_ = everythingByEvents;
    }
    if (!isAENRegistered && isLSILibLoaded) {
        tavSASLSIEvent& events = *tavSASLSIEvent::getInstance();
        isAENRegistered =
            events.RegisterForAEN(handleEvent) == libraryUsable && events.isRegistered();
    }
    return true;
}

void tavMegaRAIDController::processDeviceRemoval() {
    bool last = false;
    {
        const std::lock_guard<std::recursive_mutex> held(lock_);
        if (isRemoved()) return;
        setRemoved();
        last = --totalLSICtrls == 0;
    }
    // Not under the lock: unregistering waits for callbacks, and one of them may wait for the lock.
    if (last && isAENRegistered) {
        logger.debug(here(), "Unregistering AEN for all LSI MegaRAID controllers.");
        tavSASLSIEvent::getInstance()->UnregisterForAEN();
        isAENRegistered = false;
        logger.info(here(), "No more LSI MegaRAID controllers remaining.");
    }
    releaseReference();
}

tavStorageControllerInfo tavMegaRAIDController::getInventory() const {
    const std::lock_guard<std::recursive_mutex> held(lock_);
    return info_;
}

std::vector<tavDiskInfo> tavMegaRAIDController::getPhysicalDrivesInventory() const {
    const std::lock_guard<std::recursive_mutex> held(lock_);
    return disks_;
}

std::vector<tavLogicalDiskInfo> tavMegaRAIDController::getLogicalDiskInventory() const {
    const std::lock_guard<std::recursive_mutex> held(lock_);
    return volumes_;
}

std::string tavMegaRAIDController::getDeviceName() const {
    const std::lock_guard<std::recursive_mutex> held(lock_);
    return deviceName_;
}

void tavMegaRAIDController::setDeviceName(std::string name) {
    const std::lock_guard<std::recursive_mutex> held(lock_);
    deviceName_ = std::move(name);
}

bool tavMegaRAIDController::isRecord(const CTRL_INFO& record) const {
    const std::lock_guard<std::recursive_mutex> held(lock_);
    const std::string serial = info_.getSerialNumber();
    if (areKnown(serial, record.serialNumber)) return serial == record.serialNumber;
    if (areKnown(pciLocation_, record.pciLocation)) return pciLocation_ == record.pciLocation;
    return controllerId_ == record.controllerId;
}

bool tavMegaRAIDController::isConcernedBy(const TAV_SAS_EVENT_DETAIL& event) const {
    const std::string serial = getInventory().getSerialNumber();
    if (areKnown(serial, event.controllerSerial)) return serial == event.controllerSerial;
    return controllerId_ == event.controllerId;
}

void tavMegaRAIDController::analyzeAndGenerateEvent(TAV_SAS_EVENT_DETAIL* event) {
    if (event == nullptr || isRemoved()) return;
    const Consequence consequence = analyze(*event);
    if (consequence.rule == nullptr) return;
    const tav::RaidEventRule& rule = *consequence.rule;
    for (const tav::EventReport line : rule.reports)
        report(line, *event);
    if (rule.raises != 0 && consequence.location.empty()) {
        SASResourceManager::generateEvent(rule.raises, rule.critical, *consequence.record);
    } else if (rule.raises != 0) {
        SASResourceManager::generateEvent(rule.raises, consequence.location, rule.critical,
                                          *consequence.record);
    }
    ask(rule.inventory);
    report(rule.reportAfterwards, *event);
}

tavMegaRAIDController::Consequence tavMegaRAIDController::analyze(
    const TAV_SAS_EVENT_DETAIL& event) {
    const std::lock_guard<std::recursive_mutex> held(lock_);
    if (event.locale == tav::locale::volume) return analyzeVolumeEvent(event);
    if (event.locale == tav::locale::drive) return analyzeDriveEvent(event);
    if (event.locale == tav::locale::controller) return analyzeControllerEvent(event);
    return {};
}

tavMegaRAIDController::Consequence tavMegaRAIDController::analyzeVolumeEvent(
    const TAV_SAS_EVENT_DETAIL& event) {
    tavLogicalDiskInfo* const volume = volumeOf(event);
    Consequence consequence{tav::volumeEventRule(event, reportedHealth(volume))};
    if (consequence.rule == nullptr || volume == nullptr) return consequence;
    setCondition(*consequence.rule, event, *volume);
    if (consequence.rule->raises != 0) {
        tavLogicalDiskInfo reported = *volume;
        reported.setEventInfoString(getAddEventInfo(&event));
        std::vector<tavDiskInfo> drives;
        getPhyDiskListForLD(reported, drives);
        consequence.record =
            std::make_unique<tavLogicalDiskExtInfo>(std::move(reported), std::move(drives));
    }
    return consequence;
}

tavMegaRAIDController::Consequence tavMegaRAIDController::analyzeDriveEvent(
    const TAV_SAS_EVENT_DETAIL& event) {
    tavDiskInfo* const drive = driveOf(event);
    Consequence consequence{tav::driveEventRule(event, reportedHealth(drive))};
    if (consequence.rule == nullptr || drive == nullptr) return consequence;
    setCondition(*consequence.rule, event, *drive);
    if (consequence.rule->raises != 0) {
        auto reported = std::make_unique<tavDiskInfo>(*drive);
        // A drive that works again needs no explanation.
        if (consequence.rule->raises != driveWorksEvent) {
            reported->setEventInfoString(getAddEventInfo(&event));
        }
        consequence.location = reported->getPhysicalLocation();
        consequence.record = std::move(reported);
    }
    return consequence;
}

tavMegaRAIDController::Consequence tavMegaRAIDController::analyzeControllerEvent(
    const TAV_SAS_EVENT_DETAIL& event) {
    Consequence consequence{tav::controllerEventRule(event, info_.getEventHealth())};
    if (consequence.rule == nullptr) return consequence;
    setCondition(*consequence.rule, event, info_);
    if (consequence.rule->raises != 0) {
        auto reported = std::make_unique<tavStorageControllerInfo>(info_);
        reported->setEventInfoString(getAddEventInfo(&event));
        consequence.location = reported->getPhysicalLocation();
        consequence.record = std::move(reported);
    }
    return consequence;
}

tavLogicalDiskInfo* tavMegaRAIDController::volumeOf(const TAV_SAS_EVENT_DETAIL& event) {
    const std::string id = std::to_string(event.volumeTargetId);
    const auto volume = std::find_if(
        volumes_.begin(), volumes_.end(),
        [&](const tavLogicalDiskInfo& candidate) { return candidate.getLogicalDiskID() == id; });
    return volume == volumes_.end() ? nullptr : &*volume;
}

tavDiskInfo* tavMegaRAIDController::driveOf(const TAV_SAS_EVENT_DETAIL& event) {
    const auto find = [this](auto matches) {
        const auto drive = std::find_if(disks_.begin(), disks_.end(), matches);
        return drive == disks_.end() ? nullptr : &*drive;
    };
    tavDiskInfo* drive = nullptr;
    if (isKnown(event.driveSerial)) {
        drive = find([&](const tavDiskInfo& candidate) {
            return candidate.getSerialNumber() == event.driveSerial;
        });
    }
    // A drive that has taken the place of another one is recognised by the place.
    if (drive == nullptr && event.eventCode == tav::driveInsertedCode &&
        event.driveSlot != sasEventNoNumber) {
        drive = find([&](const tavDiskInfo& candidate) {
            return candidate.getSlot() == static_cast<int>(event.driveSlot);
        });
    }
    return drive;
}

void tavMegaRAIDController::getPhyDiskListForLD(const tavLogicalDiskInfo& volume,
                                                std::vector<tavDiskInfo>& disks) const {
    const std::vector<std::string> members = volume.getPhysicalDiskVector();
    const std::lock_guard<std::recursive_mutex> held(lock_);
    disks.clear();
    std::copy_if(disks_.begin(), disks_.end(), std::back_inserter(disks),
                 [&](const tavDiskInfo& disk) {
                     return std::find(members.begin(), members.end(), disk.getSerialNumber()) !=
                            members.end();
                 });
}

std::string tavMegaRAIDController::getAddEventInfo(const TAV_SAS_EVENT_DETAIL* event) {
    std::array<char, 16> code{};
    std::snprintf(code.data(), code.size(), "0x%04x", event->eventCode);
    return "[Msg # " + std::string(code.data()) + "] " + event->description +
           ". Please refer to MegaRAID Software User Guide for further details.";
}
