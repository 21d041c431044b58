#pragma once

#include <cstdint>

#include "base/Answer.h"

namespace tav {

/// What a PCI function is. Each number is known, absent, refused or malformed by itself.
struct PciIdentity {
    Answer<std::uint16_t> vendor = Lack::Absent;
    Answer<std::uint16_t> device = Lack::Absent;
    Answer<std::uint16_t> subsystemVendor = Lack::Absent;
    Answer<std::uint16_t> subsystemDevice = Lack::Absent;
    Answer<std::uint32_t> classCode = Lack::Absent;  ///< 24 bits: base class, subclass, interface
    Answer<std::uint8_t> revision = Lack::Absent;
};

struct PciCapabilities {
    std::uint32_t set;       ///< as pci_get_caps() tells them
    std::uint8_t linkWidth;  ///< as pci_get_lnkwidth() tells it

    bool operator==(const PciCapabilities&) const = default;
};

}  // namespace tav
