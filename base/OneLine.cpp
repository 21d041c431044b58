#include "base/OneLine.h"

#include <algorithm>
#include <array>
#include <cstddef>

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
    Range{"\x7F", "\xC2\x9F"},              // DEL, and the control characters of ISO 6429
    Range{"\xE2\x80\xA8", "\xE2\x80\xAE"},  // ends of lines and paragraphs, directions
    Range{"\xE2\x81\xA6", "\xE2\x81\xA9"},  // isolated directions
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
        const auto plain = static_cast<std::size_t>(
            std::find_if_not(text.begin(), text.end(), isPlain) - text.begin());
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
