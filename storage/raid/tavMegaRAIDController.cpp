#include "storage/raid/tavMegaRAIDController.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <utility>

#include "core/Log.h"
#include "rmc/tavJsonAggregator.h"
#include "storage/SASResourceManager.h"
#include "storage/raid/raid_event_record.h"
#include "storage/raid/raid_inventory.h"
#include "storage/raid/storelib_survey.h"
#include "storage/raid/tavSASLSIEvent.h"

using tav::here;

namespace {

constexpr tav::ModuleLog logger{"STOR_MR"};

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

/// What the library tells of the controller, which is no condition: events alone know it.
tavStorageControllerInfo described(const CTRL_INFO& record, const std::string& pciLocation) {
    tavStorageControllerInfo info;
    tav::describeController(record, pciLocation, info);
    assign(info, tav::running);
    return info;
}

std::vector<tav::FoundRaidResource<tavDiskInfo>> disksOf(const std::vector<PD_INFO>& records,
                                                         const std::string& pciLocation) {
    std::vector<tav::FoundRaidResource<tavDiskInfo>> found;
    found.reserve(records.size());
    for (const PD_INFO& record : records) {
        found.push_back({record.deviceId, record.serialNumber, tav::toDisk(record, pciLocation),
                         record.askedAt});
    }
    return found;
}

std::vector<tav::FoundRaidResource<tavLogicalDiskInfo>> volumesOf(
    const std::vector<LD_INFO>& records) {
    std::vector<tav::FoundRaidResource<tavLogicalDiskInfo>> found;
    found.reserve(records.size());
    for (const LD_INFO& record : records) {
        found.push_back(
            {record.targetId, record.durableName, tav::toVolume(record), record.askedAt});
    }
    return found;
}

template <class Record>
void append(const std::vector<Record>& records, std::vector<Record>& list) {
    list.insert(list.end(), records.begin(), records.end());
}

/// What the event says of a resource that is in the condition `now`.
tav::Condition saidBy(const tav::RaidEventRule& rule, const TAV_SAS_EVENT_DETAIL& event,
                      tav::Condition now) {
    if (rule.state) now.state = *rule.state;
    if (rule.takesNewDriveState) now.state = tav::stateOfDrive(event.newDriveState);
    if (rule.health) now.health = *rule.health;
    return now;
}

tav::RaidNews newsOf(const tav::RaidEventRule& rule, const TAV_SAS_EVENT_DETAIL& event,
                     const tav::Condition& now) {
    return {saidBy(rule, event, now), event.heardAt, rule.isShown};
}

using FindRule = const tav::RaidEventRule* (*)(const TAV_SAS_EVENT_DETAIL&, tav::ReportedHealth);

/// The row that counts for the resource, which is null when it is not known.
template <class Entry>
const tav::RaidEventRule* ruleFor(const Entry* entry, FindRule findRule,
                                  const TAV_SAS_EVENT_DETAIL& event) {
    if (entry == nullptr) return findRule(event, std::nullopt);
    const auto& resource = entry->resource;
    const tav::RaidEventRule* const rule = findRule(event, resource.reportedHealth());
    if (rule == nullptr) return nullptr;
    const tav::RaidNews news = newsOf(*rule, event, resource.now());
    return resource.hasLeftBehind(news) ? findRule(event, news.said.health) : rule;
}

/// Lets a resource hear the event; returns whether its condition is another one afterwards. Where
/// the RMC knows already what the event says, but an event that it did not get has said otherwise
/// meanwhile, the condition follows in silence.
template <class Record>
bool hear(tav::RaidResource<Record>& resource, const tav::RaidEventRule& rule, FindRule findRule,
          const TAV_SAS_EVENT_DETAIL& event) {
    const tav::Condition now = resource.now();
    const tav::RaidEventRule* decisive = &rule;
    if (rule.reported && *rule.reported != now.health) decisive = findRule(event, now.health);
    return decisive != nullptr && resource.hear(newsOf(*decisive, event, now));
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
    : controllerId_(record.controllerId),
      controller_(described(record, record.pciLocation), tav::LookClock::now()) {
    pciLocation_ = record.pciLocation;
    family_ = TAV_FAMILY_MEGARAID;
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
    controller_.look(described(record, pciLocation_), tav::LookClock::now());
    info = controller_.record();
    return 0;
}

int tavMegaRAIDController::discoverPhysicalDiskInventory(std::vector<tavDiskInfo>& disks) {
    if (!isRemoved() && lookAtDrives(Drives::Gone::Leave)) {
        SASResourceManager::sendInventorytToRMCOnCacheBuild();
    }
    append(getPhysicalDrivesInventory(), disks);
    return 0;
}

int tavMegaRAIDController::discoverLogicalDiskInventory(std::vector<tavLogicalDiskInfo>& volumes) {
    if (!isRemoved() && lookAtVolumes(Volumes::Gone::Leave)) {
        SASResourceManager::sendInventorytToRMCOnCacheBuild();
    }
    append(getLogicalDiskInventory(), volumes);
    return 0;
}

bool tavMegaRAIDController::lookAtDrives(Drives::Gone gone) {
    noteAcknowledged();  // before what is found anew makes all of it untold
    const auto snapshot = tavStoreLibInterface::getInstance()->snapshot();
    auto found = disksOf(snapshot->drivesOf(controllerId_), getPciLocation());
    const std::lock_guard<std::recursive_mutex> held(lock_);
    const bool isFirst = !std::exchange(hasDrives_, true);
    const bool hasChanged = drives_.look(std::move(found), gone);
    if (hasChanged) noteUntold();
    return hasChanged && !isFirst;
}

bool tavMegaRAIDController::lookAtVolumes(Volumes::Gone gone) {
    noteAcknowledged();  // before what is found anew makes all of it untold
    const auto snapshot = tavStoreLibInterface::getInstance()->snapshot();
    auto found = volumesOf(snapshot->volumesOf(controllerId_));
    const std::lock_guard<std::recursive_mutex> held(lock_);
    const bool isFirst = !std::exchange(hasVolumes_, true);
    const bool hasChanged = volumes_.look(std::move(found), gone);
    if (hasChanged) noteUntold();
    return hasChanged && !isFirst;
}

bool tavMegaRAIDController::enableEvents() {
    if (isRemoved()) return false;
    {
        const std::lock_guard<std::recursive_mutex> held(lock_);
        flags_ = everythingByEvents;
    }
    if (isLSILibLoaded && !isEventsEnabled()) {
        tavSASLSIEvent& events = *tavSASLSIEvent::getInstance();
        isAENRegistered =
            events.RegisterForAEN(handleEvent) == libraryUsable && events.isRegistered();
    }
    return true;
}

bool tavMegaRAIDController::isEventsEnabled() {
    if (!isAENRegistered) return false;
    const std::string serial = getInventory().getSerialNumber();
    return tavSASLSIEvent::getInstance()->isRegistered(controllerId_,
                                                       isKnown(serial) ? serial : "");
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
    return controller_.record();
}

std::vector<tavDiskInfo> tavMegaRAIDController::getPhysicalDrivesInventory() const {
    const std::lock_guard<std::recursive_mutex> held(lock_);
    return drives_.records();
}

std::vector<tavLogicalDiskInfo> tavMegaRAIDController::getLogicalDiskInventory() const {
    const std::lock_guard<std::recursive_mutex> held(lock_);
    return volumes_.records();
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
    const std::string serial = controller_.record().getSerialNumber();
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
    noteAcknowledged();
    const bool hasMoved = look(*event);
    const Consequence consequence = analyze(*event);
    if (hasMoved || consequence.changesCondition) publish();
    if (consequence.rule == nullptr) {
        if (hasMoved) ask(tav::InventoryRequest::PushAndInvalidate);
        return;
    }
    const tav::RaidEventRule& rule = *consequence.rule;
    for (const tav::EventReport line : rule.reports)
        report(line, *event);
    // What needs no event is told by the inventory.
    if (rule.raises == 0 ? consequence.changesCondition
                         : raise(consequence) == tav::EventOutcome::Delivered) {
        noteReported(*event, consequence.condition);
    }
    // The last inventory may have told what the RMC was not told by an event, and is not so now.
    const bool followsInSilence = rule.reported && consequence.changesCondition;
    ask(hasMoved || followsInSilence ? tav::InventoryRequest::PushAndInvalidate : rule.inventory);
    report(rule.reportAfterwards, *event);
}

/// What the library tells since the event. Returns whether that is something else than before: then
/// the inventory tells it to the RMC, since the event tells of one resource alone.
bool tavMegaRAIDController::look(const TAV_SAS_EVENT_DETAIL& event) {
    if (event.locale == tav::locale::volume) return lookAtVolumes(Volumes::Gone::Stay);
    if (event.locale == tav::locale::drive) return lookAtDrives(Drives::Gone::Stay);
    return false;
}

/// Whoever asks for the inventory from now on finds in it what the event is about to tell. A build
/// that is under way may have passed by this controller, so another one follows it.
void tavMegaRAIDController::publish() {
    const bool isBuilding = SASResourceManager::isBuilding();
    SASResourceManager::updateInventory(
        *this, {{getInventory()}, getPhysicalDrivesInventory(), getLogicalDiskInventory()});
    {
        const std::lock_guard<std::recursive_mutex> held(lock_);
        toldBy_ = isBuilding ? 0 : tavJsonAggregator::getInstance()->begunInventories() + 1;
        toldByNextBuild_ = isBuilding ? SASResourceManager::toldByNextBuild() : nullptr;
    }
    if (isBuilding) SASResourceManager::invalidateInventoryCache();
}

/// A look has found what no inventory that has begun tells. The build that it belongs to tells it.
void tavMegaRAIDController::noteUntold() {
    toldBy_ = 0;
    if (toldByNextBuild_ != nullptr && *toldByNextBuild_ != 0) toldByNextBuild_ = nullptr;
}

/// Once the RMC has acknowledged an inventory that tells what the last event has made of all this,
/// it knows that, whether it got the event or not.
void tavMegaRAIDController::noteAcknowledged() {
    const auto acknowledged = tavJsonAggregator::getInstance()->acknowledgedInventories();
    const std::lock_guard<std::recursive_mutex> held(lock_);
    if (toldByNextBuild_ != nullptr && *toldByNextBuild_ != 0) {
        toldBy_ = *std::exchange(toldByNextBuild_, nullptr);
    }
    if (toldBy_ == 0 || acknowledged < toldBy_) return;
    toldBy_ = 0;
    controller_.noteTold();
    drives_.noteTold();
    volumes_.noteTold();
}

tav::EventOutcome tavMegaRAIDController::raise(const Consequence& consequence) {
    const tav::RaidEventRule& rule = *consequence.rule;
    if (consequence.location.empty()) {
        return SASResourceManager::generateEvent(rule.raises, rule.critical, *consequence.record);
    }
    return SASResourceManager::generateEvent(rule.raises, consequence.location, rule.critical,
                                             *consequence.record);
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
    Volumes::Entry* const volume = volumeOf(event);
    Consequence consequence{ruleFor(volume, tav::volumeEventRule, event)};
    if (consequence.rule == nullptr || volume == nullptr) return consequence;
    consequence.changesCondition =
        hear(volume->resource, *consequence.rule, tav::volumeEventRule, event);
    consequence.condition = saidBy(*consequence.rule, event, volume->resource.now());
    if (consequence.rule->raises != 0) {
        tavLogicalDiskInfo reported = volume->resource.record();
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
    Drives::Entry* const drive = driveOf(event);
    Consequence consequence{ruleFor(drive, tav::driveEventRule, event)};
    if (consequence.rule == nullptr || drive == nullptr) return consequence;
    consequence.changesCondition =
        hear(drive->resource, *consequence.rule, tav::driveEventRule, event);
    if (event.eventCode == tav::driveInsertedCode) {
        consequence.changesCondition |= drive->resource.renew();
    }
    consequence.condition = saidBy(*consequence.rule, event, drive->resource.now());
    if (consequence.rule->raises != 0) {
        auto reported = std::make_unique<tavDiskInfo>(drive->resource.record());
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
    Consequence consequence{tav::controllerEventRule(event, controller_.reportedHealth())};
    if (consequence.rule == nullptr) return consequence;
    consequence.changesCondition =
        hear(controller_, *consequence.rule, tav::controllerEventRule, event);
    consequence.condition = saidBy(*consequence.rule, event, controller_.now());
    if (consequence.rule->raises != 0) {
        auto reported = std::make_unique<tavStorageControllerInfo>(controller_.record());
        reported->setEventInfoString(getAddEventInfo(&event));
        consequence.location = reported->getPhysicalLocation();
        consequence.record = std::move(reported);
    }
    return consequence;
}

void tavMegaRAIDController::noteReported(const TAV_SAS_EVENT_DETAIL& event,
                                         const tav::Condition& condition) {
    const std::lock_guard<std::recursive_mutex> held(lock_);
    if (event.locale == tav::locale::controller) controller_.noteReported(condition);
    if (event.locale == tav::locale::volume) {
        if (auto* const volume = volumeOf(event)) volume->resource.noteReported(condition);
    }
    if (event.locale == tav::locale::drive) {
        if (auto* const drive = driveOf(event)) drive->resource.noteReported(condition);
    }
}

tavMegaRAIDController::Volumes::Entry* tavMegaRAIDController::volumeOf(
    const TAV_SAS_EVENT_DETAIL& event) {
    return volumes_.find(
        [&](const Volumes::Entry& volume) { return volume.number == event.volumeTargetId; });
}

tavMegaRAIDController::Drives::Entry* tavMegaRAIDController::driveOf(
    const TAV_SAS_EVENT_DETAIL& event) {
    const auto isNumber = [&](const Drives::Entry& drive) {
        return drive.number == event.deviceId;
    };
    const auto isNamed = [&](const Drives::Entry& drive) {
        return drive.resource.record().getSerialNumber() == event.driveSerial;
    };
    Drives::Entry* drive = drives_.find(
        [&](const Drives::Entry& candidate) { return isNumber(candidate) && isNamed(candidate); });
    if (drive == nullptr && isKnown(event.driveSerial)) drive = drives_.find(isNamed);
    // A drive that has taken the place of another one is recognised by the place.
    if (drive == nullptr && event.eventCode == tav::driveInsertedCode &&
        event.driveSlot != sasEventNoNumber) {
        drive = drives_.find([&](const Drives::Entry& candidate) {
            return candidate.resource.record().getSlot() == static_cast<int>(event.driveSlot);
        });
    }
    return drive;
}

void tavMegaRAIDController::getPhyDiskListForLD(const tavLogicalDiskInfo& volume,
                                                std::vector<tavDiskInfo>& disks) const {
    const std::vector<std::string> members = volume.getPhysicalDiskVector();
    const std::lock_guard<std::recursive_mutex> held(lock_);
    disks.clear();
    const std::vector<tavDiskInfo> known = drives_.records();
    std::copy_if(known.begin(), known.end(), std::back_inserter(disks),
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
