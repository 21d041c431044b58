#include "nic/NotificationSlots.h"

#include <iterator>
#include <utility>

#include <linux/netlink.h>

namespace tav {

bool NotificationSlots::post(Notification notification) {
    std::unique_lock<std::mutex> held(cmutex_);
    if (appendToLast(notification)) return true;
    if (filled_ == slotCount) {
        missed_ = true;
        startProducer_.wait(held, [this] { return filled_ < slotCount || stopped_; });
        return false;
    }
    slots_[filled_++] = std::move(notification);
    startConsumer_.notify_one();
    return true;
}

/// The taker has been told of a filled slot already.
bool NotificationSlots::appendToLast(const Notification& notification) {
    if (filled_ == 0) return false;
    Notification& last = slots_[filled_ - 1];
    const std::size_t begin = NLMSG_ALIGN(last.size());
    if (begin + notification.size() > slotSize) return false;
    last.resize(begin);
    last.insert(last.end(), notification.begin(), notification.end());
    return true;
}

void NotificationSlots::reportMissed() {
    const std::lock_guard<std::mutex> held(cmutex_);
    missed_ = true;
    startConsumer_.notify_one();
}

NotificationSlots::Work NotificationSlots::take() {
    std::unique_lock<std::mutex> held(cmutex_);
    startConsumer_.wait(held, [this] { return filled_ > 0 || missed_ || stopped_; });
    const auto end = slots_.begin() + static_cast<std::ptrdiff_t>(std::exchange(filled_, 0));
    Work work;
    work.notifications.assign(std::make_move_iterator(slots_.begin()),
                              std::make_move_iterator(end));
    work.missed = std::exchange(missed_, false);
    work.stopped = stopped_;
    startProducer_.notify_one();
    return work;
}

void NotificationSlots::stop() {
    const std::lock_guard<std::mutex> held(cmutex_);
    stopped_ = true;
    startConsumer_.notify_all();
    startProducer_.notify_all();
}

void NotificationSlots::restart() {
    const std::lock_guard<std::mutex> held(cmutex_);
    filled_ = 0;
    missed_ = false;
    stopped_ = false;
}

bool NotificationSlots::isStopped() const {
    const std::lock_guard<std::mutex> held(cmutex_);
    return stopped_;
}

}  // namespace tav
