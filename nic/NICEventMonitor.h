#pragma once

#include <mutex>
#include <optional>
#include <thread>

#include "base/Export.h"
#include "base/FileDescriptor.h"
#include "base/StopSignal.h"
#include "core/LoopWatch.h"
#include "nic/LinkMessages.h"
#include "nic/NotificationSlots.h"

/// Keeps the inventory's Ethernet interfaces current between the manager's rebuilds: one thread
/// receives the kernel's link notifications, a second one looks at the interfaces that they name
/// and tells the manager. Started and stopped from the service's own thread.
class TAV_API NICEventMonitor {
 public:
    /// Starts both threads; 0. -1 when a thread cannot be created, none is running then, and when
    /// they have been started and not stopped since, which go on then.
    static int startMonitoring();

    /// Stops and joins both threads; 0. -1 when the receiving thread listened to nothing that could
    /// be told so: it has ended by itself, was never started, or has only just been.
    static int stopMonitoring();
    /// The first half of the stop: tells the threads, and waits for nothing. Results as above.
    static int requestStop();

 private:
    static NICEventMonitor& instance();

    void startNetCheck();
    void NICEventList(tav::Notification notification);
    void processNICEvents();
    void consumeEventList();

    bool openDescriptors();
    void closeDescriptors();
    void receiveUntilStopped();
    void receiveAll(int socket, tav::Notification& buffer);
    int receive(int socket, tav::Notification& buffer);
    void apply(const tav::Notification& notification);
    int wakeProducer();

    std::mutex pipeLock_;  ///< guards the opening and closing of the descriptors, and the flag
    tav::FileDescriptor netlink_, pipeReadEnd_, pipeWriteEnd_;
    bool stopProducer_ = false;
    std::optional<int> told_;  ///< what requestStop() came to, until the threads have been joined

    tav::NotificationSlots slots_;
    tav::StopSignal stopSignal_;  ///< of the second thread's work
    tav::LoopWatch receiverWatch_, applierWatch_;
    std::thread netlinkThread_;
    std::thread netlinkConsumerThread_;
};

namespace tav {

/// Brings the manager's inventory up to date with what a link message tells.
TAV_API void applyLinkMessage(const LinkMessage& message);

/// The same for every interface of the inventory, by what the kernel tells of it now: after
/// notifications were lost.
TAV_API void reviewAllLinks();

}  // namespace tav
