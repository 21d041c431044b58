#pragma once

#include <atomic>

#include "base/Export.h"
#include "base/FileDescriptor.h"

namespace tav {

/// Tells the work done on behalf of one thread that its owner wants it to end.
///
/// A condition variable wakes a thread that waits for its own work; it cannot wake one that sleeps
/// inside a host command or waits for a device. Those waits watch the stop signal of the thread
/// they run on (currentStop()) and end early. Any thread may call request(), also a signal handler.
class TAV_API StopSignal {
 public:
    StopSignal();

    void request() noexcept;
    /// Takes the request back, so that the owner can be started again. While nobody waits for it.
    void withdraw() noexcept;
    bool requested() const noexcept { return requested_.load(std::memory_order_acquire); }

    /// Readable once the stop has been requested, for poll(). Never read from it.
    int descriptor() const noexcept { return event_.get(); }

 private:
    FileDescriptor event_;
    std::atomic<bool> requested_{false};
};

/// The stop signal of the calling thread, or null where nobody asked for one.
TAV_API const StopSignal* currentStop() noexcept;

/// Whether the calling thread has been asked to stop.
inline bool stopRequested() noexcept {
    const StopSignal* const stop = currentStop();
    return stop != nullptr && stop->requested();
}

/// Makes `stop` (which may be null) the calling thread's stop signal for the scope's lifetime.
class TAV_API StopScope {
 public:
    explicit StopScope(const StopSignal* stop) noexcept;
    StopScope(const StopScope&) = delete;
    StopScope& operator=(const StopScope&) = delete;
    ~StopScope();

 private:
    const StopSignal* previous_;
};

}  // namespace tav
