#include "storage/registered_factories.h"

#include <utility>

namespace tav {
namespace {

/// What a factory has handed out: one reference each, released also when it throws with some of
/// them in its hands.
struct HandedOut {
    std::vector<ItavStorageController*> controllers;

    HandedOut() = default;
    HandedOut(const HandedOut&) = delete;
    HandedOut& operator=(const HandedOut&) = delete;
    ~HandedOut() {
        for (ItavStorageController* const controller : controllers) {
            if (controller != nullptr) controller->releaseReference();
        }
    }

    Controllers take() {
        Controllers owned;
        owned.reserve(controllers.size());
        for (ItavStorageController*& controller : controllers) {
            if (controller != nullptr) owned.emplace_back(std::exchange(controller, nullptr));
        }
        return owned;
    }
};

std::optional<Controllers> takeUnlessFailed(const char* call, int result, HandedOut& handedOut) {
    if (result >= 0) return handedOut.take();
    storageLog.error(here(), "%s() completed with %d.", call, result);
    return std::nullopt;
}

}  // namespace

std::optional<Controllers> discoverControllers(ItavStorageControllerFactory& factory) {
    HandedOut found;
    const int result = factory.discoverControllers(found.controllers);
    return takeUnlessFailed("discoverControllers", result, found);
}

std::optional<Controllers> knownControllers(ItavStorageControllerFactory& factory) {
    HandedOut known;
    const int result = factory.getControllers(TAV_FAMILY_ANY, known.controllers);
    return takeUnlessFailed("getControllers", result, known);
}

}  // namespace tav
