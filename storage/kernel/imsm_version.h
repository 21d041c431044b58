#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/Export.h"

/// Firmware version of the Intel SATA RAID controller whose name (its PCI location, "0000:00:17.0")
/// is given, as `mdadm --detail-platform` tells it; empty when it tells none. The command is run at
/// the first call, whatever it answers. Any thread.
TAV_API std::string getIMSMFirmwareVersion(const std::string& controllerName);

namespace tav {

struct ImsmPlatform {
    std::string controller;  ///< path that ends in the controller's PCI location
    std::string version;
};

/// Pairs the lines "... Version : V" and "... Controller : C" of the command's output: each version
/// with the next controller, whatever other versions stand between them. At most ten pairs.
TAV_API std::vector<ImsmPlatform> parseImsmPlatforms(std::string_view output);

}  // namespace tav
