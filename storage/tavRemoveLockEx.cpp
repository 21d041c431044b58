#include "storage/tavRemoveLockEx.h"

bool tavRemoveLockEx::enter() {
    const std::lock_guard<std::mutex> held(mutex_);
    if (stopping_) return false;
    ++running_;
    return true;
}

void tavRemoveLockEx::leave() {
    const std::lock_guard<std::mutex> held(mutex_);
    --running_;
    finished_.notify_all();  // under the lock: a waiter may end the guard's life afterwards
}

void tavRemoveLockEx::stopAndWait() {
    std::unique_lock<std::mutex> held(mutex_);
    stopping_ = true;
    finished_.wait(held, [this] { return running_ == 0; });
}

void tavRemoveLockEx::reopen() {
    const std::lock_guard<std::mutex> held(mutex_);
    stopping_ = false;
}
