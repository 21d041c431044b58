#pragma once

#include <string>
#include <utility>

/// One Ethernet interface as it is reported. A plain value; copied from thread to thread.
class PhyAdapterInventory {
 public:
    /// The adapter's description, blanks included.
    const std::string& getNICModel() const { return model_; }
    void setNICModel(std::string model) { model_ = std::move(model); }

    /// Always empty in the inventory: no host command of the inventory's path tells it.
    const std::string& getSerialNumber() const { return serialNumber_; }
    void setSerialNumber(std::string number) { serialNumber_ = std::move(number); }

    /// Spare-part number, or empty.
    const std::string& getPartNumber() const { return partNumber_; }
    void setPartNumber(std::string number) { partNumber_ = std::move(number); }

    const std::string& getFirmVersion() const { return firmwareVersion_; }
    void setFirmVersion(std::string version) { firmwareVersion_ = std::move(version); }

    const std::string& getDeviceName() const { return deviceName_; }
    void setDeviceName(std::string name) { deviceName_ = std::move(name); }

    const std::string& getMACAddress() const { return macAddress_; }
    void setMACAddress(std::string address) { macAddress_ = std::move(address); }

    /// Mbps; 0 when it is not known.
    int getSpeed() const { return speed_; }
    void setSpeed(int speed) { speed_ = speed; }

    /// "PCI 0000:c3:00.0 r001i01s00".
    const std::string& getPCIDescription() const { return pciDescription_; }
    void setPCIDescription(std::string description) { pciDescription_ = std::move(description); }

    /// Location code (16 hexadecimal digits); "FFFFFFFFFFFFFFFF" when none is known.
    const std::string& getPhyLocation() const { return phyLocation_; }
    void setPhyLocation(std::string location) { phyLocation_ = std::move(location); }

    /// Display strings of TAV_RESOURCE_STATE and TAV_RESOURCE_HEALTH.
    const std::string& getState() const { return state_; }
    void setState(std::string state) { state_ = std::move(state); }
    const std::string& getHealth() const { return health_; }
    void setHealth(std::string health) { health_ = std::move(health); }

    const std::string& getIntfName() const { return interfaceName_; }
    void setIntfName(std::string name) { interfaceName_ = std::move(name); }

    /// As the interface list words it: "Up", "Down", ...
    const std::string& getLinkStatus() const { return linkStatus_; }
    void setLinkStatus(std::string status) { linkStatus_ = std::move(status); }

    bool operator==(const PhyAdapterInventory&) const = default;

 private:
    std::string model_;
    std::string serialNumber_;
    std::string partNumber_;
    std::string firmwareVersion_;
    std::string deviceName_;
    std::string macAddress_;
    int speed_ = 0;
    std::string pciDescription_;
    std::string phyLocation_ = "NA";
    std::string state_;
    std::string health_;
    std::string interfaceName_;
    std::string linkStatus_;
};
