#include "storage/raid/raid_event_rules.h"

#include <span>

#include "core/Log.h"

namespace tav {
namespace {

constexpr ModuleLog logger{"LSI_EVENT_INTERF"};

using Event = TAV_SAS_EVENT_DETAIL;
using enum Presence;
using enum InventoryRequest;
using event_class::critical;
using event_class::dead;
using event_class::fatal;
using event_class::information;
using event_class::warning;

// The lines, in the order of the tables.

void volumeUnknown(const Event& event) {
    logger.warning(here(),
                   "Ignoring CRITICAL/FATAL event (%d, %d) received for VD[%d] absent in TAV "
                   "inventory.",
                   static_cast<int>(event.eventCode), static_cast<int>(event.eventClass),
                   static_cast<int>(event.volumeTargetId));
}

void alreadyBad(const Event&) {
    logger.info(here(), "Ignoring WARNING event as device is already in BAD state");
}

void alreadyCritical(const Event&) {
    logger.info(here(), "Ignoring FATAL event as device already in CRITICAL state");
}

void volumeDeleted(const Event&) {
    logger.debug(here(), "Invalidate cache as LD has been deleted");
}

void volumeAlreadyOk(const Event& event) {
    logger.info(here(), "Ignoring event ID %d  INFO event as device is already in OK state",
                static_cast<int>(event.eventCode));
}

void driveUnknown(const Event& event) {
    logger.warning(here(),
                   "Ignoring CRITICAL/FATAL/WARNING event (%d, %d) received for PD[%s] absent in "
                   "TAV inventory.",
                   static_cast<int>(event.eventCode), static_cast<int>(event.eventClass),
                   event.driveSerial.c_str());
}

void driveInserted(const Event&) {
    logger.info(here(), "TAV has realized that PD has been inserted to existing  location");
}

void driveRemoved(const Event&) {
    logger.info(here(), "TAV has realized that PD has been removed");
}

void driveAlreadyOk(const Event&) {
    logger.info(here(), "Skipping the event as fru is already OK");
}

void driveAlreadyBad(const Event&) {
    logger.info(here(), "Skipping the event as fru is already BAD state");
}

void driveStateUnknown(const Event&) {
    logger.info(here(), "State variable not recognized by TAV SAS RM. Skipping the event");
}

void driveStateChanged(const Event& event) {
    logger.info(here(), "TAV has realized that PD status has been changed New status: %d",
                event.newDriveState);
}

void driveError(const Event& event) {
    logger.info(here(), "Error reported on PD [%s] @ slot [%d] for controller [%s].",
                event.driveSerial.c_str(), static_cast<int>(event.driveSlot),
                event.controllerSerial.c_str());
}

void drivePredictsFailure(const Event& event) {
    logger.info(here(),
                "Reporting predictive failure event on PD [%s] @ slot [%d] for controller [%s].",
                event.driveSerial.c_str(), static_cast<int>(event.driveSlot),
                event.controllerSerial.c_str());
}

void driveExceedsThreshold(const Event& event) {
    logger.info(here(),
                "Reporting predictive failure event on PD [%s] @ slot [%d] for controller [%s]",
                event.driveSerial.c_str(), static_cast<int>(event.driveSlot),
                event.controllerSerial.c_str());
}

void controllerAlreadyOk(const Event&) {
    logger.info(here(), "Dropping the event as Device already in OK state.");
}

void controllerAlreadyCritical(const Event&) {
    logger.info(here(), "Dropping the event 389 as device already in CRITICAL state.");
}

// The tables: the first row that applies counts. "Already" is what the resource's last event has
// reported, so each action on a condition stands below the row that says it is known.

constexpr RaidEventRule volumeRules[] = {
    {.codes = {0x8A}, .presence = Any, .inventory = PushAndInvalidate},
    {.classes = {critical, fatal},
     .codes = {0xFB, 0xFC},
     .presence = Absent,
     .reports = {volumeUnknown}},
    {.presence = Absent},

    {.classes = {warning},
     .codes = {0xFA},
     .reported = TAV_HEALTH_WARNING,
     .reports = {alreadyBad}},
    {.classes = {warning},
     .codes = {0xFA},
     .state = TAV_STATE_PARTIALLY_DEGRADED,
     .health = TAV_HEALTH_WARNING,
     .isShown = true},
    {.classes = {warning}, .reports = {alreadyBad}},

    {.classes = {critical, fatal}, .reported = TAV_HEALTH_CRITICAL, .reports = {alreadyCritical}},
    {.classes = {critical, fatal},
     .codes = {0xFB},
     .state = TAV_STATE_DEGRADED,
     .health = TAV_HEALTH_CRITICAL,
     .raises = 681,
     .critical = true,
     .isShown = true},
    {.classes = {critical, fatal},
     .codes = {0xFC},
     .state = TAV_STATE_OFFLINE,
     .health = TAV_HEALTH_CRITICAL,
     .raises = 681,
     .critical = true,
     .isShown = true},
    {.classes = {critical, fatal},
     .state = TAV_STATE_FAILED,
     .health = TAV_HEALTH_CRITICAL,
     .raises = 681,
     .critical = true},

    {.classes = {information},
     .codes = {0x8B},
     .inventory = Invalidate,
     .reports = {volumeDeleted}},
    {.classes = {information},
     .codes = {0xF9},
     .reported = TAV_HEALTH_OK,
     .reports = {volumeAlreadyOk}},
    {.classes = {information},
     .codes = {0xF9},
     .state = TAV_STATE_OPTIMAL,
     .health = TAV_HEALTH_OK,
     .raises = 683,
     .isShown = true},
    {.classes = {information}, .reports = {volumeAlreadyOk}},
};

// The firmware's states of a drive that works, and of one that does not.
constexpr EventNumbers workingStates{0x00, 0x02, 0x14, 0x18, 0x20, 0x40};
constexpr EventNumbers badStates{0x01, 0x10, 0x11};

constexpr RaidEventRule driveRules[] = {
    // Whatever its class, an insertion must not be lost.
    {.classes = {warning, critical, fatal},
     .codes = {driveInsertedCode},
     .presence = Absent,
     .inventory = PushAndInvalidate,
     .reports = {driveUnknown}},
    {.classes = {warning, critical, fatal}, .presence = Absent, .reports = {driveUnknown}},
    {.codes = {0x70}, .presence = Absent, .reports = {driveUnknown}},

    {.codes = {driveInsertedCode}, .inventory = PushAndInvalidate, .reports = {driveInserted}},
    {.codes = {driveInsertedCode}, .presence = Absent, .inventory = PushAndInvalidate},
    {.presence = Absent},

    {.classes = {information},
     .codes = {0x70},
     .reported = TAV_HEALTH_CRITICAL,
     .reports = {driveRemoved}},
    {.classes = {information},
     .codes = {0x70},
     .health = TAV_HEALTH_CRITICAL,
     .raises = 538,
     .reports = {driveRemoved}},

    {.classes = {information},
     .codes = {0x72},
     .newDriveStates = workingStates,
     .reported = TAV_HEALTH_OK,
     .reports = {driveAlreadyOk}},
    {.classes = {information},
     .codes = {0x72},
     .newDriveStates = workingStates,
     .takesNewDriveState = true,
     .health = TAV_HEALTH_OK,
     .raises = 540,
     .isShown = true,
     .inventory = PushAndInvalidate,
     .reportAfterwards = driveStateChanged},
    {.classes = {information},
     .codes = {0x72},
     .newDriveStates = badStates,
     .reported = TAV_HEALTH_CRITICAL,
     .reports = {driveAlreadyBad}},
    {.classes = {information},
     .codes = {0x72},
     .newDriveStates = badStates,
     .takesNewDriveState = true,
     .health = TAV_HEALTH_CRITICAL,
     .raises = 538,
     .critical = true,
     .isShown = true,
     .inventory = PushAndInvalidate,
     .reportAfterwards = driveStateChanged},
    {.classes = {information}, .codes = {0x72}, .reports = {driveStateUnknown}},

    {.classes = {information},
     .codes = {0x57},
     .reported = TAV_HEALTH_WARNING,
     .reports = {alreadyBad}},
    {.classes = {information},
     .codes = {0x57},
     .state = TAV_STATE_PREDICTIVE_FAILURE,
     .health = TAV_HEALTH_WARNING,
     .raises = 539,
     .critical = true,
     .reports = {drivePredictsFailure}},
    {.classes = {warning},
     .codes = {0x57},
     .reported = TAV_HEALTH_WARNING,
     .reports = {driveError, alreadyBad}},
    {.classes = {warning},
     .codes = {0x57},
     .state = TAV_STATE_PREDICTIVE_FAILURE,
     .health = TAV_HEALTH_WARNING,
     .raises = 539,
     .critical = true,
     .reports = {driveError, drivePredictsFailure}},
    {.classes = {warning},
     .codes = {0x60},
     .reported = TAV_HEALTH_WARNING,
     .reports = {alreadyBad}},
    {.classes = {warning},
     .codes = {0x60},
     .state = TAV_STATE_PREDICTIVE_FAILURE,
     .health = TAV_HEALTH_WARNING,
     .raises = 539,
     .critical = true,
     .reports = {driveExceedsThreshold}},

    {.classes = {critical, fatal}, .reported = TAV_HEALTH_CRITICAL, .reports = {alreadyCritical}},
    {.classes = {critical, fatal},
     .state = TAV_STATE_FAILED,
     .health = TAV_HEALTH_CRITICAL,
     .raises = 538,
     .critical = true},
};

constexpr RaidEventRule controllerRules[] = {
    {.classes = {information},
     .codes = {0x0C, 0x1C4, 0x1F9, 0x1FF},
     .reported = TAV_HEALTH_OK,
     .reports = {controllerAlreadyOk}},
    {.classes = {information},
     .codes = {0x0C, 0x1C4, 0x1F9, 0x1FF},
     .state = TAV_STATE_RUNNING,
     .health = TAV_HEALTH_OK,
     .raises = 397},
    {.classes = {critical, fatal, dead},
     .reported = TAV_HEALTH_CRITICAL,
     .reports = {controllerAlreadyCritical}},
    {.classes = {critical, fatal, dead},
     .state = TAV_STATE_FAILED,
     .health = TAV_HEALTH_CRITICAL,
     .raises = 398,
     .critical = true},
};

bool applies(const RaidEventRule& rule, const Event& event, ReportedHealth reported) {
    if (rule.presence != Any && (rule.presence == Present) != reported.has_value()) return false;
    if (rule.reported && rule.reported != reported) return false;
    return rule.classes.match(event.eventClass) && rule.codes.match(event.eventCode) &&
           rule.newDriveStates.match(event.newDriveState);
}

const RaidEventRule* firstOf(std::span<const RaidEventRule> rules, const Event& event,
                             ReportedHealth reported) {
    for (const RaidEventRule& rule : rules)
        if (applies(rule, event, reported)) return &rule;
    return nullptr;
}

}  // namespace

const RaidEventRule* volumeEventRule(const TAV_SAS_EVENT_DETAIL& event, ReportedHealth reported) {
    return firstOf(volumeRules, event, reported);
}

const RaidEventRule* driveEventRule(const TAV_SAS_EVENT_DETAIL& event, ReportedHealth reported) {
    return firstOf(driveRules, event, reported);
}

const RaidEventRule* controllerEventRule(const TAV_SAS_EVENT_DETAIL& event,
                                         ReportedHealth reported) {
    return firstOf(controllerRules, event, reported);
}

}  // namespace tav
