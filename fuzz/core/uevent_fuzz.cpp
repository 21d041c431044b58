#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>

#include "core/Uevent.h"

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

/// The first value of that name that is not empty, told in another way.
std::string_view valueOf(std::string_view message, std::string_view name) {
    const std::string wanted = std::string(1, '\0') + std::string(name) + '=';
    for (std::size_t at = 0; (at = message.find(wanted, at)) != std::string_view::npos; ++at) {
        const std::string_view rest = message.substr(at + wanted.size());
        const std::string_view value = rest.substr(0, rest.find('\0'));
        if (!value.empty()) return value;
    }
    return {};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view message(reinterpret_cast<const char*>(data), size);
    const auto event = tav::parseUevent(std::as_bytes(std::span(data, size)));
    const std::string_view action = valueOf(message, "ACTION");
    const std::string_view subsystem = valueOf(message, "SUBSYSTEM");
    const bool isKernels =
        message.substr(0, message.find('\0')).find('@') != std::string_view::npos;
    require(event.has_value() == (isKernels && !action.empty() && !subsystem.empty()));
    if (!event) return 0;
    require(event->action == action && event->subsystem == subsystem);
    require(event->devicePath == valueOf(message, "DEVPATH"));
    return 0;
}
