#pragma once

#include <cstddef>

#include <sys/types.h>

#include "core/LogFile.h"

namespace tav {

/// A log of this many bytes is moved away.
inline constexpr off_t rotationSize = 500'000'000;
/// So many backups of a log stay; the oldest make room.
inline constexpr std::size_t backupLimit = 10;

/// Copies the open log into the backup directory and starts it anew when it has reached
/// rotationSize. When the copy fails, the log goes on as it is and nothing is left of the backup.
/// Under the log lock, so that no line is lost. True when the log was started anew.
bool rotateWhenFull(LogFile& log);

}  // namespace tav
