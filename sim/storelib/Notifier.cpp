#include "sim/storelib/Notifier.h"

#include <utility>

namespace tav::sim {

Notifier::~Notifier() {
    {
        const std::lock_guard held(lock_);
        stopping_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void Notifier::setCallback(Callback callback) {
    std::unique_lock held(lock_);
    callback_ = callback;
    if (callback != nullptr) return;
    events_.clear();
    changed_.wait(held, [this] { return !telling_; });
}

bool Notifier::tell(Event event) {
    {
        const std::lock_guard held(lock_);
        if (callback_ == nullptr) return false;
        events_.push_back(std::move(event));
    }
    changed_.notify_all();
    return true;
}

void Notifier::run() {
    std::unique_lock held(lock_);
    while (true) {
        changed_.wait(held, [this] { return stopping_ || !events_.empty(); });
        if (stopping_) return;
        Event event = std::move(events_.front());
        events_.pop_front();
        const Callback callback = callback_;
        telling_ = true;
        held.unlock();
        callback(event.data());
        held.lock();
        telling_ = false;
        changed_.notify_all();
    }
}

}  // namespace tav::sim
