#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "storage/kernel/tavStorageController.h"

/// What a factory of controllers that the kernel knows keeps: who there is, who has come, who has
/// gone.
namespace tav {

/// A PCI function behind which the kernel shows a port of a controller.
struct ControllerFunction {
    std::uint32_t chipsetID = 0;  ///< as in tavStorageControllerInfo
    std::uint32_t boardID = 0;
    std::string location{};  ///< "0000:3b:00.0"
};

/// One reference on each controller. The storage manager's thread brings it up to date; any thread
/// may ask for the controllers. Its lock is not held while a controller is reported as gone.
class ControllerList {
 public:
    /// Makes a controller of a function, with one reference for the list; null for what is none.
    using Claim = std::function<tavStorageController*(const ControllerFunction& function)>;

    /// Brings the list up to date: `visit` calls addPort() for each port that there is now, and
    /// controllers without one are reported as gone. These stay in the list with what was last
    /// known of them, until they come back as new ones.
    void update(const std::function<void()>& visit);
    void addPort(const ControllerFunction& function, const std::string& port, const Claim& claim);

    /// Replaces `controllers` by those whose family is in the mask, one more reference on each.
    void get(std::uint8_t familyMask, std::vector<ItavStorageController*>& controllers) const;
    /// The first that matches; null for none. The caller holds no reference.
    tavStorageController* find(const ControllerFunction& function, std::uint32_t extra) const;
    /// Drops the first that has been removed at that PCI location.
    void dropRemoved(const std::string& pciLocation);
    void drop(std::uint8_t familyMask);
    /// Reports all as gone and drops them.
    void shutDown();

 private:
    std::vector<tavStorageController*> takeAbandoned() const;

    mutable std::recursive_mutex lock_;
    std::vector<tavStorageController*> controllers_;
};

}  // namespace tav
