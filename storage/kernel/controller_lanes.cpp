#include "storage/kernel/controller_lanes.h"

#include <mutex>
#include <utility>

namespace tav {
namespace {

/// As many disks as a server's front has.
constexpr std::size_t mostAtWork = 24;

struct Current {
    std::mutex lock;
    std::shared_ptr<Lanes> lanes;
};
Current& current() {
    static Current* const instance = new Current;  // outlives every thread
    return *instance;
}

}  // namespace

std::shared_ptr<Lanes> deviceLanes() {
    const std::lock_guard<std::mutex> held(current().lock);
    if (!current().lanes) {
        current().lanes = std::make_shared<Lanes>("tav-disk", mostAtWork, devicePatience);
    }
    return current().lanes;
}

void closeDeviceLanes(const TimeLimit& limit) {
    std::shared_ptr<Lanes> lanes;
    {
        const std::lock_guard<std::mutex> held(current().lock);
        lanes = std::exchange(current().lanes, nullptr);
    }
    if (!lanes) return;
    lanes->requestStop();
    lanes->finish(limit);
}

}  // namespace tav
