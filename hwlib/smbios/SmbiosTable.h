#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "base/Answer.h"
#include "base/Export.h"

/// Header of every structure: System Management BIOS (SMBIOS), DMTF DSP0134,
/// "Structure header format". The formatted part follows it, then the string set.
struct SMBIOS_RECORD {
    std::uint8_t type;
    std::uint8_t length;  ///< of header and formatted part
    std::uint16_t handle;
} __attribute__((packed));
static_assert(sizeof(SMBIOS_RECORD) == 4);

namespace tav {

/// The fields of a 2.x entry point that are used; DSP0134, "SMBIOS 2.1 (32-bit) Entry Point".
struct SmbiosEntryPoint {
    static constexpr std::size_t size = 31;

    std::uint16_t tableLength;
    std::uint32_t tableAddress;
    std::uint16_t structureCount;
};

/// The first entry point of a version above 2.0 at a multiple of 16 bytes whose bytes sum to 0;
/// absent when there is none.
TAV_API Answer<SmbiosEntryPoint> findSmbiosEntryPoint(std::span<const std::byte> memory);

/// The address of the entry point that the lines of the firmware's "systab" file name: the first
/// that is a number, in a line of at most 62 characters. Absent when there is none.
TAV_API Answer<std::uint64_t> smbiosAddressInSystab(std::string_view systab);

/// A structure table. A structure whose formatted part does not fit into the table is not there,
/// and neither is what stands behind it; of a string set that the table cuts off, only the strings
/// before the cut are there.
class TAV_API SmbiosTable {
 public:
    SmbiosTable() = default;
    /// `bytes` must stand for as long as the table and the records from it are used.
    explicit SmbiosTable(std::span<const std::byte> bytes) : bytes_(bytes) {}

    /// The first structure, or null.
    const SMBIOS_RECORD* first() const noexcept;
    /// The structure behind `record` of this table, or null.
    const SMBIOS_RECORD* next(const SMBIOS_RECORD* record) const noexcept;

    /// The first structure for which `matches(structure)` is true, or null.
    template <class Matches>
    const SMBIOS_RECORD* find(Matches matches) const {
        const SMBIOS_RECORD* record = first();
        while (record != nullptr && !matches(*record))
            record = next(record);
        return record;
    }

    /// The string of that number, from 1 on, in the record's string set, NUL-terminated; null when
    /// the set has none of that number or the record is not of this table. 0 stands for "no
    /// string", which is "".
    const char* string(const SMBIOS_RECORD* record, unsigned number) const noexcept;

 private:
    const std::byte* end() const noexcept { return bytes_.data() + bytes_.size(); }
    /// The structure at `start`, which lies in the table or at its end; null when it does not fit.
    const SMBIOS_RECORD* at(const std::byte* start) const noexcept;
    bool contains(const SMBIOS_RECORD* record) const noexcept;
    /// From the record's string set to the end of the table.
    std::string_view strings(const SMBIOS_RECORD* record) const noexcept;

    std::span<const std::byte> bytes_;
};

/// A little-endian field at `offset` of the formatted part (header included); absent when the
/// structure is too short, as it is in older versions of the standard.
TAV_API Answer<std::uint8_t> smbiosByte(const SMBIOS_RECORD* record, std::size_t offset);
TAV_API Answer<std::uint16_t> smbiosWord(const SMBIOS_RECORD* record, std::size_t offset);

}  // namespace tav
