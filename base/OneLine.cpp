#include "base/OneLine.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/Utf8.h"

namespace tav {
namespace {

/// Characters from `first` to `last`; the order of UTF-8 texts is that of their code points.
struct Range {
    std::string_view first;
    std::string_view last;
};
constexpr std::array escaped = {
    Range{std::string_view("\0", 1), "\x1F"},
    Range{"\x7F", "\xC2\x9F"},                      // DEL, and the control characters of ISO 6429
    Range{"\xD8\x9C", "\xD8\x9C"},                  // a mark of direction
    Range{"\xE2\x80\x8B", "\xE2\x80\x8F"},          // what has no width, marks of direction
    Range{"\xE2\x80\xA8", "\xE2\x80\xAE"},          // ends of lines and paragraphs, directions
    Range{"\xE2\x81\xA0", "\xE2\x81\xAF"},          // what cannot be seen, isolated directions
    Range{"\xEF\xBB\xBF", "\xEF\xBB\xBF"},          // the byte order mark
    Range{"\xEF\xBF\xB9", "\xEF\xBF\xBB"},          // annotations
    Range{"\xF3\xA0\x80\x80", "\xF3\xA0\x81\xBF"},  // tags
};

struct ShortForm {
    char character;
    std::string_view escape;
};
constexpr std::array shortForms = {ShortForm{'\n', "\\n"}, ShortForm{'\r', "\\r"},
                                   ShortForm{'\t', "\\t"}};

bool isPlain(char byte) {
    return byte >= 0x20 && byte < 0x7F;
}

/// Whether each of the word's bytes is plain: to take 20h away would borrow, and to add 1 would
/// reach 80h, for one that is not.
bool areAllPlain(std::uint64_t word) {
    constexpr std::uint64_t each = 0x0101010101010101;
    return (((word - 0x20 * each) | (word + each) | word) & (0x80 * each)) == 0;
}

/// How many plain characters the text begins with. Most texts are plain to their end.
std::size_t plainLength(std::string_view text) {
    std::size_t length = 0;
    std::uint64_t word = 0;
    for (; text.size() - length >= sizeof word; length += sizeof word) {
        std::memcpy(&word, text.data() + length, sizeof word);
        if (!areAllPlain(word)) break;
    }
    while (length < text.size() && isPlain(text[length]))
        ++length;
    return length;
}

bool standsAsItIs(std::string_view character) {
    return std::none_of(escaped.begin(), escaped.end(), [&](const Range& range) {
        return character >= range.first && character <= range.last;
    });
}

void appendEscape(std::string& line, char byte) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    const auto* const form =
        std::find_if(shortForms.begin(), shortForms.end(),
                     [&](const ShortForm& candidate) { return candidate.character == byte; });
    if (form != shortForms.end()) {
        line.append(form->escape);
        return;
    }
    const auto value = static_cast<unsigned char>(byte);
    line.append("\\x");
    line.push_back(digits[value >> 4U]);
    line.push_back(digits[value & 0xFU]);
}

void appendCharacter(std::string& line, std::string_view character) {
    if (standsAsItIs(character)) {
        line.append(character);
        return;
    }
    for (const char byte : character)
        appendEscape(line, byte);
}

}  // namespace

void appendOneLine(std::string& line, std::string_view text) {
    while (!text.empty()) {
        const std::size_t plain = plainLength(text);
        line.append(text.substr(0, plain));
        text.remove_prefix(plain);
        if (text.empty()) return;
        const std::size_t length = utf8Length(text);
        if (length == 0) {
            appendEscape(line, text.front());
        } else {
            appendCharacter(line, text.substr(0, length));
        }
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
}

}  // namespace tav
