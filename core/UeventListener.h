#pragma once

#include <functional>
#include <thread>

#include "base/FileDescriptor.h"
#include "base/StopSignal.h"
#include "core/Uevent.h"

namespace tav {

/// The socket on which the kernel tells of its devices; not open where it cannot be had, and the
/// log then says why.
FileDescriptor openUeventSocket();

/// Tells its owner that the kernel has told of devices which concern it, so that the owner looks at
/// once instead of at the next moment that it would have looked anyway: what is not heard is seen
/// later, and nothing else. What the kernel had no room for counts as told.
///
/// The owner is told once for all that comes with pauses of less than a tenth of a second, at the
/// latest after half a second; again after a second at the earliest, and while the kernel goes on
/// telling, after twice the time before, up to ten seconds. A thread of its own waits for the
/// kernel.
class UeventListener {
 public:
    using Concerns = bool (*)(const Uevent& event);

    /// Listens until its own end. `threadName` is a literal of at most 15 characters. `tell` is
    /// called on the listener's thread and must not wait for anything.
    UeventListener(FileDescriptor socket, const char* threadName, Concerns concerns,
                   std::function<void()> tell);
    UeventListener(const UeventListener&) = delete;
    UeventListener& operator=(const UeventListener&) = delete;
    ~UeventListener();

 private:
    void listen();
    bool settles();
    bool takeAll();

    FileDescriptor socket_;
    const Concerns concerns_;
    const std::function<void()> tell_;
    StopSignal stop_;
    std::thread thread_;
};

}  // namespace tav
