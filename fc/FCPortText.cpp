#include "fc/FCPortText.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "hwlib/pci/PciAddress.h"

namespace tav {
namespace {

struct PortState {
    std::string_view text;
    TAV_RESOURCE_STATE state;
    TAV_RESOURCE_HEALTH health;
};

constexpr std::array portStates = {
    PortState{"Online", TAV_STATE_ONLINE, TAV_HEALTH_OK},
    PortState{"Offline", TAV_STATE_OFFLINE, TAV_HEALTH_WARNING},
    PortState{"Diagnostic Mode", TAV_STATE_DIAGNOSTIC_MODE, TAV_HEALTH_WARNING},
    PortState{"Linkdown", TAV_STATE_LINKDOWN, TAV_HEALTH_CRITICAL},
    PortState{"Loopback", TAV_STATE_LOOPBACK, TAV_HEALTH_WARNING},
    PortState{"Bypassed", TAV_STATE_BYPASSED, TAV_HEALTH_WARNING},
    PortState{"Error", TAV_STATE_ERROR, TAV_HEALTH_CRITICAL},
};

constexpr std::string_view hexadecimalDigits = "0123456789abcdefABCDEF";
constexpr std::size_t nameDigits = 16;

}  // namespace

TAV_RESOURCE_STATE parsePortState(std::string_view text) {
    const auto* const row =
        std::find_if(portStates.begin(), portStates.end(),
                     [&](const PortState& known) { return known.text == text; });
    return row == portStates.end() ? TAV_STATE_UNKNOWN : row->state;
}

TAV_RESOURCE_HEALTH healthOfPort(TAV_RESOURCE_STATE state) {
    const auto* const row =
        std::find_if(portStates.begin(), portStates.end(),
                     [&](const PortState& known) { return known.state == state; });
    return row == portStates.end() ? TAV_HEALTH_UNKNOWN : row->health;
}

std::optional<std::string> parseWorldWideName(std::string_view text) {
    if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
    const std::size_t length = std::min(text.find_first_not_of(hexadecimalDigits), text.size());
    const bool endsThere = text.find_first_not_of(" \t\n", length) == std::string_view::npos;
    if (length == 0 || length > nameDigits || !endsThere) return std::nullopt;
    std::string name;
    for (std::size_t digit = 0; digit < length; ++digit) {
        if (digit != 0 && digit % 2 == 0) name += ':';
        name += text[digit];
    }
    return name;
}

std::optional<int> parseHostName(std::string_view name) {
    constexpr std::string_view prefix = "host";
    if (!name.starts_with(prefix)) return std::nullopt;
    name.remove_prefix(prefix.size());
    int number = 0;
    const auto scanned = std::from_chars(name.data(), name.data() + name.size(), number);
    const bool whole = scanned.ec == std::errc() && scanned.ptr == name.data() + name.size();
    return whole && number >= 0 ? std::optional(number) : std::nullopt;
}

std::string lastPciFunction(std::string_view target) {
    while (!target.empty()) {
        const std::size_t slash = target.rfind('/');
        const std::string_view component = target.substr(slash + 1);  // npos + 1 is 0
        if (parsePciAddress(component)) return std::string(component);
        target = target.substr(0, slash == std::string_view::npos ? 0 : slash);
    }
    return {};
}

std::optional<std::string> interfaceInTarget(std::string_view target) {
    constexpr std::string_view directory = "/net/";
    const std::size_t found = target.find(directory);
    if (found == std::string_view::npos) return std::nullopt;
    const std::string_view below = target.substr(found + directory.size());
    return std::string(below.substr(0, below.find_first_of("./")));
}

}  // namespace tav
