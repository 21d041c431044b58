#pragma once

#include <string>
#include <vector>

#include "storage/kernel/tavStorageController.h"

namespace tav {
struct ControllerFunction;
}

/// An NVMe controller on PCI, with its namespaces as drives. Its one port is its directory in
/// /sys/class/nvme; whoever sits at a PCI function is the same controller, so that a drive which
/// has been exchanged is another drive at the same place.
///
/// Its drives are told apart by their namespace ids, and sit where the controller does. One that
/// several controllers share is listed by the first of them, and asked through the first that is
/// live.
class tavNVMeController final : public tavStorageController {
 public:
    /// The claimed controller holds one reference, for the caller.
    static tavStorageController* claim(const tav::ControllerFunction& function);

    /// The PCI function alone decides.
    bool isMatchingController(std::uint32_t chipsetID, std::uint32_t boardID,
                              const std::string& pciLocation, std::uint32_t extra) override;
    void addPort(const std::string& port) override;
    void discoverPhysicalDiskStatus(tavDiskInfo& disk) override;

 private:
    tavNVMeController(std::uint32_t chipsetID, std::uint32_t boardID, std::string pciLocation);
    ~tavNVMeController() override = default;

    std::string diskLocation(const tavDiskInfo& disk) const override;
    std::string diskPlace(const tavDiskInfo& disk) const override;
    std::string vanishedReason(const tavDiskInfo& disk) const override;
    std::string removedReason(const tavDiskInfo& disk) const override;
    void describeController(tavStorageControllerInfo& found) override;
    std::vector<tav::DiskAddress> listDisks() const override;
    std::optional<tavDiskInfo> examineDisk(const tav::DiskAddress& address,
                                           const std::optional<tavDiskInfo>& known) override;
    bool isReachedOtherwise(const tavDiskInfo& disk) const override;
    std::string addressText(const std::string& link) const override;
    std::string controllerEventInfo(const tav::ControllerTransition& transition,
                                    TAV_RESOURCE_STATE now) const override;
    std::optional<std::string> portState(const std::string& port) const override;

    std::string name() const;
    bool isLongInReset() const;

    std::string name_;  ///< "nvme0"; under the lock
};
