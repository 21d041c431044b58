#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tools/Command.h"

namespace tav::ctl {

/// Whether a service reads requests. errno tells why not.
bool serviceRuns();

/// Whether that tells of this process, and nothing of the service: it may open no more files.
bool lacksDescriptors(int error);

/// Hands one request to the service and waits for its answer. `command` begins what is told on the
/// standard error when that fails, also why the service has refused. Done when the service has
/// answered with success, Failed when it has answered otherwise, NoService, NoAnswer, NotAllowed,
/// or Interrupted and the signal's number.
ExitStatus askService(std::string_view command, std::uint16_t messageCode,
                      const std::string& payload);

}  // namespace tav::ctl
