#pragma once

#include <chrono>
#include <cstdlib>

/// The clock of the simulated world, which runs as much faster than the real one as the service's
/// does: TAV_CLOCK_SPEED times.
namespace tav::sim {

inline int clockSpeed() {
    static const int speed = [] {
        const char* const wanted = std::getenv("TAV_CLOCK_SPEED");
        const int number = wanted == nullptr ? 1 : std::atoi(wanted);
        return number > 0 ? number : 1;
    }();
    return speed;
}

/// How long a time of the simulated world really takes.
inline std::chrono::microseconds realTime(std::chrono::milliseconds simulated) {
    return std::chrono::ceil<std::chrono::microseconds>(simulated) / clockSpeed();
}

}  // namespace tav::sim
