#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "storage/model/tavInventoryBase.h"

/// Where a disk sits.
class TAV_API tavDiskPhyLoc : public virtual tavInventoryBase {
 public:
    /// {"Slot": integer, "PhysicalLocation"}
    Json::Value getVariableData() const override;

    /// Drive slot; -1 for none known.
    virtual int getSlot() const { return slot_; }
    virtual void setSlot(int slot) { slot_ = slot; }
    /// Location code, 16 hexadecimal digits.
    virtual std::string getPhysicalLocation() const { return physicalLocation_; }
    virtual void setPhysicalLocation(std::string location) {
        physicalLocation_ = std::move(location);
    }
    /// The kernel's ATA port number; -1 for none.
    virtual int getATAPort() const { return ataPort_; }
    virtual void setATAPort(int port) { ataPort_ = port; }

 private:
    int slot_ = -1;
    std::string physicalLocation_;
    int ataPort_ = -1;
};

/// What a disk reports about itself. Carried with the record, not reported.
enum SAS_OPERATIONAL_STATUS : int {
    SAS_STATUS_UNKNOWN = 0,
    SAS_STATUS_OK = 1,
    SAS_STATUS_DEGRADED = 2,
    SAS_STATUS_FAILED = 3,
};

class TAV_API tavDiskStatusInfo : public tavStatusInfo {
 public:
    virtual SAS_OPERATIONAL_STATUS getSASStatus() const { return sasStatus_; }
    virtual void setSASStatus(SAS_OPERATIONAL_STATUS status) { sasStatus_ = status; }

 private:
    SAS_OPERATIONAL_STATUS sasStatus_ = SAS_STATUS_UNKNOWN;
};

namespace tav {

/// Where the kernel lists a disk.
struct DiskAddress {
    std::string link{};  ///< its SCSI address ("0:0:0:0"), or the name of its namespace ("nvme0n1")
    int ataPort = -1;    ///< the kernel's number; -1 for none
};

/// What earlier looks have learnt of a disk, so that the next one can tell what has changed from
/// what merely cannot be asked. Carried with the record, not reported.
struct DiskMemory {
    // Its serial number by each source; empty: never read there.
    std::string unitSerial;      ///< the kernel's copy of VPD page 80h, or of an NVMe controller's
    std::string inquirySerial;   ///< the kernel's copy of the standard INQUIRY data
    std::string identifySerial;  ///< ATA IDENTIFY DEVICE or NVMe Identify Controller data

    unsigned answered = 0;  ///< the questions that it has answered, as a set of bits
    unsigned refused = 0;   ///< those that it does not support
    int wear = -1;          ///< percentage that it told last; -1: none
    int temperature = -1;   ///< degrees Celsius; likewise
    int maximumTemperature = -1;
    int warningKelvins = 0;  ///< thresholds of an NVMe controller; 0: none
    int criticalKelvins = 0;

    bool isReplaced = false;  ///< the last look has found another disk in its place
};

}  // namespace tav

/// A physical disk.
class TAV_API tavDiskInfo : public tavDiskStatusInfo, public tavDiskPhyLoc {
 public:
    /// {"Type": "Drive", "Data": {"SerialNumber", "PartNumber", "Model", "CapacityBytes": unsigned
    /// number, "Protocol", "MediaType", "Revision", "Oem": {"Slot": integer, "PhysicalLocation"}},
    /// "EventInfo"}; in "Oem" also "Namespace": unsigned number for an NVMe drive
    Json::Value getVariableData() const override;

    virtual std::string getSerialNumber() const { return serialNumber_; }
    virtual void setSerialNumber(std::string number) { serialNumber_ = std::move(number); }
    virtual std::string getPartNumber() const { return partNumber_; }
    virtual void setPartNumber(std::string number) { partNumber_ = std::move(number); }
    virtual std::string getModel() const { return model_; }
    virtual void setModel(std::string model) { model_ = std::move(model); }
    virtual std::uint64_t getCapacityBytes() const { return capacityBytes_; }
    virtual void setCapacityBytes(std::uint64_t bytes) { capacityBytes_ = bytes; }
    /// "SAS", "ATA" ("SATA" behind a RAID controller), "NVMe" or the name of another SCSI
    /// transport; "Unknown" or empty where none is known.
    virtual std::string getProtocol() const { return protocol_; }
    virtual void setProtocol(std::string protocol) { protocol_ = std::move(protocol); }
    /// "HDD" or "SSD"; empty for one that has never told.
    virtual std::string getMediaType() const { return mediaType_; }
    virtual void setMediaType(std::string type) { mediaType_ = std::move(type); }
    /// Firmware revision.
    virtual std::string getRevision() const { return revision_; }
    virtual void setRevision(std::string revision) { revision_ = std::move(revision); }
    /// Path of the block device under /dev/.
    virtual std::string getOSDeviceName() const { return osDeviceName_; }
    virtual void setOSDeviceName(std::string name) { osDeviceName_ = std::move(name); }
    /// SCSI address (H:C:T:L) under which the kernel lists the disk; of an NVMe drive the kernel's
    /// name of its namespace.
    virtual std::string getOSSCSILink() const { return osScsiLink_; }
    virtual void setOSSCSILink(std::string link) { osScsiLink_ = std::move(link); }
    /// Open descriptor of the SCSI generic node, not owned by the record; negative for none.
    virtual int getOSSGHandle() const { return osSgHandle_; }
    virtual void setOSSGHandle(int descriptor) { osSgHandle_ = descriptor; }
    /// Word 80 of the ATA IDENTIFY DEVICE data (ACS); 0 when not reported.
    virtual int getATAMajorRevision() const { return ataMajorRevision_; }
    virtual void setATAMajorRevision(int revision) { ataMajorRevision_ = revision; }
    /// Why the disk is in its state; travels with its events.
    virtual std::string getEventInfoString() const { return eventInfo_; }
    virtual void setEventInfoString(std::string text) { eventInfo_ = std::move(text); }
    /// NVMe namespace ID; 0 for what is none.
    virtual std::uint32_t getNamespace() const { return namespace_; }
    virtual void setNamespace(std::uint32_t id) { namespace_ = id; }

    const tav::DiskMemory& getMemory() const { return memory_; }
    tav::DiskMemory& memory() { return memory_; }

 private:
    std::string serialNumber_;
    std::string partNumber_;
    std::string model_;
    std::uint64_t capacityBytes_ = 0;
    std::string protocol_;
    std::string mediaType_;
    std::string revision_;
    std::string osDeviceName_;
    std::string osScsiLink_;
    int osSgHandle_ = -1;
    int ataMajorRevision_ = 0;
    std::uint32_t namespace_ = 0;
    std::string eventInfo_;
    tav::DiskMemory memory_;
};
