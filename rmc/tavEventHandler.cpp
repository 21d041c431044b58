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
#include "rmc/DeliveryNotes.h"
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

/// What the event itself tells.
Json::Value describe(const tavEvent& event) {
    Json::Value json(Json::objectValue);
    json["ID"] = event.getEventID();
    json["Source"] = event.getSource();
    json["EventTime"] = event.getEventTime();
    if (!contains(noLocation, std::string_view(event.getPhyLoc()))) {
        json["PhysicalLocation"] = tav::jsonText(event.getPhyLoc());
    }
    if (!event.getVariableData().isNull()) json["VariableData"] = event.getVariableData();
    return json;
}

Json::Value render(const tavEvent& event) {
    tavUtils utils;
    int osType = 0;
    utils.getOSType(&osType);
    Json::Value json = describe(event);
    json["HostName"] = tav::jsonText(utils.readHostName());
    json["OSVersion"] = tav::jsonText(utils.readHostOSVersion());
    json["OSType"] = osType;
    const std::string address = utils.getPrimaryIPAddress();
    if (!address.empty()) json["IPv4Addresses"][0]["Address"] = address;
    return json;
}

int sendText(const std::string& json, std::string& why) {
    const int result = ipmi::IPMIUtils::RMC_CLI_Cmd_Execution("MPEventGen", json, why);
    if (result == 1) {
        logger.error(here(), "FAILURE in logging event to RMC");
    } else {
        logger.debug(here(), "SUCCESS in delivering event to RMC");
    }
    return result;
}

EventOutcome sendAndNote(int id, std::string json) {
    std::string why;
    const EventOutcome outcome =
        sendText(json, why) == 0 ? EventOutcome::Delivered : EventOutcome::Failed;
    tav::noteEvent({0, id, outcome, std::move(why), std::move(json)});
    return outcome;
}

EventOutcome send(const tavEvent& event) {
    std::string json = tav::compactJson(render(event));
    logger.infoText(here(), json);
    return sendAndNote(event.getEventID(), std::move(json));
}

void noteUnsent(const tavEvent& event, EventOutcome outcome, std::string why) {
    tav::noteEvent(
        {0, event.getEventID(), outcome, std::move(why), tav::compactJson(describe(event))});
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
        noteUnsent(event, outcome, "there was no thread to send it");
        return outcome;
    }
    tav::joinThread(thread);
    return outcome;
}

EventOutcome drop(const tavEvent& event) {
    noteUnsent(event, EventOutcome::Dropped, "the controller has no inventory yet");
    return EventOutcome::Dropped;
}

}  // namespace

EventOutcome tavEventHandler::deliverEvent(const tavEvent& event) {
    const bool passes = tavJsonAggregator::getInstance()->isInventorySent() ||
                        contains(sentBeforeInventory, event.getEventID());
    const EventOutcome outcome = passes ? sendOnItsOwnThread(event) : drop(event);
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

EventOutcome tavEventHandler::forwardEvent(const Json::Value& event) {
    const Json::Value id = event.get("ID", 0);
    return sendAndNote(id.isInt() ? id.asInt() : 0, tav::compactJson(event));
}

int tavEventHandler::sendEventToRMC(const std::string& json) {
    std::string why;
    return sendText(json, why);
}

void* startEventGeneration(void* event) {
    send(*static_cast<const tavEvent*>(event));
    return nullptr;
}
