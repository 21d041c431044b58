#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

/// What the bytes that a disk has sent mean. Pure functions of any bytes of any number: what is not
/// there, is another page than the one asked for, or is marked as not valid, is absent. The values
/// and their units are those of the queries in scsi_info.h.
namespace tav::scsi {

using Bytes = std::span<const std::byte>;

/// A percentage that a disk does not tell.
inline constexpr int noPercentage = 255;

// Log pages.
std::optional<int> unitTemperature(Bytes reply);
std::optional<int> informationalException(Bytes reply);
/// The number of bytes that the page in `reply` takes by its own length; absent without a header.
std::optional<std::size_t> temperaturePageSize(Bytes reply);
int currentTemperature(Bytes page);
int referenceTemperature(Bytes page);
int solidStateMediaWear(Bytes reply);
std::optional<std::int64_t> backgroundScanHours(Bytes reply);

// ATA logs.
std::optional<int> ataCurrentTemperature(Bytes page);
std::optional<int> ataMaximumTemperature(Bytes page);
int ataWear(Bytes page);
std::optional<std::int64_t> ataPowerOnHours(Bytes page);
std::optional<int> ataErrorCount(Bytes log);
std::optional<std::string> ataFirmwareRevision(Bytes identify);

/// Whether the General Purpose Log Directory (log address 00h) names that log.
bool directoryLists(Bytes directory, std::uint8_t log);
/// Whether page 0 of the Device Statistics log names that page.
bool statisticsList(Bytes pages, std::uint8_t page);

/// IDENTIFY DEVICE data (ACS). Texts are trimmed; one of which the disk has filled in nothing is
/// empty.
struct AtaIdentity {
    std::string serialNumber;
    std::string firmwareRevision;
    std::string model;
    int capabilities = 0;
    int majorVersion = 0;
    int rotationRate = 0;
};
/// Absent when the data is shorter than its 512 bytes, all zeros or all ones, or its checksum says
/// that it is damaged.
std::optional<AtaIdentity> ataIdentity(Bytes identify);

// Mode pages.
std::optional<int> protocolIdentifier(Bytes reply);
std::optional<int> informationalExceptionsEnabled(Bytes reply);
/// The page stands behind the header and as many bytes of block descriptors as that says.
std::optional<int> geometryRotationRate(Bytes reply);

// INQUIRY data and vital product data.
/// The number of bytes that the page in `reply` takes by its own length; absent without a header.
std::optional<std::size_t> vpdPageSize(Bytes reply);
std::optional<int> mediumRotationRate(Bytes reply);
/// As much of the serial number as there is of it; absent when the page is another one or empty.
std::optional<std::string_view> unitSerialNumber(Bytes page);
/// The 20 characters behind the standard data, where its length covers them.
std::optional<std::string_view> inquirySerialNumber(Bytes inquiry);
std::optional<std::size_t> inquiryDataSize(Bytes inquiry);
std::optional<std::string_view> inquiryVendor(Bytes inquiry);
std::optional<std::string_view> inquiryProduct(Bytes inquiry);
std::optional<std::string_view> inquiryRevision(Bytes inquiry);
std::optional<int> inquiryDeviceType(Bytes inquiry);
/// The designator of page 83h that names the logical unit best, two hexadecimal digits a byte.
std::optional<std::string> durableName(Bytes page);

// Capacity and defects.
/// Number of blocks; none when the disk has more than READ CAPACITY (10) can tell.
std::optional<std::int64_t> blockCount10(Bytes reply);
std::optional<std::int64_t> blockCount16(Bytes reply);
std::optional<int> defectListLength(Bytes reply);

/// The text without leading blanks and without trailing blanks and NULs.
std::string_view trimmed(std::string_view text);

/// The sense key of sense data in fixed or in descriptor format (SPC-4, 4.5).
std::optional<int> senseKey(Bytes sense);

/// " %02x" for each byte that fits, behind a heading, in at most 255 characters.
std::string senseText(Bytes sense);

}  // namespace tav::scsi
