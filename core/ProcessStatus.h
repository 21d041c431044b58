#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include <sys/types.h>

#include "base/Export.h"

namespace tav {

/// What the kernel tells of a process (/proc/PID/stat).
struct ProcessStatus {
    double cpuSeconds = 0;
    std::uint64_t residentBytes = 0;
    std::uint64_t virtualBytes = 0;
    std::uint64_t threads = 0;
    std::uint64_t startTicks = 0;  ///< since the boot; tells it from another one of its number
};

/// None when there is no such process, or it may not be looked at.
TAV_API std::optional<ProcessStatus> processStatus(pid_t process);

/// What a line of that file tells; none for what is no such line.
TAV_API std::optional<ProcessStatus> parseProcessStatus(std::string_view line);

}  // namespace tav
