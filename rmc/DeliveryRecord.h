#pragma once

#include <ctime>
#include <optional>
#include <string>

#include "base/Export.h"

/// What has become of the commands that were sent to the management controller, for those who tell
/// an operator about it. Any thread.
namespace tav {

/// Of one kind of command. Times are in seconds since the epoch, 0 for never.
struct Delivery {
    std::time_t acknowledged = 0;  ///< the last that the controller has taken
    std::time_t failed = 0;        ///< the last that has failed
    unsigned failures = 0;         ///< how many have failed since the last that was taken
    std::string why;               ///< the last of them
};

struct DeliveryRecord {
    Delivery inventories;
    Delivery events;
};

TAV_API DeliveryRecord deliveryRecord();

/// Readable, for poll(), once the record has changed since deliveryNewsTaken(). -1: there is none.
TAV_API int deliveryNews();
TAV_API void deliveryNewsTaken();

/// Where a service keeps the record for others to read: JSON, replaced as a whole.
inline constexpr const char* deliveryRecordFile = "/run/tavd/deliveries.json";

TAV_API std::string renderDeliveryRecord(const DeliveryRecord& record);
/// None for what is no record.
TAV_API std::optional<DeliveryRecord> parseDeliveryRecord(const std::string& text);

}  // namespace tav
