#include "nic/NicTables.h"

#include <algorithm>
#include <cctype>

#include <strings.h>

#include <net/if.h>

namespace tav {
namespace {

constexpr std::size_t headerLines = 2;  // the names of the columns, and a line of dashes
constexpr std::string_view whiteSpace = " \t\r\v\f";

/// Calls `use` with each line, without its end.
template <class Use>
void forEachLine(std::string_view text, Use use) {
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        use(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

std::vector<std::string> splitWords(std::string_view line) {
    std::vector<std::string> words;
    std::size_t first = line.find_first_not_of(whiteSpace);
    while (first != std::string_view::npos) {
        const std::size_t end = std::min(line.find_first_of(whiteSpace, first), line.size());
        words.emplace_back(line.substr(first, end - first));
        first = line.find_first_not_of(whiteSpace, end);
    }
    return words;
}

/// The words of every line behind the header.
template <class Use>
void forEachRow(std::string_view text, Use use) {
    std::size_t line = 0;
    forEachLine(text, [&](std::string_view content) {
        if (line++ >= headerLines) use(splitWords(content));
    });
}

bool isSame(std::string_view text, const char* word) {
    return ::strcasecmp(std::string(text).c_str(), word) == 0;
}

struct PartNumberRule {
    const char* vendor;
    const char* model;
    const char* otherModel;  ///< accepted as well; null when there is none
    const char* partNumber;
};

/// The makers' ordering numbers of common adapters. The first rule that matches decides.
constexpr std::array partNumberRules = {
    PartNumberRule{"Mellanox", "ConnectX-4", nullptr, "MCX4121A-ACAT"},
    PartNumberRule{"Mellanox", "ConnectX-5", nullptr, "MCX512A-ACAT"},
    PartNumberRule{"Intel", "X710", nullptr, "X710DA2"},
    PartNumberRule{"Intel", "82599", "X520", "E10G42BTDA"},
    PartNumberRule{"Intel", "I350", nullptr, "I350T4V2"},
    PartNumberRule{"Broadcom", "BCM57414", nullptr, "BCM957414A4142CC"},
};

bool contains(std::string_view text, const char* word) {
    return word != nullptr && text.find(word) != std::string_view::npos;
}

}  // namespace

std::vector<std::vector<std::string>> parseNicList(std::string_view text) {
    std::vector<std::vector<std::string>> rows;
    forEachRow(text, [&rows](std::vector<std::string> words) {
        if (words.size() < nicColumns) return;
        for (std::size_t index = nicColumns; index < words.size(); ++index) {
            words[NIC_COLUMN_DESCRIPTION].append(1, ' ').append(words[index]);
        }
        words.resize(nicColumns);
        rows.push_back(std::move(words));
    });
    return rows;
}

std::vector<NicLink> parseNicLinks(std::string_view text) {
    std::vector<NicLink> links;
    forEachRow(text, [&links](std::vector<std::string> words) {
        if (words.size() == 2) links.push_back({std::move(words[0]), std::move(words[1])});
    });
    return links;
}

std::optional<std::string> nicDetail(std::string_view details, std::string_view label) {
    std::optional<std::string> value;
    forEachLine(details, [&](std::string_view line) {
        const std::size_t colon = line.find(':');
        if (value || colon == std::string_view::npos || line.find(label) == std::string_view::npos)
            return;
        line.remove_prefix(colon + 1);
        if (!line.empty() && line.front() == ' ') line.remove_prefix(1);
        value = std::string(line);
    });
    return value;
}

bool isInterfaceName(std::string_view name) {
    const auto isNameCharacter = [](unsigned char c) {
        return std::isalnum(c) != 0 || c == '_' || c == '-' || c == '.' || c == ':';
    };
    return !name.empty() && name.size() < IFNAMSIZ && name.front() != '-' && name.front() != '.' &&
           std::all_of(name.begin(), name.end(), isNameCharacter);
}

bool isPciAddressText(std::string_view address) {
    return !address.empty() && std::all_of(address.begin(), address.end(), [](unsigned char c) {
        return std::isxdigit(c) != 0 || c == ':' || c == '.';
    });
}

AdapterStatus adapterStatus(std::string_view linkStatus, std::string_view cableType) {
    if (isSame(linkStatus, "up")) return AdapterStatus::Running;
    if (isSame(linkStatus, "unknown")) return AdapterStatus::Failed;
    if (isSame(linkStatus, "down")) return AdapterStatus::Down;
    const bool hasCable = cableType.find_first_not_of(" \n") != std::string_view::npos;
    return hasCable ? AdapterStatus::Running : AdapterStatus::Other;
}

bool hangsOnCable(std::string_view linkStatus) {
    return adapterStatus(linkStatus, "") != adapterStatus(linkStatus, "known");
}

const char* nicPartNumber(std::string_view description) {
    const auto* const rule =
        std::find_if(partNumberRules.begin(), partNumberRules.end(), [&](const auto& candidate) {
            return contains(description, candidate.vendor) &&
                   (contains(description, candidate.model) ||
                    contains(description, candidate.otherModel));
        });
    return rule == partNumberRules.end() ? "" : rule->partNumber;
}

}  // namespace tav
