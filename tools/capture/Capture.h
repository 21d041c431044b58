#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tav::capture {

/// How many devices are asked side by side: as many as the storage manager asks.
inline constexpr std::size_t mostAskedAtATime = 24;

struct Wishes {
    bool keepIdentities = false;
    /// What has not been told by then is left out.
    std::chrono::seconds patience{40};
};

struct Captured {
    std::string archive;               ///< compressed
    std::vector<std::string> lacking;  ///< what could not be taken, and why
};

/// Takes this host's facts: everything that the managers read here, asked side by side, so that
/// nothing that hangs keeps the others waiting. None, without memory for it. What hangs is left
/// behind: the process may take as long to end as the device takes.
std::optional<Captured> captureHost(const Wishes& wishes);

}  // namespace tav::capture
