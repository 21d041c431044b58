#include "hwlib/PciIdDatabase.h"

#include <algorithm>
#include <limits>

#include "hwlib/LineReader.h"

namespace tav {
namespace {

/// Lines are split in pieces of the first size while the index is built, of the second while a name
/// is looked for; a longer line has no name for us.
constexpr std::size_t indexBuffer = 65536;
constexpr std::size_t nameBuffer = 2048;

/// Subsystems of one device are looked for among at most this many lines.
constexpr int mostSubsystems = 10000;

constexpr std::uint32_t joined(std::uint32_t high, std::uint32_t low) {
    return high << 16 | low;
}

constexpr int hexDigit(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
}

constexpr bool isBlank(char character) {
    return character == ' ' || character == '\t' || character == '\r';
}

/// Takes `digits` hexadecimal digits and the blank behind them off the front of `text`.
bool takeId(std::string_view& text, std::size_t digits, std::uint32_t& id) {
    if (text.size() <= digits || !isBlank(text[digits])) return false;
    id = 0;
    for (const char digit : text.substr(0, digits)) {
        const int value = hexDigit(digit);
        if (value < 0) return false;
        id = id << 4 | static_cast<std::uint32_t>(value);
    }
    text.remove_prefix(digits + 1);
    return true;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

using Kind = PciIdLine::Kind;
constexpr PciIdLine nothing{Kind::None, 0, {}};
constexpr PciIdLine malformed{Kind::Malformed, 0, {}};
constexpr PciIdLine sectionEnd{Kind::SectionEnd, 0, {}};

PciIdLine parseSection(std::string_view line) {
    std::uint32_t id = 0;
    if (takeId(line, 4, id)) return {Kind::Vendor, id, trimmed(line)};
    if (!line.starts_with("C ")) return sectionEnd;
    line.remove_prefix(2);
    return takeId(line, 2, id) ? PciIdLine{Kind::BaseClass, id, trimmed(line)} : sectionEnd;
}

PciIdLine parseSubsystem(std::string_view line) {
    std::uint32_t vendor = 0;
    std::uint32_t device = 0;
    if (!takeId(line, 4, vendor) || !takeId(line, 4, device)) return nothing;
    return {Kind::Subsystem, joined(vendor, device), trimmed(line)};
}

PciIdLine parseAs(Kind kind, const Line& line) {
    return parsePciIdLine(line.text, kind == Kind::Subclass);
}

/// Whether the line still is what the index says: the file may have been written over since.
bool holds(const Line& line, Kind kind, std::uint32_t id) {
    const PciIdLine parsed = parseAs(kind, line);
    return parsed.kind == kind && parsed.id == id;
}

/// Null for a line without a name, and for one too long to be read whole.
PciIdEntryPtr newEntry(const Line& line, Kind kind) {
    const std::string_view name = parseAs(kind, line).name;
    if (name.empty() || !line.whole) return nullptr;
    return std::make_shared<const PciIdEntry>(PciIdEntry{std::string(name)});
}

}  // namespace

PciIdLine parsePciIdLine(std::string_view line, bool inClasses) {
    if (line.empty() || line[0] == '#' || line[0] == '\r') return nothing;
    if (line[0] != '\t') return parseSection(line);
    line.remove_prefix(1);
    if (line.starts_with('\t')) return inClasses ? nothing : parseSubsystem(line.substr(1));
    std::uint32_t id = 0;
    if (!takeId(line, inClasses ? 2 : 4, id)) return malformed;
    return {inClasses ? Kind::Subclass : Kind::Device, id, trimmed(line)};
}

PciIdDatabase::PciIdDatabase(Read read) : read_(std::move(read)) {
    buildIndex();
}

void PciIdDatabase::buildIndex() {
    LineReader lines(std::cref(read_), 0, indexBuffer);
    PciIdLine section = nothing;
    while (const auto line = lines.next()) {
        if (line->position > std::numeric_limits<std::uint32_t>::max()) break;
        if (line->text.starts_with("\t\t")) continue;
        const bool inClasses = section.kind == Kind::BaseClass;
        const PciIdLine entry = parsePciIdLine(line->text, inClasses);
        const auto position = static_cast<std::uint32_t>(line->position);
        switch (entry.kind) {
            case Kind::Vendor:
            case Kind::BaseClass:
                section = entry;
                placesOf(entry.kind).push_back({entry.id, position});
                break;
            case Kind::Device:
            case Kind::Subclass:
                if (section.kind != Kind::None)
                    placesOf(entry.kind).push_back({joined(section.id, entry.id), position});
                break;
            case Kind::SectionEnd:
                section = nothing;
                break;
            case Kind::Subsystem:
            case Kind::Malformed:
            case Kind::None:
                break;
        }
    }
    for (Places& places : places_) {
        if (!std::ranges::is_sorted(places, {}, &Place::key))
            std::ranges::stable_sort(places, {}, &Place::key);
        places.shrink_to_fit();
    }
}

std::optional<std::uint32_t> PciIdDatabase::positionOf(Kind kind, std::uint32_t key) {
    const Places& places = placesOf(kind);
    const auto place = std::ranges::lower_bound(places, key, {}, &Place::key);
    if (place == places.end() || place->key != key) return std::nullopt;
    return place->position;
}

PciIdEntryPtr PciIdDatabase::readEntry(Kind kind, std::uint32_t position, std::uint32_t idInLine) {
    LineReader lines(std::cref(read_), position, nameBuffer);
    const auto line = lines.next();
    return line && holds(*line, kind, idInLine) ? newEntry(*line, kind) : nullptr;
}

PciIdEntryPtr PciIdDatabase::entry(Kind kind, std::uint32_t key, std::uint32_t idInLine) {
    const std::scoped_lock guard(lock_);
    const auto position = positionOf(kind, key);
    if (!position) return nullptr;
    PciIdEntryPtr& entry = known_[{static_cast<std::uint32_t>(kind), key, 0}];
    if (entry == nullptr) entry = readEntry(kind, *position, idInLine);
    return entry;
}

PciIdEntryPtr PciIdDatabase::vendor(std::uint16_t vendor) {
    return entry(Kind::Vendor, vendor, vendor);
}

PciIdEntryPtr PciIdDatabase::device(std::uint16_t vendor, std::uint16_t device) {
    return entry(Kind::Device, joined(vendor, device), device);
}

PciIdEntryPtr PciIdDatabase::deviceClass(std::uint32_t classCode) {
    const std::uint32_t baseClass = classCode >> 16 & 0xFF;
    const std::uint32_t subclass = classCode >> 8 & 0xFF;
    PciIdEntryPtr known = entry(Kind::Subclass, joined(baseClass, subclass), subclass);
    return known != nullptr ? known : entry(Kind::BaseClass, baseClass, baseClass);
}

PciIdEntryPtr PciIdDatabase::subsystem(std::uint16_t vendor, std::uint16_t device,
                                       std::uint16_t subsystemVendor,
                                       std::uint16_t subsystemDevice) {
    const std::scoped_lock guard(lock_);
    const std::uint32_t deviceKey = joined(vendor, device);
    const std::uint32_t subsystemKey = joined(subsystemVendor, subsystemDevice);
    const auto position = positionOf(Kind::Device, deviceKey);
    if (!position) return nullptr;
    const CacheKey key{static_cast<std::uint32_t>(Kind::Subsystem), deviceKey, subsystemKey};
    const auto [place, isNew] = known_.try_emplace(key);
    if (isNew) place->second = findSubsystem(*position, device, subsystemKey);
    return place->second;
}

PciIdEntryPtr PciIdDatabase::findSubsystem(std::uint32_t devicePosition, std::uint32_t device,
                                           std::uint32_t subsystem) {
    LineReader lines(std::cref(read_), devicePosition, nameBuffer);
    const auto deviceLine = lines.next();
    if (!deviceLine || !holds(*deviceLine, Kind::Device, device)) return nullptr;
    for (int count = 0; count < mostSubsystems; ++count) {
        const auto line = lines.next();
        if (!line) return nullptr;
        const Kind kind = parsePciIdLine(line->text, false).kind;
        if (kind != Kind::Subsystem && kind != Kind::None) return nullptr;
        if (holds(*line, Kind::Subsystem, subsystem)) return newEntry(*line, Kind::Subsystem);
    }
    return nullptr;
}

}  // namespace tav
