#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

namespace tav {

/// What the kernel tells of one of its devices by itself. The texts are those of the message.
struct Uevent {
    std::string_view action;      ///< "add", "remove", "change", "bind", ...
    std::string_view devicePath;  ///< below /sys: "/devices/pci0000:00/0000:00:1f.2/ata1/host0"
    std::string_view subsystem;   ///< "scsi", "block", "pci", ...
};

/// Decodes the kernel's message: texts that a NUL ends, "ACTION@PATH" first, then "NAME=VALUE" in
/// any order. Of a name that stands there twice the first that is not empty counts. Absent without
/// an action or a subsystem, and for what a program sends, which begins otherwise.
std::optional<Uevent> parseUevent(std::span<const std::byte> message);

}  // namespace tav
