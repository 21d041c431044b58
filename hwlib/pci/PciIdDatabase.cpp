#include "hwlib/pci/PciIdDatabase.h"

#include <algorithm>
#include <limits>

#include "base/LineReader.h"
#include "base/Trim.h"

namespace tav {
namespace {

/// How much is read at once while sections are looked for, while one is gone through, and while a
/// name is looked for. A line longer than the last has no name for us.
constexpr std::size_t searchBuffer = 32768;
constexpr std::size_t sectionBuffer = 16384;
constexpr std::size_t nameBuffer = 2048;

/// What must be seen of a line to tell the section that it begins.
constexpr std::size_t lineStartSize = 8;

/// Subsystems of one device are looked for among at most this many lines.
constexpr int mostSubsystems = 10000;

constexpr std::uint32_t joined(std::uint32_t high, std::uint32_t low) {
    return high << 16 | low;
}

constexpr std::uint8_t noDigit = 0xFF;

/// What each character is worth as a hexadecimal digit.
constexpr std::array<std::uint8_t, 256> digitValues = [] {
    std::array<std::uint8_t, 256> values{};
    values.fill(noDigit);
    for (std::uint8_t value = 0; value < 16; ++value) {
        values[static_cast<unsigned char>("0123456789abcdef"[value])] = value;
        values[static_cast<unsigned char>("0123456789ABCDEF"[value])] = value;
    }
    return values;
}();

constexpr std::string_view blanks = " \t\r";

constexpr bool isBlank(char character) {
    return character == ' ' || character == '\t' || character == '\r';
}

/// Takes `digits` hexadecimal digits and the blank behind them off the front of `text`.
bool takeId(std::string_view& text, std::size_t digits, std::uint32_t& id) {
    if (text.size() <= digits || !isBlank(text[digits])) return false;
    id = 0;
    for (const char digit : text.substr(0, digits)) {
        const std::uint8_t value = digitValues[static_cast<unsigned char>(digit)];
        if (value == noDigit) return false;
        id = id << 4 | value;
    }
    text.remove_prefix(digits + 1);
    return true;
}

using Kind = PciIdLine::Kind;
constexpr PciIdLine nothing{Kind::None, 0, {}};
constexpr PciIdLine malformed{Kind::Malformed, 0, {}};
constexpr PciIdLine sectionEnd{Kind::SectionEnd, 0, {}};

PciIdLine parseSection(std::string_view line) {
    std::uint32_t id = 0;
    if (takeId(line, 4, id)) return {Kind::Vendor, id, trimBoth(line, blanks)};
    if (!line.starts_with("C ")) return sectionEnd;
    line.remove_prefix(2);
    return takeId(line, 2, id) ? PciIdLine{Kind::BaseClass, id, trimBoth(line, blanks)}
                               : sectionEnd;
}

PciIdLine parseSubsystem(std::string_view line) {
    std::uint32_t vendor = 0;
    std::uint32_t device = 0;
    if (!takeId(line, 4, vendor) || !takeId(line, 4, device)) return nothing;
    return {Kind::Subsystem, joined(vendor, device), trimBoth(line, blanks)};
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

/// The first newline in text[from, end) that no tab follows, or `end`; `end` is below text.size().
/// Nearly all lines are indented: looking at 64 characters at once passes over most of them.
std::size_t findSectionBreak(std::string_view text, std::size_t from, std::size_t end) {
    constexpr std::size_t block = 64;
    for (; from + block <= end; from += block) {
        unsigned char found = 0;
        for (std::size_t i = 0; i < block; ++i) {
            const unsigned char newline = text[from + i] == '\n';
            const unsigned char unindented = text[from + i + 1] != '\t';
            found = static_cast<unsigned char>(found | (newline & unindented));
        }
        if (found != 0) break;
    }
    while (from < end && (text[from] != '\n' || text[from + 1] == '\t'))
        ++from;
    return from;
}

}  // namespace

PciIdLine parsePciIdLine(std::string_view line, bool inClasses) {
    if (line.empty() || line[0] == '#' || line[0] == '\r') return nothing;
    if (line[0] != '\t') return parseSection(line);
    line.remove_prefix(1);
    if (line.starts_with('\t')) return inClasses ? nothing : parseSubsystem(line.substr(1));
    std::uint32_t id = 0;
    if (!takeId(line, inClasses ? 2 : 4, id)) return malformed;
    return {inClasses ? Kind::Subclass : Kind::Device, id, trimBoth(line, blanks)};
}

PciIdDatabase::PciIdDatabase(Read read) : read_(std::move(read)) {
    findSections();
    sort(vendors_);
    sort(baseClasses_);
}

void PciIdDatabase::sort(Places& places) {
    if (!std::ranges::is_sorted(places, {}, &Place::key))
        std::ranges::stable_sort(places, {}, &Place::key);
    places.shrink_to_fit();
}

std::optional<std::uint32_t> PciIdDatabase::find(const Places& places, std::uint32_t key) {
    const auto place = std::ranges::lower_bound(places, key, {}, &Place::key);
    if (place == places.end() || place->key != key) return std::nullopt;
    return place->position;
}

/// How much of a section to read at once: all of most, which are small.
std::size_t PciIdDatabase::readSize(const Places& sections, std::uint32_t id) {
    const auto next = std::ranges::upper_bound(sections, id, {}, &Place::key);
    if (next == sections.end() || next == sections.begin()) return sectionBuffer;
    const std::uint32_t size = next->position - std::prev(next)->position;
    return std::clamp<std::size_t>(size, nameBuffer, sectionBuffer);
}

void PciIdDatabase::findSections() {
    // As if a newline stood before the text: every line then begins behind one.
    std::vector<char> buffer(searchBuffer);
    std::uint64_t nextRead = 0;
    std::size_t held = 1;
    buffer[0] = '\n';
    while (nextRead < std::numeric_limits<std::uint32_t>::max()) {
        const std::size_t count = read_(std::span(buffer).subspan(held), nextRead);
        nextRead += count;
        held += count;
        const std::size_t tail = count == 0 ? 1 : std::min(held, 1 + lineStartSize);
        const std::string_view text(buffer.data(), held);
        std::size_t at = findSectionBreak(text, 0, held - tail);
        for (; at < held - tail; at = findSectionBreak(text, at + 1, held - tail))
            addSection(nextRead - held + at + 1, text.substr(at + 1, lineStartSize));
        if (count == 0) return;
        std::copy(buffer.begin() + static_cast<std::ptrdiff_t>(held - tail),
                  buffer.begin() + static_cast<std::ptrdiff_t>(held), buffer.begin());
        held = tail;
    }
}

void PciIdDatabase::addSection(std::uint64_t position, std::string_view lineStart) {
    const PciIdLine line = parsePciIdLine(lineStart, false);
    if (line.kind == Kind::Vendor || line.kind == Kind::BaseClass)
        sectionsOf(line.kind).push_back({line.id, static_cast<std::uint32_t>(position)});
}

const PciIdDatabase::Section& PciIdDatabase::section(Kind kind, std::uint32_t id) {
    const auto [place, isNew] = sections_.try_emplace({kind, id});
    if (isNew) {
        const Places& sections = sectionsOf(kind);
        const auto position = find(sections, id);
        if (position) place->second = readSection(kind, id, *position, readSize(sections, id));
    }
    return place->second;
}

PciIdDatabase::Section PciIdDatabase::readSection(Kind kind, std::uint32_t id,
                                                  std::uint32_t position, std::size_t readSize) {
    Section section;
    LineReader lines(std::cref(read_), position, readSize);
    const auto first = lines.next();
    if (!first || !holds(*first, kind, id)) return section;
    section.entry = newEntry(*first, kind);
    const Kind memberKind = kind == Kind::Vendor ? Kind::Device : Kind::Subclass;
    while (const auto line = lines.next()) {
        if (line->text.starts_with("\t\t")) continue;
        const PciIdLine parsed = parseAs(memberKind, *line);
        const bool saysNothing = parsed.kind == Kind::Malformed || parsed.kind == Kind::None;
        if (saysNothing) continue;
        if (parsed.kind != memberKind) break;
        section.places.push_back({parsed.id, static_cast<std::uint32_t>(line->position)});
    }
    sort(section.places);
    return section;
}

PciIdEntryPtr PciIdDatabase::readEntry(Kind kind, std::uint32_t id, std::uint32_t position) {
    LineReader lines(std::cref(read_), position, nameBuffer);
    const auto line = lines.next();
    return line && holds(*line, kind, id) ? newEntry(*line, kind) : nullptr;
}

PciIdEntryPtr PciIdDatabase::member(Kind kind, const Section& section, std::uint32_t key,
                                    std::uint32_t id) {
    const auto [place, isNew] = members_.try_emplace({kind, key});
    if (isNew) {
        const auto position = find(section.places, id);
        if (position) place->second = readEntry(kind, id, *position);
    }
    return place->second;
}

PciIdEntryPtr PciIdDatabase::vendor(std::uint16_t vendor) {
    const std::scoped_lock guard(lock_);
    return section(Kind::Vendor, vendor).entry;
}

PciIdEntryPtr PciIdDatabase::device(std::uint16_t vendor, std::uint16_t device) {
    const std::scoped_lock guard(lock_);
    return member(Kind::Device, section(Kind::Vendor, vendor), joined(vendor, device), device);
}

PciIdEntryPtr PciIdDatabase::deviceClass(std::uint32_t classCode) {
    const std::uint32_t baseClass = classCode >> 16 & 0xFF;
    const std::uint32_t subclass = classCode >> 8 & 0xFF;
    const std::scoped_lock guard(lock_);
    const Section& classes = section(Kind::BaseClass, baseClass);
    const PciIdEntryPtr known =
        member(Kind::Subclass, classes, joined(baseClass, subclass), subclass);
    return known != nullptr ? known : classes.entry;
}

PciIdEntryPtr PciIdDatabase::subsystem(std::uint16_t vendor, std::uint16_t device,
                                       std::uint16_t subsystemVendor,
                                       std::uint16_t subsystemDevice) {
    const std::scoped_lock guard(lock_);
    const auto position = find(section(Kind::Vendor, vendor).places, device);
    if (!position) return nullptr;
    const std::uint32_t subsystem = joined(subsystemVendor, subsystemDevice);
    const auto [place, isNew] = subsystems_.try_emplace({joined(vendor, device), subsystem});
    if (isNew) place->second = readSubsystem(device, *position, subsystem);
    return place->second;
}

PciIdEntryPtr PciIdDatabase::readSubsystem(std::uint32_t device, std::uint32_t devicePosition,
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
