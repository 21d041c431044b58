#include "service/Options.h"

#include <array>
#include <iostream>
#include <string_view>

#include <getopt.h>

namespace tavd {

const char* const helpText =
    R"(tavd - reports this host's inventory and events to the rack's management controller

Usage: tavd [OPTION]

Without an option, runs in the foreground until SIGTERM or SIGINT asks it to stop.
SIGHUP looks at once, not within the minute, whether a log has to be moved to the backups.

  --fibre-channel      watch the Fibre Channel ports too, and report their events
  --generic-storage    also report storage through the kernel, for hosts without a vendor library;
                       NVMe drives too, where the configuration enables NVMeControllers
  --generic-storage=any
                       the same, of whatever controllers there are and not of those we know alone
  --metrics-file FILE  keep metrics for Prometheus there (for the node exporter's textfile
                       collector: a name that ends in .prom in its directory)
  --print              build the inventory once, print it, send nothing, and end
  --check-config FILE  say for each setting in FILE what is accepted and what is replaced
  --help               this text
  --version            the version

Configuration: /etc/config/orn/tav/tav.conf (see --check-config)

Exit status:
  0    done, or stopped as asked
  1    a thread could not be started; with --print: there is no inventory; or the result
       could not be written
  2    the command line is wrong
  3    --check-config: the file cannot be used, or something in it was replaced or ignored
  4    another tavd is running
  5    not run by root
  130  --print was interrupted (128 and the signal's number)
  245  the debug log's directory cannot be created (the system log says why)
  246  the main log's directory cannot be created (the system log says why)
)";

namespace {

Options only(Task task) {
    Options options;
    options.task = task;
    return options;
}

}  // namespace

Options parseOptions(int argc, char** argv) {
    constexpr std::array<option, 8> longOptions = {
        {{"fibre-channel", no_argument, nullptr, 'f'},
         {"generic-storage", optional_argument, nullptr, 'g'},
         {"metrics-file", required_argument, nullptr, 'm'},
         {"print", no_argument, nullptr, 'p'},
         {"check-config", required_argument, nullptr, 'c'},
         {"help", no_argument, nullptr, 'h'},
         {"version", no_argument, nullptr, 'v'},
         {nullptr, 0, nullptr, 0}}};
    const auto refuse = [argv](const char* why) {
        std::cerr << "tavd: option '" << argv[::optind - 1] << "' " << why << "; see tavd --help\n";
        return only(Task::Refuse);
    };
    Options options;
    ::opterr = 0;  // its own words name no way out
    int letter = 0;
    while ((letter = ::getopt_long(argc, argv, ":h", longOptions.data(), nullptr)) != -1) {
        switch (letter) {
            case 'f':
                options.fibreChannel = true;
                break;
            case 'g':
                options.genericStorage = tav::GenericStorage::KnownControllers;
                if (::optarg == nullptr) break;
                if (std::string_view(::optarg) != "any") {
                    std::cerr << "tavd: --generic-storage takes 'any' or nothing, not '" << ::optarg
                              << "'; see tavd --help\n";
                    return only(Task::Refuse);
                }
                options.genericStorage = tav::GenericStorage::AnyController;
                break;
            case 'm':
                options.metricsFile = ::optarg;
                if (options.metricsFile.starts_with('/')) break;
                std::cerr << "tavd: --metrics-file takes an absolute path, not '" << ::optarg
                          << "'; see tavd --help\n";
                return only(Task::Refuse);
            case 'p':
                options.task = Task::Print;
                break;
            case 'c':
                options.task = Task::CheckConfig;
                options.file = ::optarg;
                break;
            case 'h':
                return only(Task::Help);
            case 'v':
                return only(Task::Version);
            case ':':
                return refuse("requires an argument");
            default:
                return refuse("is unknown, or takes no argument");
        }
    }
    if (::optind < argc) {
        std::cerr << "tavd: unexpected argument '" << argv[::optind] << "'; see tavd --help\n";
        return only(Task::Refuse);
    }
    return options;
}

}  // namespace tavd
