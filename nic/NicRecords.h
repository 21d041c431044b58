#pragma once

#include <json/value.h>

#include "nic/PhyAdapterInventory.h"

/// How an Ethernet interface is written. Pure functions.
namespace tav {

/// The interface in the inventory: "Model", "SerialNumber", "PartNumber", "FirmwareVersion",
/// "MACAddress", "SpeedMbps", "Oem" {"DeviceName", "Description", "PhysicalLocation"} and "Status"
/// {"State", "Health"}.
Json::Value renderNicInventory(const PhyAdapterInventory& adapter);

/// What an event tells of the interface: "Data" (the same without "Status"), "Type" and
/// "EventInfo", the description of that event ID.
Json::Value renderNicEvent(const PhyAdapterInventory& adapter, int eventId);

}  // namespace tav
