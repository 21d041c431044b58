#include "storage/kernel/controller_list.h"

#include <algorithm>

#include "core/Log.h"

namespace tav {
namespace {

constexpr ModuleLog logger{"STOR_FACT"};

using Lock = std::lock_guard<std::recursive_mutex>;

}  // namespace

void ControllerList::update(const std::function<void()>& visit) {
    std::vector<tavStorageController*> abandoned;
    {
        const Lock held(lock_);
        for (tavStorageController* const controller : controllers_)
            controller->clearPortList();
        visit();
        abandoned = takeAbandoned();
    }
    for (tavStorageController* const controller : abandoned)
        controller->processDeviceRemoval();  // drops the reference that was taken
}

/// A known one that has been removed comes back with this port.
void ControllerList::addPort(const ControllerFunction& function, const std::string& port,
                             const Claim& claim) {
    const Lock held(lock_);
    tavStorageController* const known = find(function, 0);
    if (known != nullptr && !known->isRemoved()) {
        logger.debug(here(), "Found port %s on controller @ %s.", port.c_str(),
                     function.location.c_str());
        known->addPort(port);
        return;
    }
    logger.debug(here(), "Claim processing for %s [0x%x 0x%x] @ %s", port.c_str(),
                 function.chipsetID, function.boardID, function.location.c_str());
    tavStorageController* const controller = claim(function);
    if (controller == nullptr) {
        logger.debug(here(),
                     "Skipping port %s [0x%X, 0x%X %s] - Claim status: [%d]; Device object: [%p]",
                     port.c_str(), function.chipsetID, function.boardID, function.location.c_str(),
                     0, static_cast<const void*>(controller));
        return;
    }
    logger.info(here(), "%s [0x%X, 0x%X %s] managed by device object: [%p]", port.c_str(),
                function.chipsetID, function.boardID, function.location.c_str(),
                static_cast<const void*>(controller));
    if (known != nullptr) {
        controller->processDeviceAddition(known);
        dropRemoved(function.location);
    }
    controller->addPort(port);
    controllers_.push_back(controller);
}

/// Those whose ports are gone, with one reference each.
std::vector<tavStorageController*> ControllerList::takeAbandoned() const {
    std::vector<tavStorageController*> abandoned;
    for (tavStorageController* const controller : controllers_) {
        if (controller->isRemoved() || controller->getPortListSize() > 0) continue;
        controller->addReference();
        abandoned.push_back(controller);
    }
    return abandoned;
}

void ControllerList::get(std::uint8_t familyMask,
                         std::vector<ItavStorageController*>& controllers) const {
    controllers.clear();
    const Lock held(lock_);
    for (tavStorageController* const controller : controllers_) {
        if ((controller->getFamilyFlags() & familyMask) == 0) continue;
        controllers.push_back(shareReference(*controller).release());
    }
}

tavStorageController* ControllerList::find(const ControllerFunction& function,
                                           std::uint32_t extra) const {
    const Lock held(lock_);
    const auto found = std::find_if(controllers_.begin(), controllers_.end(), [&](auto* candidate) {
        return candidate->isMatchingController(function.chipsetID, function.boardID,
                                               function.location, extra);
    });
    return found == controllers_.end() ? nullptr : *found;
}

void ControllerList::dropRemoved(const std::string& pciLocation) {
    const Lock held(lock_);
    const auto found = std::find_if(controllers_.begin(), controllers_.end(), [&](auto* candidate) {
        return candidate->isRemoved() && candidate->getPciLocation() == pciLocation;
    });
    if (found == controllers_.end()) return;
    tavStorageController* const controller = *found;
    controllers_.erase(found);
    controller->releaseReference();
}

void ControllerList::drop(std::uint8_t familyMask) {
    const Lock held(lock_);
    const auto kept = std::stable_partition(
        controllers_.begin(), controllers_.end(),
        [&](auto* controller) { return (controller->getFamilyFlags() & familyMask) == 0; });
    for (auto dropped = kept; dropped != controllers_.end(); ++dropped)
        (*dropped)->releaseReference();
    controllers_.erase(kept, controllers_.end());
}

void ControllerList::shutDown() {
    std::vector<tavStorageController*> taken;
    {
        const Lock held(lock_);
        taken.swap(controllers_);
    }
    for (tavStorageController* const controller : taken) {
        if (controller->isRemoved()) {
            controller->releaseReference();
        } else {
            controller->disableEvents();
            controller->processDeviceRemoval();
        }
    }
}

}  // namespace tav
