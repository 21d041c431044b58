#pragma once

#include <chrono>
#include <condition_variable>
#include <ctime>
#include <mutex>
#include <optional>

#include "base/Export.h"

/// The library's intervals, pauses and patience go through these functions. The tests link a faster
/// implementation of this header, so that nobody waits a real day for a push interval to end. What
/// bounds a wait for what hangs (a command, driver, lane, the system log) is real time, kept there.
namespace tav {

/// A moment on the library's clock. That clock shows what the real-time clock showed when it was
/// first looked at, and goes on by the monotonic one: who sets the real-time clock puts nothing
/// off.
class TAV_API Deadline {
 public:
    /// `wait` from now, at most ten years. Empty when the clock cannot be read; errno then tells
    /// why.
    static std::optional<Deadline> after(std::chrono::seconds wait);

    /// In whole seconds, comparable with secondsNow().
    std::time_t seconds() const noexcept;
    std::chrono::nanoseconds moment() const noexcept { return moment_; }

 private:
    explicit Deadline(std::chrono::nanoseconds moment) noexcept : moment_(moment) {}
    std::chrono::nanoseconds moment_;
};

/// The library's clock in whole seconds: to tell how much time has passed, not what time it is.
TAV_API std::time_t secondsNow();

enum class Wake { Signalled, TimedOut };

/// Waits on `condition` until it is signalled (or wakes for no reason) or the deadline passes.
TAV_API Wake waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                       const Deadline& deadline);

enum class Pause { Finished, Stopped };

/// Pauses the calling thread; ends early when the thread's stop signal is set.
TAV_API Pause pauseFor(std::chrono::milliseconds pause);

/// How much longer something may take.
class TAV_API TimeLimit {
 public:
    explicit TimeLimit(std::chrono::milliseconds limit);
    /// What is left of it in real milliseconds, rounded up; 0 when it is over.
    std::chrono::milliseconds left() const;

 private:
    std::chrono::steady_clock::time_point end_;
};

/// How long something has taken, on the clock that nobody sets.
class TAV_API Stopwatch {
 public:
    Stopwatch();
    std::chrono::milliseconds elapsed() const;

 private:
    std::chrono::steady_clock::time_point begin_;
};

enum class Readable { Ready, TimedOut, Stopped, Failed };

/// Waits until `descriptor` can be read or the limit is over. Stopped: the thread's stop signal was
/// set before the descriptor became readable. Failed: it is not one that can be waited for.
TAV_API Readable waitReadable(int descriptor, const TimeLimit& limit);

}  // namespace tav
