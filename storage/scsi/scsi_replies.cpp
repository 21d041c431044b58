#include "storage/scsi/scsi_replies.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <type_traits>

#include "base/Trim.h"
#include "storage/model/storage_utils.h"
#include "storage/scsi/scsi_pages.h"

namespace tav::scsi {
namespace {

/// The reply as a layout; what the reply is too short for is zero.
template <class Layout>
Layout as(Bytes reply) {
    Layout layout{};
    if (!reply.empty()) std::memcpy(&layout, reply.data(), std::min(reply.size(), sizeof layout));
    return layout;
}

template <class Layout>
std::optional<Layout> whole(Bytes reply) {
    return reply.size() < sizeof(Layout) ? std::nullopt : std::optional(as<Layout>(reply));
}

template <std::size_t Size>
auto bigEndian(const std::array<std::uint8_t, Size>& bytes) {
    std::conditional_t<(Size > sizeof(std::uint32_t)), std::uint64_t, std::uint32_t> value = 0;
    for (const std::uint8_t byte : bytes)
        value = value << 8U | byte;
    return value;
}

template <std::size_t Size>
std::uint32_t littleEndian(const std::array<std::uint8_t, Size>& bytes) {
    static_assert(Size <= sizeof(std::uint32_t));
    std::uint32_t value = 0;
    for (std::size_t i = Size; i-- > 0;)
        value = value << 8U | bytes[i];
    return value;
}

std::string_view textOf(Bytes bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::optional<std::string_view> textAt(Bytes bytes, std::size_t offset, std::size_t size) {
    if (bytes.size() < offset + size) return std::nullopt;
    return textOf(bytes.subspan(offset, size));
}

/// The temperature parameter of that code, where it stands at its place and within the page.
int temperatureParameter(Bytes page, std::size_t offset, std::uint64_t code) {
    if (page.size() < offset + sizeof(TemperatureParameter)) return 0;
    const auto parameter = as<TemperatureParameter>(page.subspan(offset));
    return bigEndian(parameter.header.parameterCode) == code ? parameter.temperature : 0;
}

std::optional<int> validTemperature(const StatisticsPageHeader& header,
                                    const DeviceStatistic& statistic) {
    if (header.logPageNumber != temperatureStatisticsPage) return std::nullopt;
    if (littleEndian(header.revisionNumber) == 0) return std::nullopt;
    if ((statistic.flags & supportedOrValid) == 0) return std::nullopt;
    return static_cast<std::int8_t>(statistic.value[0]);
}

/// The last block's address tells their number.
std::optional<std::int64_t> blocksUpTo(std::uint64_t lastAddress) {
    if (lastAddress >= std::numeric_limits<std::int64_t>::max()) return std::nullopt;
    return static_cast<std::int64_t>(lastAddress) + 1;
}

bool isVpdPage(Bytes page, std::uint8_t code) {
    return page.size() >= sizeof(VpdPage) && as<VpdPage>(page).pageCode == code;
}

/// What is there of the content of a VPD page.
Bytes vpdContent(Bytes page) {
    const Bytes rest = page.subspan(sizeof(VpdPage));
    return rest.first(std::min<std::size_t>(rest.size(), bigEndian(as<VpdPage>(page).pageLength)));
}

enum DesignatorType : std::uint8_t { eui64Designator = 2, naaDesignator = 3 };

/// How well a designator names the logical unit for ever; 0: not at all, or not in binary.
int durability(const DesignationDescriptor& descriptor) {
    constexpr int binary = 1;
    const bool ofLogicalUnit = (descriptor.type & 0x30U) == 0;
    if ((descriptor.codeSet & 0x0FU) != binary || !ofLogicalUnit) return 0;
    switch (descriptor.type & 0x0FU) {
        case naaDesignator:
            return 3;
        case eui64Designator:
            return 2;
        default:
            return 1;
    }
}

void appendHex(std::string& text, std::byte byte, std::string_view digits) {
    text += digits[std::to_integer<unsigned>(byte >> 4)];
    text += digits[std::to_integer<unsigned>(byte & std::byte{0x0F})];
}

std::string hexadecimal(Bytes bytes) {
    std::string text;
    for (const std::byte byte : bytes)
        appendHex(text, byte, "0123456789ABCDEF");
    return text;
}

/// All zeros or all ones: what is read where nobody answers.
bool isBlank(Bytes bytes) {
    const auto all = [&](std::byte value) {
        return std::all_of(bytes.begin(), bytes.end(), [&](std::byte b) { return b == value; });
    };
    return all(std::byte{0}) || all(std::byte{0xFF});
}

int identifyWord(Bytes identify, std::size_t word) {
    const Bytes bytes = identify.subspan(2 * word, 2);
    return std::to_integer<int>(bytes[0]) | std::to_integer<int>(bytes[1]) << 8;
}

/// False when the data says that it has a checksum, and that is wrong.
bool isIntact(Bytes identify) {
    if ((static_cast<unsigned>(identifyWord(identify, integrityWord)) & 0xFFU) != checksumIsValid) {
        return true;
    }
    unsigned sum = 0;
    for (const std::byte byte : identify)
        sum += std::to_integer<unsigned>(byte);
    return sum % 256 == 0;
}

std::string identifyText(Bytes identify, std::size_t word, std::size_t words) {
    if (isBlank(identify.subspan(2 * word, 2 * words))) return {};
    std::string text(2 * words, '\0');
    get_ata_string(text.data(), identify, word, words);
    text.resize(std::min(text.size(), text.find('\0')));
    return std::string(trimmed(text));
}

}  // namespace

std::optional<int> unitTemperature(Bytes reply) {
    constexpr int notAvailable = 0xFF;
    const auto page = whole<InformationalExceptions>(reply);
    if (!page || page->header.pageCode != informationalExceptionsPage) return std::nullopt;
    if (page->mostRecentTemperatureReading == notAvailable) return std::nullopt;
    return page->mostRecentTemperatureReading;
}

std::optional<int> informationalException(Bytes reply) {
    if (reply.size() < offsetof(InformationalExceptions, mostRecentTemperatureReading)) {
        return std::nullopt;
    }
    const auto page = as<InformationalExceptions>(reply);
    if (page.header.pageCode != informationalExceptionsPage) return std::nullopt;
    return page.additionalSenseCode * 256 + page.additionalSenseCodeQualifier;
}

std::optional<std::size_t> temperaturePageSize(Bytes reply) {
    const auto header = whole<LogPageHeader>(reply);
    if (!header) return std::nullopt;
    return sizeof *header + header->pageLength[1];
}

int currentTemperature(Bytes page) {
    return temperatureParameter(page, offsetof(Temperature, current), 0);
}

int referenceTemperature(Bytes page) {
    return temperatureParameter(page, offsetof(Temperature, reference), 1);
}

int solidStateMediaWear(Bytes reply) {
    constexpr int oneParameter = 8;
    const auto page = whole<SolidStateMedia>(reply);
    if (!page || page->header.pageCode != solidStateMediaPage) return noPercentage;
    if (page->header.pageLength[1] != oneParameter) return noPercentage;
    return page->percentageUsedEnduranceIndicator;
}

std::optional<std::int64_t> backgroundScanHours(Bytes reply) {
    const auto page = whole<BackgroundScan>(reply);
    if (!page || page->header.pageCode != backgroundScanPage) return std::nullopt;
    if (bigEndian(page->parameter.parameterCode) != 0) return std::nullopt;
    return static_cast<std::int64_t>(bigEndian(page->accumulatedPowerOnMinutes) / 60);
}

std::optional<int> ataCurrentTemperature(Bytes page) {
    const auto statistics = as<TemperatureStatistics>(page);
    return validTemperature(statistics.header, statistics.currentTemperature);
}

std::optional<int> ataMaximumTemperature(Bytes page) {
    const auto statistics = as<TemperatureStatistics>(page);
    return validTemperature(statistics.header, statistics.specifiedMaximumOperatingTemperature);
}

int ataWear(Bytes page) {
    const auto statistics = whole<SolidStateDeviceStatistics>(page);
    return statistics ? statistics->percentageUsedEnduranceIndicator : noPercentage;
}

std::optional<std::int64_t> ataPowerOnHours(Bytes page) {
    const auto statistics = whole<GeneralStatistics>(page);
    if (!statistics) return std::nullopt;
    return littleEndian(statistics->powerOnHours);
}

std::optional<int> ataErrorCount(Bytes log) {
    constexpr int knownVersion = 1;
    const auto header = whole<SmartErrorLog>(log);
    if (!header || header->logVersion != knownVersion) return std::nullopt;
    return static_cast<int>(littleEndian(header->errors));
}

std::optional<std::string> ataFirmwareRevision(Bytes identify) {
    std::array<char, 2 * firmwareRevisionWords> text{};
    const std::size_t length =
        get_ata_string(text.data(), identify, firmwareRevisionWord, firmwareRevisionWords);
    if (length == 0) return std::nullopt;
    return std::string(trimmed({text.data(), length}));
}

bool directoryLists(Bytes directory, std::uint8_t log) {
    const std::size_t at = sizeof(std::uint16_t) * log;
    if (directory.size() < at + sizeof(std::uint16_t)) return false;
    return directory[at] != std::byte{0} || directory[at + 1] != std::byte{0};
}

bool statisticsList(Bytes pages, std::uint8_t page) {
    constexpr std::size_t countAt = sizeof(StatisticsPageHeader);
    if (pages.size() <= countAt) return false;
    const Bytes rest = pages.subspan(countAt + 1);
    const Bytes listed =
        rest.first(std::min(rest.size(), std::to_integer<std::size_t>(pages[countAt])));
    return std::find(listed.begin(), listed.end(), std::byte{page}) != listed.end();
}

std::optional<AtaIdentity> ataIdentity(Bytes identify) {
    if (identify.size() < ataSector) return std::nullopt;
    const Bytes data = identify.first(ataSector);
    if (isBlank(data) || !isIntact(data)) return std::nullopt;
    return AtaIdentity{identifyText(data, serialNumberWord, serialNumberWords),
                       identifyText(data, firmwareRevisionWord, firmwareRevisionWords),
                       identifyText(data, modelNumberWord, modelNumberWords),
                       identifyWord(data, capabilitiesWord),
                       identifyWord(data, majorVersionWord),
                       identifyWord(data, rotationRateWord)};
}

std::optional<int> protocolIdentifier(Bytes reply) {
    const auto page = whole<ProtocolSpecificPort>(reply);
    if (!page || (page->pageCode & modePageCodeAndFormat) != protocolSpecificPortPage) {
        return std::nullopt;
    }
    if (page->pageLength == 0) return std::nullopt;
    return page->protocolIdentifier & 0x0F;
}

std::optional<int> informationalExceptionsEnabled(Bytes reply) {
    constexpr unsigned disabled = 0x08;
    const auto page = whole<InformationalExceptionsControl>(reply);
    if (!page || (page->pageCode & modePageCodeAndFormat) != informationalExceptionsControlPage) {
        return std::nullopt;
    }
    return (page->flags & disabled) == 0 ? 1 : 0;
}

std::optional<int> geometryRotationRate(Bytes reply) {
    const auto header = whole<ModeParameterHeader10>(reply);
    if (!header) return std::nullopt;
    const std::size_t pageAt = sizeof *header + bigEndian(header->blockDescriptorLength);
    if (reply.size() < pageAt) return std::nullopt;
    const auto page = whole<RigidDiskGeometry>(reply.subspan(pageAt));
    if (!page || (page->pageCode & modePageCodeAndFormat) != rigidDiskGeometryPage) {
        return std::nullopt;
    }
    return static_cast<int>(bigEndian(page->mediumRotationRate));
}

std::optional<std::size_t> vpdPageSize(Bytes reply) {
    const auto header = whole<VpdPage>(reply);
    if (!header) return std::nullopt;
    return sizeof *header + bigEndian(header->pageLength);
}

std::optional<int> mediumRotationRate(Bytes reply) {
    const auto page = whole<BlockDeviceCharacteristics>(reply);
    if (!page || page->header.pageCode != blockDeviceCharacteristicsPage) return std::nullopt;
    return static_cast<int>(bigEndian(page->mediumRotationRate));
}

std::optional<std::string_view> unitSerialNumber(Bytes page) {
    if (page.size() <= sizeof(VpdPage) || !isVpdPage(page, unitSerialNumberPage)) {
        return std::nullopt;
    }
    return textOf(vpdContent(page));
}

std::optional<std::string_view> inquirySerialNumber(Bytes inquiry) {
    constexpr int beforeSerialNumberEnds = 51;
    if (inquiry.size() < sizeof(StandardInquiryData)) return std::nullopt;
    if (as<StandardInquiryData>(inquiry).additionalLength <= beforeSerialNumberEnds) {
        return std::nullopt;
    }
    return textAt(inquiry, offsetof(StandardInquiryData, vendorSpecific),
                  sizeof(StandardInquiryData::vendorSpecific));
}

std::optional<std::size_t> inquiryDataSize(Bytes inquiry) {
    constexpr std::size_t counted = offsetof(StandardInquiryData, additionalLength) + 1;
    if (inquiry.size() < counted) return std::nullopt;
    return counted + as<StandardInquiryData>(inquiry).additionalLength;
}

std::optional<std::string_view> inquiryVendor(Bytes inquiry) {
    return textAt(inquiry, offsetof(StandardInquiryData, t10VendorIdentification),
                  sizeof(StandardInquiryData::t10VendorIdentification));
}

std::optional<std::string_view> inquiryProduct(Bytes inquiry) {
    return textAt(inquiry, offsetof(StandardInquiryData, productIdentification),
                  sizeof(StandardInquiryData::productIdentification));
}

std::optional<std::string_view> inquiryRevision(Bytes inquiry) {
    return textAt(inquiry, offsetof(StandardInquiryData, productRevisionLevel),
                  sizeof(StandardInquiryData::productRevisionLevel));
}

std::optional<int> inquiryDeviceType(Bytes inquiry) {
    if (inquiry.empty()) return std::nullopt;
    return as<StandardInquiryData>(inquiry).peripheral & 0x1F;
}

std::optional<std::string> durableName(Bytes page) {
    if (!isVpdPage(page, deviceIdentificationPage)) return std::nullopt;
    int best = 0;
    Bytes name;
    Bytes rest = vpdContent(page);
    while (const auto descriptor = whole<DesignationDescriptor>(rest)) {
        rest = rest.subspan(sizeof *descriptor);
        if (descriptor->designatorLength > rest.size()) break;
        if (descriptor->designatorLength > 0 && durability(*descriptor) > best) {
            best = durability(*descriptor);
            name = rest.first(descriptor->designatorLength);
        }
        rest = rest.subspan(descriptor->designatorLength);
    }
    return best == 0 ? std::nullopt : std::optional(hexadecimal(name));
}

std::optional<std::int64_t> blockCount10(Bytes reply) {
    constexpr std::uint64_t moreThanFits = 0xFFFFFFFF;
    if (reply.size() < sizeof(Capacity10::returnedLogicalBlockAddress)) return std::nullopt;
    const std::uint64_t last = bigEndian(as<Capacity10>(reply).returnedLogicalBlockAddress);
    return last == moreThanFits ? std::nullopt : blocksUpTo(last);
}

std::optional<std::int64_t> blockCount16(Bytes reply) {
    if (reply.size() < sizeof(Capacity16::returnedLogicalBlockAddress)) return std::nullopt;
    return blocksUpTo(bigEndian(as<Capacity16>(reply).returnedLogicalBlockAddress));
}

std::optional<int> defectListLength(Bytes reply) {
    const auto header = whole<DefectList10>(reply);
    if (!header) return std::nullopt;
    return static_cast<int>(bigEndian(header->defectListLength));
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanksAndNuls(" \0", 2);
    return trimStart(trimEnd(text, blanksAndNuls), " ");
}

std::optional<int> senseKey(Bytes sense) {
    constexpr unsigned firstDescriptorFormat = 0x72;
    if (sense.empty()) return std::nullopt;
    const unsigned code = std::to_integer<unsigned>(sense[0]) & 0x7FU;
    if (code < 0x70 || code > 0x73) return std::nullopt;
    const std::size_t at = code >= firstDescriptorFormat ? 1 : 2;
    if (sense.size() <= at) return std::nullopt;
    return std::to_integer<int>(sense[at] & std::byte{0x0F});
}

std::string senseText(Bytes sense) {
    constexpr std::size_t longest = 255;
    std::string text = "\n    Sense data:";
    for (const std::byte byte : sense) {
        if (text.size() + 3 > longest) break;
        text += ' ';
        appendHex(text, byte, "0123456789abcdef");
    }
    return text;
}

}  // namespace tav::scsi
