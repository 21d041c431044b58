#pragma once

#include <cstdint>
#include <vector>

#include "storage/ItavStorageController.h"
#include "storage/tavRegistryManager.h"

/// Finds, keeps, polls and retires the controllers of one or more families. Called on the storage
/// resource manager's thread, and on any thread that wants the list of controllers.
class TAV_API ItavStorageControllerFactory {
 public:
    /// Brings the list up to date; `controllers` receives all of it, with one reference taken on
    /// each that the caller releases. Negative on failure.
    virtual int discoverControllers(std::vector<ItavStorageController*>& controllers) = 0;

    /// `controllers` receives those whose family is in the mask, with one reference taken on each
    /// that the caller releases. Does not look for new ones. Negative on failure.
    virtual int getControllers(std::uint8_t familyMask,
                               std::vector<ItavStorageController*>& controllers) = 0;

    /// Processes the removal of every controller and leaves the list empty.
    virtual void shutdownFactory() = 0;

    /// Looks for controllers that came or went.
    virtual void poll() = 0;

    /// Drops those whose family is in the mask.
    virtual void deleteControllers(std::uint8_t familyMask) = 0;

 protected:
    ~ItavStorageControllerFactory() = default;
};

extern template class TAV_API tavRegistryManager<ItavStorageControllerFactory*>;
