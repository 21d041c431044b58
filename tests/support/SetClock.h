#pragma once

#include <atomic>
#include <cerrno>
#include <chrono>
#include <ctime>

#include <unistd.h>

#include <sys/syscall.h>

/// Include this in one source of a test: the clock on the wall of the process can be set from then
/// on, as it can for the whole machine by anybody who may.
namespace tav::test {
inline std::atomic<std::chrono::seconds> wallClockAhead{std::chrono::seconds(0)};
}

extern "C" int clock_gettime(clockid_t clock, struct timespec* moment) noexcept {
    const long result = ::syscall(SYS_clock_gettime, clock, moment);
    if (result == 0 && clock == CLOCK_REALTIME) {
        moment->tv_sec += tav::test::wallClockAhead.load().count();
    }
    return static_cast<int>(result);
}
