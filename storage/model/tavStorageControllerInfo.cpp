#include "storage/model/tavStorageControllerInfo.h"

#include "base/JsonText.h"

using tav::jsonText;

Json::Value tavIOControllerPhyLoc::getVariableData() const {
    Json::Value data(Json::objectValue);
    data["PhysicalLocation"] = jsonText(getPhysicalLocation());
    return data;
}

Json::Value tavStorageControllerPortInfo::getVariableData() const {
    return Json::Value::nullSingleton();
}

Json::Value tavStorageControllerInfo::getVariableData() const {
    Json::Value record(Json::objectValue);
    record["Type"] = "Controller";
    Json::Value& data = record["Data"];
    data["Model"] = jsonText(getModel());
    data["SerialNumber"] = jsonText(getSerialNumber());
    data["FirmwareVersion"] = jsonText(getFirmwareVersion());
    data["Protocol"] = jsonText(getProtocol());
    Json::Value& oem = data["Oem"];
    oem["PhysicalLocation"] = jsonText(getPhysicalLocation());
    oem["Description"] = jsonText(getDescription());
    record["EventInfo"] = jsonText(getEventInfoString());
    return record;
}

tavStorageControllerPortInfo tavStorageControllerInfo::getControllerPort(std::size_t index) const {
    return ports_[index];
}

void tavStorageControllerInfo::setControllerPort(std::size_t index,
                                                 const tavStorageControllerPortInfo& port) {
    ports_[index] = port;
}

void tavStorageControllerInfo::addControllerPort(const tavStorageControllerPortInfo& port) {
    ports_.push_back(port);
}

void tavStorageControllerInfo::deleteControllerPort(std::size_t index) {
    ports_.erase(ports_.begin() + static_cast<std::ptrdiff_t>(index));
}
