#pragma once

#include <cstdint>
#include <memory>

#include "base/Export.h"
#include "hwlib/pci/PciIdDatabase.h"

/// The machine's PCI ID database: names of vendors, devices, subsystems and device classes. The
/// look-ups give null where the database has no entry, or before it is loaded. All may be called on
/// any thread.

namespace tav {

using PciIdDatabasePtr = std::shared_ptr<PciIdDatabase>;

/// Opens the database at the first of its usual places that can be opened; null when there is none.
/// It stays open for the look-ups for as long as the result is held.
TAV_API PciIdDatabasePtr loadPciIds();

/// What scan_hw_ids() loaded last, which is what the look-ups below look at; or null.
TAV_API PciIdDatabasePtr defaultPciIds();

}  // namespace tav

/// Loads the database for the look-ups, or loads it anew. False, and no database, when there is
/// none.
TAV_API bool scan_hw_ids();

TAV_API PciIdEntryPtr vendor_search(std::uint16_t vendor);
TAV_API PciIdEntryPtr device_search(std::uint16_t vendor, std::uint16_t device);
TAV_API PciIdEntryPtr subsystem_search(std::uint16_t vendor, std::uint16_t device,
                                       std::uint16_t subsystemVendor,
                                       std::uint16_t subsystemDevice);

/// By class code (base class in bits 23 to 16, subclass in 15 to 8): the subclass's entry, or the
/// base class's where the database does not know the subclass.
TAV_API PciIdEntryPtr class_search(std::uint32_t classCode);

/// The base class of a class code.
constexpr std::uint8_t get_pci_class(std::uint32_t classCode) {
    return static_cast<std::uint8_t>(classCode >> 16);
}
