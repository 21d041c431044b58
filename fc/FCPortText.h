#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/tavResourceStatus.h"

/// What the texts and links of a Fibre Channel port in sysfs mean. Any bytes will do.
namespace tav {

/// The attribute "port_state", compared exactly; Unknown for any other text.
TAV_RESOURCE_STATE parsePortState(std::string_view text);

/// How healthy a port in that state is.
TAV_RESOURCE_HEALTH healthOfPort(TAV_RESOURCE_STATE state);

/// A world-wide name, "0x200000001122aabb", with a colon after every two digits. Absent unless it
/// has 1 to 16 hexadecimal digits, as many as 64 bits can have, and nothing else but white space at
/// its end.
std::optional<std::string> parseWorldWideName(std::string_view text);

/// The number N of a host's name "hostN".
std::optional<int> parseHostName(std::string_view name);

/// The last component of a link's target that is the address of a PCI function; empty for none.
std::string lastPciFunction(std::string_view target);

/// The network interface that the target of a SCSI host's link leads through, up to its first "."
/// (behind which a VLAN would stand); absent when it leads through none.
std::optional<std::string> interfaceInTarget(std::string_view target);

}  // namespace tav
