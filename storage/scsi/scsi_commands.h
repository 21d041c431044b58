#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// The commands that the queries of scsi_info send, byte for byte. A field's name is the
/// standard's; fields that share a byte are named in its comment, most significant first.
namespace tav::scsi {

template <std::size_t Size>
using BigEndian = std::array<std::uint8_t, Size>;

template <std::size_t Size>
constexpr BigEndian<Size> bigEndian(std::uint64_t value) {
    BigEndian<Size> bytes{};
    for (std::size_t i = Size; i-- > 0; value >>= 8U)
        bytes[i] = static_cast<std::uint8_t>(value);
    return bytes;
}

/// INQUIRY (SPC-4, 6.6)
struct Inquiry {
    std::uint8_t operationCode = 0x12;
    std::uint8_t evpd = 0;  ///< bit 0: EVPD
    std::uint8_t pageCode = 0;
    BigEndian<2> allocationLength{};
    std::uint8_t control = 0;
};
static_assert(sizeof(Inquiry) == 6);

/// MODE SENSE (6) (SPC-4, 6.13)
struct ModeSense6 {
    std::uint8_t operationCode = 0x1A;
    std::uint8_t dbd = 0;                     ///< bit 3: DBD (disable block descriptors)
    std::uint8_t pageControlAndPageCode = 0;  ///< PC, PAGE CODE
    std::uint8_t subpageCode = 0;
    std::uint8_t allocationLength = 0;
    std::uint8_t control = 0;
};
static_assert(sizeof(ModeSense6) == 6);

/// MODE SENSE (10) (SPC-4, 6.14)
struct ModeSense10 {
    std::uint8_t operationCode = 0x5A;
    std::uint8_t llbaaAndDbd = 0;             ///< bit 4: LLBAA; bit 3: DBD
    std::uint8_t pageControlAndPageCode = 0;  ///< PC, PAGE CODE
    std::uint8_t subpageCode = 0;
    std::array<std::uint8_t, 3> reserved{};
    BigEndian<2> allocationLength{};
    std::uint8_t control = 0;
};
static_assert(sizeof(ModeSense10) == 10);

/// LOG SENSE (10) (SPC-4, 6.8)
struct LogSense {
    std::uint8_t operationCode = 0x4D;
    std::uint8_t sp = 0;                      ///< bit 0: SP (saving parameters)
    std::uint8_t pageControlAndPageCode = 0;  ///< PC, PAGE CODE
    std::uint8_t subpageCode = 0;
    std::uint8_t reserved = 0;
    BigEndian<2> parameterPointer{};
    BigEndian<2> allocationLength{};
    std::uint8_t control = 0;
};
static_assert(sizeof(LogSense) == 10);

/// READ CAPACITY (10) (SBC-3, 5.15)
struct ReadCapacity10 {
    std::uint8_t operationCode = 0x25;
    std::uint8_t reserved1 = 0;
    BigEndian<4> logicalBlockAddress{};
    std::array<std::uint8_t, 2> reserved2{};
    std::uint8_t pmi = 0;
    std::uint8_t control = 0;
};
static_assert(sizeof(ReadCapacity10) == 10);

/// READ CAPACITY (16) (SBC-3, 5.16): SERVICE ACTION IN (16)
struct ReadCapacity16 {
    std::uint8_t operationCode = 0x9E;
    std::uint8_t serviceAction = 0x10;
    BigEndian<8> logicalBlockAddress{};
    BigEndian<4> allocationLength{};
    std::uint8_t pmi = 0;
    std::uint8_t control = 0;
};
static_assert(sizeof(ReadCapacity16) == 16);

/// READ DEFECT DATA (10) (SBC-3, 5.17)
struct ReadDefectData {
    std::uint8_t operationCode = 0x37;
    std::uint8_t reserved1 = 0;
    std::uint8_t listsAndFormat = 0;  ///< bit 4: REQ_PLIST; bit 3: REQ_GLIST; DEFECT LIST FORMAT
    std::array<std::uint8_t, 4> reserved2{};
    BigEndian<2> allocationLength{};
    std::uint8_t control = 0;
};
static_assert(sizeof(ReadDefectData) == 10);

/// ATA PASS-THROUGH (16) (SAT-3, 12.2.3). The ATA registers stand in two halves: what an extended
/// command adds, and what every command has.
struct AtaPassThrough {
    std::uint8_t operationCode = 0x85;
    std::uint8_t protocolAndExtend = 0;  ///< MULTIPLE_COUNT, PROTOCOL, EXTEND
    std::uint8_t transfer = 0;           ///< OFF_LINE, CK_COND, T_TYPE, T_DIR, BYT_BLOK, T_LENGTH
    std::uint8_t features15To8 = 0;
    std::uint8_t features7To0 = 0;
    std::uint8_t count15To8 = 0;
    std::uint8_t count7To0 = 0;
    std::uint8_t lba31To24 = 0;
    std::uint8_t lba7To0 = 0;
    std::uint8_t lba39To32 = 0;
    std::uint8_t lba15To8 = 0;
    std::uint8_t lba47To40 = 0;
    std::uint8_t lba23To16 = 0;
    std::uint8_t device = 0;
    std::uint8_t command = 0;
    std::uint8_t control = 0;
};
static_assert(sizeof(AtaPassThrough) == 16);

/// What an INQUIRY can return of a page with a length of one byte.
inline constexpr std::uint8_t inquiryRoom = 252;

constexpr Inquiry standardInquiry() {
    return {.allocationLength = bigEndian<2>(inquiryRoom)};
}

constexpr Inquiry vitalProductData(std::uint8_t page) {
    return {.evpd = 0x01, .pageCode = page, .allocationLength = bigEndian<2>(inquiryRoom)};
}

/// Current values, without block descriptors.
constexpr ModeSense6 modePage(std::uint8_t page, std::uint8_t allocation) {
    return {.dbd = 0x08, .pageControlAndPageCode = page, .allocationLength = allocation};
}

/// Current values, with block descriptors.
constexpr ModeSense10 modePageBehindDescriptors(std::uint8_t page, std::uint16_t allocation) {
    return {.pageControlAndPageCode = page, .allocationLength = bigEndian<2>(allocation)};
}

constexpr LogSense cumulativeLogPage(std::uint8_t page, std::uint16_t allocation) {
    constexpr std::uint8_t cumulativeValues = 0x40;
    return {.pageControlAndPageCode = static_cast<std::uint8_t>(cumulativeValues | page),
            .allocationLength = bigEndian<2>(allocation)};
}

/// How long the primary and the grown list are together, as physical sectors.
constexpr ReadDefectData bothDefectLists(std::uint16_t allocation) {
    return {.listsAndFormat = 0x1D, .allocationLength = bigEndian<2>(allocation)};
}

inline constexpr std::size_t ataSector = 512;

namespace ata {

inline constexpr std::uint8_t pioDataIn = 0x08;
inline constexpr std::uint8_t pioDataInExtended = 0x09;
/// From the device, as many sectors as the count field says.
inline constexpr std::uint8_t sectorsFromDevice = 0x0E;
inline constexpr std::uint8_t identifyDevice = 0xEC;
inline constexpr std::uint8_t readLogExt = 0x2F;
inline constexpr std::uint8_t smart = 0xB0;
inline constexpr std::uint8_t smartReadLog = 0xD5;

}  // namespace ata

constexpr AtaPassThrough identifyDevice() {
    return {.protocolAndExtend = ata::pioDataIn,
            .transfer = ata::sectorsFromDevice,
            .count7To0 = 1,
            .command = ata::identifyDevice};
}

/// General Purpose Log Directory (ACS-3, A.2).
constexpr AtaPassThrough logDirectory() {
    return {.protocolAndExtend = ata::pioDataInExtended,
            .transfer = ata::sectorsFromDevice,
            .count7To0 = 1,
            .command = ata::readLogExt};
}

inline constexpr std::uint8_t smartErrorLogAddress = 0x03;
inline constexpr std::uint8_t deviceStatisticsLog = 0x04;

/// One page of the Device Statistics log (ACS-3, A.5).
constexpr AtaPassThrough deviceStatistics(std::uint8_t page) {
    return {.protocolAndExtend = ata::pioDataInExtended,
            .transfer = ata::sectorsFromDevice,
            .count7To0 = 1,
            .lba7To0 = deviceStatisticsLog,
            .lba15To8 = page,
            .command = ata::readLogExt};
}

/// Log address 03h: Extended Comprehensive SMART error log (ACS-3, A.7).
constexpr AtaPassThrough smartErrorLog() {
    return {.protocolAndExtend = ata::pioDataIn,
            .transfer = ata::sectorsFromDevice,
            .count7To0 = 1,
            .lba7To0 = smartErrorLogAddress,
            .command = ata::readLogExt};
}

/// SMART READ LOG (ACS-3, 7.48); 4Fh and C2h are the signature of every SMART command.
constexpr AtaPassThrough smartReadLog(std::uint8_t logAddress) {
    return {.protocolAndExtend = ata::pioDataIn,
            .transfer = ata::sectorsFromDevice,
            .features7To0 = ata::smartReadLog,
            .count7To0 = 1,
            .lba7To0 = logAddress,
            .lba15To8 = 0x4F,
            .lba23To16 = 0xC2,
            .command = ata::smart};
}

}  // namespace tav::scsi
