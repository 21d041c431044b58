#pragma once

#include <atomic>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "base/Export.h"

/// Which of the process's loops stand still: what a service asks before it tells a watchdog that
/// all is well.
namespace tav {

struct StandingLoop {
    std::string name;              ///< of its thread, for example "tav-host"
    std::chrono::seconds overdue;  ///< since its patience has been over
};

/// One loop: a thread that waits, works, and waits again. It is told what the loop does, and knows
/// by when it must be told anew: a wait may take as long as was said, and work as long as the loop
/// has patience with it. Begun and told by the loop's own thread, ended by any.
class TAV_API LoopWatch {
 public:
    using Clock = std::chrono::steady_clock;

    /// No single thing that a loop does may take longer: a host command may take five minutes.
    static constexpr std::chrono::seconds usualPatience = std::chrono::minutes(10);

    explicit LoopWatch(std::chrono::seconds patience = usualPatience) : patience_(patience) {}
    LoopWatch(const LoopWatch&) = delete;
    LoopWatch& operator=(const LoopWatch&) = delete;
    ~LoopWatch() { ends(); }

    /// From now on the loop is watched, under the name of the calling thread. It works.
    void begins();

    /// It waits for at most that long; without an argument, until something comes.
    void waits(std::optional<std::chrono::seconds> longest = std::nullopt);

    /// It works.
    void works();

    /// It has been asked to stop, and is watched no longer. What it says afterwards is not heard.
    void ends();

    /// For what takes long within a loop's work, as one host command or one exchange with the
    /// controller does: the calling thread's loop works, and has come a step further.
    static void advances();

    /// The watched loops whose patience is over at that moment, those among them whose threads have
    /// ended unasked. Any thread; waits for no loop.
    static std::vector<StandingLoop> standingStill(Clock::time_point now = Clock::now());

 private:
    void due(Clock::time_point when) { due_.store(when.time_since_epoch().count()); }

    const std::chrono::seconds patience_;
    std::string name_;  ///< under the registry's lock, as is whether the registry knows it
    std::atomic<Clock::rep> due_{0};
};

/// Tells the watch that its loop waits, for the scope's lifetime.
class LoopWaits {
 public:
    explicit LoopWaits(LoopWatch& watch, std::optional<std::chrono::seconds> longest = std::nullopt)
        : watch_(watch) {
        watch_.waits(longest);
    }
    LoopWaits(const LoopWaits&) = delete;
    LoopWaits& operator=(const LoopWaits&) = delete;
    ~LoopWaits() { watch_.works(); }

 private:
    LoopWatch& watch_;
};

}  // namespace tav
