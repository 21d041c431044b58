#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/Answer.h"
#include "base/Export.h"
#include "hwlib/pci/PciAddress.h"
#include "hwlib/smbios/SmbiosTable.h"

/// Where a PCI function sits: by the slots of SMBIOS (see hwlib/smbios/smbios.h, which must have
/// been initialised), by the kernel's slot directory, and by the links of sysfs. An address text is
/// "0000:3b:00.1", or "0000:3b:00" for function 0. All may be called on any thread.

/// The slot identifier of the first bus on the way from the root to the function that SMBIOS knows
/// a slot for; 0 when there is none.
TAV_API int PciGetslot_str(const char* address);

/// The number of the onboard device at the address, as SmbGetChassisPort() tells it; 0 when there
/// is none.
TAV_API int PciGetChassisPort_str(const char* address);

/// The text of the slot that a device sits in: the last component, of those that begin with a
/// digit, in the target of the link `path`, or of `path` + "/device" when `path` is no link. That
/// is the address of the device's PCI function. "NotAvailable" when there is none. A new text that
/// the caller frees with free().
TAV_API char* getPCISlotString(const char* path);

/// The slot, as PciGetslot_str() tells it, of the PCI function that a SCSI host such as
/// "/sys/class/scsi_host/host3" belongs to; 0 when there is none.
TAV_API int pcislot_scsi_host(const char* path);

/// The name of the function's slot in the kernel's slot directory; absent when it sits in none.
TAV_API std::optional<std::string> get_pcislot(const PciAddress& address);

namespace tav {

/// What PciGetslot_str() tells, by the given structures instead of the process's. Absent when the
/// host has no such function or no bus on the way to it has a slot.
TAV_API Answer<std::uint16_t> slotBySmbios(const SmbiosTable& table, const PciAddress& address);

}  // namespace tav
