#include "storage/raid/storelib_cache.h"

#include <chrono>
#include <utility>

#include "base/Waiting.h"
#include "core/Log.h"

namespace tav::storelib {
namespace {

using namespace std::chrono_literals;

constexpr ModuleLog logger{"LSI_INTERF"};

constexpr int lockAttempts = 3;
constexpr auto lockRetry = 2s;

}  // namespace

void Cache::rebuild(const std::function<void(const Snapshot& known, Snapshot& next)>& build) {
    const std::lock_guard<std::mutex> held(buildLock_);
    const Generation known = published();
    auto next = std::make_shared<Snapshot>(*known);
    build(*known, *next);
    const std::lock_guard<std::mutex> generationHeld(generationLock_);
    generation_ = std::move(next);
}

Cache::Generation Cache::read() {
    std::unique_lock<std::mutex> held(buildLock_, std::defer_lock);
    takeLock(held);
    return published();
}

Cache::Generation Cache::published() const {
    const std::lock_guard<std::mutex> held(generationLock_);
    return generation_;
}

bool Cache::takeLock(std::unique_lock<std::mutex>& held) {
    for (int attempt = 0; attempt < lockAttempts; ++attempt) {
        if (held.try_lock()) return true;
        if (pauseFor(lockRetry) == Pause::Stopped) return false;
    }
    logger.warning(here(), "Failed to acquire lock.");
    return false;
}

}  // namespace tav::storelib
