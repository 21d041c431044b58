#include "tools/CellText.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "base/OneLine.h"
#include "base/Utf8.h"

namespace tav::ctl {
namespace {

struct Range {
    char32_t first, last;
};
/// What stands upon the character before it.
constexpr std::array combining = {
    Range{0x0300, 0x036F},  Range{0x0483, 0x0489}, Range{0x0591, 0x05BD}, Range{0x064B, 0x065F},
    Range{0x0E31, 0x0E31},  Range{0x0E34, 0x0E3A}, Range{0x0E47, 0x0E4E}, Range{0x1AB0, 0x1AFF},
    Range{0x1DC0, 0x1DFF},  Range{0x20D0, 0x20FF}, Range{0xFE00, 0xFE0F}, Range{0xFE20, 0xFE2F},
    Range{0xE0100, 0xE01EF}};
/// What takes two columns (Unicode's East Asian Width W and F, by whole blocks).
constexpr std::array wide = {
    Range{0x1100, 0x115F},   Range{0x2E80, 0x303E},   Range{0x3041, 0xA4CF},
    Range{0xA960, 0xA97C},   Range{0xAC00, 0xD7A3},   Range{0xF900, 0xFAFF},
    Range{0xFE30, 0xFE6F},   Range{0xFF00, 0xFF60},   Range{0xFFE0, 0xFFE6},
    Range{0x1F300, 0x1F64F}, Range{0x1F680, 0x1F6FF}, Range{0x1F900, 0x1F9FF},
    Range{0x20000, 0x3FFFD}};

/// A character has as many bytes at most as its column may cost: more combine into something that
/// is no text.
constexpr std::size_t mostBytesPerColumn = 8;

template <class Ranges>
bool isIn(const Ranges& ranges, char32_t character) {
    return std::any_of(ranges.begin(), ranges.end(), [&](const Range& range) {
        return character >= range.first && character <= range.last;
    });
}

/// Of a well-formed sequence.
char32_t decoded(std::string_view sequence) {
    const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(sequence[i]); };
    if (sequence.size() == 1) return byte(0);
    char32_t character = byte(0) & (0xFFU >> (sequence.size() + 1));
    for (std::size_t i = 1; i < sequence.size(); ++i)
        character = character << 6U | (byte(i) & 0x3FU);
    return character;
}

std::size_t columnsOfCharacter(std::string_view sequence) {
    if (sequence.size() == 1) return 1;
    const char32_t character = decoded(sequence);
    if (isIn(combining, character)) return 0;
    return isIn(wide, character) ? 2 : 1;
}

/// The character that the text, which is not empty, begins with.
std::string_view firstCharacter(std::string_view text) {
    return text.substr(0, std::max<std::size_t>(utf8Length(text), 1));
}

bool isPlain(char byte) {
    return byte >= 0x20 && byte < 0x7F;
}

bool isPlainText(std::string_view text) {
    return std::all_of(text.begin(), text.end(), isPlain);
}

/// As much of the text as fits, its columns being counted.
std::string_view fitting(std::string_view text, std::size_t columns) {
    std::size_t size = 0;
    std::size_t taken = 0;
    while (size < text.size()) {
        const std::string_view character = firstCharacter(text.substr(size));
        taken += columnsOfCharacter(character);
        if (taken > columns || size + character.size() > columns * mostBytesPerColumn) break;
        size += character.size();
    }
    return text.substr(0, size);
}

std::string inAscii(std::string_view text) {
    std::string ascii;
    while (!text.empty()) {
        const std::string_view character = firstCharacter(text);
        ascii += character.size() == 1 ? character[0] : '?';
        text.remove_prefix(character.size());
    }
    return ascii;
}

}  // namespace

std::size_t columnsOf(std::string_view text) {
    if (isPlainText(text)) return text.size();
    std::size_t columns = 0;
    while (!text.empty()) {
        const std::string_view character = firstCharacter(text);
        columns += columnsOfCharacter(character);
        text.remove_prefix(character.size());
    }
    return columns;
}

std::string cellText(std::string_view text, std::size_t columns, bool isUtf8) {
    if (text.size() <= columns && isPlainText(text)) return std::string(text);
    const std::string_view ellipsis = isUtf8 ? "…" : "~";
    // No more than can show is looked at; a character cut in two is escaped, and cut off.
    const std::size_t limit = (columns + 1) * mostBytesPerColumn;
    std::string line;
    appendOneLine(line, text.substr(0, limit));
    if (!isUtf8) line = inAscii(line);
    if (text.size() <= limit && fitting(line, columns).size() == line.size()) return line;
    line.resize(fitting(line, columns - 1).size());
    return line.append(ellipsis);
}

}  // namespace tav::ctl
