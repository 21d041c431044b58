#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/Export.h"

/// Decoding of a PCI function's configuration space: PCI Local Bus 3.0 (PCI-SIG), chapter 6 and
/// appendix H; PCI Express Base, section 7.5.3. The functions read nothing past the
/// given bytes, of which there are usually 256; all values are little-endian.

inline constexpr std::size_t pciConfigSize = 256;

using PciConfig = std::span<const std::byte>;

/// Bit (id - 1) is set for each capability of identifier 1 to 32 that the function lists.
TAV_API std::uint32_t pci_get_caps(PciConfig config);

/// The revision byte; 0 when it is not there.
TAV_API std::uint8_t pci_get_revision(PciConfig config);

/// Negotiated width of the PCI Express link as a slot data bus width code (SMBIOS, DMTF
/// DSP0134, "System Slots", offset 6): 8 for x1, 9 x2, 10 x4, 11 x8, 12 x12; 2,
/// "unknown", for a function without such a link and for what the four low bits of the width cannot
/// tell: x16, x32, and no link.
TAV_API std::uint8_t pci_get_lnkwidth(PciConfig config);

namespace tav {

inline constexpr std::uint8_t unknownLinkWidth = 2;

/// The functions below read configuration space from a function's open "config" file into `config`,
/// and only what is used: every word read goes to the device, which can take longer than the rest
/// of an inventory. They return false when a word that they need cannot be read.
using PciConfigRoom = std::span<std::byte, pciConfigSize>;

/// What pci_get_revision() uses.
TAV_API bool readConfigRevision(int configFile, PciConfigRoom config);

/// What pci_get_caps() and pci_get_lnkwidth() use. Everything else becomes 0.
TAV_API bool readConfigCapabilities(int configFile, PciConfigRoom config);

}  // namespace tav
