#pragma once

#include <optional>
#include <string>

#include "storage/kernel/tavStorageControllerFactory.h"

namespace tavd {

/// What the process was started for.
enum class Task { Serve, Help, Version, CheckConfig, Print, Refuse };

struct Options {
    Task task = Task::Serve;
    std::string file;           ///< for Task::CheckConfig
    bool fibreChannel = false;  ///< for Task::Serve: run the Fibre Channel manager too
    std::string metricsFile;    ///< for Task::Serve: keep metrics there; empty: nowhere
    /// Also report controllers that the kernel alone knows.
    std::optional<tav::GenericStorage> genericStorage;
};

/// Reads the command line; what is wrong with it has been told on the standard error then.
Options parseOptions(int argc, char** argv);

extern const char* const helpText;

}  // namespace tavd
