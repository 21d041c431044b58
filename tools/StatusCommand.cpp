#include <array>
#include <iomanip>
#include <iostream>

#include <unistd.h>

#include "rmc/tavMsgInfra.h"
#include "tools/Command.h"
#include "tools/ServiceClient.h"

namespace tav::ctl {
namespace {

constexpr std::string_view help =
    R"(Tells whether a service takes requests on this host, and whether it has what it
needs: the IPMI device that leads to the management controller (made by the
service when it first sends something) and a configuration file (without one the
built-in defaults apply).

Exit status: 0 the service runs, 2 wrong usage, 3 it does not run.
)";

struct Need {
    const char* name;
    const char* path;
};
constexpr std::array needs = {
    Need{"device", "/dev/ipmi0"},
    Need{"configuration", "/etc/config/orn/tav/tav.conf"},
};

void tell(const char* name, const std::string& what) {
    std::cout << std::left << std::setw(15) << name << what << '\n';
}

ExitStatus run(Arguments arguments) {
    if (!arguments.empty()) {
        std::cerr << "tavctl status: there is nothing to be added; see tavctl status --help\n";
        return Misused;
    }
    const bool runs = serviceRuns();
    tell("service", runs ? std::string("runs; takes requests on ") + tavRequestPipe
                         : std::string("does not run, or may not be asked by you"));
    for (const Need& need : needs) {
        const bool isThere = ::access(need.path, F_OK) == 0;
        tell(need.name, need.path + std::string(isThere ? "" : " is missing"));
    }
    return runs ? Done : NoService;
}

}  // namespace

const Command statusCommand{"status", "", "tell whether the service runs", help, run};

}  // namespace tav::ctl
