#pragma once

#include <exception>
#include <optional>

#include "base/StopSignal.h"
#include "core/Log.h"
#include "storage/ItavStorageControllerFactory.h"

/// How the storage manager walks over everything that has been registered: a factory or a
/// controller that throws is logged and keeps nobody else from its turn, and every reference is
/// released.
namespace tav {

inline constexpr ModuleLog storageLog{"SAS_RM"};

using Controllers = std::vector<Reference<ItavStorageController>>;

/// Runs `work`, whose failure is its own. `what` names it in the log.
template <class Work>
void contain(const char* what, Work work) {
    try {
        work();
    } catch (const std::exception& failure) {
        storageLog.error(here(), "%s failed and is left out: %s", what, failure.what());
    } catch (...) {
        storageLog.error(here(), "%s failed and is left out.", what);
    }
}

/// Visits every registered factory.
template <class Visit>
void forEachFactory(const char* what, Visit visit) {
    for (ItavStorageControllerFactory* const factory :
         tavRegistryManager<ItavStorageControllerFactory*>::getEntries()) {
        contain(what, [&] { visit(*factory); });
    }
}

/// Visits the controllers until the calling thread is asked to stop.
template <class Visit>
void forEachController(const char* what, const Controllers& controllers, Visit visit) {
    for (const auto& controller : controllers) {
        if (stopRequested()) return;
        contain(what, [&] { visit(*controller); });
    }
}

/// The factory's controllers as it finds them now; nothing when it fails.
std::optional<Controllers> discoverControllers(ItavStorageControllerFactory& factory);

/// The controllers that the factory knows already; nothing when it fails.
std::optional<Controllers> knownControllers(ItavStorageControllerFactory& factory);

}  // namespace tav
