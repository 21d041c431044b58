#pragma once

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <ctime>
#include <mutex>
#include <optional>

#include "base/Export.h"
#include "base/StopSignal.h"
#include "base/Waiting.h"
#include "core/Log.h"
#include "core/LoopWatch.h"

namespace tav {

/// Why a manager's loop woke up.
struct LoopWake {
    bool stop = false;         ///< the loop is to end
    bool refresh = false;      ///< a build was asked for; the request has been taken
    bool look = false;         ///< likewise a look at what may have changed
    bool clockFailed = false;  ///< nothing was waited for, because no deadline could be made
    /// The deadline, comparable with secondsNow(), when the wait ended by it.
    std::optional<std::time_t> deadline;

    /// Seconds from `moment` to the deadline; 0 when the wait did not end by its deadline.
    std::time_t elapsedSince(std::time_t moment) const { return deadline ? *deadline - moment : 0; }
};

/// The waiting half of a resource manager: its lock, its condition and what can be asked of its
/// loop. The lock guards the requests alone and is held while nothing else is called.
class TAV_API ManagerLoop {
 public:
    /// A loop begins with a refresh already asked for, so that its first round builds.
    ManagerLoop() = default;

    /// Waits until a stop, a refresh or a look is asked for (also before the call), any signal
    /// arrives, or `step` has passed. Loop's thread only. When no clock can be read, errno tells
    /// why.
    LoopWake wait(std::chrono::seconds step);

    /// Calls `round(wake)` whenever the loop wakes, until a stop is asked for or no clock can be
    /// read. Loop's thread only.
    template <class Round>
    void run(std::chrono::seconds step, const ModuleLog& logger, Round round) {
        while (true) {
            const LoopWake wake = wait(step);
            if (wake.clockFailed) {
                logger.error(here(), "Failed to get current time! (errno: %d)", errno);
            }
            if (wake.clockFailed || wake.stop) return;
            round(wake);
        }
    }

    /// Any thread.
    void requestStop();
    void requestRefresh();
    void requestLook();

    /// Forgets a stop and begins again with a refresh. While no thread is in the loop.
    void reset();

    /// For the loop's thread, so that its commands and pauses end with a stop.
    const StopSignal* stopSignal() const { return &stopSignal_; }

 private:
    std::mutex cmutex_;
    std::condition_variable cond_;
    bool stop_ = false;
    bool refresh_ = true;
    bool look_ = false;
    StopSignal stopSignal_;
    LoopWatch watch_;
};

/// Whether a manager's inventory may be sent, and whether its next build has to ask for a push.
class TAV_API Readiness {
 public:
    /// The aggregator's question in waiting round `iteration`, 0 to 8. A manager that is not ready
    /// in the last round will be told so by complete(). Any thread.
    bool answer(int iteration);

    /// The next build that begins is to ask for a push. Any thread.
    void askForPush() { pushAsked_ = true; }

    /// A build begins. A request that comes from now on may be about something that it has passed
    /// by, and stands for the next one too. Manager's thread, as what follows.
    void begin() {
        askedBefore_ = pushAsked_.exchange(false);
        hasFailed_ = false;
    }
    /// It has found nothing out: what it was asked for is left to the next one.
    void fail();
    /// A build has been completed; returns whether it has to ask for a push.
    bool complete();

    /// As it was before the first build. While no thread builds.
    void reset();

    bool isReady() const { return ready_; }

 private:
    std::atomic<bool> ready_{false};
    std::atomic<bool> isAwaited_{false};  ///< the aggregator did not wait any longer
    std::atomic<bool> pushAsked_{false};
    bool askedBefore_ = false;  ///< the build that runs
    bool hasFailed_ = false;    ///< likewise
};

/// Whether a loop that begins has nothing to do, because the inventory is only seconds old.
inline bool isRecent(std::time_t lastRefresh) {
    constexpr std::time_t recentSeconds = 3;
    return lastRefresh != 0 && secondsNow() - lastRefresh < recentSeconds;
}

}  // namespace tav
