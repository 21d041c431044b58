#include "core/Uevent.h"

#include <algorithm>
#include <array>

namespace tav {
namespace {

struct Member {
    std::string_view prefix;
    std::string_view Uevent::*value;
};
constexpr std::array members = {
    Member{"ACTION=", &Uevent::action},
    Member{"DEVPATH=", &Uevent::devicePath},
    Member{"SUBSYSTEM=", &Uevent::subsystem},
};

/// The text before the next NUL, which is taken off `rest` with it.
std::string_view takeText(std::string_view& rest) {
    const std::string_view text = rest.substr(0, rest.find('\0'));
    rest.remove_prefix(std::min(text.size() + 1, rest.size()));
    return text;
}

}  // namespace

std::optional<Uevent> parseUevent(std::span<const std::byte> message) {
    std::string_view rest(reinterpret_cast<const char*>(message.data()), message.size());
    if (takeText(rest).find('@') == std::string_view::npos) return std::nullopt;
    Uevent event;
    while (!rest.empty()) {
        const std::string_view text = takeText(rest);
        for (const Member& member : members) {
            std::string_view& value = event.*member.value;
            if (value.empty() && text.starts_with(member.prefix)) {
                value = text.substr(member.prefix.size());
            }
        }
    }
    if (event.action.empty() || event.subsystem.empty()) return std::nullopt;
    return event;
}

}  // namespace tav
