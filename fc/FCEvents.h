#pragma once

#include <optional>
#include <string>
#include <vector>

#include "fc/FCRecords.h"

/// Which event a change of a Fibre Channel port's condition is, and what the event says.
namespace tav {

/// The event for a port that has come into that state; absent for states without one.
std::optional<int> fcEventOf(TAV_RESOURCE_STATE state);

/// Whether the event calls for service.
bool isFcServiceEvent(int eventId);

/// The event's explaining text; empty for none. Event 0 is the injected one.
std::string fcEventText(int eventId);

/// What was known of the port in the build before, or null. A port is told by its node's name, and
/// among several ports of one node by its own. `current` are the ports of this build: what was
/// known of one of them is not taken for another's.
const tavFCDeviceInfo* findPreviousFcPort(const tavFCDeviceInfo& port,
                                          const std::vector<tavFCDeviceInfo>& previous,
                                          const std::vector<tavFCDeviceInfo>& current);

}  // namespace tav
