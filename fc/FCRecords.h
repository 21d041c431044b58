#pragma once

#include <string>
#include <utility>

#include <json/value.h>

#include "base/Export.h"
#include "core/tavResourceStatus.h"

namespace tav {

/// What a field says that nothing is known for.
inline constexpr const char* fcNotAvailable = "Not Available";

}  // namespace tav

/// The condition of a Fibre Channel port.
class tavFCDeviceStatusInfo {
 public:
    TAV_RESOURCE_STATE getFCDeviceState() const { return state_; }
    void setFCDeviceState(TAV_RESOURCE_STATE state) { state_ = state; }
    TAV_RESOURCE_HEALTH getFCDeviceHealth() const { return health_; }
    void setFCDeviceHealth(TAV_RESOURCE_HEALTH health) { health_ = health; }

 private:
    TAV_RESOURCE_STATE state_ = TAV_STATE_UNKNOWN;
    TAV_RESOURCE_HEALTH health_ = TAV_HEALTH_UNKNOWN;
};

/// Where a port's adapter sits: a location code of 16 hexadecimal digits.
class tavFCDevicePhyLoc {
 public:
    const std::string& getFCPhysicalLocation() const { return location_; }
    void setFCPhysicalLocation(std::string location) { location_ = std::move(location); }

 private:
    std::string location_ = tav::fcNotAvailable;
};

/// One Fibre Channel port. A plain value; its texts are bytes as the adapter gives them.
class tavFCDeviceInfo {
 public:
    /// The slot number as decimal text; "0" where none is known.
    const std::string& gettavFCSlot() const { return slot_; }
    void settavFCSlot(std::string slot) { slot_ = std::move(slot); }
    const std::string& gettavFCModel() const { return model_; }
    void settavFCModel(std::string model) { model_ = std::move(model); }
    const std::string& gettavFCSerialNumber() const { return serialNumber_; }
    void settavFCSerialNumber(std::string number) { serialNumber_ = std::move(number); }
    /// Empty for an adapter whose part number is not in the table.
    const std::string& gettavFCPartNumber() const { return partNumber_; }
    void settavFCPartNumber(std::string number) { partNumber_ = std::move(number); }
    const std::string& gettavFCFirmwareVersion() const { return firmwareVersion_; }
    void settavFCFirmwareVersion(std::string version) { firmwareVersion_ = std::move(version); }
    /// Of the option ROM.
    const std::string& gettavFCRomVersion() const { return romVersion_; }
    void settavFCRomVersion(std::string version) { romVersion_ = std::move(version); }
    /// World-wide names of the port and of its node: FC-FS name identifiers of 64 bits, as
    /// "20:00:00:00:c9:11:22:33". By them a port is known again in the next build
    /// (fc/FCEvents.h).
    const std::string& gettavFCWWPN() const { return wwpn_; }
    void settavFCWWPN(std::string name) { wwpn_ = std::move(name); }
    const std::string& gettavFCWWNN() const { return wwnn_; }
    void settavFCWWNN(std::string name) { wwnn_ = std::move(name); }
    const tavFCDeviceStatusInfo& gettavFCStatus() const { return status_; }
    void settavFCStatus(TAV_RESOURCE_STATE state, TAV_RESOURCE_HEALTH health) {
        status_.setFCDeviceState(state);
        status_.setFCDeviceHealth(health);
    }
    const tavFCDevicePhyLoc& gettavFCOemPhyLoc() const { return location_; }
    void settavOemPhyLoc(std::string location) {
        location_.setFCPhysicalLocation(std::move(location));
    }
    /// "PCI 0000:86:00.0 r001i03s05".
    const std::string& gettavFCDescription() const { return description_; }
    void settavFCDescription(std::string text) { description_ = std::move(text); }

 private:
    std::string slot_ = tav::fcNotAvailable;
    std::string model_ = tav::fcNotAvailable;
    std::string serialNumber_ = tav::fcNotAvailable;
    std::string partNumber_ = tav::fcNotAvailable;
    std::string firmwareVersion_ = tav::fcNotAvailable;
    std::string romVersion_ = tav::fcNotAvailable;
    std::string wwpn_ = tav::fcNotAvailable;
    std::string wwnn_ = tav::fcNotAvailable;
    tavFCDeviceStatusInfo status_;
    tavFCDevicePhyLoc location_;
    std::string description_ = tav::fcNotAvailable;
};

namespace tav {

/// The port as events carry it: everything but its condition.
TAV_API Json::Value renderFcPort(const tavFCDeviceInfo& port);

/// The port as the inventory lists it: the same, and "Status".
TAV_API Json::Value renderFcInventory(const tavFCDeviceInfo& port);

}  // namespace tav
