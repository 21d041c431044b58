/// Implements base/Waiting.h on a clock that the tests speed up or break.
#include "tests/support/FastWaiting.h"

#include <algorithm>
#include <cerrno>

#include <poll.h>

#include "base/StopSignal.h"
#include "base/Waiting.h"

namespace tav {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using SteadyClock = std::chrono::steady_clock;

/// The fast clock goes on from here; who sets the real-time clock does not move it.
const SteadyClock::time_point steadyStart = SteadyClock::now();
const nanoseconds clockStart = std::chrono::system_clock::now().time_since_epoch();

milliseconds realTime(nanoseconds fast) {
    return std::chrono::ceil<milliseconds>(fast / test::clockSpeed.load());
}

}  // namespace

nanoseconds test::fastNow() {
    return clockStart + (SteadyClock::now() - steadyStart) * clockSpeed.load();
}

std::optional<Deadline> Deadline::after(std::chrono::seconds wait) {
    if (test::clockFails) {
        errno = EIO;
        return std::nullopt;
    }
    return Deadline(test::fastNow() + wait);
}

std::time_t Deadline::seconds() const noexcept {
    return std::chrono::floor<std::chrono::seconds>(moment_).count();
}

std::time_t secondsNow() {
    return std::chrono::floor<std::chrono::seconds>(test::fastNow()).count();
}

Wake waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
               const Deadline& deadline) {
    const auto end = SteadyClock::now() + realTime(deadline.moment() - test::fastNow());
    return condition.wait_until(lock, end) == std::cv_status::timeout ? Wake::TimedOut
                                                                      : Wake::Signalled;
}

Pause pauseFor(milliseconds pause) {
    return waitReadable(-1, TimeLimit(pause)) == Readable::Stopped ? Pause::Stopped
                                                                   : Pause::Finished;
}

TimeLimit::TimeLimit(milliseconds limit)
    : end_(std::chrono::steady_clock::now() + realTime(limit)) {}

milliseconds TimeLimit::left() const {
    const auto left = std::chrono::ceil<milliseconds>(end_ - std::chrono::steady_clock::now());
    return std::max(left, milliseconds(0));
}

Stopwatch::Stopwatch() : begin_(std::chrono::steady_clock::now()) {}

milliseconds Stopwatch::elapsed() const {
    const auto passed = std::chrono::steady_clock::now() - begin_;
    return std::chrono::floor<milliseconds>(passed * test::clockSpeed.load());
}

Readable waitReadable(int descriptor, const TimeLimit& limit) {
    const StopSignal* const stop = currentStop();
    while (true) {
        const int timeout = static_cast<int>(limit.left().count());
        pollfd watched[2] = {{descriptor, POLLIN, 0},
                             {stop == nullptr ? -1 : stop->descriptor(), POLLIN, 0}};
        const int ready = ::poll(watched, 2, timeout);
        if (ready < 0 && errno != EINTR) return Readable::Failed;
        if (ready > 0 && watched[0].revents != 0) {
            return (watched[0].revents & POLLIN) != 0 ? Readable::Ready : Readable::Failed;
        }
        if (stopRequested()) return Readable::Stopped;
        if (timeout == 0) return Readable::TimedOut;
    }
}

}  // namespace tav
