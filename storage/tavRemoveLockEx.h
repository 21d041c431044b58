#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>

#include "base/Export.h"
#include "base/StopSignal.h"

/// Guards callbacks of somebody else's threads against the end of what they work on: counts those
/// that run, lets no further one begin while a stop is wanted, and lets the stopper wait for the
/// last, which may hang. Any thread; its lock is held while nothing else is called.
class TAV_API tavRemoveLockEx {
 public:
    /// One callback, from its first line to its last. What it waits for ends early when the stop
    /// comes meanwhile.
    class Callback {
     public:
        explicit Callback(tavRemoveLockEx& lock)
            : lock_(lock), stop_(lock.enter()), scope_(stop_.get()) {}
        Callback(const Callback&) = delete;
        Callback& operator=(const Callback&) = delete;
        ~Callback() {
            if (mayRun()) lock_.leave();
        }
        /// False when it came after the stop: it has to return at once.
        bool mayRun() const { return stop_ != nullptr; }

     private:
        tavRemoveLockEx& lock_;
        const std::shared_ptr<const tav::StopSignal> stop_;
        const tav::StopScope scope_;
    };

    /// A stop lets the callbacks that run finish undisturbed for this long; then their waits end.
    static constexpr std::chrono::milliseconds undisturbed{800};
    /// No stop waits longer for callbacks.
    static constexpr std::chrono::milliseconds longestWait{1300};

    /// Lets no further callback begin and waits for those that run. False when some are left
    /// behind. Both times count from the first call. Not from within a callback.
    bool stopAndWait();
    /// Lets callbacks begin again.
    void reopen();

 private:
    /// Null while a stop is wanted.
    std::shared_ptr<const tav::StopSignal> enter();
    void leave();

    std::mutex mutex_;
    std::condition_variable finished_;
    bool waitForCallbacks(std::unique_lock<std::mutex>& held, std::chrono::milliseconds end);

    std::size_t running_ = 0;
    std::optional<std::chrono::steady_clock::time_point> stopping_;  ///< since a stop is wanted
    std::shared_ptr<tav::StopSignal> stop_ = std::make_shared<tav::StopSignal>();
};
