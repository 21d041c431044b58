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
using SteadyClock = std::chrono::steady_clock;

/// Longer waits are cut to this, so that their end can be told in nanoseconds.
constexpr auto longestWait = std::chrono::hours(24 * 365 * 10);

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
    timespec moment{};
    if (::clock_gettime(CLOCK_REALTIME, &moment) != 0) return std::nullopt;
    const long long room =
        std::min<long long>(std::numeric_limits<std::time_t>::max() - moment.tv_sec,
                            std::chrono::seconds(longestWait).count());
    moment.tv_sec += static_cast<std::time_t>(std::min<long long>(wait.count(), room));
    return Deadline(moment);
}

std::time_t secondsNow() {
    return std::time(nullptr);
}

Wake waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
               const Deadline& deadline) {
    const std::chrono::system_clock::time_point moment(
        std::chrono::duration_cast<std::chrono::system_clock::duration>(
            std::chrono::seconds(deadline.moment().tv_sec) +
            std::chrono::nanoseconds(deadline.moment().tv_nsec)));
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
