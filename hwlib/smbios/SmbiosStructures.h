#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "base/Answer.h"
#include "base/Export.h"
#include "hwlib/smbios/SmbiosTable.h"

namespace tav {

/// A host's SMBIOS structures as they were when they were read: a value that its owner keeps, and
/// reads anew when it wants to. May be read on any thread. What the structures tell is handed out
/// as values of the caller's own; only table() lends.
class TAV_API SmbiosStructures {
 public:
    /// Reads this host's: through the entry point that the firmware's system table names, or by
    /// searching physical memory from 0xF0000 to 0xFFFFF where there is no such table. Absent when
    /// there is no entry point, or its table is empty; refused when the memory cannot be opened or
    /// mapped, which may take 25 seconds; malformed when the system table names no address.
    static Answer<SmbiosStructures> read();

    /// `table`: the bytes of a structure table.
    explicit SmbiosStructures(std::vector<std::byte> table) : bytes_(std::move(table)) {}

    /// For walking; it and its records stand for as long as this object does.
    SmbiosTable table() const& { return SmbiosTable(bytes_); }
    SmbiosTable table() const&& = delete;

    /// As the functions of hwlib/smbios/smbios.h tell them; absent when there is no such structure,
    /// or it has no such field or string.
    Answer<std::uint16_t> slotId(std::uint8_t bus) const;
    Answer<std::uint8_t> onboardNumber(std::uint8_t bus, std::uint8_t device,
                                       std::uint8_t function) const;
    Answer<std::string> productName(std::uint8_t bus, std::uint8_t device,
                                    std::uint8_t function) const;
    Answer<std::string> firmwareVersion(std::uint8_t bus, std::uint8_t device,
                                        std::uint8_t function) const;

 private:
    std::vector<std::byte> bytes_;
};

}  // namespace tav
