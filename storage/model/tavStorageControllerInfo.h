#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "storage/model/tavInventoryBase.h"

/// Where an I/O controller sits.
class TAV_API tavIOControllerPhyLoc : public virtual tavInventoryBase {
 public:
    /// {"PhysicalLocation"}
    Json::Value getVariableData() const override;

    /// Location code, 16 hexadecimal digits.
    virtual std::string getPhysicalLocation() const { return physicalLocation_; }
    virtual void setPhysicalLocation(std::string location) {
        physicalLocation_ = std::move(location);
    }
    /// "PCI ", the PCI address, a blank and the host's geographic ID.
    virtual std::string getDescription() const { return description_; }
    virtual void setDescription(std::string description) { description_ = std::move(description); }

 private:
    std::string physicalLocation_;
    std::string description_;
};

/// One SCSI host port of a controller.
class TAV_API tavStorageControllerPortInfo : public tavStatusInfo {
 public:
    /// Null: a port is reported through its controller.
    Json::Value getVariableData() const override;

    /// Sysfs path of the SCSI host, for example /sys/class/scsi_host/host3.
    virtual std::string getOSInstanceName() const { return osInstanceName_; }
    virtual void setOSInstanceName(std::string name) { osInstanceName_ = std::move(name); }
    /// Kernel driver that owns the port.
    virtual std::string getDriverName() const { return driverName_; }
    virtual void setDriverName(std::string name) { driverName_ = std::move(name); }
    /// When the port was first seen in recovery, by tav::secondsNow(); 0 while it is not.
    virtual long getLastRecoveryTimestamp() const { return lastRecoveryTimestamp_; }
    virtual void setLastRecoveryTimestamp(long seconds) { lastRecoveryTimestamp_ = seconds; }
    /// The kernel's ATA port number; -1 for none.
    virtual int getATAPort() const { return ataPort_; }
    virtual void setATAPort(int port) { ataPort_ = port; }

 private:
    std::string osInstanceName_;
    std::string driverName_;
    long lastRecoveryTimestamp_ = 0;
    int ataPort_ = -1;
};

/// A storage controller and its ports. Indices of ports must be below the size of the list.
class TAV_API tavStorageControllerInfo : public tavStatusInfo, public tavIOControllerPhyLoc {
 public:
    /// {"Type": "Controller", "Data": {"Model", "SerialNumber", "FirmwareVersion", "Protocol",
    /// "Oem": {"PhysicalLocation", "Description"}}, "EventInfo"}
    Json::Value getVariableData() const override;

    virtual std::string getModel() const { return model_; }
    virtual void setModel(std::string model) { model_ = std::move(model); }
    virtual std::string getSerialNumber() const { return serialNumber_; }
    virtual void setSerialNumber(std::string number) { serialNumber_ = std::move(number); }
    virtual std::string getFirmwareVersion() const { return firmwareVersion_; }
    virtual void setFirmwareVersion(std::string version) { firmwareVersion_ = std::move(version); }
    virtual std::string getProtocol() const { return protocol_; }
    virtual void setProtocol(std::string protocol) { protocol_ = std::move(protocol); }
    /// PCI device ID in the upper half, vendor ID in the lower one.
    virtual std::uint32_t getChipsetID() const { return chipsetID_; }
    virtual void setChipsetID(std::uint32_t id) { chipsetID_ = id; }
    /// PCI subsystem device ID in the upper half, subsystem vendor ID in the lower one.
    virtual std::uint32_t getBoardID() const { return boardID_; }
    virtual void setBoardID(std::uint32_t id) { boardID_ = id; }

    virtual std::vector<tavStorageControllerPortInfo> getControllerPortVector() const {
        return ports_;
    }
    virtual tavStorageControllerPortInfo getControllerPort(std::size_t index) const;
    virtual void setControllerPort(std::size_t index, const tavStorageControllerPortInfo& port);
    virtual void addControllerPort(const tavStorageControllerPortInfo& port);
    virtual void clearControllerPortList() { ports_.clear(); }
    virtual std::size_t getControllerPortListSize() const { return ports_.size(); }
    /// Closes the gap; the rest keeps its order.
    virtual void deleteControllerPort(std::size_t index);

    /// Why the controller is in its state; travels with its events.
    virtual std::string getEventInfoString() const { return eventInfo_; }
    virtual void setEventInfoString(std::string text) { eventInfo_ = std::move(text); }

 private:
    std::string model_;
    std::string serialNumber_;
    std::string firmwareVersion_;
    std::string protocol_;
    std::uint32_t chipsetID_ = 0;
    std::uint32_t boardID_ = 0;
    std::vector<tavStorageControllerPortInfo> ports_;
    std::string eventInfo_;
};
