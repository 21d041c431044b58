#pragma once

#include <optional>
#include <string_view>

namespace tav {

/// Whether the events of the present boot still have to be sent: nothing is known to have been sent
/// (`sent` 0) since the host booted.
bool bootEventsAreDue(long sent, long booted);

/// The event that tells how the host went down before the present boot: 359 when it was told to
/// (between the previous and the present boot), 360 when not. None when nothing is known.
std::optional<int> shutdownEvent(long previousBoot, long shutdown, long currentBoot);

/// The time in a startup history; empty when it begins with no number.
std::optional<long> parseStartupHistory(std::string_view text);

}  // namespace tav
