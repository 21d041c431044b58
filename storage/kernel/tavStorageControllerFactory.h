#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/stat.h>

#include "storage/ItavStorageControllerFactory.h"

class tavStorageController;

namespace tav {
class ControllerList;
}

/// Finds the storage controllers that the kernel's SCSI layer shows. Complete, but registered only
/// where the service wants it (tav::registerGenericStorageFactory()): where the vendor's library
/// looks after the controllers, it is the better source.
///
/// The storage manager's thread discovers, polls and shuts down; any thread may ask for the list,
/// which has a recursive lock of its own; controllers are reported as gone outside it.
class TAV_API tavStorageControllerFactory final : public ItavStorageControllerFactory {
 public:
    static tavStorageControllerFactory* getInstance();

    int discoverControllers(std::vector<ItavStorageController*>& controllers) override;
    int getControllers(std::uint8_t familyMask,
                       std::vector<ItavStorageController*>& controllers) override;
    void shutdownFactory() override;
    void poll() override;
    void deleteControllers(std::uint8_t familyMask) override;

    /// From the next discovery on, also controllers that no row of the model table knows are
    /// claimed.
    void claimAnyController() { claimsAny_ = true; }

    /// The first controller of the list that this is one of; null for none. The caller holds no
    /// reference.
    ItavStorageController* FindExistingController(std::uint32_t chipsetID, std::uint32_t boardID,
                                                  const std::string& pciLocation,
                                                  std::uint32_t extra);
    /// Drops the first removed controller at that PCI location.
    void DeleteRemovedController(const std::string& pciLocation);

 private:
    class Host;

    /// A directory as it was seen last: the kernel does not touch the times of those of sysfs when
    /// entries come or go.
    struct DirectoryLook {
        struct stat times {};
        std::optional<std::vector<std::string>> names;  ///< in their order
    };

    static bool hasChanged(const char* directory, const char* name, DirectoryLook& last);

    tavStorageControllerFactory();
    // Lives until the process ends.
    ~tavStorageControllerFactory();

    tavStorageController* claim(const Host& host) const;

    const std::unique_ptr<tav::ControllerList> controllers_;
    std::atomic<bool> claimsAny_{false};
    DirectoryLook lastHosts_, lastDevices_;  ///< of whoever discovers or polls
};

namespace tav {

/// Which controllers the generic factory claims: those of the model table, or also any other one of
/// a storage class behind which the kernel has SCSI hosts.
enum class GenericStorage { KnownControllers, AnyController };

/// Registers the generic factory. Before the storage manager's thread starts.
TAV_API void registerGenericStorageFactory(
    GenericStorage controllers = GenericStorage::KnownControllers);

}  // namespace tav
