#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "storage/scsi/scsi_commands.h"

/// What the disks answer, byte for byte, as far as it is read. A field's name is the standard's;
/// fields that share a byte are named in its comment, most significant first. A disk may send any
/// number of bytes of a layout.
namespace tav::scsi {

// --- INQUIRY (SPC-4) ----------------------------------------------------------------------------

struct StandardInquiryData {
    std::uint8_t peripheral;  ///< PERIPHERAL QUALIFIER, PERIPHERAL DEVICE TYPE (5 bits)
    std::uint8_t rmb;
    std::uint8_t version;
    std::uint8_t responseDataFormat;
    std::uint8_t additionalLength;  ///< of what is behind this byte
    std::array<std::uint8_t, 3> flags;
    std::array<std::uint8_t, 8> t10VendorIdentification;
    std::array<std::uint8_t, 16> productIdentification;
    std::array<std::uint8_t, 4> productRevisionLevel;
    std::array<std::uint8_t, 20> vendorSpecific;  ///< here: the serial number
};
static_assert(sizeof(StandardInquiryData) == 56);

struct VpdPage {
    std::uint8_t peripheral;
    std::uint8_t pageCode;
    BigEndian<2> pageLength;  ///< of what is behind this field
};
static_assert(sizeof(VpdPage) == 4);

inline constexpr std::uint8_t unitSerialNumberPage = 0x80;
inline constexpr std::uint8_t deviceIdentificationPage = 0x83;
inline constexpr std::uint8_t blockDeviceCharacteristicsPage = 0xB1;

/// One designation descriptor of page 83h, without its designator.
struct DesignationDescriptor {
    std::uint8_t codeSet;  ///< PROTOCOL IDENTIFIER, CODE SET (4 bits; 1: binary)
    std::uint8_t type;  ///< PIV, ASSOCIATION (bits 5-4; 0: logical unit), DESIGNATOR TYPE (4 bits)
    std::uint8_t reserved;
    std::uint8_t designatorLength;
};
static_assert(sizeof(DesignationDescriptor) == 4);

struct BlockDeviceCharacteristics {
    VpdPage header;
    BigEndian<2> mediumRotationRate;
};
static_assert(sizeof(BlockDeviceCharacteristics) == 6);

// --- Mode pages (SPC-4, SBC) ---------------------------------------------------------------------

struct ModeParameterHeader6 {
    std::uint8_t modeDataLength;
    std::uint8_t mediumType;
    std::uint8_t deviceSpecificParameter;
    std::uint8_t blockDescriptorLength;
};
static_assert(sizeof(ModeParameterHeader6) == 4);

struct ModeParameterHeader10 {
    BigEndian<2> modeDataLength;
    std::uint8_t mediumType;
    std::uint8_t deviceSpecificParameter;
    std::uint8_t longLba;
    std::uint8_t reserved;
    BigEndian<2> blockDescriptorLength;
};
static_assert(sizeof(ModeParameterHeader10) == 8);

inline constexpr std::uint8_t protocolSpecificPortPage = 0x19;
inline constexpr std::uint8_t informationalExceptionsControlPage = 0x1C;
inline constexpr std::uint8_t rigidDiskGeometryPage = 0x04;
inline constexpr std::uint8_t modePageCodeAndFormat = 0x7F;  ///< SPF and PAGE CODE, without PS

struct ProtocolSpecificPort {
    ModeParameterHeader6 header;
    std::uint8_t pageCode;  ///< PS, SPF, PAGE CODE
    std::uint8_t pageLength;
    std::uint8_t protocolIdentifier;  ///< low 4 bits
};
static_assert(sizeof(ProtocolSpecificPort) == 7);

struct InformationalExceptionsControl {
    ModeParameterHeader6 header;
    std::uint8_t pageCode;  ///< PS, SPF, PAGE CODE
    std::uint8_t pageLength;
    std::uint8_t flags;  ///< PERF, -, EBF, EWASC, DEXCPT (08h), TEST, EBACKERR, LOGERR
    std::uint8_t mrie;   ///< method of reporting, low 4 bits
};
static_assert(sizeof(InformationalExceptionsControl) == 8);

struct RigidDiskGeometry {
    std::uint8_t pageCode;  ///< PS, SPF, PAGE CODE
    std::uint8_t pageLength;
    BigEndian<3> numberOfCylinders;
    std::uint8_t numberOfHeads;
    BigEndian<3> startingCylinderWritePrecompensation;
    BigEndian<3> startingCylinderReducedWriteCurrent;
    BigEndian<2> deviceStepRate;
    BigEndian<3> landingZoneCylinder;
    std::uint8_t rpl;
    std::uint8_t rotationalOffset;
    std::uint8_t reserved;
    BigEndian<2> mediumRotationRate;
};
static_assert(sizeof(RigidDiskGeometry) == 22);

// --- Log pages (SPC-4, SBC-3) --------------------------------------------------------------------

struct LogPageHeader {
    std::uint8_t pageCode;  ///< DS, SPF, PAGE CODE
    std::uint8_t subpageCode;
    BigEndian<2> pageLength;  ///< of what is behind this field
};
static_assert(sizeof(LogPageHeader) == 4);

struct LogParameterHeader {
    BigEndian<2> parameterCode;
    std::uint8_t control;
    std::uint8_t parameterLength;
};
static_assert(sizeof(LogParameterHeader) == 4);

inline constexpr std::uint8_t temperaturePage = 0x0D;
inline constexpr std::uint8_t solidStateMediaPage = 0x11;
inline constexpr std::uint8_t backgroundScanPage = 0x15;
inline constexpr std::uint8_t informationalExceptionsPage = 0x2F;

struct InformationalExceptions {
    LogPageHeader header;
    LogParameterHeader parameter;  ///< code 0000h
    std::uint8_t additionalSenseCode;
    std::uint8_t additionalSenseCodeQualifier;
    std::uint8_t mostRecentTemperatureReading;  ///< degrees Celsius; FFh: not available
};
static_assert(sizeof(InformationalExceptions) == 11);

struct TemperatureParameter {
    LogParameterHeader header;  ///< code 0000h: current temperature; 0001h: reference temperature
    std::uint8_t reserved;
    std::uint8_t temperature;  ///< degrees Celsius; FFh: not available
};
struct Temperature {
    LogPageHeader header;
    TemperatureParameter current;
    TemperatureParameter reference;
};
static_assert(sizeof(Temperature) == 16);

struct SolidStateMedia {
    LogPageHeader header;
    LogParameterHeader parameter;  ///< code 0001h
    std::array<std::uint8_t, 3> reserved;
    std::uint8_t percentageUsedEnduranceIndicator;
};
static_assert(sizeof(SolidStateMedia) == 12);

struct BackgroundScan {
    LogPageHeader header;
    LogParameterHeader parameter;  ///< code 0000h: background scan status
    BigEndian<4> accumulatedPowerOnMinutes;
};
static_assert(sizeof(BackgroundScan) == 12);

// --- Capacity and defects (SBC-3) ----------------------------------------------------------------

struct Capacity10 {
    BigEndian<4> returnedLogicalBlockAddress;  ///< the last one; FFFFFFFFh: it takes Capacity16
    BigEndian<4> logicalBlockLength;
};
static_assert(sizeof(Capacity10) == 8);

struct Capacity16 {
    BigEndian<8> returnedLogicalBlockAddress;
    BigEndian<4> logicalBlockLength;
    std::array<std::uint8_t, 20> provisioning;
};
static_assert(sizeof(Capacity16) == 32);

struct DefectList10 {
    std::uint8_t reserved;
    std::uint8_t listsAndFormat;  ///< PLISTV, GLISTV, DEFECT LIST FORMAT
    BigEndian<2> defectListLength;
};
static_assert(sizeof(DefectList10) == 4);

// --- ATA (ACS-3): numbers of several bytes are little-endian -------------------------------------

inline constexpr std::uint8_t generalStatisticsPage = 1;
inline constexpr std::uint8_t temperatureStatisticsPage = 5;
inline constexpr std::uint8_t solidStateDeviceStatisticsPage = 7;

/// One statistic of the Device Statistics log: a value of up to 7 bytes, then flags.
struct DeviceStatistic {
    std::array<std::uint8_t, 7> value;
    std::uint8_t flags;  ///< bit 7: the statistic is supported; bit 6: its value is valid
};
inline constexpr std::uint8_t supportedOrValid = 0xC0;

/// The first statistic of any page holds the page's number in byte 2 and its revision before it.
struct StatisticsPageHeader {
    std::array<std::uint8_t, 2> revisionNumber;
    std::uint8_t logPageNumber;
    std::array<std::uint8_t, 5> reserved;
};
static_assert(sizeof(StatisticsPageHeader) == 8);

struct GeneralStatistics {
    StatisticsPageHeader header;
    DeviceStatistic lifetimePowerOnResets;
    std::array<std::uint8_t, 4> powerOnHours;
};
static_assert(sizeof(GeneralStatistics) == 20);

struct TemperatureStatistics {
    StatisticsPageHeader header;
    DeviceStatistic currentTemperature;  ///< degrees Celsius, signed, as all of the page
    std::array<DeviceStatistic, 9> averagesAndExtremes;
    DeviceStatistic specifiedMaximumOperatingTemperature;
};
static_assert(offsetof(TemperatureStatistics, specifiedMaximumOperatingTemperature) == 88);
static_assert(sizeof(TemperatureStatistics) == 96);

struct SolidStateDeviceStatistics {
    StatisticsPageHeader header;
    std::uint8_t percentageUsedEnduranceIndicator;
};
static_assert(sizeof(SolidStateDeviceStatistics) == 9);

struct SmartErrorLog {
    std::uint8_t logVersion;  ///< 1
    std::uint8_t reserved;
    std::array<std::uint8_t, 2> errors;
};
static_assert(sizeof(SmartErrorLog) == 4);

/// Words of IDENTIFY DEVICE data.
inline constexpr std::size_t serialNumberWord = 10, serialNumberWords = 10;
inline constexpr std::size_t firmwareRevisionWord = 23, firmwareRevisionWords = 4;
inline constexpr std::size_t modelNumberWord = 27, modelNumberWords = 20;
inline constexpr std::size_t capabilitiesWord = 49;
inline constexpr std::size_t majorVersionWord = 80;
inline constexpr std::size_t rotationRateWord = 217;
/// Low byte: A5h where the high byte makes the sum of all bytes 0.
inline constexpr std::size_t integrityWord = 255;
inline constexpr unsigned checksumIsValid = 0xA5;

}  // namespace tav::scsi
