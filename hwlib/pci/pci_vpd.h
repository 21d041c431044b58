#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/Export.h"

/// Decoding of vital product data: PCI Local Bus 3.0 (PCI-SIG), appendix I. A record that does
/// not fit into its section, and what follows it there, is absent; so is everything behind an
/// identifier string that does not fit into the data.

/// One keyword record. The value ends at its first NUL, if it has one.
struct TAV_API PciVpdKeyword {
    std::array<char, 2> keyword;
    std::string value;
    std::unique_ptr<PciVpdKeyword> next;

    PciVpdKeyword(std::array<char, 2> key, std::string text)
        : keyword(key), value(std::move(text)) {}
    PciVpdKeyword(const PciVpdKeyword&) = delete;
    PciVpdKeyword& operator=(const PciVpdKeyword&) = delete;
    ~PciVpdKeyword();
};

using PciVpdList = std::unique_ptr<PciVpdKeyword>;

/// The text of the identifier string, which is the product name.
TAV_API std::optional<std::string> pci_get_vpdname(std::span<const std::byte> vpd);

/// The records of the read-only and read-write sections, in order; null when there is none.
TAV_API PciVpdList pci_get_vpdtags(std::span<const std::byte> vpd);

/// Releases a list. Letting go of it does the same.
TAV_API void pci_free_vpdtags(PciVpdList list);

namespace tav {

/// The first record of that keyword, or null.
TAV_API const PciVpdKeyword* findVpdKeyword(const PciVpdList& list, std::string_view keyword);

}  // namespace tav
