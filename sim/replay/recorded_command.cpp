/// A host command of a captured host, under whichever name it is called: prints what the host's own
/// printed for the same words, and ends as it did. It hangs where that did.
#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>

#include <unistd.h>

#include "sim/Hang.h"
#include "sim/hostcmds/Files.h"
#include "sim/replay/Conversation.h"
#include "sim/replay/Unpacking.h"

namespace {

constexpr int notFound = 127;
const std::string commands = std::string(tav::sim::recordedDirectory) + "commands/";

/// The words without the directory that the command stands in: "mdadm --detail-platform".
std::string withoutDirectory(const std::string& command) {
    const std::size_t slash = command.substr(0, command.find(' ')).rfind('/');
    return slash == std::string::npos ? command : command.substr(slash + 1);
}

int answer(const std::string& wanted) {
    std::istringstream index(tav::sim::fileText(commands + "index"));
    for (std::string line; std::getline(index, line);) {
        std::istringstream words(line);
        std::string number, status, command;
        words >> number >> status >> std::ws;
        std::getline(words, command);
        if (withoutDirectory(command) != wanted) continue;
        std::cout << tav::sim::fileText(commands +
                                        std::filesystem::path(number).filename().string())
                  << std::flush;
        while (status == "hangs")
            ::pause();
        return static_cast<int>(std::strtol(status.c_str(), nullptr, 10));
    }
    tav::sim::noteUnrecorded(wanted);
    return notFound;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string name = std::filesystem::path(argv[0]).filename();
    tav::sim::hangWhileTold(name);
    if (tav::sim::isToldToFail(name)) return 1;
    std::string words = name;
    for (int i = 1; i < argc; ++i)
        words.append(" ").append(argv[i]);
    return answer(words);
}
