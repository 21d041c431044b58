#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "storage/model/tavDiskInfo.h"
#include "storage/model/tavInventoryBase.h"

/// What the operating system calls a logical volume.
class TAV_API tavLogicalDiskOEMInfo : public virtual tavInventoryBase {
 public:
    /// {"DeviceName"}
    Json::Value getVariableData() const override;

    virtual std::string getDeviceName() const { return deviceName_; }
    virtual void setDeviceName(std::string name) { deviceName_ = std::move(name); }

 private:
    std::string deviceName_;
};

/// A logical volume and its member drives. Indices of drives must be below the size of the list.
class TAV_API tavLogicalDiskInfo : public tavStatusInfo, public tavLogicalDiskOEMInfo {
 public:
    /// {"Type": "Volume", "Data": {"DurableName", "VolumeType", "CapacityBytes": unsigned number,
    /// "Drives": [identifier, ...], "Oem": {"DeviceName"}}, "EventInfo"}. No "Drives" without any.
    Json::Value getVariableData() const override;

    virtual std::string getDurableName() const { return durableName_; }
    virtual void setDurableName(std::string name) { durableName_ = std::move(name); }
    virtual std::string getRAIDLevel() const { return raidLevel_; }
    virtual void setRAIDLevel(std::string level) { raidLevel_ = std::move(level); }
    virtual std::uint64_t getCapacityBytes() const { return capacityBytes_; }
    virtual void setCapacityBytes(std::uint64_t bytes) { capacityBytes_ = bytes; }

    /// Durable identifiers of the member drives.
    virtual std::vector<std::string> getPhysicalDiskVector() const { return physicalDisks_; }
    virtual std::string getPhysicalDisk(std::size_t index) const { return physicalDisks_[index]; }
    virtual void setPhysicalDisk(std::size_t index, std::string identifier) {
        physicalDisks_[index] = std::move(identifier);
    }
    virtual void addPhysicalDisk(std::string identifier) {
        physicalDisks_.push_back(std::move(identifier));
    }
    virtual void clearPhysicalDiskList() { physicalDisks_.clear(); }
    virtual std::size_t getPhysicalDiskListSize() const { return physicalDisks_.size(); }
    /// Closes the gap; the rest keeps its order.
    virtual void deletePhysicalDisk(std::size_t index);

    virtual std::string getDescription() const { return description_; }
    virtual void setDescription(std::string description) { description_ = std::move(description); }
    virtual std::string getLogicalDiskID() const { return logicalDiskID_; }
    virtual void setLogicalDiskID(std::string id) { logicalDiskID_ = std::move(id); }
    /// Why the volume is in its state; travels with its events.
    virtual std::string getEventInfoString() const { return eventInfo_; }
    virtual void setEventInfoString(std::string text) { eventInfo_ = std::move(text); }

 private:
    std::string durableName_;
    std::string raidLevel_;
    std::uint64_t capacityBytes_ = 0;
    std::vector<std::string> physicalDisks_;
    std::string description_;
    std::string logicalDiskID_;
    std::string eventInfo_;
};

/// A volume with its member drives in full: what an event of the volume carries.
class TAV_API tavLogicalDiskExtInfo : public tavLogicalDiskOEMInfo {
 public:
    tavLogicalDiskExtInfo(tavLogicalDiskInfo volume, std::vector<tavDiskInfo> drives);

    /// As the volume's own, but each element of "Drives" is an object {"SerialNumber",
    /// "PartNumber", "Model", "CapacityBytes", "Protocol", "MediaType", "Revision", "Oem": {"Slot",
    /// "PhysicalLocation"}}.
    Json::Value getVariableData() const override;

 private:
    tavLogicalDiskInfo volume_;
    std::vector<tavDiskInfo> drives_;
};
