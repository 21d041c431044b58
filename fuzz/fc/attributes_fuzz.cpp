#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "base/JsonText.h"
#include "fc/FCEvents.h"
#include "fc/FCPortText.h"
#include "fc/FCRecords.h"
#include "hwlib/pci/PciAddress.h"

namespace {

void require(bool isSo) {
    if (!isSo) std::abort();
}

/// Pairs of digits with colons between them, at most eight.
bool isWorldWideName(const std::string& name) {
    for (std::size_t at = 0; at < name.size(); ++at) {
        if ((name[at] == ':') != (at % 3 == 2)) return false;
    }
    return !name.empty() && name.size() <= 23 && name.back() != ':';
}

}  // namespace

/// What an adapter's attributes and links say may be anything.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const TAV_RESOURCE_STATE state = tav::parsePortState(text);
    require((state == TAV_STATE_UNKNOWN) == (tav::healthOfPort(state) == TAV_HEALTH_UNKNOWN));
    if (const auto name = tav::parseWorldWideName(text)) require(isWorldWideName(*name));
    if (const auto number = tav::parseHostName(text)) require(*number >= 0);
    if (const auto interface = tav::interfaceInTarget(text)) {
        require(interface->find('/') == std::string::npos);
    }
    const std::string function = tav::lastPciFunction(text);
    require(function.empty() || bool(tav::parsePciAddress(function)));

    tavFCDeviceInfo port;
    port.settavFCSerialNumber(std::string(text));
    port.settavFCWWNN(std::string(text.substr(0, size / 2)));
    port.settavFCWWPN(std::string(text.substr(size / 2)));
    tav::findPreviousFcPort(port, {port}, {port});
    for (const char c : tav::compactJson(tav::renderFcInventory(port)))
        require(c >= ' ' && c <= '\x7f');
    return 0;
}
