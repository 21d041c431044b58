#pragma once

#include <cstdint>
#include <string>

#include "storage/kernel/tavStorageController.h"

/// The Intel chipset's SATA controller in RAID mode: one SCSI host per SATA port, a disk on each.
/// The position of a disk's ATA port among the controller's is its slot. For threads and locks see
/// tavStorageController.
class TAV_API tavLewisburgSATARAIDController : public tavStorageController {
 public:
    /// Claims a PCI function of which the model table knows this family.
    static bool claimDevice(std::uint32_t chipsetID, std::uint32_t boardID,
                            const std::string& pciLocation, ItavStorageController*& out);

    int discoverInventory(tavStorageControllerInfo& info) override;
    std::string discoverFirmwareVersion() override;
    int discoverPhysicalDiskSlotNumber(tavDiskInfo& disk) override;

 protected:
    tavLewisburgSATARAIDController(std::uint32_t chipsetID, std::uint32_t boardID,
                                   std::string pciLocation);
    ~tavLewisburgSATARAIDController() override = default;

    std::string diskPlace(const tavDiskInfo& disk) const override;
    std::string vanishedReason(const tavDiskInfo& disk) const override;

 private:
    int getDiskSlotNumberFromATAPort(const tavDiskInfo& disk) const;
};
