#pragma once

#include <atomic>
#include <chrono>
#include <ctime>

namespace bench {

/// What the library does beside the system calls with which it reads the kernel and asks the disks:
/// the program is linked so that each of these goes through a wrapper that takes its time.
struct CallTimes {
    std::atomic<long> calls{0};
    std::atomic<long> requests{0};              ///< of these ioctl()
    std::atomic<long> nanoseconds{0};           ///< inside all of them
    std::atomic<long> processorNanoseconds{0};  ///< of the processor, likewise
    std::atomic<long> allocations{0};           ///< outside them
    std::atomic<long> formatted{0};             ///< log messages and other texts put together
};

inline CallTimes callTimes;

/// How deep the thread is in such calls: the simulated disks make some themselves.
inline thread_local int callDepth = 0;

inline long threadNanoseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return now.tv_sec * 1'000'000'000L + now.tv_nsec;
}

template <class Call>
auto timed(Call call) {
    if (callDepth > 0) return call();
    ++callDepth;
    const long busy = threadNanoseconds();
    const auto start = std::chrono::steady_clock::now();
    const auto result = call();
    callTimes.nanoseconds += (std::chrono::steady_clock::now() - start).count();
    callTimes.processorNanoseconds += threadNanoseconds() - busy;
    ++callTimes.calls;
    --callDepth;
    return result;
}

}  // namespace bench
