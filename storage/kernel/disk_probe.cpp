#include "storage/kernel/disk_probe.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include <fcntl.h>

#include "base/Trim.h"
#include "base/printed.h"
#include "core/Log.h"
#include "hwlib/sysfs/sysfs_readers.h"
#include "storage/kernel/disk_ledgers.h"
#include "storage/kernel/disk_questions.h"
#include "storage/model/storage_utils.h"
#include "storage/scsi/scsi_info.h"
#include "storage/scsi/scsi_replies.h"
#include "storage/scsi/scsi_sysfs.h"
#include "storage/scsi/scsi_turn.h"

namespace tav {
namespace {

constexpr ModuleLog logger{"STOR_CTLR"};

constexpr unsigned long long blockSize = 512;  // of the kernel's block counts
constexpr const char* logicalVolume = "LOGICAL VOLUME";

std::string trimmed(const OwnedText& text) {
    if (!text) return {};
    return std::string(tav::trimBoth(text.get()));
}

// --- What a disk is ------------------------------------------------------------------------------

/// SCSI protocol identifiers (SPC-4).
constexpr std::array SCSI_Protocol_Identifiers = {"Fibre Channel",
                                                  "Parallel SCSI",
                                                  "SSA",
                                                  "IEEE 1394",
                                                  "SCSI RDMA Protocol",
                                                  "iSCSI",
                                                  "SAS",
                                                  "ADT",
                                                  "ATA",
                                                  "UAS",
                                                  "SOP",
                                                  "0xb",
                                                  "0xc",
                                                  "0xd",
                                                  "0xe",
                                                  "0xf"};
constexpr const char* ataProtocol = "ATA";

std::optional<scsi::AtaIdentity> identifyAtaDisk(int node) {
    std::array<unsigned char, 512> data;
    std::size_t length = data.size();
    if (get_ata_identify_device_info(node, data.data(), &length) != 0) return std::nullopt;
    return scsi::ataIdentity(std::as_bytes(std::span(data).first(length)));
}

/// "ACS-2 or later" by the major revision word: bits 9 to 15 stand for ACS-2 and what came after.
/// Two values mean that the disk does not tell.
bool hasAcs2(int majorRevision) {
    constexpr int notReported = 0xFFFF;
    constexpr int acs2AndLater = 0xFE00;
    return majorRevision != notReported && (majorRevision & acs2AndLater) != 0;
}

const char* mediaTypeOf(int rotationRate) {
    constexpr int notRotating = 1;
    constexpr int slowest = 0x0401, fastest = 0xFFFE;  // revolutions a minute
    if (rotationRate == notRotating) return "SSD";
    return rotationRate >= slowest && rotationRate <= fastest ? "HDD" : nullptr;
}

void setMediaType(const std::string& link, int rotationRate, tavDiskInfo& disk) {
    const char* const type = mediaTypeOf(rotationRate);
    if (type != nullptr) {
        disk.setMediaType(type);
    } else {
        logger.debug(here(), "%s: Unable to determine media type (0x%x).", link.c_str(),
                     static_cast<unsigned>(rotationRate));
    }
}

/// An ATA disk that stands behind the kernel's own translation has no port page.
std::string protocolOf(const std::string& link, const std::string& device, int node, bool isAta) {
    const int identifier = get_scsi_transport_protocol(node);
    if (identifier < 0 ||
        static_cast<std::size_t>(identifier) >= SCSI_Protocol_Identifiers.size()) {
        logger.debug(here(), "%s: Unable to identify disk protocol.", link.c_str());
        return isAta ? ataProtocol : "";
    }
    const char* const name = SCSI_Protocol_Identifiers[static_cast<std::size_t>(identifier)];
    logger.debug(here(), "%s: Device %s: Protocol %d (%s)", link.c_str(), device.c_str(),
                 identifier, name);
    return name;
}

void setModel(const std::string& model, tavDiskInfo& disk) {
    disk.setModel(model);
    disk.setPartNumber(getDiskPartNumber(model));
}

/// False when the disk has not identified itself.
bool describeAtaDisk(const std::string& link, int node, tavDiskInfo& disk) {
    const std::optional<scsi::AtaIdentity> identity = identifyAtaDisk(node);
    if (!identity) {
        logger.debug(here(), "%s: The disk does not identify itself.", link.c_str());
        return false;
    }
    const std::string& serial = identity->serialNumber;
    disk.memory().identifySerial = serial;
    if (!serial.empty()) disk.setSerialNumber(serial);
    if (!identity->firmwareRevision.empty()) disk.setRevision(identity->firmwareRevision);
    if (!identity->model.empty()) setModel(identity->model, disk);
    const int majorRevision = identity->majorVersion;
    disk.setATAMajorRevision(majorRevision);
    logger.debug(here(),
                 "%s: ATA Info: Serial#=%s FW=%s Model=%s Part#=%s NMRR=0x%X Capability=0x%X "
                 "ATA_Rev=0x%X [%s]",
                 link.c_str(), serial.c_str(), disk.getRevision().c_str(), disk.getModel().c_str(),
                 disk.getPartNumber().c_str(), static_cast<unsigned>(identity->rotationRate),
                 static_cast<unsigned>(identity->capabilities),
                 static_cast<unsigned>(majorRevision),
                 hasAcs2(majorRevision) ? "ACS-2 or later" : "Non ACS-2");
    setMediaType(link, identity->rotationRate, disk);
    return true;
}

void setSerialNumber(const std::string& link, tavDiskInfo& disk) {
    std::string serial = scsi::unitSerial(link.c_str());
    const char* source = "page 80";
    disk.memory().unitSerial = serial;
    if (serial.empty()) {
        serial = trimmed(OwnedText(get_unit_sn_from_sysfs_inquiry(link.c_str())));
        source = "inquiry";
        disk.memory().inquirySerial = serial;
    }
    logger.debug(here(), "%s: Disk serialnum from %s: %s", link.c_str(), source, serial.c_str());
    disk.setSerialNumber(serial);
}

void setBlockDevice(const std::string& link, tavDiskInfo& disk) {
    const tavBlockDevice device = get_BlockDevice(link.c_str());
    if (!device.name.empty()) disk.setOSDeviceName("/dev/" + device.name);
    const unsigned long long blocks = device.sectors;
    const unsigned long long bytes = blocks * blockSize;
    disk.setCapacityBytes(bytes);
    logger.debug(here(), "%s: Drv size %llu Blocks, %llu bytes", link.c_str(), blocks, bytes);
}

/// A device that is known has been one before, and is one as long as the kernel does not say
/// otherwise.
bool isPhysicalDisk(const std::string& link, const std::string& model, bool isKnown) {
    if (model == logicalVolume) {
        logger.debug(here(), "%s: Skipping logical drive %s", link.c_str(), model.c_str());
        return false;
    }
    if (is_direct_access_block_device(link.c_str())) return true;
    if (isKnown && !OwnedText(get_DiskType(link.c_str()))) return true;
    logger.debug(here(), "%s: Skipping since it is not a direct-access block device", link.c_str());
    return false;
}

// --- How it does ---------------------------------------------------------------------------------

/// A page of an ATA log.
struct AtaLog {
    std::uint8_t address, page;
};

/// One disk's turn to be asked how it does.
class DiskTurn {
 public:
    DiskTurn(int node, tavDiskInfo& disk) : node_(node), disk_(disk) {}

    enum class Reply { Answered, NotSupported, NotNow };

    /// What has become of the question that has just been asked; `log` is what it asked for. "Not
    /// supported" is no fault, unless the disk has answered it before.
    Reply replyTo(DiskQuestion question, const std::optional<AtaLog>& log = std::nullopt) {
        const scsi::Outcome outcome = turn_.last();
        if (turn_.isOver()) return Reply::NotNow;
        if (outcome == scsi::Outcome::Answered) {
            noteAnswered(question, disk_);
            return Reply::Answered;
        }
        if (!isRefusal(outcome, question, log)) return Reply::NotNow;
        if (std::string failure = noteRefused(question, disk_); !failure.empty()) {
            failure_ = std::move(failure);
        }
        return Reply::NotSupported;
    }

    /// The judgement that goes before any other; none where the readings decide.
    std::optional<DiskJudgement> failure() const {
        if (turn_.isOver()) {
            return DiskJudgement{
                failed, printed("The disk drive (SCSI link: %s) did not answer in time. (%s)",
                                disk_.getOSSCSILink().c_str(), turn_.unanswered().c_str())};
        }
        if (!failure_.empty()) return DiskJudgement{failed, failure_};
        return std::nullopt;
    }

    int node() const { return node_; }
    tavDiskInfo& disk() { return disk_; }

 private:
    bool isRefusal(scsi::Outcome outcome, DiskQuestion question,
                   const std::optional<AtaLog>& log) const {
        if (outcome == scsi::Outcome::Refused) return true;
        if (outcome != scsi::Outcome::Aborted || !log) return false;
        if ((disk_.memory().refused & question) != 0) return true;
        return !scsi::ataLogIsListed(node_, log->address, log->page);
    }

    const int node_;
    tavDiskInfo& disk_;
    scsi::Turn turn_;
    std::string failure_;
};

/// The wear that the disk tells, or told last when it cannot be asked.
template <class Ask>
int wearOf(DiskTurn& turn, const char* protocol, Ask ask, const std::optional<AtaLog>& log) {
    if (turn.disk().getMediaType() != "SSD") return -1;
    const int wear = ask(turn.node());
    if (wear < 0) {
        logger.debug(here(), "%s: Failed to determine %s SSD wear [%d].",
                     turn.disk().getOSSCSILink().c_str(), protocol, wear);
    }
    int& known = turn.disk().memory().wear;
    switch (turn.replyTo(wearQuestion, log)) {
        case DiskTurn::Reply::Answered:
            return known = availableWear(wear);
        case DiskTurn::Reply::NotSupported:
            return -1;
        default:
            return known;
    }
}

/// Likewise for the temperatures that the readings hold.
void settleTemperatures(DiskTurn& turn, const std::optional<AtaLog>& log, DiskReadings& readings) {
    DiskMemory& memory = turn.disk().memory();
    switch (turn.replyTo(temperatureQuestion, log)) {
        case DiskTurn::Reply::Answered:
            memory.temperature = readings.temperature;
            memory.maximumTemperature = readings.maximumTemperature;
            break;
        case DiskTurn::Reply::NotNow:
            readings.temperature = memory.temperature;
            readings.maximumTemperature = memory.maximumTemperature;
            readings.hasTemperatures = memory.temperature != -1 && memory.maximumTemperature != -1;
            break;
        default:
            break;
    }
}

int settleErrors(DiskTurn& turn, const std::optional<AtaLog>& log, int errors) {
    const bool isUnsupported = turn.replyTo(errorsQuestion, log) == DiskTurn::Reply::NotSupported;
    return isUnsupported ? 0 : errors;
}

void readAtaTemperatures(int node, const std::string& link, DiskReadings& readings) {
    std::size_t length = 0;
    const OwnedBytes page(get_sata_temp(node, &length));
    int current = 0;
    int maximum = 0;
    if (!page) {
        logger.debug(here(), "%s: Failed to retrieve ATA temp.", link.c_str());
    } else if (sata_parse_current(page.get(), length, &current) &&
               sata_parse_mcot(page.get(), length, &maximum)) {
        setTemperatures(current, maximum, readings);
    } else {
        logger.debug(here(), "%s: Failed to read ATA temp values from log page. ", link.c_str());
    }
    constexpr std::size_t wholePage = 96;
    if (page && length >= wholePage) {
        const unsigned char* const b = page.get();
        logger.debug(here(),
                     "%s: ATA Temperature Info: [Rev=0x%02x%02x, Page=0x%02x, CT=0x%02x, "
                     "Flags=0x%02x, MT=0x%02x, Flags=0x%02x]",
                     link.c_str(), b[1], b[0], b[2], b[8], b[15], b[88], b[95]);
    }
}

DiskReadings readAtaDisk(DiskTurn& turn) {
    constexpr AtaLog temperatures{4, 5}, wear{4, 7}, errorLog{3, 0};
    DiskReadings readings;
    readings.wear = wearOf(turn, "ATA", get_sata_ssd_wear, wear);
    if (hasAcs2(turn.disk().getATAMajorRevision())) {
        readAtaTemperatures(turn.node(), turn.disk().getOSSCSILink(), readings);
        settleTemperatures(turn, temperatures, readings);
    }
    readings.errors = settleErrors(turn, errorLog, get_sata_health(turn.node()));
    return readings;
}

/// The maximum stands in the page of temperatures alone: without it, the last that was told stands.
DiskReadings readSasDisk(DiskTurn& turn) {
    DiskReadings readings;
    readings.wear = wearOf(turn, "SAS", get_sas_ssd_wear, std::nullopt);
    if (const OwnedBytes page(get_sas_temp(turn.node())); page) {
        setTemperatures(sas_parse_current(page.get()), sas_parse_mcot(page.get()), readings);
    } else {
        logger.debug(here(), "%s: Failed to determine SAS temp. Looking up unit temp.",
                     turn.disk().getOSSCSILink().c_str());
        setTemperatures(get_unit_temp(turn.node()), turn.disk().memory().maximumTemperature,
                        readings);
    }
    settleTemperatures(turn, std::nullopt, readings);
    readings.errors = settleErrors(turn, std::nullopt, get_sas_health(turn.node()));
    return readings;
}

struct ProtocolProbe {
    const char* protocol;
    const char* name;  ///< of the protocol in the log
    DiskReadings (*read)(DiskTurn& turn);
    const char* unreadable;
    bool namesTemperatures;
};
constexpr const char* ataUnreadable = "Failed to read Summary SMART Error Log from disk drive.";
constexpr const char* scsiUnreadable =
    "Failed to read Informational Exceptions log page from disk drive.";
constexpr std::array protocolProbes = {
    ProtocolProbe{"SATA", "ATA", readAtaDisk, ataUnreadable, false},
    ProtocolProbe{"ATA", "ATA", readAtaDisk, ataUnreadable, false},
    ProtocolProbe{"SAS", "SAS", readSasDisk, scsiUnreadable, true},
};
constexpr ProtocolProbe anyProtocolProbe = {"", "SCSI", readSasDisk, scsiUnreadable, true};

DiskJudgement statusBy(const ProtocolProbe& probe, DiskTurn& turn) {
    const tavDiskInfo& disk = turn.disk();
    const DiskReadings readings = probe.read(turn);
    DiskJudgement judgement =
        turn.failure().value_or(judgeDisk(readings, probe.unreadable, probe.namesTemperatures));
    logger.debug(here(), "%s: %s Disk Status: %s %s [S=%s; H=%s] (H=%d, T=%d, M=%d, W=%d)",
                 disk.getOSSCSILink().c_str(), probe.name, disk.getMediaType().c_str(),
                 disk.getOSDeviceName().c_str(), displayText(judgement.condition.state),
                 displayText(judgement.condition.health), readings.errors, readings.temperature,
                 readings.maximumTemperature, readings.wear);
    return judgement;
}

DiskJudgement statusByProtocol(DiskTurn& turn, OtherProtocols others) {
    const std::string protocol = turn.disk().getProtocol();
    for (const ProtocolProbe& probe : protocolProbes) {
        if (protocol == probe.protocol) return statusBy(probe, turn);
    }
    if (others == OtherProtocols::JudgedByAnswers) return statusBy(anyProtocolProbe, turn);
    if (protocol.empty()) {
        return {failed, "Unable to determine the transport protocol of the disk drive."};
    }
    const std::string link = turn.disk().getOSSCSILink();
    logger.debug(here(), "%s: Unknown disk protocol [%s]", link.c_str(), protocol.c_str());
    return {{},
            printed("Unknown transport protocol (%s) for disk drive. (SCSI link: %s)",
                    protocol.c_str(), link.c_str())};
}

DiskJudgement statusOfUnopened(const tavDiskInfo& disk, const GenericNode& node) {
    const std::string link = disk.getOSSCSILink();
    if (node.path.empty()) {
        logger.debug(here(), "%s: Unable to find scsi generic device. Marking disk as offline.",
                     link.c_str());
        return {offline,
                printed("SCSI generic device for SCSI link %s not available.", link.c_str())};
    }
    // The kernel shows a device that comes back before its node is there.
    const bool isNotBack = node.error == ENOENT && conditionOf(disk) == offline;
    const bool isGone = node.error == ENXIO || node.error == ENODEV || isNotBack;
    logger.debug(here(), "%s: Unable to open %s: (%d %d). Marking disk as %s.", link.c_str(),
                 node.path.c_str(), -1, node.error, isGone ? "offline" : "failed");
    return {isGone ? offline : failed,
            printed("Unable to open SCSI generic device %s (SCSI link: %s). Error number: %d.",
                    node.path.c_str(), link.c_str(), node.error)};
}

DiskJudgement statusOfOpen(tavDiskInfo& disk, int node, OtherProtocols others) {
    const std::string link = disk.getOSSCSILink();
    const std::string serial = scsi::unitSerial(link.c_str());
    const std::string& recorded = disk.getMemory().unitSerial;
    logger.debug(here(), "%s: Disk serialnum from sysfs VPD page 80: %s", link.c_str(),
                 serial.c_str());
    // Whoever answers where a disk has gone may be another one.
    if (serial.empty() && !recorded.empty() && conditionOf(disk) == offline) {
        return {offline, disk.getEventInfoString()};
    }
    if (serial.empty() || recorded.empty() || serial == recorded) {
        DiskTurn turn(node, disk);
        return statusByProtocol(turn, others);
    }
    logger.debug(here(), "%s: Detected change in disk serial number: [%s, %s].", link.c_str(),
                 serial.c_str(), recorded.c_str());
    disk.memory().isReplaced = true;
    return {offline, serialChangeReason(serial, recorded)};
}

}  // namespace

GenericNode openGenericNode(const std::string& link) {
    GenericNode node;
    const std::string name = scsi::genericName(link.c_str());
    if (name.empty()) return node;
    node.path = "/dev/" + name;
    node.file.reset(::open(node.path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!node.file.isOpen()) node.error = errno;
    return node;
}

bool describeDisk(const std::string& link, int node, const tavDiskInfo* known, tavDiskInfo& disk) {
    const std::string model = trimmed(OwnedText(get_DiskModel(link.c_str())));
    if (!isPhysicalDisk(link, model, known != nullptr)) return false;
    disk.setOSSCSILink(link);
    setSerialNumber(link, disk);
    logger.debug(here(), "%s: Disk Model %s", link.c_str(), model.c_str());
    setModel(model, disk);
    setBlockDevice(link, disk);
    disk.setRevision(trimmed(OwnedText(get_sas_DiskRev(link.c_str()))));
    logger.debug(here(), "%s: SCSI PhyDrvFWRev %s", link.c_str(), disk.getRevision().c_str());
    const bool isAta = trimmed(OwnedText(get_DiskVendor(link.c_str()))) == ataProtocol;
    disk.setProtocol(protocolOf(link, disk.getOSDeviceName(), node, isAta));
    bool isIdentified = true;
    if (isAta) {
        logger.debug(here(), "%s: Device %s: Found an ATA disk", link.c_str(),
                     disk.getOSDeviceName().c_str());
        isIdentified = describeAtaDisk(link, node, disk);
    } else {
        setMediaType(link, get_scsi_disk_medium_rotation_rate(node), disk);
    }
    if (known != nullptr) keepKnown(*known, isIdentified, disk);
    return true;
}

void lookForBlockDevice(tavDiskInfo& disk) {
    if (disk.getCapacityBytes() == 0) setBlockDevice(disk.getOSSCSILink(), disk);
}

DiskJudgement diskStatus(tavDiskInfo& disk, OtherProtocols others) {
    disk.memory().isReplaced = false;
    if (disk.getOSSGHandle() >= 0) return statusOfOpen(disk, disk.getOSSGHandle(), others);
    const GenericNode node = openGenericNode(disk.getOSSCSILink());
    if (!node.file.isOpen()) return statusOfUnopened(disk, node);
    return statusOfOpen(disk, node.file.get(), others);
}

}  // namespace tav
