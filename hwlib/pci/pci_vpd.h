#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/Answer.h"
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

/// The records of the read-only and read-write sections, in order, but for those without a value;
/// null when there is none.
TAV_API PciVpdList pci_get_vpdtags(std::span<const std::byte> vpd);

/// Releases a list. Letting go of it does the same.
TAV_API void pci_free_vpdtags(PciVpdList list);

namespace tav {

/// Vital product data, with everything that was in it.
struct TAV_API PciVpd {
    std::string name;  ///< the identifier string's text, which is the product name
    PciVpdList keywords;

    /// The value of the first record of that keyword, or null.
    const std::string* find(std::string_view keyword) const;
};

/// Absent when there are no data, malformed when they do not begin with an identifier string.
TAV_API Answer<PciVpd> parsePciVpd(std::span<const std::byte> vpd);

}  // namespace tav
