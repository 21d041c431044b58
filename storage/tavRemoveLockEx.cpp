#include "storage/tavRemoveLockEx.h"

std::shared_ptr<const tav::StopSignal> tavRemoveLockEx::enter() {
    const std::lock_guard<std::mutex> held(mutex_);
    if (stop_->requested()) return nullptr;
    ++running_;
    return stop_;
}

void tavRemoveLockEx::leave() {
    const std::lock_guard<std::mutex> held(mutex_);
    --running_;
    finished_.notify_all();  // under the lock: a waiter may end the guard's life afterwards
}

void tavRemoveLockEx::stopAndWait() {
    std::unique_lock<std::mutex> held(mutex_);
    stop_->request();
    finished_.wait(held, [this] { return running_ == 0; });
}

void tavRemoveLockEx::reopen() {
    const std::lock_guard<std::mutex> held(mutex_);
    if (stop_->requested()) stop_ = std::make_shared<tav::StopSignal>();
}
