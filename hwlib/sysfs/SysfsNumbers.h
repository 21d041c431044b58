#pragma once

#include <array>
#include <charconv>
#include <concepts>
#include <cstdint>
#include <string_view>

#include <fcntl.h>

#include "base/Answer.h"
#include "base/FileReading.h"
#include "base/Trim.h"

namespace tav {

enum class SysfsFormat : std::uint8_t { Decimal = 10, Hexadecimal = 16 };

/// All bits set: what a numeric reader returns when there is no value.
template <std::integral Number>
inline constexpr Number noSysfsValue = static_cast<Number>(-1);

/// `text` less the white space that may stand before a number. A newline ends the text.
constexpr std::string_view skipSpace(std::string_view text) {
    return trimStart(text, " \t\v\f\r");
}

/// The number at the start of `text`, by the rules of the numeric readers; or malformed.
template <std::integral Number>
Answer<Number> scanNumber(std::string_view text, SysfsFormat format) {
    text = skipSpace(text);
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) text.remove_prefix(1);
    const bool prefixed = text.starts_with("0x") || text.starts_with("0X");
    if (format == SysfsFormat::Hexadecimal && prefixed) text.remove_prefix(2);

    std::uint64_t magnitude = 0;
    const auto scanned = std::from_chars(text.data(), text.data() + text.size(), magnitude,
                                         static_cast<int>(format));
    if (scanned.ec != std::errc()) return Lack::Malformed;
    const std::uint64_t value = negative ? 0 - magnitude : magnitude;
    const auto number = static_cast<Number>(value);
    const bool signKept = negative == (number < 0) || magnitude == 0;
    const bool fits = static_cast<std::uint64_t>(number) == value && signKept;
    return fits ? Answer<Number>(number) : Lack::Malformed;
}

/// Reads the number in an attribute. `path` may be relative to the open directory `directory`.
template <std::integral Number>
Answer<Number> readSysfsNumber(int directory, const char* path, SysfsFormat format) {
    std::array<char, attributeLimit> room;
    const auto text = readAttribute(directory, path, room);
    if (!text) return text.lack();
    return scanNumber<Number>(*text, format);
}

/// What the numeric readers share. Returns -1 when the file cannot be read, and leaves `*out`
/// alone; else 0, with `*out` the number, or the failure value of its width when the text is not
/// one.
template <std::integral Number>
int _get_sysfs_numeric(const char* path, SysfsFormat format, Number* out) {
    const auto number = readSysfsNumber<Number>(AT_FDCWD, path, format);
    if (!number && number.lack() != Lack::Malformed) return -1;
    *out = number.valueOr(noSysfsValue<Number>);
    return 0;
}

}  // namespace tav
