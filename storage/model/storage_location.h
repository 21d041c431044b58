#pragma once

#include <string>

#include "base/Export.h"

/// Where storage sits, by the PCI function of its controller. Any thread.
namespace tav {

/// What texts hold that are not known.
inline constexpr const char* notAvailable = "NotAvailable";

/// The location of what cannot be placed.
inline constexpr const char* noLocation = "FFFFFFFFFFFFFFFF";

/// Whether the text is the code of a place.
inline bool isLocation(const std::string& location) {
    return !location.empty() && location != noLocation;
}

/// Where a PCI function is by the host's geographic identity ("001", "01", "00"); empty what the
/// host does not know.
struct RackPlace {
    std::string rack, position, slot;
};
TAV_API RackPlace rackPlace(const std::string& pciLocation);

/// Location code of a controller: of its PCIe slot, or, without one, of the chipset that it is a
/// part of. noLocation when the host does not know where the function is.
TAV_API std::string controllerLocation(const std::string& pciLocation);

/// Location code of a drive slot of the controller's chassis; noLocation when the host does not
/// know where that is, and for what can be no slot.
TAV_API std::string driveLocation(const std::string& pciLocation, int slot);

/// "PCI 0000:00:17.0 r001i01s00".
TAV_API std::string controllerDescription(const std::string& pciLocation);

}  // namespace tav
