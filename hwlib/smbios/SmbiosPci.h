#pragma once

#include <cstdint>

#include "base/Answer.h"
#include "hwlib/smbios/SmbiosTable.h"

/// What a table of SMBIOS structures tells about PCI functions: structure types 9 ("System Slots")
/// and 41 ("Onboard Devices Extended Information") of SMBIOS (DMTF DSP0134), and the platform's own
/// types 203 (product name of a slot or onboard device) and 240 (firmware version). Records and
/// texts are the table's; null when it has none.
namespace tav {

const SMBIOS_RECORD* smbiosSlotAt(const SmbiosTable& table, std::uint8_t bus);
const SMBIOS_RECORD* smbiosOnboardAt(const SmbiosTable& table, std::uint8_t bus,
                                     std::uint8_t device, std::uint8_t function);
const char* smbiosProductName(const SmbiosTable& table, std::uint8_t bus, std::uint8_t device,
                              std::uint8_t function);
const char* smbiosFirmwareVersion(const SmbiosTable& table, std::uint8_t bus, std::uint8_t device,
                                  std::uint8_t function);

/// Identifier of the slot at a bus, and number of the onboard device at an address; absent when
/// there is no such structure, or it is too short.
Answer<std::uint16_t> smbiosSlotId(const SmbiosTable& table, std::uint8_t bus);
Answer<std::uint8_t> smbiosOnboardNumber(const SmbiosTable& table, std::uint8_t bus,
                                         std::uint8_t device, std::uint8_t function);

}  // namespace tav
