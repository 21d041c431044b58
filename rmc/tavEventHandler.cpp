#include "rmc/tavEventHandler.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <thread>

#include "base/JsonText.h"
#include "base/StopSignal.h"
#include "base/Threads.h"
#include "core/Log.h"
#include "core/tavUtils.h"
#include "rmc/tavJsonAggregator.h"
#include "rmc/tavipmi.h"

using tav::EventOutcome;
using tav::here;

namespace {

constexpr tav::ModuleLog logger{"EVT_HANDLER"};

constexpr std::string_view testEventSource = "TAV-CLI";

/// Events of the host's boot and shutdown.
constexpr std::array sentBeforeInventory = {356, 359, 360, 434, 435};

constexpr std::array<std::string_view, 5> noLocation = {"", "Not Applicable", "Not Available",
                                                        "NotApplicable", "NotAvailable"};

template <class Table, class Value>
bool contains(const Table& table, const Value& value) {
    return std::find(table.begin(), table.end(), value) != table.end();
}

Json::Value render(const tavEvent& event) {
    tavUtils utils;
    int osType = 0;
    utils.getOSType(&osType);
    Json::Value json(Json::objectValue);
    json["HostName"] = tav::jsonText(utils.readHostName());
    json["OSVersion"] = tav::jsonText(utils.readHostOSVersion());
    json["OSType"] = osType;
    const std::string address = utils.getPrimaryIPAddress();
    if (!address.empty()) json["IPv4Addresses"][0]["Address"] = address;
    json["ID"] = event.getEventID();
    json["Source"] = event.getSource();
    json["EventTime"] = event.getEventTime();
    if (!contains(noLocation, std::string_view(event.getPhyLoc()))) {
        json["PhysicalLocation"] = tav::jsonText(event.getPhyLoc());
    }
    if (!event.getVariableData().isNull()) json["VariableData"] = event.getVariableData();
    return json;
}

EventOutcome send(const tavEvent& event) {
    const std::string json = tav::compactJson(render(event));
    logger.infoText(here(), json);
    return tavEventHandler().sendEventToRMC(json) == 0 ? EventOutcome::Delivered
                                                       : EventOutcome::Failed;
}

EventOutcome sendOnItsOwnThread(const tavEvent& event) {
    EventOutcome outcome = EventOutcome::Failed;
    std::thread thread;
    const int failure = tav::startThread(thread, "tav-event", [&, stop = tav::currentStop()] {
        const tav::StopScope scope(stop);  // it works for the thread that waits for it
        outcome = send(event);
    });
    if (failure != 0) {
        logger.error(here(), "Unable to spawn a thread to handle event.");
        return outcome;
    }
    tav::joinThread(thread);
    return outcome;
}

}  // namespace

EventOutcome tavEventHandler::deliverEvent(const tavEvent& event) {
    const bool passes = tavJsonAggregator::getInstance()->isInventorySent() ||
                        contains(sentBeforeInventory, event.getEventID());
    const EventOutcome outcome = passes ? sendOnItsOwnThread(event) : EventOutcome::Dropped;
    const bool tellsOfTheHost = event.getSource() != testEventSource;
    if (outcome != EventOutcome::Delivered && tellsOfTheHost) {
        tavJsonAggregator::getInstance()->eventWasLost();
    }
    return outcome;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): callers rely on this signature
void tavEventHandler::generateEvent(tavEvent event) {
    deliverEvent(event);
}

int tavEventHandler::sendEventToRMC(const std::string& json) {
    const int result = ipmi::IPMIUtils::RMC_CLI_Cmd_Execution("MPEventGen", json);
    if (result == 1) {
        logger.error(here(), "FAILURE in logging event to RMC");
    } else {
        logger.debug(here(), "SUCCESS in delivering event to RMC");
    }
    return result;
}

void* startEventGeneration(void* event) {
    send(*static_cast<const tavEvent*>(event));
    return nullptr;
}
