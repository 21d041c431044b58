#include "base/Utf8.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace tav {
namespace {

/// Lead bytes of one kind, and which second bytes may follow them (which excludes overlong forms,
/// surrogates and what lies beyond U+10FFFF). All further bytes are 80h to BFh.
struct Sequence {
    std::uint8_t firstLead, lastLead, length, lowestSecond, highestSecond;
};
constexpr std::array<Sequence, 9> sequences{{
    {0x00, 0x7F, 1, 0, 0},
    {0xC2, 0xDF, 2, 0x80, 0xBF},
    {0xE0, 0xE0, 3, 0xA0, 0xBF},
    {0xE1, 0xEC, 3, 0x80, 0xBF},
    {0xED, 0xED, 3, 0x80, 0x9F},
    {0xEE, 0xEF, 3, 0x80, 0xBF},
    {0xF0, 0xF0, 4, 0x90, 0xBF},
    {0xF1, 0xF3, 4, 0x80, 0xBF},
    {0xF4, 0xF4, 4, 0x80, 0x8F},
}};

std::uint8_t byteAt(std::string_view text, std::size_t position) {
    return static_cast<std::uint8_t>(text[position]);
}

bool isWithin(std::uint8_t byte, std::uint8_t low, std::uint8_t high) {
    return byte >= low && byte <= high;
}

}  // namespace

std::size_t utf8Length(std::string_view text) {
    const auto* const sequence =
        std::find_if(sequences.begin(), sequences.end(), [&](const Sequence& candidate) {
            return isWithin(byteAt(text, 0), candidate.firstLead, candidate.lastLead);
        });
    if (sequence == sequences.end() || text.size() < sequence->length) return 0;
    if (sequence->length > 1 &&
        !isWithin(byteAt(text, 1), sequence->lowestSecond, sequence->highestSecond)) {
        return 0;
    }
    for (std::size_t i = 2; i < sequence->length; ++i) {
        if (!isWithin(byteAt(text, i), 0x80, 0xBF)) return 0;
    }
    return sequence->length;
}

}  // namespace tav
