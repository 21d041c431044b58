#include "storage/tavRemoveLockEx.h"

std::shared_ptr<const tav::StopSignal> tavRemoveLockEx::enter() {
    const std::lock_guard<std::mutex> held(mutex_);
    if (stopping_) return nullptr;
    ++running_;
    return stop_;
}

void tavRemoveLockEx::leave() {
    const std::lock_guard<std::mutex> held(mutex_);
    --running_;
    finished_.notify_all();  // under the lock: a waiter may end the guard's life afterwards
}

bool tavRemoveLockEx::stopAndWait() {
    std::unique_lock<std::mutex> held(mutex_);
    if (!stopping_) stopping_ = std::chrono::steady_clock::now();
    if (waitForCallbacks(held, undisturbed)) return true;
    stop_->request();
    return waitForCallbacks(held, longestWait);
}

bool tavRemoveLockEx::waitForCallbacks(std::unique_lock<std::mutex>& held,
                                       std::chrono::milliseconds end) {
    return finished_.wait_until(held, *stopping_ + end, [this] { return running_ == 0; });
}

void tavRemoveLockEx::reopen() {
    const std::lock_guard<std::mutex> held(mutex_);
    stopping_.reset();
    if (stop_->requested()) stop_ = std::make_shared<tav::StopSignal>();
}
