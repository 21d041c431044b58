// The command-line client: finds the subcommand that is asked for and runs it.

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iomanip>
#include <iostream>

#include "base/StandardStreams.h"
#include "tools/Command.h"

namespace tav::ctl {
namespace {

const std::array commands{&eventCommand, &sendCommand,    &statusCommand,
                          &showCommand,  &captureCommand, &locationCommand};

bool asksForHelp(std::string_view argument) {
    return argument == "--help" || argument == "-h";
}

void printUsage(std::ostream& out) {
    out << "Usage: tavctl COMMAND [ARGUMENT]...\n\nCommands:\n";
    for (const Command* const command : commands) {
        out << "  " << std::left << std::setw(12) << command->name << command->summary << '\n';
    }
    out << "\n  tavctl COMMAND --help   explains a command\n"
           "  tavctl --version        prints the version\n";
}

ExitStatus printHelp(const Command& command) {
    std::cout << "Usage: tavctl " << command.name << ' ' << command.synopsis << "\n\n"
              << command.help;
    return Done;
}

ExitStatus run(Arguments arguments) {
    if (arguments.empty()) {
        printUsage(std::cerr);
        return Misused;
    }
    const std::string_view name = arguments.front();
    if (asksForHelp(name)) {
        printUsage(std::cout);
        return Done;
    }
    if (name == "--version") {
        std::cout << "tavctl " TAV_VERSION "\n";
        return Done;
    }
    const auto found = std::find_if(commands.begin(), commands.end(),
                                    [&](const Command* command) { return command->name == name; });
    if (found == commands.end()) {
        std::cerr << "tavctl: no command '" << name << "'; see tavctl --help\n";
        return Misused;
    }
    const Arguments rest = arguments.subspan(1);
    if (std::any_of(rest.begin(), rest.end(), asksForHelp)) return printHelp(**found);
    return (*found)->run(rest);
}

}  // namespace
}  // namespace tav::ctl

int main(int argc, char** argv) {
    using namespace tav::ctl;
    tav::secureStandardStreams();
    const ExitStatus status = run(argc > 1 ? Arguments(argv + 1, argv + argc) : Arguments());
    if (!std::cout.flush()) {
        std::cerr << "tavctl: cannot write the result: " << std::strerror(errno) << '\n';
        return Failed;
    }
    return status;
}
