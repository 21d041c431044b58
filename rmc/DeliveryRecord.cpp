#include "rmc/DeliveryRecord.h"

#include <mutex>

#include "base/StopSignal.h"

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

}  // namespace

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
