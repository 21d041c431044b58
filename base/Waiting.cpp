#include "base/Waiting.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>

#include <poll.h>

#include "base/StopSignal.h"

namespace tav {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using SteadyClock = std::chrono::steady_clock;

/// Longer waits are cut to this, so that their end can be told in nanoseconds.
constexpr auto longestWait = std::chrono::hours(24 * 365 * 10);

std::optional<nanoseconds> sinceBeginOf(clockid_t clock) {
    timespec moment{};
    if (::clock_gettime(clock, &moment) != 0) return std::nullopt;
    return std::chrono::seconds(moment.tv_sec) + nanoseconds(moment.tv_nsec);
}

std::optional<nanoseconds> steadyNow() {
    return sinceBeginOf(CLOCK_MONOTONIC);
}

/// What the library's clock showed when the monotonic one began.
nanoseconds steadyBegin() {
    static const nanoseconds begin = sinceBeginOf(CLOCK_REALTIME).value_or(nanoseconds(0)) -
                                     steadyNow().value_or(nanoseconds(0));
    return begin;
}

int pollTimeout(const TimeLimit& limit) {
    return static_cast<int>(
        std::min<long long>(limit.left().count(), std::numeric_limits<int>::max()));
}

int stopDescriptor() {
    const StopSignal* const stop = currentStop();
    return stop == nullptr ? -1 : stop->descriptor();
}

}  // namespace

std::optional<Deadline> Deadline::after(std::chrono::seconds wait) {
    const std::optional<nanoseconds> steady = steadyNow();
    if (!steady) return std::nullopt;
    return Deadline(steadyBegin() + *steady + std::min<std::chrono::seconds>(wait, longestWait));
}

std::time_t Deadline::seconds() const noexcept {
    return static_cast<std::time_t>(std::chrono::floor<std::chrono::seconds>(moment_).count());
}

std::time_t secondsNow() {
    const nanoseconds now = steadyBegin() + steadyNow().value_or(nanoseconds(0));
    return static_cast<std::time_t>(std::chrono::floor<std::chrono::seconds>(now).count());
}

Wake waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
               const Deadline& deadline) {
    const SteadyClock::time_point moment(deadline.moment() - steadyBegin());
    return condition.wait_until(lock, moment) == std::cv_status::timeout ? Wake::TimedOut
                                                                         : Wake::Signalled;
}

Pause pauseFor(milliseconds pause) {
    return waitReadable(-1, TimeLimit(pause)) == Readable::Stopped ? Pause::Stopped
                                                                   : Pause::Finished;
}

TimeLimit::TimeLimit(milliseconds limit) : end_(SteadyClock::now() + limit) {}

milliseconds TimeLimit::left() const {
    const auto left = std::chrono::ceil<milliseconds>(end_ - SteadyClock::now());
    return std::max(left, milliseconds(0));
}

Stopwatch::Stopwatch() : begin_(SteadyClock::now()) {}

milliseconds Stopwatch::elapsed() const {
    return std::chrono::floor<milliseconds>(SteadyClock::now() - begin_);
}

Readable waitReadable(int descriptor, const TimeLimit& limit) {
    std::array<pollfd, 2> watched{{{descriptor, POLLIN, 0}, {stopDescriptor(), POLLIN, 0}}};
    const nfds_t count = watched[1].fd < 0 ? 1 : 2;  // each one costs, even one that is not open
    while (true) {
        const int timeout = pollTimeout(limit);
        const int ready = ::poll(watched.data(), count, timeout);
        if (ready < 0 && errno != EINTR) return Readable::Failed;
        if (ready > 0 && watched[0].revents != 0) {
            return (watched[0].revents & POLLIN) != 0 ? Readable::Ready : Readable::Failed;
        }
        if (stopRequested()) return Readable::Stopped;
        if (timeout == 0) return Readable::TimedOut;
    }
}

}  // namespace tav
