#include "storage/model/tavLogicalDiskInfo.h"

#include "base/JsonText.h"

using tav::jsonText;

Json::Value tavLogicalDiskOEMInfo::getVariableData() const {
    Json::Value data(Json::objectValue);
    data["DeviceName"] = jsonText(getDeviceName());
    return data;
}

Json::Value tavLogicalDiskInfo::getVariableData() const {
    Json::Value record(Json::objectValue);
    record["Type"] = "Volume";
    Json::Value& data = record["Data"];
    data["DurableName"] = jsonText(getDurableName());
    data["VolumeType"] = jsonText(getRAIDLevel());
    data["CapacityBytes"] = Json::UInt64{getCapacityBytes()};
    for (const std::string& identifier : physicalDisks_) {
        data["Drives"].append(jsonText(identifier));
    }
    data["Oem"] = tavLogicalDiskOEMInfo::getVariableData();
    record["EventInfo"] = jsonText(getEventInfoString());
    return record;
}

void tavLogicalDiskInfo::deletePhysicalDisk(std::size_t index) {
    physicalDisks_.erase(physicalDisks_.begin() + static_cast<std::ptrdiff_t>(index));
}

tavLogicalDiskExtInfo::tavLogicalDiskExtInfo(tavLogicalDiskInfo volume,
                                             std::vector<tavDiskInfo> drives)
    : volume_(std::move(volume)), drives_(std::move(drives)) {
    setDeviceName(volume_.getDeviceName());
}

Json::Value tavLogicalDiskExtInfo::getVariableData() const {
    Json::Value record = volume_.getVariableData();
    Json::Value& data = record["Data"];
    data.removeMember("Drives");
    for (const tavDiskInfo& drive : drives_) {
        data["Drives"].append(drive.getVariableData()["Data"]);
    }
    data["Oem"] = tavLogicalDiskOEMInfo::getVariableData();
    return record;
}
