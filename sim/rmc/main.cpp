/// tav-sim-rmc: the simulated management controller, as a process of its own.
#include <cerrno>
#include <charconv>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include <getopt.h>

#include "sim/rmc/RmcServer.h"

namespace {

using tav::sim::ServerEnd;

constexpr const char* usage =
    "tav-sim-rmc --socket PATH [OPTION]...\n"
    "Simulated management controller: takes what a machine reports, checks every byte of it,\n"
    "and shows it.\n\n"
    "  --socket PATH            listen for machines on this Unix socket\n"
    "  --control PATH           listen for orders (as --inject, one a line) on this Unix socket\n"
    "  --record FILE            write each finished or refused command, each order, each that\n"
    "                           has struck, each door bell answered with a text, each note and\n"
    "                           each violation as a JSON line, with its simulated time\n"
    "  --until COMMAND[=COUNT]  end after this command has come so often; may be repeated\n"
    "  --timeout SECONDS        end with status 1 when that has not happened in this time\n"
    "  --inject ORDER           fail as ordered; may be repeated. An order is a list of\n"
    "                             status=S exit=E code=C truncate=BYTES late=MS lost\n"
    "                             command=NAME request=NETFN/COMMAND nth=N|all frame=N|last\n"
    "                           joined by commas, or withdraw=ORDER, or doorbell=TEXT,\n"
    "                           or, while it runs, note=OBJECT: a line for the record\n"
    "  --quiet                  show violations only\n"
    "  --help\n\n"
    "Exit status: 0 as expected, 1 violations, time-out or failure, 2 wrong usage.\n";

constexpr int succeeded = 0;
constexpr int failed = 1;
constexpr int misused = 2;

struct Awaited {
    std::string command;
    unsigned count = 1;
};

struct Options {
    std::string socket;
    std::string control;
    std::string record;
    std::vector<Awaited> until;
    std::vector<std::string> inject;
    std::optional<std::chrono::seconds> timeout;
    bool quiet = false;
    bool help = false;
};

std::optional<unsigned> positive(const std::string& text) {
    unsigned number = 0;
    const char* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{} || stopped != end || number == 0) return std::nullopt;
    return number;
}

std::optional<Awaited> parseAwaited(const std::string& text) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos) return Awaited{text, 1};
    const auto count = positive(text.substr(equals + 1));
    if (!count) return std::nullopt;
    return Awaited{text.substr(0, equals), *count};
}

/// False when the option's value makes no sense.
bool takeOption(int option, const std::string& value, Options& options) {
    switch (option) {
        case 's':
            options.socket = value;
            return true;
        case 'c':
            options.control = value;
            return true;
        case 'r':
            options.record = value;
            return true;
        case 'i':
            options.inject.push_back(value);
            return true;
        case 'q':
            return options.quiet = true;
        case 'h':
            return options.help = true;
        case 'u':
            if (const auto awaited = parseAwaited(value)) {
                options.until.push_back(*awaited);
                return true;
            }
            return false;
        case 't':
            if (const auto seconds = positive(value)) {
                options.timeout = std::chrono::seconds(*seconds);
                return true;
            }
            return false;
        default:
            return false;
    }
}

std::optional<Options> parseOptions(int argc, char** argv) {
    constexpr option known[] = {{"socket", required_argument, nullptr, 's'},
                                {"control", required_argument, nullptr, 'c'},
                                {"record", required_argument, nullptr, 'r'},
                                {"until", required_argument, nullptr, 'u'},
                                {"timeout", required_argument, nullptr, 't'},
                                {"inject", required_argument, nullptr, 'i'},
                                {"quiet", no_argument, nullptr, 'q'},
                                {"help", no_argument, nullptr, 'h'},
                                {}};
    Options options;
    int found = 0;
    while ((found = ::getopt_long(argc, argv, "", known, nullptr)) != -1) {
        if (!takeOption(found, optarg == nullptr ? "" : optarg, options)) return std::nullopt;
    }
    if (optind != argc || (options.socket.empty() && !options.help)) return std::nullopt;
    return options;
}

int complain(const std::string& what) {
    std::cerr << "tav-sim-rmc: " << what << '\n';
    return failed;
}

int serve(const Options& options) {
    tav::sim::Controller controller;
    for (const std::string& order : options.inject) {
        const std::string fault = controller.injections().add(order);
        if (!fault.empty()) {
            complain("--inject: " + fault);
            return misused;
        }
    }
    tav::sim::Reporter reporter(options.record, options.quiet);
    if (!reporter.recordIsSound()) {
        return complain(options.record + ": " + std::strerror(errno));
    }
    for (const std::string& order : options.inject) {
        Json::Value line;
        line["order"] = order;
        reporter.note(line);
    }
    tav::sim::RmcServer server(controller, reporter);
    if (!server.serveMachines(options.socket)) {
        return complain(options.socket + ": " + std::strerror(errno));
    }
    if (!options.control.empty() && !server.serveOrders(options.control)) {
        return complain(options.control + ": " + std::strerror(errno));
    }
    for (const Awaited& awaited : options.until)
        server.endAfter(awaited.command, awaited.count);

    const ServerEnd end = server.run(options.timeout);
    if (end == ServerEnd::TimedOut) return complain("what was waited for has not come");
    if (end == ServerEnd::Failed) return complain(std::string("poll: ") + std::strerror(errno));
    if (!reporter.recordIsSound()) return complain(options.record + ": the record is incomplete");
    return reporter.violations() == 0 ? succeeded : failed;
}

}  // namespace

int main(int argc, char** argv) {
    const auto options = parseOptions(argc, argv);
    if (!options) {
        std::cerr << usage;
        return misused;
    }
    if (options->help) {
        std::cout << usage;
        return succeeded;
    }
    return serve(*options);
}
