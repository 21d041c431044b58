#include <charconv>
#include <iostream>
#include <optional>
#include <string>
#include <system_error>

#include "collector/tavServer.h"
#include "rmc/tavMsgInfra.h"
#include "tools/Command.h"
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

Exit status: 0 the service has raised the event, 2 wrong usage, 3 no service
runs, 4 it has not answered.
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
    const bool hasLocation =
        arguments.size() == 3 && std::string_view(arguments[1]) == "--location";
    if (arguments.size() != 1 && !hasLocation) {
        std::cerr << "tavctl event: exactly one ID is needed; see tavctl event --help\n";
        return std::nullopt;
    }
    const std::optional<int> id = parseId(arguments[0]);
    if (!id) {
        std::cerr << "tavctl event: '" << arguments[0]
                  << "' is no ID of a test event; see tavctl event --help\n";
        return std::nullopt;
    }
    if (!hasLocation) return Wish{*id, {}};
    if (!parseLocationCode(arguments[2])) {
        std::cerr << "tavctl event: " << notALocationCode(arguments[2]) << '\n';
        return std::nullopt;
    }
    return Wish{*id, arguments[2]};
}

ExitStatus run(Arguments arguments) {
    const std::optional<Wish> wish = parse(arguments);
    if (!wish) return Misused;
    const std::string suffix = wish->location.empty() ? "" : ' ' + wish->location;
    const ExitStatus status =
        askService("event", TAV_TEST_EVENT_REQUEST, std::to_string(wish->id) + suffix);
    if (status == Done) std::cout << "The service has raised event " << wish->id << ".\n";
    return status;
}

}  // namespace

const Command eventCommand{"event", "ID [--location CODE]", "have the service raise a test event",
                           help, run};

}  // namespace tav::ctl
