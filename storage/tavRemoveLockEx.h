#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>

#include "core/Export.h"

/// Guards callbacks of somebody else's threads against the end of what they work on: counts those
/// that run, lets no further one begin while a stop is wanted, and lets the stopper wait for the
/// last. Any thread; its lock is held while nothing else is called.
class TAV_API tavRemoveLockEx {
 public:
    /// One callback, from its first line to its last.
    class Callback {
     public:
        explicit Callback(tavRemoveLockEx& lock) : lock_(lock), entered_(lock.enter()) {}
        Callback(const Callback&) = delete;
        Callback& operator=(const Callback&) = delete;
        ~Callback() {
            if (entered_) lock_.leave();
        }
        /// False when it came after the stop: it has to return at once.
        bool mayRun() const { return entered_; }

     private:
        tavRemoveLockEx& lock_;
        const bool entered_;
    };

    /// Lets no further callback begin and waits for those that run. Not from within a callback.
    void stopAndWait();
    /// Lets callbacks begin again.
    void reopen();

 private:
    bool enter();
    void leave();

    std::mutex mutex_;
    std::condition_variable finished_;
    std::size_t running_ = 0;
    bool stopping_ = false;
};
