#pragma once

#include <string>
#include <utility>

#include <json/value.h>

#include "base/Export.h"
#include "rmc/DeliveryRecord.h"

/// One event: something happened on the host. A plain value.
class TAV_API tavEvent {
 public:
    tavEvent(int eventID, std::string phyLoc, std::string moduleName, bool serviceEvent,
             std::string eventTime, std::string partNum, std::string source)
        : tavEvent(eventID, std::move(phyLoc), std::move(moduleName), serviceEvent,
                   std::move(eventTime), std::move(partNum), Json::Value(), std::move(source)) {}
    tavEvent(int eventID, std::string moduleName, bool serviceEvent, std::string eventTime,
             Json::Value variableData, std::string source)
        : tavEvent(eventID, std::string(), std::move(moduleName), serviceEvent,
                   std::move(eventTime), std::string(), std::move(variableData),
                   std::move(source)) {}
    tavEvent(int eventID, std::string phyLoc, std::string moduleName, bool serviceEvent,
             std::string eventTime, std::string partNum, Json::Value variableData,
             std::string source)
        : eventID_(eventID),
          eventTime_(std::move(eventTime)),
          serviceEvent_(serviceEvent),
          moduleName_(std::move(moduleName)),
          partNum_(std::move(partNum)),
          phyLoc_(std::move(phyLoc)),
          source_(std::move(source)),
          variableData_(std::move(variableData)) {}

    int getEventID() const { return eventID_; }
    /// Local time, "2019-03-07 14:05:09".
    const std::string& getEventTime() const { return eventTime_; }
    /// Whether the event calls for service.
    bool getisServiceEvent() const { return serviceEvent_; }
    const std::string& getModuleName() const { return moduleName_; }
    /// "Not-Available" or "Not Available" where the component has none.
    const std::string& getPartNum() const { return partNum_; }
    /// Location code, or a placeholder text.
    const std::string& getPhyLoc() const { return phyLoc_; }
    /// "TAV", or "TAV-CLI" for test events.
    const std::string& getSource() const { return source_; }
    /// Null when there are no details.
    const Json::Value& getVariableData() const { return variableData_; }

 private:
    int eventID_;
    std::string eventTime_;
    bool serviceEvent_;
    std::string moduleName_;
    std::string partNum_;
    std::string phyLoc_;
    std::string source_;
    Json::Value variableData_;
};

/// Turns events into JSON and sends them to the management controller. Keeps no state; any thread.
class TAV_API tavEventHandler {
 public:
    /// Sends the event on a thread of its own and waits for it, so that one caller's events stay in
    /// order. Until the first inventory has been pushed only the events of the host's boot and
    /// shutdown are sent, and all others dropped: the controller does not know their components
    /// yet. Only a delivered event has told the controller anything. One that was not is never sent
    /// again; the aggregator learns of it, since an inventory has to tell the rest (see
    /// tavJsonAggregator::repeatUntilAcknowledged). Test events tell nothing of the host.
    tav::EventOutcome deliverEvent(const tavEvent& event);

    /// The same for those who do not care what became of it.
    void generateEvent(tavEvent event);

    /// Sends an event that is JSON already, whoever has made it.
    tav::EventOutcome forwardEvent(const Json::Value& event);

    /// Sends one event's JSON text, of which nothing is kept. 0 on success, 1 on failure.
    int sendEventToRMC(const std::string& json);
};

/// Body of an event's thread: renders and sends the tavEvent that `event` points to. Returns null.
TAV_API void* startEventGeneration(void* event);
