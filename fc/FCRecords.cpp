#include "fc/FCRecords.h"

#include <array>

#include "base/JsonText.h"

namespace tav {
namespace {

struct TextField {
    const char* key;
    const std::string& (tavFCDeviceInfo::*get)() const;
};

constexpr std::array textFields = {
    TextField{"Model", &tavFCDeviceInfo::gettavFCModel},
    TextField{"SerialNumber", &tavFCDeviceInfo::gettavFCSerialNumber},
    TextField{"PartNumber", &tavFCDeviceInfo::gettavFCPartNumber},
    TextField{"FirmwareVersion", &tavFCDeviceInfo::gettavFCFirmwareVersion},
    TextField{"RomVersion", &tavFCDeviceInfo::gettavFCRomVersion},
    TextField{"WWPN", &tavFCDeviceInfo::gettavFCWWPN},
    TextField{"WWNN", &tavFCDeviceInfo::gettavFCWWNN},
};

}  // namespace

Json::Value renderFcPort(const tavFCDeviceInfo& port) {
    Json::Value record(Json::objectValue);
    for (const TextField& field : textFields)
        record[field.key] = jsonText((port.*field.get)());
    Json::Value& oem = record["Oem"];
    oem["Description"] = jsonText(port.gettavFCDescription());
    oem["PhysicalLocation"] = jsonText(port.gettavFCOemPhyLoc().getFCPhysicalLocation());
    return record;
}

Json::Value renderFcInventory(const tavFCDeviceInfo& port) {
    Json::Value record = renderFcPort(port);
    Json::Value& status = record["Status"];
    status["State"] = displayText(port.gettavFCStatus().getFCDeviceState());
    status["Health"] = displayText(port.gettavFCStatus().getFCDeviceHealth());
    return record;
}

}  // namespace tav
