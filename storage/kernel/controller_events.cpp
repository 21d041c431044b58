// The part of tavStorageController that reports: what has changed, and what the RMC knows of it.
#include <utility>

#include "core/Log.h"
#include "rmc/tavJsonAggregator.h"
#include "storage/SASResourceManager.h"
#include "storage/kernel/change_texts.h"
#include "storage/kernel/disk_ledgers.h"
#include "storage/kernel/tavStorageController.h"
#include "storage/model/storage_location.h"

using tav::here;

namespace {

constexpr tav::ModuleLog logger{"STOR_CTLR"};

using Lock = std::lock_guard<std::recursive_mutex>;

}  // namespace

bool tavStorageController::enableEvents() {
    const Lock held(lock_);
    if (isRemoved()) return false;
    flags_ |= TAV_EVENTS_ENABLED;
    return true;
}

void tavStorageController::disableEvents() {
    const Lock held(lock_);
    flags_ &= ~std::uint32_t{TAV_EVENTS_ENABLED};
}

/// One that the service wants to be reported whatever it is (claimAnyDevice()).
bool tavStorageController::isBeyondTable() const {
    return getFamilyFlags() == TAV_FAMILY_OTHER;
}

bool tavStorageController::raisesControllerEvents() const {
    return (flags_ & (TAV_EVENTS_ENABLED | TAV_CONTROLLER_REPORTS_ITSELF)) == TAV_EVENTS_ENABLED;
}

bool tavStorageController::raisesDiskEvents() const {
    return (flags_ & (TAV_EVENTS_ENABLED | TAV_DISKS_REPORT_THEMSELVES)) == TAV_EVENTS_ENABLED;
}

/// Not under the lock: an event takes as long as the management controller does. Who asks for the
/// inventory after an event finds in it what the event has told.
void tavStorageController::publishChanges() {
    std::vector<PendingEvent> events;
    bool hasChanged = false;
    bool isUntold = false;
    bool invalidates = false;
    {
        const Lock held(lock_);
        events.swap(pendingEvents_);
        // A controller that is shut down takes nothing with it.
        const bool isShown = (flags_ & TAV_EVENTS_ENABLED) != 0;
        hasChanged = std::exchange(hasChanged_, false) && isShown;
        isUntold = std::exchange(isUntold_, false) && isShown;
        invalidates = std::exchange(invalidates_, false);
    }
    if (hasChanged) {
        SASResourceManager::updateInventory(
            *this, {{getInventory()}, getPhysicalDrivesInventory(), getLogicalDiskInventory()});
        const Lock held(lock_);
        toldBy_ = tavJsonAggregator::getInstance()->begunInventories() + 1;
    }
    for (const PendingEvent& event : events) {
        const auto outcome = SASResourceManager::generateEvent(event.eventId, event.location,
                                                               event.serviceEvent, *event.record);
        if (outcome == tav::EventOutcome::Delivered) noteReported(event);
    }
    if (isUntold) SASResourceManager::sendInventorytToRMCOnCacheBuild();
    if (invalidates) SASResourceManager::invalidateInventoryCache();
}

/// The RMC has acknowledged the event.
void tavStorageController::noteReported(const PendingEvent& event) {
    const Lock held(lock_);
    if (event.link.empty()) return controller_.noteReported(event.condition);
    if (tav::DiskLedger* const ledger = ledgerAt(event.link)) ledger->noteReported(event.condition);
}

/// Once the RMC has acknowledged an inventory that tells all of this, it knows what is. At the
/// begin of a round: what that finds is in no inventory yet, and the discovery before it has been
/// published.
void tavStorageController::noteAcknowledged() {
    const tavJsonAggregator& inventories = *tavJsonAggregator::getInstance();
    const Lock held(lock_);
    if (std::exchange(isNewlyBuilt_, false)) toldBy_ = inventories.begunInventories() + 1;
    if (hasChanged_ || toldBy_ == 0 || inventories.acknowledgedInventories() < toldBy_) return;
    toldBy_ = 0;
    controller_.noteReported(controller_.now());
    for (tav::DiskLedger& ledger : disks_)
        ledger.noteReported(ledger.now());
}

/// Whether an event is raised.
bool tavStorageController::reportController(const tav::Condition& before) {
    const tav::Condition now = controller_.now();
    const std::string location = controller_.record().getPhysicalLocation();
    if (!raisesControllerEvents() || now.health == before.health || !tav::isLocation(location) ||
        before.state == TAV_STATE_UNKNOWN) {
        return false;
    }
    const tav::ChangeTexts change(now, before);
    logger.info(here(),
                "%s: Detected controller status change. [CurrState=%s, PrevState=%s, "
                "CurrHealth=%s, PrevHealth=%s]",
                pciLocation_.c_str(), change.state, change.previousState, change.health,
                change.previousHealth);
    const tav::ControllerTransition* const transition =
        tav::controllerTransition(before.health, now.health);
    if (transition == nullptr) {
        logger.info(here(),
                    "%s: Event not generated for controller status change. [CurrState=%s, "
                    "PrevState=%s, CurrHealth=%s, PrevHealth=%s]",
                    pciLocation_.c_str(), change.state, change.previousState, change.health,
                    change.previousHealth);
        return false;
    }
    auto record = std::make_unique<tavStorageControllerInfo>(controller_.record());
    record->setEventInfoString(controllerEventInfo(*transition, now.state));
    pendingEvents_.push_back(
        {transition->eventId, location, transition->serviceEvent, std::move(record), "", now});
    return true;
}

std::string tavStorageController::controllerEventInfo(const tav::ControllerTransition& transition,
                                                      TAV_RESOURCE_STATE /*now*/) const {
    return transition.eventInfo;
}

/// Whether an event is raised.
bool tavStorageController::reportDisk(const tav::DiskLedger& ledger, const tavDiskInfo& previous,
                                      const tav::Condition& before) {
    const tavDiskInfo& current = ledger.record();
    const tav::Condition now = ledger.now();
    if (!raisesDiskEvents() || now.state == before.state) return false;
    const std::string oldLocation = previous.getPhysicalLocation();
    const std::string newLocation = current.getPhysicalLocation();
    const std::string link = current.getOSSCSILink();
    const tav::ChangeTexts change(now, before);
    if (!tav::isLocation(oldLocation) && !tav::isLocation(newLocation)) {
        logger.info(here(),
                    "%s: Invalid physical location detected. [OldLoc=%s, NewLoc=%s, CurrState=%s, "
                    "PrevState=%s, CurrHealth=%s, PrevHealth=%s]",
                    link.c_str(), oldLocation.c_str(), newLocation.c_str(), change.state,
                    change.previousState, change.health, change.previousHealth);
        return false;
    }
    const std::string& location = tav::isLocation(newLocation) ? newLocation : oldLocation;
    logger.info(here(),
                "%s: %s - Detected disk status change. [CurrState=%s, PrevState=%s, CurrHealth=%s, "
                "PrevHealth=%s]",
                link.c_str(), location.c_str(), change.state, change.previousState, change.health,
                change.previousHealth);
    // What was never known cannot have changed.
    const tav::DiskTransition* const transition =
        before.state == TAV_STATE_UNKNOWN
            ? nullptr
            : tav::diskTransition(before.state, now.state,
                                  ledger.reported().value_or(tav::Condition{}).state);
    if (transition == nullptr) {
        logger.info(here(), "%s: Event not generated for disk status change.", link.c_str());
        return false;
    }
    pendingEvents_.push_back({transition->eventId, location, transition->serviceEvent,
                              std::make_unique<tavDiskInfo>(current), link, now});
    return true;
}
