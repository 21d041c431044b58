#pragma once

#include <span>
#include <string_view>

namespace tav::ctl {

/// What the client ends with.
enum ExitStatus : int {
    Done = 0,
    Failed = 1,         ///< The request was understood and could not be fulfilled.
    Misused = 2,        ///< The command line does not say what to do.
    NoService = 3,      ///< No service takes requests on this host.
    NoAnswer = 4,       ///< The service has not answered in time.
    NotAllowed = 5,     ///< The caller lacks the right to ask the service.
    Interrupted = 128,  ///< By a signal, whose number is added.
};

using Arguments = std::span<const char* const>;

/// One subcommand. Writes its result to standard output, and why it failed to standard error.
struct Command {
    std::string_view name;
    std::string_view synopsis;  ///< Arguments after the name.
    std::string_view summary;   ///< One line without a full stop.
    std::string_view help;      ///< Printed after the synopsis; ends with a newline.
    ExitStatus (*run)(Arguments arguments);
};

extern const Command captureCommand;
extern const Command eventCommand;
extern const Command locationCommand;
extern const Command sendCommand;
extern const Command showCommand;
extern const Command statusCommand;

}  // namespace tav::ctl
