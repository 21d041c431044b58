#pragma once

#include <chrono>
#include <string>

#include "rmc/DeliveryRecord.h"

/// What those who send write into the record of deliveries (rmc/DeliveryRecord.h). Any thread.
namespace tav {

/// The controller has taken `command`, whose transfer took that long.
void noteDelivered(const std::string& command, std::chrono::milliseconds took);

/// `command` has not reached the controller, for that reason.
void noteFailed(const std::string& command, const std::string& why);

/// What became of one event; its time is set here.
void noteEvent(EventNote note);

/// What was sent as the inventory.
void noteInventory(SentInventory inventory);

/// The controller has answered a frame. No lock.
void noteFrame() noexcept;
/// Something has failed on its way. No lock.
void noteFailureAt(RmcStep step) noexcept;

}  // namespace tav
