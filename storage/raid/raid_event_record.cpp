#include "storage/raid/raid_event_record.h"

#include <algorithm>
#include <cstring>

namespace tav {
namespace {

template <class Number>
Number numberAt(std::span<const std::byte> bytes, std::size_t offset) {
    Number number = 0;
    for (std::size_t i = sizeof(Number); i-- > 0;)
        number = static_cast<Number>(number << 8U | std::to_integer<Number>(bytes[offset + i]));
    return number;
}

template <>
std::uint8_t numberAt(std::span<const std::byte> bytes, std::size_t offset) {
    return std::to_integer<std::uint8_t>(bytes[offset]);
}

constexpr std::size_t textOffset = 132;
constexpr std::size_t argumentsOffset = 36;

struct LocaleRow {
    std::uint16_t bits;
    std::string_view text;
};
constexpr LocaleRow localeTable[] = {
    {0x0001, locale::volume},        {0x0002, locale::drive},   {0x0004, locale::enclosure},
    {0x0008, locale::battery},       {0x0010, locale::sas},     {0x0020, locale::controller},
    {0x0040, locale::configuration}, {0x0080, locale::cluster}, {0xFFFF, locale::all},
};

struct CodeRow {
    std::uint32_t first, last;
    std::string_view locale;
};
constexpr CodeRow codeTable[] = {
    {0x04F, 0x04F, locale::volume},        {0x08A, 0x08B, locale::volume},
    {0x076, 0x076, locale::drive},         {0x084, 0x089, locale::drive},
    {0x0F4, 0x0F5, locale::drive},         {0x106, 0x106, locale::drive},
    {0x120, 0x121, locale::drive},         {0x12A, 0x12A, locale::drive},
    {0x14D, 0x14E, locale::drive},         {0x188, 0x189, locale::drive},
    {0x21F, 0x220, locale::drive},         {0x00B, 0x00B, locale::controller},
    {0x143, 0x146, locale::controller},    {0x002, 0x002, locale::battery},
    {0x0E7, 0x0E8, locale::configuration},
};

/// Where an argument of some type holds a reference.
struct ArgumentRow {
    std::uint8_t type;
    std::uint8_t offset;
};

constexpr ArgumentRow driveTable[] = {
    {1, 0},
    {10, 0},
    {11, 0},
    {14, 0},
    {22, 0},
    {23, 0},
    {28, 0},
    {33, 0},
    {34, 0},
    {44, 0},
    {45, 0},
    {48, 0},
    {49, 0},
    {51, 0},
    {53, 0},
    {57, 0},
    // inside a larger argument
    {12, 8},
    {13, 8},
    {15, 0},
    {26, 16},
    {29, 0},
    {35, 0},
};

constexpr ArgumentRow volumeTable[] = {
    {2, 0},
    {3, 0},
    {5, 0},
    {7, 0},
    {21, 0},
    {39, 0},
    {40, 0},
    {41, 0},
    {43, 0},
    {47, 0},
    {49, 0},
    {55, 0},
    // inside a larger argument
    {4, 8},
    {6, 16},
    {8, 0},
    {9, 8},
};

// The drive, then its previous and its new state, four bytes each.
constexpr std::uint8_t driveStateChange = 15;
constexpr std::size_t newStateOffset = 8;

template <std::size_t rows>
std::optional<std::size_t> offsetOf(const ArgumentRow (&table)[rows], std::uint8_t type) {
    for (const ArgumentRow& row : table)
        if (row.type == type) return row.offset;
    return std::nullopt;
}

std::string textUpToNul(std::span<const std::byte> bytes) {
    const auto end = std::find(bytes.begin(), bytes.end(), std::byte{0});
    std::string text(static_cast<std::size_t>(end - bytes.begin()), '\0');
    std::memcpy(text.data(), bytes.data(), text.size());
    return text;
}

}  // namespace

std::optional<RaidEventRecord> decodeRaidEvent(std::span<const std::byte> bytes) {
    if (bytes.size() < raidEventSize) return std::nullopt;
    RaidEventRecord event{
        .controllerId = numberAt<std::uint32_t>(bytes, 0),
        .code = numberAt<std::uint32_t>(bytes, 12),
        .locale = numberAt<std::uint16_t>(bytes, 16),
        .eventClass = static_cast<std::int8_t>(numberAt<std::uint8_t>(bytes, 19)),
        .argumentType = numberAt<std::uint8_t>(bytes, 20),
        .arguments = {},
        .text = textUpToNul(bytes.subspan(textOffset, raidEventSize - textOffset)),
    };
    std::memcpy(event.arguments.data(), bytes.data() + argumentsOffset, raidArgumentsSize);
    return event;
}

std::string_view raidLocaleText(std::uint16_t locale, std::uint32_t code) {
    for (const LocaleRow& row : localeTable)
        if (row.bits == locale) return row.text;
    for (const CodeRow& row : codeTable)
        if (row.first <= code && code <= row.last) return row.locale;
    return {};
}

std::optional<RaidDriveReference> raidDriveOf(const RaidEventRecord& event) {
    const auto offset = offsetOf(driveTable, event.argumentType);
    if (!offset) return std::nullopt;
    return RaidDriveReference{numberAt<std::uint16_t>(event.arguments, *offset),
                              numberAt<std::uint8_t>(event.arguments, *offset + 2),
                              numberAt<std::uint8_t>(event.arguments, *offset + 3)};
}

std::optional<std::uint16_t> raidVolumeOf(const RaidEventRecord& event) {
    const auto offset = offsetOf(volumeTable, event.argumentType);
    if (!offset) return std::nullopt;
    return numberAt<std::uint16_t>(event.arguments, *offset);
}

std::optional<std::uint16_t> raidNewDriveStateOf(const RaidEventRecord& event) {
    if (event.argumentType != driveStateChange) return std::nullopt;
    const auto state = numberAt<std::uint32_t>(event.arguments, newStateOffset);
    return static_cast<std::uint16_t>(std::min<std::uint32_t>(state, 0xFFFF));
}

}  // namespace tav
