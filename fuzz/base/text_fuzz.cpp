/// Any bytes as a text that is made printable, and as a file that is read line by line.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/JsonText.h"
#include "base/LineReader.h"
#include "base/OneLine.h"
#include "base/Utf8.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

bool isWellFormed(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = tav::utf8Length(text);
        if (length == 0) return false;
        text.remove_prefix(length);
    }
    return true;
}

/// What nobody's terminal obeys, and what no line can be forged with.
void checkOneLine(std::string_view text) {
    std::string line = "before ";
    tav::appendOneLine(line, text);
    require(line.starts_with("before ") && isWellFormed(line));
    require(std::none_of(line.begin(), line.end(),
                         [](unsigned char c) { return c < 0x20 || c == 0x7F; }));
    for (const std::string_view control : {"\xC2\x80", "\xC2\x9B", "\xE2\x80\xA8", "\xE2\x80\xAE"})
        require(line.find(control) == std::string::npos);
    std::string again;
    tav::appendOneLine(again, line);
    require(again == line);
}

struct Read {
    std::string_view text;
    std::size_t piece;

    std::size_t operator()(std::span<char> room, std::uint64_t position) const {
        if (position >= text.size()) return 0;
        return text.copy(room.data(), std::min(room.size(), piece), position);
    }
};

/// Each line is what stands at its position, and the lines are all that there is between newlines;
/// the pieces make no difference.
void checkLines(std::string_view text, std::size_t piece, std::size_t bufferSize) {
    tav::LineReader<Read> lines({text, piece}, 0, bufferSize);
    std::size_t at = 0;
    while (const auto line = lines.next()) {
        require(at < text.size() && line->position == at);
        const std::size_t length = std::min(text.find('\n', at), text.size()) - at;
        require(line->whole == (length < bufferSize));
        require(line->text == text.substr(at, std::min(length, bufferSize)));
        at = std::min(at + length + 1, text.size());
    }
    require(at == text.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const std::string_view text(reinterpret_cast<const char*>(data) + 2, size - 2);
    const std::string repaired = tav::wellFormedUtf8(text);
    require(isWellFormed(repaired) && (repaired == text) == isWellFormed(text));
    require(tav::wellFormedUtf8(repaired) == repaired);
    checkOneLine(text);
    checkLines(text, data[0] % 8U + 1, data[1] % 16U + 1);
    return 0;
}
