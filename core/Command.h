#pragma once

#include <cstddef>
#include <string>

namespace tav {

/// What became of a host command.
struct CommandResult {
    bool finished = false;  ///< it was started and ended by itself
    int exitStatus = -1;    ///< of a finished command; -1 when it was ended by a signal
    std::string output;     ///< what it printed on its standard output

    bool succeeded() const { return finished && exitStatus == 0; }
};

/// Output beyond this ends a command: no command of ours prints that much.
inline constexpr std::size_t commandOutputLimit = 256U << 10U;

/// Runs `command` through the shell, with nothing on its standard input, and collects its standard
/// output. The command and all that it started are killed, and the result is not finished, when the
/// calling thread's stop signal is set, when it prints more than commandOutputLimit, or after five
/// minutes; one that hangs in the kernel then is left behind after half a second. Files that it
/// writes cannot grow beyond 64 MiB. It works whatever the process does with SIGCHLD, its standard
/// streams and its other descriptors, none of which the command inherits. Any thread.
CommandResult runShell(const std::string& command);

}  // namespace tav
