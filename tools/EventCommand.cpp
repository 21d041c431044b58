#include <charconv>
#include <iostream>
#include <optional>
#include <string>
#include <system_error>

#include "collector/tavServer.h"
#include "rmc/tavMsgInfra.h"
#include "tools/Command.h"
#include "tools/CommandLine.h"
#include "tools/LocationCode.h"
#include "tools/ServiceClient.h"

namespace tav::ctl {
namespace {

constexpr std::string_view help =
    R"(Asks the running service for a test event, which the management controller
then receives with the source "TAV-CLI". ID is one of

  708                           the system: which managers are enabled and work
  356 359 360 434 435           the host
  678 680                       Ethernet
  397 398 538 539 540 681 683   storage

  --location CODE  the location that an Ethernet or storage event carries
                   (16 hexadecimal digits; see tavctl location --help)

Until the service has tried to send its first inventory, only the host's events
reach the controller; the others are dropped.

Exit status: 0 the controller has taken the event, 1 it has not (the reason is
told), 2 wrong usage, 3 no service runs, 4 it has not answered, 5 not allowed,
130 interrupted.
)";

struct Wish {
    int id = 0;
    std::string location;
};

std::optional<int> parseId(std::string_view text) {
    int id = 0;
    const auto [next, error] = std::from_chars(text.data(), text.data() + text.size(), id);
    if (error != std::errc{} || next != text.data() + text.size()) return std::nullopt;
    return getEventType(id) < 0 ? std::nullopt : std::optional(id);
}

/// What is asked for; none when it cannot be understood, which has been told then.
std::optional<Wish> parse(Arguments arguments) {
    const auto line = sortArguments("event", arguments, {"--location"});
    if (!line) return std::nullopt;
    if (line->words.size() != 1) {
        std::cerr << "tavctl event: exactly one ID is needed; see tavctl event --help\n";
        return std::nullopt;
    }
    const std::optional<int> id = parseId(line->words[0]);
    if (!id) {
        std::cerr << "tavctl event: '" << line->words[0]
                  << "' is no ID of a test event; see tavctl event --help\n";
        return std::nullopt;
    }
    const auto location = line->options.find("--location");
    if (location == line->options.end()) return Wish{*id, {}};
    if (!parseLocationCode(location->second)) {
        std::cerr << "tavctl event: " << notALocationCode(location->second) << '\n';
        return std::nullopt;
    }
    return Wish{*id, location->second};
}

ExitStatus run(Arguments arguments) {
    const std::optional<Wish> wish = parse(arguments);
    if (!wish) return Misused;
    const std::string suffix = wish->location.empty() ? "" : ' ' + wish->location;
    const ExitStatus status =
        askService("event", TAV_TEST_EVENT_REQUEST, std::to_string(wish->id) + suffix);
    if (status == Done) std::cout << "The controller has taken event " << wish->id << ".\n";
    return status;
}

}  // namespace

const Command eventCommand{"event", "ID [--location CODE]", "have the service raise a test event",
                           help, run};

}  // namespace tav::ctl
