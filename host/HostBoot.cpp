#include "host/HostBoot.h"

#include <charconv>

#include "base/Trim.h"

namespace tav {

bool bootEventsAreDue(long sent, long booted) {
    return sent == 0 || sent < booted;
}

std::optional<int> shutdownEvent(long previousBoot, long shutdown, long currentBoot) {
    constexpr int gracefulShutdown = 359;
    constexpr int criticalShutdown = 360;
    if (previousBoot == 0 && shutdown == 0) return std::nullopt;
    return previousBoot < shutdown && shutdown < currentBoot ? gracefulShutdown : criticalShutdown;
}

std::optional<long> parseStartupHistory(std::string_view text) {
    text = trimStart(text);
    long seconds = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (failure != std::errc()) return std::nullopt;
    return seconds;
}

}  // namespace tav
