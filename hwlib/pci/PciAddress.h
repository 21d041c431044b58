#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/Answer.h"
#include "base/Export.h"

/// Where a PCI function sits on the bus: PCI Local Bus 3.0 (PCI-SIG), section 3.2.2.3.
struct PciAddress {
    std::uint16_t domain = 0;
    std::uint8_t bus = 0;
    std::uint8_t device = 0;    ///< 0 to 31
    std::uint8_t function = 0;  ///< 0 to 7

    auto operator<=>(const PciAddress&) const = default;  // NOLINT(modernize-use-nullptr)
};

namespace tav {

/// The address that the whole of `text` spells the way sysfs does, "0000:3b:00.1". Domains above
/// FFFF, which software hands out for functions behind a storage remapper, have no such address.
TAV_API Answer<PciAddress> parsePciAddress(std::string_view text);

/// The same, where a text without "." means function 0.
TAV_API Answer<PciAddress> parsePciDevice(std::string_view text);

/// "0000:3b:00.1".
TAV_API std::string textOf(const PciAddress& address);

}  // namespace tav
