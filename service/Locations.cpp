#include "service/Locations.h"

#include <algorithm>
#include <array>
#include <chrono>

#include <poll.h>

#include "base/Threads.h"
#include "base/Waiting.h"
#include "core/Log.h"
#include "core/resource_managers.h"
#include "core/tavUtils.h"
#include "fc/FCResourceManager.h"

namespace tavd {
namespace {

using namespace std::chrono_literals;

constexpr tav::ModuleLog logger{"TAVD"};

/// In real time, also where the library's clock is a faster one: it is the machine's.
constexpr std::chrono::milliseconds patience = 10s;
constexpr std::chrono::milliseconds firstPause = 10s;
constexpr std::chrono::milliseconds longestPause = 60s;

}  // namespace

void Locations::start() {
    const int failure = tav::startThread(thread_, "tav-locations", [this] { ask(); });
    if (failure != 0) {
        logger.error(tav::here(), "There is no thread to ask for locations (errno: %d).", failure);
        return;
    }
    const tav::StopSignal* const stop = tav::currentStop();
    std::array<pollfd, 2> watched = {pollfd{isAsked_.descriptor(), POLLIN, 0},
                                     pollfd{stop == nullptr ? -1 : stop->descriptor(), POLLIN, 0}};
    ::poll(watched.data(), watched.size(), static_cast<int>(patience.count()));
    isLate_ = !isAsked_.requested();
}

void Locations::stop() {
    requestStop();
    tav::joinThread(thread_);
}

/// What comes after the managers have been started has to be told them.
void Locations::ask() {
    const tav::StopScope scope(&stop_);
    tavUtils().initGeoIDMap();
    isAsked_.request();
    if (!tavUtils().hasGeoIDMap()) {
        askAgain();
        isLate_ = true;
    }
    if (isLate_ && tavUtils().hasGeoIDMap()) rebuild();
}

void Locations::askAgain() {
    if (stop_.requested() || !tavUtils().isGeoIDMapToBeHad()) return;
    logger.warning(tav::here(),
                   "No location is known before the host lists its PCI functions; it "
                   "is asked again.");
    auto pause = firstPause;
    while (!tavUtils().hasGeoIDMap()) {
        if (tav::pauseFor(pause) == tav::Pause::Stopped) return;
        pause = std::min(pause * 2, longestPause);
        tavUtils().initGeoIDMap();
    }
}

void Locations::rebuild() const {
    logger.info(tav::here(), "The locations of the PCI functions are known now.");
    tav::forEachEnabledManager(
        [](MODULE_NAME /*type*/, tavResourceManager& manager) { manager.rebuild(); });
    if (withFibreChannel_) FCResourceManager::getInstance()->rebuild();
}

}  // namespace tavd
