#include "storage/model/storage_location.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <utility>
#include <vector>

#include "core/tavUtils.h"
#include "hwlib/location/tavPhyLoc.h"

namespace tav {
namespace {

constexpr const char* refusedLocation = "FFFFFFFFFFFFFF00";  // what cannot be encoded
constexpr const char* noInstance = "NA";

/// Rack, chassis position and slot.
constexpr std::size_t placeParts = 3;
constexpr std::size_t slotPart = 2;
constexpr int widestSlot = 255;

/// Where the function is; empty unless the host knows the first `count` parts of it.
std::vector<std::string> placeOf(const std::string& pciLocation, std::size_t count) {
    std::vector<std::string> place = tavUtils().getGeoIDInfo(pciLocation);
    if (place.size() < count) return {};
    place.resize(count);
    const bool isKnown = std::none_of(place.begin(), place.end(),
                                      [](const std::string& part) { return part.empty(); });
    return isKnown ? place : std::vector<std::string>();
}

std::string locationCode(const std::vector<std::string>& place, physloc_type_t type) {
    if (place.empty()) return noLocation;
    std::string code = tavPhyLoc::getPhyLoc(place, type, noInstance);
    return code == refusedLocation ? noLocation : code;
}

}  // namespace

RackPlace rackPlace(const std::string& pciLocation) {
    std::vector<std::string> place = tavUtils().getGeoIDInfo(pciLocation);
    place.resize(placeParts);
    return {std::move(place[0]), std::move(place[1]), std::move(place[slotPart])};
}

std::string controllerLocation(const std::string& pciLocation) {
    const std::vector<std::string> place = placeOf(pciLocation, placeParts);
    if (place.empty()) return noLocation;
    const bool hasSlot = std::strtol(place[slotPart].c_str(), nullptr, 10) > 0;
    return locationCode(place, hasSlot ? PHYSLOC_PCIE_SLOT : PHYSLOC_PCH);
}

std::string driveLocation(const std::string& pciLocation, int slot) {
    std::vector<std::string> place = placeOf(pciLocation, slotPart);
    if (place.empty() || slot < 0 || slot > widestSlot) return noLocation;
    place.push_back(std::to_string(slot));
    return locationCode(place, PHYSLOC_DRIVE_SLOT);
}

std::string controllerDescription(const std::string& pciLocation) {
    return "PCI " + pciLocation + ' ' + tavUtils().getGeoIDStr(pciLocation);
}

}  // namespace tav
