#include "rmc/DeliveryRecord.h"

#include <atomic>
#include <deque>
#include <exception>
#include <mutex>
#include <set>
#include <utility>

#include "base/JsonText.h"
#include "core/News.h"
#include "rmc/DeliveryNotes.h"

namespace tav {
namespace {

constexpr std::size_t mostEvents = 100;
constexpr std::size_t mostEventBytes = std::size_t{128} * 1024;
constexpr std::size_t mostEventIds = 64;

struct Record {
    std::mutex lock;  ///< guards what follows, for a copy
    DeliveryRecord deliveries;
    std::deque<EventNote> events;
    std::size_t eventBytes = 0;
    EventTotals totals;
    std::set<int> ids;
    std::optional<SentInventory> inventory;
    bool isInventoryWanted = false;

    // Without it.
    std::atomic<std::uint64_t> frames{0};
    std::array<std::atomic<std::uint64_t>, rmcStepNames.size()> failures{};

    template <class Change>
    void change(const std::string& command, Change change) {
        {
            const std::lock_guard<std::mutex> held(lock);
            change(command == "WriteInventory" ? deliveries.inventories : deliveries.events);
        }
        noteNews();
    }

    void keep(EventNote note) {
        eventBytes += note.text.size();
        events.push_back(std::move(note));
        while (events.size() > mostEvents || (eventBytes > mostEventBytes && events.size() > 1)) {
            eventBytes -= events.front().text.size();
            events.pop_front();
        }
    }

    void count(int id, EventOutcome outcome) {
        const bool isCounted = ids.contains(id) || ids.size() < mostEventIds;
        if (isCounted) ids.insert(id);
        ++totals[{isCounted ? id : 0, outcome}];
    }
};

Record& record() {
    static Record* const instance = new Record;  // outlives every thread
    return *instance;
}

Json::Value asJson(const Delivery& delivery) {
    Json::Value json;
    json["Acknowledged"] = Json::Int64{delivery.acknowledged};
    json["Failed"] = Json::Int64{delivery.failed};
    json["Failures"] = delivery.failures;
    json["Why"] = jsonText(delivery.why);
    json["TookMilliseconds"] = Json::Int64{delivery.took.count()};
    json["AcknowledgedInAll"] = Json::UInt64{delivery.acknowledgedInAll};
    json["FailedInAll"] = Json::UInt64{delivery.failedInAll};
    return json;
}

Delivery fromJson(const Json::Value& json) {
    return {static_cast<std::time_t>(json["Acknowledged"].asInt64()),
            static_cast<std::time_t>(json["Failed"].asInt64()),
            json["Failures"].asUInt(),
            json["Why"].asString(),
            std::chrono::milliseconds(json["TookMilliseconds"].asInt64()),
            json["AcknowledgedInAll"].asUInt64(),
            json["FailedInAll"].asUInt64()};
}

}  // namespace

Json::Value renderDeliveryRecord(const DeliveryRecord& record) {
    Json::Value json;
    json["Inventories"] = asJson(record.inventories);
    json["Events"] = asJson(record.events);
    return json;
}

std::optional<DeliveryRecord> parseDeliveryRecord(const Json::Value& json) {
    try {
        if (json.isObject() && json.isMember("Inventories") && json.isMember("Events")) {
            return DeliveryRecord{fromJson(json["Inventories"]), fromJson(json["Events"])};
        }
    } catch (const std::exception&) {  // members of another kind
    }
    return std::nullopt;
}

DeliveryRecord deliveryRecord() {
    const std::lock_guard<std::mutex> held(record().lock);
    return record().deliveries;
}

std::vector<EventNote> recentEvents() {
    const std::lock_guard<std::mutex> held(record().lock);
    return {record().events.begin(), record().events.end()};
}

EventTotals eventTotals() {
    const std::lock_guard<std::mutex> held(record().lock);
    return record().totals;
}

std::optional<SentInventory> takeSentInventory() {
    const std::lock_guard<std::mutex> held(record().lock);
    record().isInventoryWanted = true;
    return std::exchange(record().inventory, std::nullopt);
}

RmcFigures rmcFigures() {
    RmcFigures figures{record().frames, {}};
    for (std::size_t i = 0; i < figures.failures.size(); ++i)
        figures.failures.at(i) = record().failures.at(i);
    return figures;
}

void noteDelivered(const std::string& command, std::chrono::milliseconds took) {
    record().change(command, [&](Delivery& delivery) {
        delivery.acknowledged = std::time(nullptr);
        delivery.failures = 0;
        delivery.took = took;
        ++delivery.acknowledgedInAll;
    });
}

void noteFailed(const std::string& command, const std::string& why) {
    record().change(command, [&](Delivery& delivery) {
        delivery.failed = std::time(nullptr);
        ++delivery.failures;
        delivery.why = why;
        ++delivery.failedInAll;
    });
}

void noteEvent(EventNote note) {
    {
        const std::lock_guard<std::mutex> held(record().lock);
        note.time = std::time(nullptr);
        record().count(note.id, note.outcome);
        record().keep(std::move(note));
    }
    noteNews();
}

void noteInventory(SentInventory sent) {
    {
        const std::lock_guard<std::mutex> held(record().lock);
        if (!record().isInventoryWanted) return;
        record().inventory = std::move(sent);
    }
    noteNews();
}

void noteFrame() noexcept {
    ++record().frames;
}

void noteFailureAt(RmcStep step) noexcept {
    ++record().failures[static_cast<std::size_t>(step)];
}

}  // namespace tav
