#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "storage/ItavStorageControllerFactory.h"

namespace tav {
class ControllerList;
}

/// Finds the NVMe controllers on PCI that the kernel shows in /sys/class/nvme; those that are
/// reached over a network are left out. Registered only where the service wants it
/// (tav::registerNVMeFactory()).
///
/// The storage manager's thread discovers, polls and shuts down; any thread may ask for the list,
/// which has a recursive lock of its own; controllers are reported as gone outside it.
class TAV_API tavNVMeControllerFactory final : public ItavStorageControllerFactory {
 public:
    static tavNVMeControllerFactory* getInstance();

    int discoverControllers(std::vector<ItavStorageController*>& controllers) override;
    int getControllers(std::uint8_t familyMask,
                       std::vector<ItavStorageController*>& controllers) override;
    void shutdownFactory() override;
    /// Also looks for namespaces that came or went.
    void poll() override;
    void deleteControllers(std::uint8_t familyMask) override;

 private:
    tavNVMeControllerFactory();
    ~tavNVMeControllerFactory();

    const std::unique_ptr<tav::ControllerList> controllers_;
    std::vector<std::string> lastListed_;  ///< of whoever discovers or polls
};

namespace tav {

/// Registers the factory of NVMe controllers. Before the storage manager's thread starts.
TAV_API void registerNVMeFactory();

}  // namespace tav
