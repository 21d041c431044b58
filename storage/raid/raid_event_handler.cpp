/// Finds the controller that an event is about.
#include <vector>

#include "core/Log.h"
#include "storage/raid/raid_event_record.h"
#include "storage/raid/raid_event_rules.h"
#include "storage/raid/tavMegaRAIDController.h"
#include "storage/raid/tavMegaRAIDControllerFactory.h"

using tav::here;

namespace {

constexpr tav::ModuleLog logger{"LSI_EVENT_INTERF"};

bool isAnalysed(const TAV_SAS_EVENT_DETAIL& event) {
    return event.locale == tav::locale::drive || event.locale == tav::locale::controller ||
           event.locale == tav::locale::volume;
}

std::vector<tav::Reference<tavMegaRAIDController>> listedControllers() {
    std::vector<ItavStorageController*> listed;
    tavMegaRAIDControllerFactory::getInstance()->getControllers(TAV_FAMILY_MEGARAID, listed);
    std::vector<tav::Reference<tavMegaRAIDController>> references;
    references.reserve(listed.size());
    for (ItavStorageController* const controller : listed)  // this factory has no others
        references.emplace_back(static_cast<tavMegaRAIDController*>(controller));
    return references;
}

/// Gives the event to the controllers it is about; returns whether there is one.
bool analyseByControllers(TAV_SAS_EVENT_DETAIL& event) {
    const auto controllers = listedControllers();
    logger.debug(here(), "Checking list of controllers size=%zu", controllers.size());
    bool matched = false;
    for (const auto& controller : controllers) {
        if (!controller->isConcernedBy(event)) continue;
        matched = true;
        controller->analyzeAndGenerateEvent(&event);
    }
    return matched;
}

}  // namespace

void handleEvent(TAV_SAS_EVENT_DETAIL* event) {
    if (event == nullptr || (!isAnalysed(*event) && event->locale != tav::locale::all)) return;
    logger.info(here(), "Locale received: %s, eventClass= %d", event->locale.c_str(),
                static_cast<int>(event->eventClass));
    if (event->eventClass < tav::event_class::information ||
        event->eventClass > tav::event_class::dead) {
        logger.info(here(), "Event received for lesser severity ignoring the FW event");
        return;
    }
    if (!isAnalysed(*event)) {
        logger.debug(here(), "Received event of other locale ignoring the FW event");
        return;
    }
    if (analyseByControllers(*event) || event->eventClass < tav::event_class::critical) return;
    logger.warning(here(),
                   "Ignoring CRITICAL/FATAL/DEAD event (%d, %d) received for controller[%s] absent "
                   "in TAV inventory.",
                   static_cast<int>(event->eventCode), static_cast<int>(event->eventClass),
                   event->controllerSerial.c_str());
}
