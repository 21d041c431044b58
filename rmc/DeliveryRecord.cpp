#include "rmc/DeliveryRecord.h"

#include <exception>
#include <memory>
#include <mutex>

#include <json/reader.h>
#include <json/value.h>

#include "base/JsonText.h"
#include "base/StopSignal.h"
#include "rmc/DeliveryNotes.h"

namespace tav {
namespace {

struct Record {
    std::mutex lock;
    DeliveryRecord deliveries;
    StopSignal news;  ///< requested: there are some

    template <class Change>
    void change(const std::string& command, Change change) {
        const std::lock_guard<std::mutex> held(lock);
        change(command == "WriteInventory" ? deliveries.inventories : deliveries.events);
        news.request();
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
    return json;
}

Delivery fromJson(const Json::Value& json) {
    return {static_cast<std::time_t>(json["Acknowledged"].asInt64()),
            static_cast<std::time_t>(json["Failed"].asInt64()), json["Failures"].asUInt(),
            json["Why"].asString()};
}

}  // namespace

std::string renderDeliveryRecord(const DeliveryRecord& record) {
    Json::Value json;
    json["Inventories"] = asJson(record.inventories);
    json["Events"] = asJson(record.events);
    return compactJson(json) + '\n';
}

std::optional<DeliveryRecord> parseDeliveryRecord(const std::string& text) {
    try {
        Json::Value json;
        const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
        if (reader->parse(text.data(), text.data() + text.size(), &json, nullptr)) {
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

int deliveryNews() {
    return record().news.descriptor();
}

void deliveryNewsTaken() {
    record().news.withdraw();
}

void noteDelivered(const std::string& command) {
    record().change(command, [](Delivery& delivery) {
        delivery.acknowledged = std::time(nullptr);
        delivery.failures = 0;
    });
}

void noteFailed(const std::string& command, const std::string& why) {
    record().change(command, [&](Delivery& delivery) {
        delivery.failed = std::time(nullptr);
        ++delivery.failures;
        delivery.why = why;
    });
}

}  // namespace tav
