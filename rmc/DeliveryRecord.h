#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <json/value.h>

#include "base/Export.h"

/// What has become of the commands that were sent to the management controller, for those who tell
/// an operator about it. Whatever changes here, but for the RmcFigures, is news (core/News.h). Any
/// thread.
namespace tav {

/// Of one kind of command. Times are in seconds since the epoch, 0 for never.
struct Delivery {
    std::time_t acknowledged = 0;       ///< the last that the controller has taken
    std::time_t failed = 0;             ///< the last that has failed
    unsigned failures = 0;              ///< how many have failed since the last that was taken
    std::string why;                    ///< the last of them
    std::chrono::milliseconds took{0};  ///< the transfer of the last that was taken
    std::uint64_t acknowledgedInAll = 0;
    std::uint64_t failedInAll = 0;
};

struct DeliveryRecord {
    Delivery inventories;
    Delivery events;
};

TAV_API DeliveryRecord deliveryRecord();

/// The members "Inventories" and "Events" of a JSON object.
TAV_API Json::Value renderDeliveryRecord(const DeliveryRecord& record);
/// None for what holds no record.
TAV_API std::optional<DeliveryRecord> parseDeliveryRecord(const Json::Value& json);

/// What became of an event.
enum class EventOutcome {
    Delivered,  ///< the controller has acknowledged it
    Dropped,    ///< not sent, because the controller has no inventory yet
    Failed      ///< sent in vain, or it could not be sent
};
inline constexpr std::array<const char*, 3> eventOutcomeNames = {"Delivered", "Dropped", "Failed"};

struct EventNote {
    std::time_t time = 0;  ///< when its outcome was known, since the epoch
    int id = 0;            ///< 0: none is known
    EventOutcome outcome = EventOutcome::Failed;
    std::string why;   ///< it was not delivered
    std::string text;  ///< the JSON object that was sent, or was not; empty: it is not known
};

/// The last events, the oldest first: a hundred at most, and fewer when their texts are long.
TAV_API std::vector<EventNote> recentEvents();

/// How many events of an ID have come to an outcome. IDs beyond the sixty-fourth count as 0.
using EventTotals = std::map<std::pair<int, EventOutcome>, std::uint64_t>;
TAV_API EventTotals eventTotals();

/// An inventory that was sent.
struct SentInventory {
    std::string text;                ///< the document
    std::time_t collected = 0;       ///< since the epoch
    std::uint64_t publications = 0;  ///< before it was collected (core/News.h)
    bool isAcknowledged = false;
};

/// The last inventory that was sent, once. It is kept for whoever has asked for one before.
TAV_API std::optional<SentInventory> takeSentInventory();

/// Where on its way to the controller a command or a look at the door bell can fail.
enum class RmcStep {
    Open,     ///< the device cannot be opened
    Send,     ///< the driver has not taken the request
    Receive,  ///< the driver has not handed out the answer
    Silence,  ///< no answer has come in time
    Refusal,  ///< the controller has refused the request
    Answer,   ///< what it has answered is none
    Status,   ///< it has stopped a transfer, or was not content with its end
    Stop,     ///< the service stops
    Command   ///< there is nothing that could be sent
};
inline constexpr std::array<const char*, 9> rmcStepNames = {
    "open", "send", "receive", "silence", "refusal", "answer", "status", "stop", "command"};

struct RmcFigures {
    std::uint64_t frames = 0;  ///< that the controller has answered
    std::array<std::uint64_t, rmcStepNames.size()> failures{};
};
TAV_API RmcFigures rmcFigures();

}  // namespace tav
