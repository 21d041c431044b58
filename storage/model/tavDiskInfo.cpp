#include "storage/model/tavDiskInfo.h"

#include "base/JsonText.h"

using tav::jsonText;

Json::Value tavDiskPhyLoc::getVariableData() const {
    Json::Value data(Json::objectValue);
    data["Slot"] = getSlot();
    data["PhysicalLocation"] = jsonText(getPhysicalLocation());
    return data;
}

Json::Value tavDiskInfo::getVariableData() const {
    Json::Value record(Json::objectValue);
    record["Type"] = "Drive";
    Json::Value& data = record["Data"];
    data["SerialNumber"] = jsonText(getSerialNumber());
    data["PartNumber"] = jsonText(getPartNumber());
    data["Model"] = jsonText(getModel());
    data["CapacityBytes"] = Json::UInt64{getCapacityBytes()};
    data["Protocol"] = jsonText(getProtocol());
    data["MediaType"] = jsonText(getMediaType());
    data["Revision"] = jsonText(getRevision());
    data["Oem"] = tavDiskPhyLoc::getVariableData();
    if (getNamespace() != 0) data["Oem"]["Namespace"] = Json::UInt{getNamespace()};
    record["EventInfo"] = jsonText(getEventInfoString());
    return record;
}
