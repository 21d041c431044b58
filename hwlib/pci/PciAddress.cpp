#include "hwlib/pci/PciAddress.h"

#include <array>
#include <charconv>

namespace tav {
namespace {

/// Takes 1 to `mostDigits` hexadecimal digits and the character `end` off the front of `text`.
/// Malformed unless they are there and stand for at most `most`.
Answer<unsigned> takeField(std::string_view& text, std::size_t mostDigits, unsigned most,
                           char end) {
    const std::string_view digits = text.substr(0, text.find(end));
    if (digits.size() == text.size() || digits.size() > mostDigits) return Lack::Malformed;
    unsigned value = 0;
    const char* const last = digits.data() + digits.size();
    const auto scanned = std::from_chars(digits.data(), last, value, 16);
    if (scanned.ec != std::errc() || scanned.ptr != last || value > most) return Lack::Malformed;
    text.remove_prefix(digits.size() + 1);
    return value;
}

Answer<PciAddress> parseWithEnd(std::string_view text) {
    const auto domain = takeField(text, 4, 0xFFFF, ':');
    const auto bus = takeField(text, 2, 0xFF, ':');
    const auto device = takeField(text, 2, 31, '.');
    const auto function = takeField(text, 1, 7, '\0');
    if (!domain || !bus || !device || !function || !text.empty()) return Lack::Malformed;
    return PciAddress{static_cast<std::uint16_t>(*domain), static_cast<std::uint8_t>(*bus),
                      static_cast<std::uint8_t>(*device), static_cast<std::uint8_t>(*function)};
}

/// "0000:3b:00.1" and the terminating NUL.
constexpr std::size_t longestText = 13;

Answer<PciAddress> parseJoined(std::string_view text, std::string_view ending) {
    if (text.size() + ending.size() >= longestText) return Lack::Malformed;
    std::array<char, longestText> buffer{};
    text.copy(buffer.data(), text.size());
    ending.copy(buffer.data() + text.size(), ending.size());
    return parseWithEnd({buffer.data(), text.size() + ending.size() + 1});
}

/// Overwrites `digits` characters from `at` on.
void putHex(std::string& text, std::size_t at, std::size_t digits, unsigned value) {
    constexpr std::string_view hexadecimal = "0123456789abcdef";
    for (; digits > 0; value >>= 4)
        text[at + --digits] = hexadecimal[value & 0xFU];
}

}  // namespace

Answer<PciAddress> parsePciAddress(std::string_view text) {
    return parseJoined(text, "");
}

Answer<PciAddress> parsePciDevice(std::string_view text) {
    return parseJoined(text, text.find('.') == std::string_view::npos ? ".0" : "");
}

std::string textOf(const PciAddress& address) {
    std::string text = "0000:00:00.0";
    putHex(text, 0, 4, address.domain);
    putHex(text, 5, 2, address.bus);
    putHex(text, 8, 2, address.device & 0x1FU);
    putHex(text, 11, 1, address.function & 7U);
    return text;
}

}  // namespace tav
