#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/Export.h"

/// What the bytes that a disk has sent mean. Pure functions of any bytes of any number: what is not
/// there, is another page than the one asked for, or is marked as not valid, is absent. The values
/// and their units are those of the queries in scsi_info.h.
namespace tav::scsi {

using Bytes = std::span<const std::byte>;

/// A percentage that a disk does not tell.
inline constexpr int noPercentage = 255;

// Log pages.
TAV_API std::optional<int> unitTemperature(Bytes reply);
TAV_API std::optional<int> informationalException(Bytes reply);
/// The number of bytes that the page in `reply` takes by its own length; absent without a header.
TAV_API std::optional<std::size_t> temperaturePageSize(Bytes reply);
TAV_API int currentTemperature(Bytes page);
TAV_API int referenceTemperature(Bytes page);
TAV_API int solidStateMediaWear(Bytes reply);
TAV_API std::optional<std::int64_t> backgroundScanHours(Bytes reply);

// ATA logs.
TAV_API std::optional<int> ataCurrentTemperature(Bytes page);
TAV_API std::optional<int> ataMaximumTemperature(Bytes page);
TAV_API int ataWear(Bytes page);
TAV_API std::optional<std::int64_t> ataPowerOnHours(Bytes page);
TAV_API std::optional<int> ataErrorCount(Bytes log);
TAV_API std::optional<std::string> ataFirmwareRevision(Bytes identify);

// Mode pages.
TAV_API std::optional<int> protocolIdentifier(Bytes reply);
TAV_API std::optional<int> informationalExceptionsEnabled(Bytes reply);
/// The page stands behind the header and as many bytes of block descriptors as that says.
TAV_API std::optional<int> geometryRotationRate(Bytes reply);

// INQUIRY data and vital product data.
/// The number of bytes that the page in `reply` takes by its own length; absent without a header.
TAV_API std::optional<std::size_t> vpdPageSize(Bytes reply);
TAV_API std::optional<int> mediumRotationRate(Bytes reply);
/// As much of the serial number as there is of it; absent when the page is another one or empty.
TAV_API std::optional<std::string_view> unitSerialNumber(Bytes page);
/// The 20 characters behind the standard data, where its length covers them.
TAV_API std::optional<std::string_view> inquirySerialNumber(Bytes inquiry);
TAV_API std::optional<std::size_t> inquiryDataSize(Bytes inquiry);
TAV_API std::optional<std::string_view> inquiryVendor(Bytes inquiry);
TAV_API std::optional<std::string_view> inquiryProduct(Bytes inquiry);
TAV_API std::optional<std::string_view> inquiryRevision(Bytes inquiry);
TAV_API std::optional<int> inquiryDeviceType(Bytes inquiry);
/// The designator of page 83h that names the logical unit best, two hexadecimal digits a byte.
TAV_API std::optional<std::string> durableName(Bytes page);

// Capacity and defects.
/// Number of blocks; none when the disk has more than READ CAPACITY (10) can tell.
TAV_API std::optional<std::int64_t> blockCount10(Bytes reply);
TAV_API std::optional<std::int64_t> blockCount16(Bytes reply);
TAV_API std::optional<int> defectListLength(Bytes reply);

/// The text without leading blanks and without trailing blanks and NULs.
TAV_API std::string_view trimmed(std::string_view text);

/// " %02x" for each byte that fits, behind a heading, in at most 255 characters.
TAV_API std::string senseText(Bytes sense);

}  // namespace tav::scsi
