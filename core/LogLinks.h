#pragma once

#include <string_view>

#include "core/Logger.h"

namespace tav {

/// Where an operator finds links to the live logs and to their backups.
inline constexpr const char* logLinkDirectory = "/opt/orn/tav/log";
inline constexpr const char* logBackupDirectory = "/scratch/log/orn/tav/backup_log";

/// The part of a path behind its last '/' or '\'.
std::string_view logBaseName(std::string_view path);

}  // namespace tav
