#include "core/ManagerLoop.h"

#include <utility>

namespace tav {
namespace {
constexpr int lastWaitingRound = 8;
}

LoopWake ManagerLoop::wait(std::chrono::seconds step) {
    LoopWake wake;
    std::unique_lock<std::mutex> held(cmutex_);
    if (!stop_) watch_.begins();
    if (!stop_ && !refresh_ && !look_) {
        const auto deadline = Deadline::after(step);
        if (!deadline) {
            wake.clockFailed = true;
            return wake;
        }
        const LoopWaits waits(watch_, step);
        if (waitUntil(cond_, held, *deadline) == Wake::TimedOut) {
            wake.deadline = deadline->seconds();
        }
    }
    wake.stop = stop_;
    wake.refresh = std::exchange(refresh_, false);
    wake.look = std::exchange(look_, false);
    return wake;
}

void ManagerLoop::requestStop() {
    stopSignal_.request();
    const std::lock_guard<std::mutex> held(cmutex_);
    stop_ = true;
    watch_.ends();
    cond_.notify_all();
}

void ManagerLoop::requestRefresh() {
    const std::lock_guard<std::mutex> held(cmutex_);
    refresh_ = true;
    cond_.notify_all();
}

void ManagerLoop::requestLook() {
    const std::lock_guard<std::mutex> held(cmutex_);
    look_ = true;
    cond_.notify_all();
}

void ManagerLoop::reset() {
    const std::lock_guard<std::mutex> held(cmutex_);
    stopSignal_.withdraw();
    stop_ = false;
    refresh_ = true;
    look_ = false;
}

bool Readiness::answer(int iteration) {
    if (ready_) return true;
    if (iteration >= lastWaitingRound) isAwaited_ = true;
    // The build may have completed before it could see the wish; then there is nothing to wait for.
    return ready_;
}

void Readiness::fail() {
    hasFailed_ = true;
    if (askedBefore_) pushAsked_ = true;
}

bool Readiness::complete() {
    ready_ = true;
    const bool awaited = isAwaited_.exchange(false);
    return awaited || (!hasFailed_ && (askedBefore_ || pushAsked_));
}

void Readiness::reset() {
    ready_ = false;
    isAwaited_ = false;
    pushAsked_ = false;
    askedBefore_ = false;
}

}  // namespace tav
