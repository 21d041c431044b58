#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace tav::sim {

/// Where, inside a private root, stands what was recorded of a host.
inline constexpr const char* recordedDirectory = "/run/sim/recorded/";

/// Writes a capture's files under `root`, which stands for the root of a file system, so that the
/// simulation is the host that was captured. Throws std::runtime_error, which says why, when it is
/// no capture of a version that is known, or not well made; nothing has been written then. A file
/// that could not be read on the host cannot be read here either.
void unpackCapture(std::string_view compressed, const std::filesystem::path& root);

}  // namespace tav::sim
