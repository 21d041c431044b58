#pragma once

#include <string>

/// What those who send write into the record of deliveries (rmc/DeliveryRecord.h). Any thread.
namespace tav {

/// The controller has taken `command`.
void noteDelivered(const std::string& command);

/// `command` has not reached the controller, for that reason.
void noteFailed(const std::string& command, const std::string& why);

}  // namespace tav
