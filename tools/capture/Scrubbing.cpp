#include "tools/capture/Scrubbing.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <memory>
#include <numeric>
#include <set>
#include <span>
#include <utility>

#include <json/reader.h>
#include <json/value.h>

#include "base/Trim.h"
#include "hwlib/pci/pci_vpd.h"
#include "storage/raid/storelib_records.h"
#include "tools/capture/NvmeQuestions.h"
#include "tools/capture/RaidQuestions.h"
#include "tools/capture/StandIns.h"

namespace tav::capture {
namespace {

using Place = StandIns::Place;

// --- Where identities stand ----------------------------------------------------------------------

int hexDigit(char c) {
    constexpr std::string_view digits = "0123456789abcdef";
    const std::size_t value =
        digits.find(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
    return value == std::string_view::npos ? -1 : static_cast<int>(value);
}

/// The bytes that the hexadecimal digits of a text stand for: "0x2001...", "20:01:...".
std::string bytesOfNumber(std::string_view text) {
    text = trimBoth(text);
    if (text.starts_with("0x")) text.remove_prefix(2);
    std::string bytes;
    int high = -1;
    for (const char c : text) {
        const int digit = hexDigit(c);
        if (digit < 0) continue;
        if (high >= 0) bytes += static_cast<char>(high << 4 | digit);
        high = high >= 0 ? -1 : digit;
    }
    return bytes;
}

/// All that looks like a MAC address: six pairs of digits between the same separators, which is
/// neither everybody's nor part of something longer.
void addMacAddressesIn(std::string_view text, StandIns& standIns) {
    constexpr std::size_t length = 17;
    const auto isPart = [&](std::size_t at) {
        return at < text.size() && (hexDigit(text[at]) >= 0 || text[at] == ':' || text[at] == '-');
    };
    for (std::size_t at = text.find_first_of(":-"); at != std::string_view::npos;
         at = text.find_first_of(":-", at + 1)) {
        if (at < 2 || at - 2 + length > text.size()) continue;
        const std::string_view candidate = text.substr(at - 2, length);
        bool isAddress = !(at >= 3 && isPart(at - 3)) && !isPart(at - 2 + length);
        for (std::size_t i = 0; isAddress && i < length; ++i)
            isAddress = i % 3 == 2 ? candidate[i] == text[at] : hexDigit(candidate[i]) >= 0;
        if (isAddress) standIns.addMacAddress(bytesOfNumber(candidate));
    }
}

std::string lineOf(const std::string& lines, std::string_view name) {
    const std::size_t at = ('\n' + lines).find('\n' + std::string(name) + '=');
    if (at == std::string::npos) return {};
    const std::size_t begin = at + name.size() + 1;
    return lines.substr(begin, lines.find('\n', begin) - begin);
}

void addHostName(const std::string& name, StandIns& standIns) {
    standIns.addName(name);
    const std::size_t dot = name.find('.');
    if (dot == std::string::npos) return;
    standIns.addName(name.substr(0, dot));
    standIns.addName(name.substr(dot + 1));
}

void addAddresses(const std::string& links, StandIns& standIns) {
    Json::Value known;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    if (!reader->parse(links.data(), links.data() + links.size(), &known, nullptr)) return;
    for (const Json::Value& address : known["addresses"])
        standIns.addAddress(address["address"].asString());
}

void addSerial(std::string_view content, StandIns& standIns) {
    standIns.addSerial(content);
}

void addName(std::string_view content, StandIns& standIns) {
    standIns.addWorldWideName(bytesOfNumber(content));
}

void addUnitSerial(std::string_view page, StandIns& standIns) {
    constexpr std::size_t header = 4;
    if (page.size() > header) standIns.addSerial(page.substr(header));
}

void addInquirySerial(std::string_view inquiry, StandIns& standIns) {
    constexpr std::size_t serial = 36;
    constexpr std::size_t length = 20;
    if (inquiry.size() > serial) standIns.addSerial(inquiry.substr(serial, length));
}

void addVitalProductData(std::string_view vpd, StandIns& standIns) {
    const PciVpdList list = pci_get_vpdtags(std::as_bytes(std::span(vpd)));
    for (const PciVpdKeyword* entry = list.get(); entry != nullptr; entry = entry->next.get()) {
        if (std::string_view(entry->keyword.data(), entry->keyword.size()) == "SN")
            standIns.addSerial(entry->value);
    }
}

struct IdentifyingFile {
    std::string_view name;
    void (*add)(std::string_view content, StandIns& standIns);
};
constexpr std::array identifyingFiles = {
    IdentifyingFile{"serialnum", addSerial},      IdentifyingFile{"serial_num", addSerial},
    IdentifyingFile{"serial_number", addSerial},  IdentifyingFile{"board_tracer", addSerial},
    IdentifyingFile{"serial", addSerial},         IdentifyingFile{"node_name", addName},
    IdentifyingFile{"port_name", addName},        IdentifyingFile{"vpd_pg80", addUnitSerial},
    IdentifyingFile{"inquiry", addInquirySerial}, IdentifyingFile{"vpd", addVitalProductData},
};

std::string swapped(std::string_view bytes) {
    std::string result(bytes);
    for (std::size_t i = 0; i + 1 < result.size(); i += 2)
        std::swap(result[i], result[i + 1]);
    return result;
}

/// IDENTIFY DEVICE data (ACS-3, 7.12.7): serial number and world wide name.
void addAtaIdentity(const std::string& data, StandIns& standIns) {
    constexpr std::size_t serial = 20, serialLength = 20, name = 216, nameLength = 8;
    const std::string plain = swapped(data);
    if (plain.size() < name + nameLength) return;
    standIns.addSerial(plain.substr(serial, serialLength));
    standIns.addWorldWideName(plain.substr(name, nameLength));
}

void addRaidIdentity(const std::string& data, StandIns& standIns) {
    const auto text = [&](std::size_t offset, std::size_t size) {
        const std::string field = data.substr(offset, size);
        return field.substr(0, field.find('\0'));
    };
    switch (data.size()) {
        case sizeof(_MR_PD_INFO):
            standIns.addSerial(
                text(offsetof(_MR_PD_INFO, vendorSpecific), sizeof _MR_PD_INFO::vendorSpecific));
            break;
        case sizeof(_MR_MFC_MFG):
            standIns.addSerial(
                text(offsetof(_MR_MFC_MFG, serialNumber), sizeof _MR_MFC_MFG::serialNumber));
            break;
        case sizeof(_MR_LD_INFO):
            standIns.addWorldWideName(data.substr(offsetof(_MR_LD_INFO, identifier), 16));
            break;
        default:
            break;
    }
}

constexpr std::string_view identifyDeviceEnd = "ec00";  // command and control of the pass-through

void addIdentitiesOf(const Answer& answer, StandIns& standIns) {
    if (answer.hasAtaTexts && answer.question.ends_with(identifyDeviceEnd))
        addAtaIdentity(answer.data, standIns);
    if (answer.question.starts_with("raid ")) addRaidIdentity(answer.data, standIns);
    standIns.addSerial(nvmeSerial(answer));
}

void addIdentities(const Recording& recording, StandIns& standIns) {
    const auto fact = [&](const char* name) {
        const auto found = recording.facts.find(name);
        return found == recording.facts.end() ? std::string() : found->second;
    };
    addHostName(lineOf(fact("uname"), "nodename"), standIns);
    addAddresses(fact("links.json"), standIns);
    addMacAddressesIn(fact("links.json"), standIns);
    for (const auto& [path, entry] : recording.entries) {
        const std::string name = path.substr(path.rfind('/') + 1);
        for (const IdentifyingFile& known : identifyingFiles)
            if (known.name == name) known.add(entry.content, standIns);
        addMacAddressesIn(entry.content, standIns);
    }
    for (const CommandRun& run : recording.commands)
        addMacAddressesIn(run.output, standIns);
    for (const auto& [path, log] : recording.logs)
        addMacAddressesIn(log, standIns);
    for (const auto& [device, conversation] : recording.conversations) {
        for (const Answer& answer : conversation.answers)
            addIdentitiesOf(answer, standIns);
    }
}

// --- What is made of it --------------------------------------------------------------------------

unsigned sumOf(const std::string& bytes) {
    return std::accumulate(bytes.begin(), bytes.end(), 0U, [](unsigned sum, char byte) {
        return (sum + static_cast<unsigned char>(byte)) & 0xFFU;
    });
}

/// A sector that sums to zero does so afterwards too.
std::string scrubbedSector(const std::string& data, const StandIns& standIns) {
    std::string made = standIns.replaced(data, Place::Answer);
    made = swapped(standIns.replaced(swapped(made), Place::Answer));
    if (!made.empty() && made != data && sumOf(data) == 0) {
        made.back() = static_cast<char>(static_cast<unsigned char>(made.back()) - sumOf(made));
    }
    return made;
}

void scrub(Answer& answer, const StandIns& standIns) {
    if (answer.question.starts_with("raid ")) blankUnread(answer);
    if (answer.question.starts_with("nvme ")) blankUnreadNvme(answer);
    answer.data = answer.hasAtaTexts ? scrubbedSector(answer.data, standIns)
                                     : standIns.replaced(answer.data, Place::Answer);
    answer.sense = standIns.replaced(answer.sense, Place::Answer);
}

/// Blanks all of the SMBIOS structures but those that are read: slots, devices on board, and the
/// maker's on both.
std::string blankedTables(std::string table) {
    constexpr std::array readTypes = {9, 41, 203, 240};
    constexpr std::size_t header = 4;
    for (std::size_t at = 0; at + header <= table.size();) {
        const auto type = static_cast<unsigned char>(table[at]);
        const std::size_t length = static_cast<unsigned char>(table[at + 1]);
        const std::size_t strings = at + std::max(length, header);
        const std::size_t end =
            std::min(table.find(std::string_view("\0\0", 2), strings), table.size());
        const bool isRead =
            std::find(readTypes.begin(), readTypes.end(), int{type}) != readTypes.end();
        for (std::size_t i = at + header; !isRead && i < std::min(strings, table.size()); ++i)
            table[i] = '\0';
        for (std::size_t i = strings; !isRead && i < end; ++i)
            if (table[i] != '\0') table[i] = '.';
        at = end + 2;
    }
    return table;
}

/// The words of a text that are made of these characters alone.
std::set<std::string> wordsOf(const std::string& text, const char* characters) {
    std::set<std::string> words;
    for (std::size_t at = text.find_first_of(characters); at < text.size();) {
        const std::size_t end = std::min(text.find_first_not_of(characters, at), text.size());
        words.emplace(trimBoth(std::string_view(text).substr(at, end - at), "."));
        at = text.find_first_of(characters, end);
    }
    return words;
}

/// Whether all between the separators is as long: a MAC address or a world wide name.
bool isInPairs(const std::string& word) {
    for (std::size_t at = 2; at < word.size(); at += 3)
        if (word[at] != ':') return false;
    return word.size() % 3 == 2;
}

/// Any other text of a log that can be an address is one there.
std::string withoutAddresses(const std::string& log, std::uint64_t seed) {
    StandIns standIns(seed);
    for (const std::string& word : wordsOf(log, "0123456789."))
        if (std::count(word.begin(), word.end(), '.') == 3) standIns.addAddress(word);
    for (const std::string& word : wordsOf(log, "0123456789abcdefABCDEF:")) {
        if (std::count(word.begin(), word.end(), ':') > 1 && !isInPairs(word))
            standIns.addAddress(word);
    }
    return standIns.replaced(log, Place::Text);
}

}  // namespace

Recording scrubbed(Recording recording, std::uint64_t seed) {
    StandIns standIns(seed);
    addIdentities(recording, standIns);
    std::map<std::string, HostEntry> entries;
    for (auto& [path, entry] : recording.entries) {
        const bool isLink = entry.kind == HostEntry::Kind::Link;
        entry.content = standIns.replaced(entry.content, isLink ? Place::Path : Place::Text);
        entries.emplace(standIns.replaced(path, Place::Path), std::move(entry));
    }
    recording.entries = std::move(entries);
    for (CommandRun& run : recording.commands) {
        run.command = standIns.replaced(run.command, Place::Path);
        run.output = standIns.replaced(run.output, Place::Text);
    }
    for (auto& [name, fact] : recording.facts) {
        const bool isTable = name == "DMI";
        fact = isTable ? blankedTables(std::move(fact)) : standIns.replaced(fact, Place::Text);
    }
    for (auto& [path, log] : recording.logs)
        log = withoutAddresses(standIns.replaced(log, Place::Text), seed + 1);
    for (auto& [device, conversation] : recording.conversations) {
        for (Answer& answer : conversation.answers)
            scrub(answer, standIns);
    }
    for (std::string& what : recording.lacking)
        what = standIns.replaced(what, Place::Path);
    return recording;
}

}  // namespace tav::capture
