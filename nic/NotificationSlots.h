#pragma once

#include <array>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <vector>

#include "base/Export.h"

namespace tav {

/// Kernel messages as they were received: one batch or several behind each other.
using Notification = std::vector<std::byte>;

/// Hands notifications from the thread that receives them to the one that applies them. Has twelve
/// slots, each with room for several; what finds none is dropped, and the taker is told that
/// something was missed, so that it can look for itself. Its lock is held while slots are filled or
/// emptied, and nothing else is called.
class TAV_API NotificationSlots {
 public:
    static constexpr std::size_t slotCount = 12;
    static constexpr std::size_t slotSize = 65536;  ///< bytes; a batch may have as many

    /// What take() hands over.
    struct Work {
        std::vector<Notification> notifications;  ///< in the order of their arrival
        bool missed = false;                      ///< some were lost before or between them
        bool stopped = false;                     ///< nothing will follow
    };

    /// Posts a notification: behind those of the last filled slot, or, where it has no room for it,
    /// in the next one. With all slots filled it waits until some are emptied and drops the
    /// notification; false then. Receiver's thread.
    bool post(Notification notification);

    /// Something could not be received. Receiver's thread.
    void reportMissed();

    /// Waits for work and empties all slots. Taker's thread.
    Work take();

    /// Ends the waiting of both threads, for good until restart(). Any thread.
    void stop();

    /// Makes empty slots of those that a stopped pair of threads has left. No thread uses them.
    void restart();

    bool isStopped() const;

 private:
    bool appendToLast(const Notification& notification);

    mutable std::mutex cmutex_;
    std::condition_variable startConsumer_;
    std::condition_variable startProducer_;
    std::array<Notification, slotCount> slots_;
    std::size_t filled_ = 0;
    bool missed_ = false;
    bool stopped_ = false;
};

}  // namespace tav
