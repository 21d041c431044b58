#pragma once

#include <chrono>
#include <string>
#include <thread>

#include <unistd.h>

/// What hangs on request: as long as the file /run/sim/hang/NAME exists, NAME does not go on.
namespace tav::sim {

inline void hangWhileTold(const std::string& name) {
    constexpr std::chrono::milliseconds recheck{2};
    const std::string order = "/run/sim/hang/" + name;
    while (::access(order.c_str(), F_OK) == 0)
        std::this_thread::sleep_for(recheck);
}

/// Whether it has been told to fail: the file /run/sim/fail/NAME exists.
inline bool isToldToFail(const std::string& name) {
    return ::access(("/run/sim/fail/" + name).c_str(), F_OK) == 0;
}

}  // namespace tav::sim
