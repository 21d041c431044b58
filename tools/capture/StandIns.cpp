#include "tools/capture/StandIns.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include <arpa/inet.h>

#include "base/Trim.h"
#include "tools/capture/Recording.h"

namespace tav::capture {
namespace {

constexpr std::string_view digits = "0123456789";
constexpr std::string_view lowerHex = "0123456789abcdef";

/// At a stand-in that nothing else has. After so many, the shape has no more.
constexpr int attempts = 1000;

/// What firmware and devices say instead of a number of their own.
constexpr std::array placeholders = {
    "To be filled by O.E.M.",
    "To Be Filled By O.E.M.",
    "Default string",
    "Not Specified",
    "Not Available",
    "System Serial Number",
    "None",
    "Unknown",
    "unknown",
    "NotAvailable",
    "N/A",
    "NA",
    "localhost",
    "(none)",
};

std::uint16_t beginOf(std::string_view bytes) {
    return static_cast<std::uint16_t>(static_cast<unsigned char>(bytes[0]) << 8U |
                                      static_cast<unsigned char>(bytes[1]));
}

bool isWordCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

bool identifies(std::string_view text, std::size_t shortest) {
    const bool isUniform =
        std::all_of(text.begin(), text.end(), [&](char c) { return c == text.front(); });
    return text.size() >= shortest && !isUniform &&
           std::find(placeholders.begin(), placeholders.end(), text) == placeholders.end();
}

/// What one host has for itself: none that everybody has, and no group's.
bool isHostAddress(const std::string& text) {
    constexpr std::array<std::string_view, 6> everybodys = {"127.", "0.", "255.",
                                                            "::",   "ff", "169.254."};
    const auto isBegin = [&](std::string_view begin) { return text.starts_with(begin); };
    if (std::any_of(everybodys.begin(), everybodys.end(), isBegin)) return false;
    in6_addr parsed{};
    if (text.find(':') != std::string::npos)
        return ::inet_pton(AF_INET6, text.c_str(), &parsed) == 1;
    constexpr in_addr_t firstGroup = 0xE0000000;
    in_addr address{};
    return ::inet_pton(AF_INET, text.c_str(), &address) == 1 && ntohl(address.s_addr) < firstGroup;
}

std::string withSeparators(const std::string& hex, char separator) {
    std::string text;
    for (std::size_t i = 0; i < hex.size(); ++i) {
        if (i > 0 && i % 2 == 0) text += separator;
        text += hex[i];
    }
    return text;
}

std::string inUpperCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

std::string bytesOf(const std::string& hex) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        const std::size_t value = lowerHex.find(hex[i]) * 16 + lowerHex.find(hex[i + 1]);
        bytes += static_cast<char>(value);
    }
    return bytes;
}

/// Text by text of the number, so that one is found in all the ways in which it is written.
std::vector<std::string> writings(const std::string& hex) {
    std::vector<std::string> texts = {hex, withSeparators(hex, ':'), withSeparators(hex, '-')};
    for (std::size_t i = 0; i < 3; ++i)
        texts.push_back(inUpperCase(texts[i]));
    texts.push_back(bytesOf(hex));
    return texts;
}

}  // namespace

char StandIns::anyOf(std::string_view characters) {
    return characters[std::uniform_int_distribution<std::size_t>(0,
                                                                 characters.size() - 1)(random_)];
}

char StandIns::standInFor(char character) {
    constexpr std::string_view upper = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
    constexpr std::string_view lower = "abcdefghijklmnopqrstuvwxyz";
    for (const std::string_view alphabet : {digits, upper, lower}) {
        if (alphabet.find(character) != std::string_view::npos) return anyOf(alphabet);
    }
    return character;
}

/// Another text of the same shape that stands for nothing yet and is no other identity. After many
/// attempts the shape has no more such texts: then any.
std::string StandIns::standInFor(std::string_view text) {
    std::string made(text);
    for (int i = 0; i < attempts; ++i) {
        for (std::size_t at = 0; at < text.size(); ++at)
            made[at] = standInFor(text[at]);
        if (made != text && !known_.contains(made) && given_.insert(made).second) break;
    }
    return made;
}

void StandIns::add(Kind kind, std::string from, std::string to) {
    if (from.size() < 2) return;
    std::vector<Pattern>& list = patterns_[beginOf(from)];
    const auto isShorter = [&](const Pattern& known) { return known.from.size() < from.size(); };
    begins_.set(beginOf(from));
    const auto place = std::find_if(list.begin(), list.end(), isShorter);
    list.insert(place, {std::move(from), std::move(to), kind});
}

void StandIns::addSerial(std::string_view text) {
    constexpr std::size_t shortest = 3;
    text = trimBoth(text, " \t\r\n\0");
    if (!identifies(text, shortest) || !known_.emplace(text).second) return;
    add(Kind::Serial, std::string(text), standInFor(text));
}

void StandIns::addName(std::string_view text) {
    constexpr std::size_t shortest = 2;
    text = trimBoth(text);
    if (!identifies(text, shortest) || !known_.emplace(text).second) return;
    add(Kind::Name, std::string(text), standInFor(text));
}

/// Another address of the same shape that stands for nothing yet; none where the shape has none.
std::optional<std::string> StandIns::standInForAddress(std::string_view text) {
    const bool isVersion6 = text.find(':') != std::string_view::npos;
    constexpr std::size_t kindDigits = 4;  // of version 6: "fe80"
    std::string made(text);
    for (int i = 0; i < attempts; ++i) {
        for (std::size_t at = isVersion6 ? kindDigits : 0; at < text.size(); ++at) {
            if (lowerHex.find(text[at]) != std::string_view::npos)
                made[at] = anyOf(isVersion6 ? lowerHex : digits);
        }
        if (isHostAddress(made) && made != text && given_.insert(made).second) return made;
    }
    return std::nullopt;
}

void StandIns::addAddress(std::string_view text) {
    if (!isHostAddress(std::string(text)) || !known_.emplace(text).second) return;
    if (auto made = standInForAddress(text)) add(Kind::Name, std::string(text), *std::move(made));
}

void StandIns::addNumber(std::string_view bytes, std::size_t kept) {
    const std::string hex = hexadecimal(bytes);
    const bool isUniform =
        std::all_of(hex.begin(), hex.end(), [&](char c) { return c == hex.front(); });
    if (isUniform || kept >= hex.size() || !known_.insert(hex).second) return;
    std::string made = hex;
    for (int i = 0; i < attempts; ++i) {
        for (std::size_t at = kept; at < hex.size(); ++at)
            made[at] = anyOf(lowerHex);
        if (made != hex && !known_.contains(made) && given_.insert(made).second) break;
    }
    const std::vector<std::string> from = writings(hex);
    const std::vector<std::string> to = writings(made);
    for (std::size_t i = 0; i < from.size(); ++i)
        add(Kind::Number, from[i], to[i]);
}

void StandIns::addMacAddress(std::string_view bytes) {
    constexpr std::size_t makerDigits = 6;
    if (bytes.size() == 6) addNumber(bytes, makerDigits);
}

void StandIns::addWorldWideName(std::string_view bytes) {
    if (bytes.size() != 8 && bytes.size() != 16) return;
    const auto format = static_cast<unsigned char>(bytes[0]) >> 4U;
    const bool hasMacAddress = format == 1 || format == 2;
    constexpr std::size_t behindMacMaker = 10;
    constexpr std::size_t behindMaker = 7;
    addNumber(bytes, hasMacAddress ? behindMacMaker : behindMaker);
}

/// The longest pattern that stands there and may be replaced there; or null.
const StandIns::Pattern* StandIns::patternAt(std::string_view bytes, std::size_t at,
                                             Place place) const {
    constexpr std::size_t certain = 6;  // texts of this length are no accident
    const auto list = patterns_.find(beginOf(bytes.substr(at, 2)));
    if (list == patterns_.end()) return nullptr;
    for (const Pattern& pattern : list->second) {
        const std::size_t end = at + pattern.from.size();
        if (bytes.substr(at, pattern.from.size()) != pattern.from) continue;
        if (pattern.kind == Kind::Number) return &pattern;
        if (place == Place::Path) continue;
        const bool standsAlone = (at == 0 || !isWordCharacter(bytes[at - 1])) &&
                                 (end >= bytes.size() || !isWordCharacter(bytes[end]));
        const bool isCertain = pattern.kind == Kind::Serial &&
                               (pattern.from.size() >= certain || place == Place::Answer);
        if (standsAlone || isCertain) return &pattern;
    }
    return nullptr;
}

std::string StandIns::replaced(std::string_view bytes, Place place) const {
    std::string result(bytes);
    for (std::size_t at = 0; at + 1 < bytes.size();) {
        const Pattern* const pattern =
            begins_.test(beginOf(bytes.substr(at, 2))) ? patternAt(bytes, at, place) : nullptr;
        if (pattern == nullptr) {
            ++at;
            continue;
        }
        result.replace(at, pattern->from.size(), pattern->to);
        at += pattern->from.size();
    }
    return result;
}

}  // namespace tav::capture
