#include "sim/hostcmds/PciNames.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "sim/hostcmds/Files.h"

namespace tav::sim {
namespace {

constexpr std::size_t idLength = 4;
constexpr std::size_t nameOffset = idLength + 2;

/// "8086  Intel Corporation": four hexadecimal digits, two blanks, the name.
bool isEntry(std::string_view line) {
    return line.size() > nameOffset && line.substr(idLength, 2) == "  " &&
           std::all_of(line.begin(), line.begin() + idLength,
                       [](unsigned char c) { return std::isxdigit(c) != 0; });
}

std::string withoutPrefix(const std::string& id) {
    return id.rfind("0x", 0) == 0 ? id.substr(2) : id;
}

}  // namespace

PciNames::PciNames(std::string_view database) {
    std::string vendorId;
    while (!database.empty()) {
        const std::size_t end = std::min(database.find('\n'), database.size());
        std::string_view line = database.substr(0, end);
        database.remove_prefix(std::min(end + 1, database.size()));
        const bool ofDevice = !line.empty() && line.front() == '\t';
        if (ofDevice) line.remove_prefix(1);
        if (!isEntry(line)) {
            // Classes follow the vendors, with entries of the same form beneath them.
            if (!line.empty() && line.substr(0, 2) == "C ") break;
            continue;
        }
        std::string id(line.substr(0, idLength));
        if (ofDevice) {
            id.insert(0, vendorId + ':');
        } else {
            vendorId = id;
        }
        names_.emplace(std::move(id), line.substr(nameOffset));
    }
}

std::string PciNames::vendor(const std::string& vendorId) const {
    const auto found = names_.find(withoutPrefix(vendorId));
    return found == names_.end() ? vendorId : found->second;
}

std::string PciNames::device(const std::string& vendorId, const std::string& deviceId) const {
    const auto found = names_.find(withoutPrefix(vendorId) + ':' + withoutPrefix(deviceId));
    return found == names_.end() ? deviceId : found->second;
}

std::string pciIdDatabase() {
    for (const char* path : {"/usr/share/misc/pci.ids", "/usr/share/hwdata/pci.ids"}) {
        std::string text = fileText(path);
        if (!text.empty()) return text;
    }
    return {};
}

}  // namespace tav::sim
