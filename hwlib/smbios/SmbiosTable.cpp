#include "hwlib/smbios/SmbiosTable.h"

#include <bit>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

namespace tav {
namespace {

constexpr std::string_view anchor = "_SM_";
constexpr std::size_t paragraph = 16;
constexpr std::size_t lengthOffset = 5;
constexpr std::size_t majorOffset = 6;
constexpr std::size_t minorOffset = 7;
constexpr std::size_t tableLengthOffset = 22;
constexpr std::size_t tableAddressOffset = 24;
constexpr std::size_t structureCountOffset = 28;
constexpr unsigned version20 = 2 * 256;

/// Version 2.1 of the standard itself gave the length as 30.
constexpr std::size_t shortestEntryPoint = 30;

/// DSP0134, "Text strings".
constexpr std::string_view setEnd("\0\0", 2);
static_assert(std::endian::native == std::endian::little);

constexpr std::size_t longestSystabLine = 62;

using Bytes = std::span<const std::byte>;

std::uint32_t field(Bytes bytes, std::size_t offset, std::size_t size) {
    std::uint32_t value = 0;
    for (std::size_t i = size; i-- > 0;)
        value = value << 8 | std::to_integer<std::uint32_t>(bytes[offset + i]);
    return value;
}

bool sumsToZero(Bytes bytes) {
    unsigned sum = 0;
    for (const std::byte byte : bytes)
        sum += std::to_integer<unsigned>(byte);
    return sum % 256 == 0;
}

bool isEntryPoint(Bytes bytes) {
    if (std::memcmp(bytes.data(), anchor.data(), anchor.size()) != 0) return false;
    const std::size_t length = field(bytes, lengthOffset, 1);
    if (length < shortestEntryPoint || length > bytes.size()) return false;
    const unsigned version = field(bytes, majorOffset, 1) * 256 + field(bytes, minorOffset, 1);
    return sumsToZero(bytes.first(length)) && version > version20;
}

/// Where the two NUL bytes begin that end a string set, be it one without strings; npos when they
/// are not there.
std::size_t findSetEnd(std::string_view text) {
    constexpr std::uint64_t lowBits = 0x0101010101010101;
    constexpr std::uint64_t highBits = 0x8080808080808080;
    std::size_t at = 0;
    for (; at + sizeof(std::uint64_t) < text.size(); at += sizeof(std::uint64_t)) {
        std::uint64_t bytes = 0;
        std::uint64_t following = 0;
        std::memcpy(&bytes, text.data() + at, sizeof bytes);
        std::memcpy(&following, text.data() + at + 1, sizeof following);
        const std::uint64_t both = bytes | following;
        // The lowest bit that is set belongs to the first byte of `both` that is 0.
        const std::uint64_t zeros = (both - lowBits) & ~both & highBits;
        if (zeros != 0) return at + static_cast<std::size_t>(std::countr_zero(zeros)) / 8;
    }
    return text.find(setEnd, at);
}

Bytes bytesOf(const SMBIOS_RECORD* record) {
    return {reinterpret_cast<const std::byte*>(record), record->length};
}

}  // namespace

Answer<SmbiosEntryPoint> findSmbiosEntryPoint(Bytes memory) {
    for (; memory.size() >= SmbiosEntryPoint::size; memory = memory.subspan(paragraph)) {
        if (!isEntryPoint(memory)) continue;
        return SmbiosEntryPoint{static_cast<std::uint16_t>(field(memory, tableLengthOffset, 2)),
                                field(memory, tableAddressOffset, 4),
                                static_cast<std::uint16_t>(field(memory, structureCountOffset, 2))};
    }
    return Lack::Absent;
}

Answer<std::uint64_t> smbiosAddressInSystab(std::string_view systab) {
    constexpr std::string_view name = "SMBIOS=";
    while (!systab.empty()) {
        const std::string_view line = systab.substr(0, systab.find('\n'));
        systab.remove_prefix(std::min(line.size() + 1, systab.size()));
        if (line.size() > longestSystabLine || !line.starts_with(name)) continue;
        const std::string value(line.substr(name.size()));
        char* end = nullptr;
        errno = 0;
        const unsigned long long address = std::strtoull(value.c_str(), &end, 0);
        if (end != value.c_str() && errno == 0) return address;
    }
    return Lack::Absent;
}

const SMBIOS_RECORD* SmbiosTable::at(const std::byte* start) const noexcept {
    const auto left = static_cast<std::size_t>(end() - start);
    if (left < sizeof(SMBIOS_RECORD)) return nullptr;
    const auto* const record = reinterpret_cast<const SMBIOS_RECORD*>(start);
    return record->length >= sizeof(SMBIOS_RECORD) && record->length <= left ? record : nullptr;
}

std::string_view SmbiosTable::strings(const SMBIOS_RECORD* record) const noexcept {
    const std::byte* const start = reinterpret_cast<const std::byte*>(record) + record->length;
    return {reinterpret_cast<const char*>(start), static_cast<std::size_t>(end() - start)};
}

bool SmbiosTable::contains(const SMBIOS_RECORD* record) const noexcept {
    const auto* const start = reinterpret_cast<const std::byte*>(record);
    const std::less<> before;
    return !before(start, bytes_.data()) && before(start, end()) && at(start) != nullptr;
}

const SMBIOS_RECORD* SmbiosTable::first() const noexcept {
    return at(bytes_.data());
}

const SMBIOS_RECORD* SmbiosTable::next(const SMBIOS_RECORD* record) const noexcept {
    if (!contains(record)) return nullptr;
    const std::string_view left = strings(record);
    const std::size_t length = findSetEnd(left);
    if (length == std::string_view::npos) return nullptr;
    return at(reinterpret_cast<const std::byte*>(left.data()) + length + setEnd.size());
}

const char* SmbiosTable::string(const SMBIOS_RECORD* record, unsigned number) const noexcept {
    if (number == 0) return "";
    if (!contains(record)) return nullptr;
    std::string_view left = strings(record);
    while (!left.empty() && left[0] != '\0') {
        const std::size_t length = left.find('\0');
        if (length == std::string_view::npos) return nullptr;
        if (--number == 0) return left.data();
        left.remove_prefix(length + 1);
    }
    return nullptr;
}

Answer<std::uint8_t> smbiosByte(const SMBIOS_RECORD* record, std::size_t offset) {
    if (offset + 1 > record->length) return Lack::Absent;
    return static_cast<std::uint8_t>(field(bytesOf(record), offset, 1));
}

Answer<std::uint16_t> smbiosWord(const SMBIOS_RECORD* record, std::size_t offset) {
    if (offset + 2 > record->length) return Lack::Absent;
    return static_cast<std::uint16_t>(field(bytesOf(record), offset, 2));
}

}  // namespace tav
