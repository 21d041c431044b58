#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>

#include "collector/ClientEvent.h"
#include "rmc/tavMsgInfra.h"
#include "tools/Command.h"
#include "tools/CommandLine.h"
#include "tools/ServiceClient.h"

namespace tav::ctl {
namespace {

constexpr std::string_view help =
    R"(Has the running service forward an event to the management controller. FILE holds
the event: one JSON object with at least two members, at most 4,078 bytes; "-"
reads it from the standard input. The service sets "Source" to "TAV-CLI".

Exit status: 0 the controller has taken it, 1 it has not (or FILE cannot be
read), 2 wrong usage or not an event, 3 no service runs, 4 it has not answered,
5 not allowed, 130 interrupted.
)";

/// The event's text, no more of it than shows that it is too long; none when it cannot be read,
/// which has been told then.
std::optional<std::string> readEvent(const std::string& path) {
    std::ifstream file;
    const bool isInput = path == "-";
    if (!isInput) file.open(path, std::ios::binary);
    std::istream& input = isInput ? std::cin : file;
    std::string text(TAV_PAYLOAD_SIZE, '\0');
    input.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (input.good() || input.eof()) {
        text.resize(static_cast<std::size_t>(input.gcount()));
        return text;
    }
    std::cerr << "tavctl send: cannot read " << path << ": " << std::strerror(errno) << '\n';
    return std::nullopt;
}

/// Why the text cannot be an event; null when it can.
const char* whyNoEvent(const std::string& text) {
    if (text.size() >= TAV_PAYLOAD_SIZE) return "is longer than 4,078 bytes";
    if (text.find('\0') != std::string::npos) return "holds a NUL";
    if (!parseClientEvent(text)) return "is not one JSON object with at least two members";
    return nullptr;
}

ExitStatus run(Arguments arguments) {
    const auto line = sortArguments("send", arguments);
    if (!line) return Misused;
    if (line->words.size() != 1) {
        std::cerr << "tavctl send: exactly one FILE is needed; see tavctl send --help\n";
        return Misused;
    }
    const std::optional<std::string> event = readEvent(line->words[0]);
    if (!event) return Failed;
    if (const char* const reason = whyNoEvent(*event); reason != nullptr) {
        std::cerr << "tavctl send: the event " << reason << '\n';
        return Misused;
    }
    constexpr std::uint16_t forwardRequest = 0;
    const ExitStatus status = askService("send", forwardRequest, *event);
    if (status == Done) std::cout << "The controller has taken the event.\n";
    return status;
}

}  // namespace

const Command sendCommand{"send", "FILE|-", "have the service forward an event", help, run};

}  // namespace tav::ctl
