#include "storage/scsi/scsi_info.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <string>

#include <sys/ioctl.h>

#include "base/OwnedCopies.h"
#include "core/Log.h"
#include "hwlib/sysfs/sysfs_readers.h"
#include "storage/scsi/scsi_commands.h"
#include "storage/scsi/scsi_pages.h"
#include "storage/scsi/scsi_replies.h"
#include "storage/scsi/scsi_turn.h"

namespace {

using tav::here;
using namespace tav::scsi;

constexpr tav::ModuleLog logger{"SCSI_INFO"};

constexpr int notValid = -1;
constexpr int requestFailed = -2;
constexpr int checkCondition = -3;
constexpr int replyTooShort = -4;

constexpr unsigned timeoutMilliseconds = 60000;
constexpr std::size_t senseRoom = 32;

/// How the messages about one command name it, and how many bytes it has to bring.
struct Question {
    const char* name;
    std::size_t minimum;
    const char* purpose = nullptr;  ///< where the message about the request says more than "for"
};

/// The room for the reply to one command, and how much of it has been filled.
template <std::size_t Size>
class Reply {
 public:
    std::span<std::byte> room() { return room_; }
    Bytes bytes() const { return std::span(room_).first(received); }
    unsigned operator[](std::size_t at) const { return std::to_integer<unsigned>(room_[at]); }

    std::size_t received = 0;

 private:
    std::array<std::byte, Size> room_{};
};

void logFailure(const Question& question, int result, int error) {
    if (question.purpose != nullptr) {
        logger.debug(here(), "IOCTL %s failed. (%d, %d)", question.purpose, result, error);
    } else {
        logger.debug(here(), "IOCTL for %s failed. (%d, %d)", question.name, result, error);
    }
}

Outcome outcomeOfFailure(int error) {
    return error == ETIMEDOUT ? Outcome::TimedOut : Outcome::Failed;
}

/// 0, or -4 with a message.
int requireBytes(const char* name, std::size_t minimum, std::size_t received) {
    if (received >= minimum) return 0;
    logger.debug(here(), "IOCTL for %s returned %zu bytes. (Min expected: %zu)", name, received,
                 minimum);
    return replyTooShort;
}

/// Sends one command; returns 0 or a negative code. `function` is whose command it is.
int sendCommand(int fd, const char* function, const Question& question,
                std::span<std::uint8_t> command, std::span<std::byte> room, std::size_t& received) {
    std::array<std::uint8_t, senseRoom> sense{};
    sg_io_hdr header{};
    header.interface_id = 'S';
    header.dxfer_direction = SG_DXFER_FROM_DEV;
    header.cmd_len = static_cast<unsigned char>(command.size());
    header.cmdp = command.data();
    header.mx_sb_len = sense.size();
    header.sbp = sense.data();
    header.dxfer_len = static_cast<unsigned>(room.size());
    header.dxferp = room.data();
    header.timeout = timeoutMilliseconds;
    Turn* const turn = Turn::current();
    if (turn != nullptr && turn->isOver()) return requestFailed;
    const int result = ::ioctl(fd, SG_IO, &header);
    const Outcome outcome = result < 0 ? outcomeOfFailure(errno) : outcomeOf(header);
    if (turn != nullptr) turn->note(outcome, question.name);
    if (result < 0) {
        logFailure(question, result, errno);
        return requestFailed;
    }
    if (const int failure = process_scsi_completion(header, &received, function)) return failure;
    return requireBytes(question.name, question.minimum, received);
}

template <class Command>
int ask(int fd, const char* function, const Question& question, const Command& command,
        std::span<std::byte> room, std::size_t& received) {
    std::array<std::uint8_t, sizeof command> bytes;
    std::memcpy(bytes.data(), &command, sizeof command);
    return sendCommand(fd, function, question, bytes, room, received);
}

template <class Command, std::size_t Size>
int ask(int fd, const char* function, const Question& question, const Command& command,
        Reply<Size>& reply) {
    return ask(fd, function, question, command, reply.room(), reply.received);
}

Bytes bytesOf(const unsigned char* bytes, std::size_t length) {
    return std::as_bytes(std::span(bytes, length));
}

char* newTextOrNull(std::optional<std::string_view> text) {
    return text ? tav::newText(*text) : nullptr;
}

char* newTrimmedText(std::optional<std::string_view> text) {
    return text ? tav::newText(trimmed(*text)) : nullptr;
}

/// A new copy of what has come, with its length; null, and no length, without memory.
unsigned char* newBytesAndLength(Bytes bytes, std::size_t* length) {
    unsigned char* const copy = tav::newBytes(bytes);
    if (copy != nullptr) *length = bytes.size();
    return copy;
}

constexpr std::uint16_t informationalExceptionsRoom = 98;
constexpr const char* informationalExceptionsName = "LOG SENSE(6Fh)";
using InformationalExceptionsReply = Reply<informationalExceptionsRoom>;

constexpr LogSense informationalExceptionsCommand() {
    return cumulativeLogPage(informationalExceptionsPage, informationalExceptionsRoom);
}

/// "ATA DEV STAT LOG(7)". Made for every command though only failures are told with it, so it must
/// cost less than a formatting function does.
class StatisticsLogName {
 public:
    explicit StatisticsLogName(std::uint8_t page) {
        char* const end = std::to_chars(&text_[before], &text_[before + digits], page).ptr;
        *end = ')';
    }
    const char* text() const { return text_.data(); }

 private:
    static constexpr std::size_t before = sizeof "ATA DEV STAT LOG(" - 1;
    static constexpr std::size_t digits = 3;
    std::array<char, before + digits + sizeof ")"> text_{"ATA DEV STAT LOG("};
};

/// A page of the Device Statistics log, read into `reply`; empty when it cannot be read.
Bytes statisticsPage(int fd, std::uint8_t page, Reply<ataSector>& reply) {
    const StatisticsLogName name(page);
    const Question question{name.text(), 0};
    if (ask(fd, "get_sata_log", question, deviceStatistics(page), reply) != 0) return {};
    if (reply.received == 0) logger.debug(here(), "ATA DEV STAT LOG(%d) returned no data.", page);
    return reply.bytes();
}

/// The page as long as it says itself; see sas_parse_current().
Bytes temperaturePageAt(const unsigned char* page) {
    const Bytes header = bytesOf(page, sizeof(LogPageHeader));
    return bytesOf(page, *temperaturePageSize(header));
}

template <class Parse>
bool parseInto(Parse parse, const unsigned char* page, std::size_t length, int* temperature) {
    const std::optional<int> parsed = parse(bytesOf(page, length));
    if (parsed) *temperature = *parsed;
    return parsed.has_value();
}

}  // namespace

int process_scsi_completion(const sg_io_hdr& header, std::size_t* received, const char* name) {
    *received = 0;
    if ((header.info & SG_INFO_OK_MASK) == SG_INFO_OK) {
        // A driver that lies about the residual count must not make the reply longer than the room.
        const std::int64_t came = std::int64_t{header.dxfer_len} - header.resid;
        *received = static_cast<std::size_t>(
            std::clamp<std::int64_t>(came, 0, std::int64_t{header.dxfer_len}));
        return 0;
    }
    const std::size_t written =
        header.sbp == nullptr ? 0 : std::min(header.sb_len_wr, header.mx_sb_len);
    logger.debugLines(here(),
                      "%s: sgiob: info=[0x%x]; masked_status=[0x%x]; host_status=[0x%x]; "
                      "driver_status=[0x%x]; status=[0x%x]; sb_len_wr=[%d]; dxfer_len=[%u]; "
                      "resid=[%d]%s",
                      name, header.info, header.masked_status, header.host_status,
                      header.driver_status, header.status, header.sb_len_wr, header.dxfer_len,
                      header.resid, senseText(bytesOf(header.sbp, written)).c_str());
    return checkCondition;
}

// --- SAS disks ----------------------------------------------------------------------------------

int get_unit_temp(int fd) {
    InformationalExceptionsReply reply;
    const Question question{informationalExceptionsName, sizeof(InformationalExceptions)};
    const int result = ask(fd, __func__, question, informationalExceptionsCommand(), reply);
    return result != 0 ? result : unitTemperature(reply.bytes()).value_or(notValid);
}

int get_sas_health(int fd) {
    InformationalExceptionsReply reply;
    const Question question{informationalExceptionsName,
                            offsetof(InformationalExceptions, mostRecentTemperatureReading)};
    const int result = ask(fd, __func__, question, informationalExceptionsCommand(), reply);
    if (result != 0) return result;
    logger.debug(here(), "SAS Health Response: %02x %02x %02x", reply[0], reply[8], reply[9]);
    return informationalException(reply.bytes()).value_or(notValid);
}

unsigned char* get_sas_temp(int fd) {
    Reply<sizeof(Temperature)> reply;
    const Question question{"LOG SENSE(4Dh)", sizeof(LogPageHeader)};
    const LogSense command = cumulativeLogPage(temperaturePage, sizeof(Temperature));
    if (ask(fd, __func__, question, command, reply) != 0) return nullptr;
    const std::size_t size = *temperaturePageSize(reply.bytes());
    if (requireBytes(question.name, size, reply.received) != 0) return nullptr;
    return tav::newBytes(reply.bytes().first(size));
}

int sas_parse_current(const unsigned char* page) {
    return currentTemperature(temperaturePageAt(page));
}

int sas_parse_mcot(const unsigned char* page) {
    return referenceTemperature(temperaturePageAt(page));
}

int get_sas_ssd_wear(int fd) {
    Reply<16> reply;
    const Question question{"LOG SENSE(51h)", sizeof(SolidStateMedia)};
    const LogSense command = cumulativeLogPage(solidStateMediaPage, 16);
    const int result = ask(fd, __func__, question, command, reply);
    return result != 0 ? result : solidStateMediaWear(reply.bytes());
}

std::int64_t get_sas_pwron(int fd) {
    Reply<32> reply;
    const Question question{"LOG SENSE(55h)", sizeof(BackgroundScan)};
    const LogSense command = cumulativeLogPage(backgroundScanPage, 32);
    const int result = ask(fd, __func__, question, command, reply);
    return result != 0 ? result : backgroundScanHours(reply.bytes()).value_or(notValid);
}

// --- SATA disks ---------------------------------------------------------------------------------

unsigned char* get_sata_log(int fd, std::uint8_t page, std::size_t* length) {
    Reply<ataSector> reply;
    const Bytes log = statisticsPage(fd, page, reply);
    return log.empty() ? nullptr : newBytesAndLength(log, length);
}

unsigned char* get_sata_statlog(int fd, std::size_t* length) {
    return get_sata_log(fd, generalStatisticsPage, length);
}

unsigned char* get_sata_temp(int fd, std::size_t* length) {
    return get_sata_log(fd, temperatureStatisticsPage, length);
}

unsigned char* get_sata_ssdlog(int fd, std::size_t* length) {
    return get_sata_log(fd, solidStateDeviceStatisticsPage, length);
}

bool sata_parse_current(const unsigned char* page, std::size_t length, int* temperature) {
    return parseInto(ataCurrentTemperature, page, length, temperature);
}

bool sata_parse_mcot(const unsigned char* page, std::size_t length, int* temperature) {
    return parseInto(ataMaximumTemperature, page, length, temperature);
}

int get_sata_ssd_wear(int fd) {
    Reply<ataSector> reply;
    return ataWear(statisticsPage(fd, solidStateDeviceStatisticsPage, reply));
}

std::int64_t get_sata_pwron(int fd) {
    Reply<ataSector> reply;
    return ataPowerOnHours(statisticsPage(fd, generalStatisticsPage, reply)).value_or(notValid);
}

int get_sata_health(int fd) {
    Reply<ataSector> reply;
    const Question question{"SMART error log (address 03h)", sizeof(SmartErrorLog),
                            "to read SMART error log"};
    const int result = ask(fd, __func__, question, smartErrorLog(), reply);
    if (result != 0) return result;
    logger.debug(here(), "SATA Health Response(log address 03h): %02x %02x %02x %02x", reply[0],
                 reply[1], reply[2], reply[3]);
    return ataErrorCount(reply.bytes()).value_or(notValid);
}

int get_ata_identify_device_info(int fd, unsigned char* buffer, std::size_t* length) {
    const std::span<std::byte> room = std::as_writable_bytes(std::span(buffer, *length));
    std::fill(room.begin(), room.end(), std::byte{0});
    *length = 0;
    return ask(fd, __func__, {"ATA IDENTIFY DEVICE", 0}, identifyDevice(), room, *length);
}

char* get_sata_DiskRev(int fd) {
    Reply<ataSector> reply;
    const Question question{"ATA IDENTIFY DEVICE", 53};
    if (ask(fd, __func__, question, identifyDevice(), reply) != 0) return nullptr;
    return newTextOrNull(ataFirmwareRevision(reply.bytes()));
}

unsigned char* get_sata_sct_stat(int fd) {
    constexpr std::uint8_t statusLog = 0xE0;
    Reply<ataSector> reply;
    const Question question{"READ SMART LOG", ataSector};
    if (ask(fd, __func__, question, smartReadLog(statusLog), reply) != 0) return nullptr;
    return tav::newBytes(reply.bytes());
}

bool tav::scsi::ataLogIsListed(int fd, std::uint8_t log, std::uint8_t page) {
    Reply<ataSector> directory;
    if (ask(fd, __func__, {"ATA log directory", ataSector}, logDirectory(), directory) != 0 ||
        !directoryLists(directory.bytes(), log)) {
        return false;
    }
    if (log != deviceStatisticsLog) return true;
    Reply<ataSector> pages;
    return ask(fd, __func__, {"ATA list of statistics", 0}, deviceStatistics(0), pages) == 0 &&
           statisticsList(pages.bytes(), page);
}

// --- Any disk -----------------------------------------------------------------------------------

int get_scsi_transport_protocol(int fd) {
    constexpr std::uint8_t allocation = 255;
    Reply<allocation> reply;
    const Question question{"protocol-specific port page", sizeof(ProtocolSpecificPort)};
    const ModeSense6 command = modePage(protocolSpecificPortPage, allocation);
    const int result = ask(fd, __func__, question, command, reply);
    if (result != 0) return result;
    logger.debug(here(), "PSPP Response: %02x %02x %02x %02x %02x %02x %02x", reply[0], reply[1],
                 reply[2], reply[3], reply[4], reply[5], reply[6]);
    return protocolIdentifier(reply.bytes()).value_or(notValid);
}

int get_scsi_disk_medium_rotation_rate(int fd) {
    Reply<inquiryRoom> reply;
    const Question question{"VPD page 0xB1", sizeof(BlockDeviceCharacteristics),
                            "to fetch VPD page 0xB1"};
    const Inquiry command = vitalProductData(blockDeviceCharacteristicsPage);
    const int result = ask(fd, __func__, question, command, reply);
    return result != 0 ? result : mediumRotationRate(reply.bytes()).value_or(notValid);
}

int is_unit_ssd(int fd) {
    constexpr int doesNotRotate = 1;
    Reply<inquiryRoom> reply;
    const Question question{"VPD page(B1h)", sizeof(BlockDeviceCharacteristics)};
    const Inquiry command = vitalProductData(blockDeviceCharacteristicsPage);
    const int result = ask(fd, __func__, question, command, reply);
    if (result != 0) return result;
    const std::optional<int> rate = mediumRotationRate(reply.bytes());
    if (!rate) return notValid;
    return *rate == doesNotRotate ? 1 : 0;
}

int get_unit_speed(int fd) {
    constexpr std::uint16_t allocation = 252;
    Reply<allocation> reply;
    const Question question{"MODE SENSE 10", 38};
    const ModeSense10 command = modePageBehindDescriptors(rigidDiskGeometryPage, allocation);
    const int result = ask(fd, __func__, question, command, reply);
    if (result != 0) return result;
    const std::optional<int> rate = geometryRotationRate(reply.bytes());
    if (!rate) return notValid;
    logger.debug(here(), "Speed Response: %02x %02x", *rate >> 8, *rate & 0xFF);
    return *rate;
}

int is_unit_smart(int fd) {
    constexpr std::uint8_t allocation = 255;  // the room is less: nothing uses the end of the page
    Reply<252> reply;
    const Question question{"MODE SENSE", sizeof(ModeParameterHeader6)};
    const ModeSense6 command = modePage(informationalExceptionsControlPage, allocation);
    const int result = ask(fd, __func__, question, command, reply);
    if (result != 0) return result;
    logger.debug(here(), "Smart Response: %02x %02x %02x %02x", reply[4], reply[5], reply[6],
                 reply[7]);
    return informationalExceptionsEnabled(reply.bytes()).value_or(notValid);
}

std::int64_t get_disk_capacity(int fd) {
    Reply<sizeof(Capacity10)> reply;
    const Question question{"READ CAPACITY", sizeof(Capacity10::returnedLogicalBlockAddress)};
    if (const int result = ask(fd, __func__, question, ReadCapacity10{}, reply)) return result;
    if (const auto count = blockCount10(reply.bytes())) return *count;

    Reply<sizeof(Capacity16)> longReply;
    const Question longQuestion{"READ CAPACITY 16",
                                sizeof(Capacity16::returnedLogicalBlockAddress)};
    const ReadCapacity16 command{.allocationLength = bigEndian<4>(sizeof(Capacity16))};
    if (const int result = ask(fd, __func__, longQuestion, command, longReply)) return result;
    return blockCount16(longReply.bytes()).value_or(notValid);
}

int get_defect_data_size(int fd) {
    Reply<sizeof(DefectList10)> reply;
    const Question question{"READ DEFECT DATA", sizeof(DefectList10)};
    const ReadDefectData command = bothDefectLists(sizeof(DefectList10));
    const int result = ask(fd, __func__, question, command, reply);
    return result != 0 ? result : defectListLength(reply.bytes()).value_or(notValid);
}

unsigned char* get_identify_info(int fd, std::size_t* length) {
    constexpr const char* name = "standard inquiry";
    Reply<inquiryRoom> reply;
    const Question question{name, offsetof(StandardInquiryData, additionalLength) + 1};
    if (ask(fd, __func__, question, standardInquiry(), reply) != 0) return nullptr;
    const std::size_t size = std::min(*inquiryDataSize(reply.bytes()), reply.room().size());
    if (requireBytes(name, size, reply.received) != 0) return nullptr;
    return newBytesAndLength(reply.bytes(), length);
}

char* inq_parse_vendor(const unsigned char* inquiry, std::size_t length) {
    return newTrimmedText(inquiryVendor(bytesOf(inquiry, length)));
}

char* inq_parse_prodID(const unsigned char* inquiry, std::size_t length) {
    return newTrimmedText(inquiryProduct(bytesOf(inquiry, length)));
}

char* inq_parse_rev(const unsigned char* inquiry, std::size_t length) {
    return newTrimmedText(inquiryRevision(bytesOf(inquiry, length)));
}

char* inq_parse_type(const unsigned char* inquiry, std::size_t length) {
    const std::optional<int> type = inquiryDeviceType(bytesOf(inquiry, length));
    return type ? tav::newText(std::to_string(*type)) : nullptr;
}

char* get_unit_sn_from_device_inquiry(int fd) {
    Reply<inquiryRoom> reply;
    const Question question{"standard inquiry",
                            offsetof(StandardInquiryData, additionalLength) + 1};
    if (ask(fd, __func__, question, standardInquiry(), reply) != 0) return nullptr;
    return newTextOrNull(inquirySerialNumber(reply.bytes()));
}

char* get_unit_sn_from_device_vpd_pg80(int fd) {
    constexpr const char* name = "VPD page 80 inquiry";
    Reply<inquiryRoom> reply;
    const Inquiry command = vitalProductData(unitSerialNumberPage);
    if (ask(fd, __func__, {name, sizeof(VpdPage)}, command, reply) != 0) return nullptr;
    if (requireBytes(name, *vpdPageSize(reply.bytes()), reply.received) != 0) return nullptr;
    return newTextOrNull(unitSerialNumber(reply.bytes()));
}
