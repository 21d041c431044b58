#pragma once

#include <cstdint>

#include "base/Export.h"
#include "hwlib/smbios/SmbiosTable.h"

/// The host's SMBIOS structures and what they tell about PCI functions: structure types 9 ("System
/// Slots") and 41 ("Onboard Devices Extended Information") of SMBIOS (DMTF
/// DSP0134), and the platform's own types 203 (product name of a slot or onboard device) and 240
/// (firmware version).
///
/// The names here look at one copy of the structures that the whole process shares; records and
/// texts point into it. They take no lock and may be called on any thread, but not while the copy
/// is initialised or freed, and they find nothing while it is not initialised.
/// hwlib/smbios/SmbiosStructures.h has them for a copy of one's own, with reasons for what is not
/// known.

/// Finds and copies the structure table: through the entry point that the firmware's system table
/// names, or by searching physical memory from 0xF0000 to 0xFFFFF where there is no such table.
/// False, and no table, when there is none. May wait up to 25 seconds for the memory device.
TAV_API bool InitSMBIOS();
/// The same again; what was found before is freed first.
TAV_API bool ReinitSMBIOS();
TAV_API void DeinitSMBIOS();
TAV_API bool IsSMBIOSAvailable();

/// Steps to the structure behind `*rec`, or to the first one when it is null. False, and `*rec`
/// left alone, behind the last one.
TAV_API bool SmbGetRecord(const SMBIOS_RECORD** rec);
/// The structure number `instance`, from 0 on, of a type, or null.
TAV_API const SMBIOS_RECORD* SmbGetRecordByType(std::uint8_t type, unsigned instance);
/// The structure of that handle, or that number from 0 on; false, and `*rec` left alone, when there
/// is none.
TAV_API bool SmbGetRecordByHandle(std::uint16_t handle, const SMBIOS_RECORD** rec);
TAV_API bool SmbGetRecordByNumber(unsigned number, const SMBIOS_RECORD** rec);
/// String `number`, from 1 on, of a structure; 0 gives "", a string that is not there null.
TAV_API const char* SmbGetStringByNumber(const SMBIOS_RECORD* rec, unsigned number);

/// The slot whose bus number is `bus`, or null; and its slot identifier, or 0.
TAV_API const SMBIOS_RECORD* SmbGetPCIslot_rec(std::uint8_t bus);
TAV_API std::uint16_t SmbGetPCIslot_bus(std::uint8_t bus);
/// The onboard device at that address, or null; and the three low bits of its device type
/// instance, or 0.
TAV_API const SMBIOS_RECORD* SmbGetPCIemb_rec(std::uint8_t bus, std::uint8_t device,
                                              std::uint8_t function);
TAV_API std::uint8_t SmbGetChassisPort(std::uint8_t bus, std::uint8_t device,
                                       std::uint8_t function);
/// Product name and firmware version of what is in the slot of that bus, or else of the onboard
/// device at that address; null when they are not told.
TAV_API const char* SmbGetPciName(std::uint8_t bus, std::uint8_t device, std::uint8_t function);
TAV_API const char* SmbGetFwVer(std::uint8_t bus, std::uint8_t device, std::uint8_t function);

namespace tav {

/// The shared copy; empty while it is not initialised.
TAV_API const SmbiosTable& defaultSmbios();

}  // namespace tav
