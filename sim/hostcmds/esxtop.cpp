/// esxtop: the hypervisor's performance monitor in batch mode, with the counters that a plain Linux
/// machine has. The counter configuration file (-c) is accepted and not read: all counters are
/// printed always.
#include <cstring>
#include <ctime>
#include <iostream>
#include <string>

#include <unistd.h>

#include <sys/utsname.h>

#include "sim/Hang.h"
#include "sim/hostcmds/Files.h"
#include "sim/hostcmds/HostCommands.h"

namespace {

std::string now() {
    const std::time_t moment = std::time(nullptr);
    std::tm local{};
    char text[32];
    ::localtime_r(&moment, &local);
    std::strftime(text, sizeof text, "%m/%d/%Y %H:%M:%S", &local);
    return text;
}

/// Whether one batch sample is wanted, which is all there is.
bool wantsOneSample(int argc, char** argv) {
    bool batch = false;
    bool once = false;
    int option = 0;
    while ((option = ::getopt(argc, argv, "bc:n:")) != -1) {
        batch = batch || option == 'b';
        once = once || (option == 'n' && std::strcmp(optarg, "1") == 0);
        if (option == '?') return false;
    }
    return batch && once && optind == argc;
}

}  // namespace

int main(int argc, char** argv) {
    tav::sim::hangWhileTold("esxtop");
    if (tav::sim::isToldToFail("esxtop")) return 1;
    if (!wantsOneSample(argc, argv)) {
        std::cerr << "usage: esxtop [-c FILE] -b -n 1\n";
        return 1;
    }
    utsname system{};
    ::uname(&system);
    std::cout << tav::sim::memorySample(system.nodename, now(), tav::sim::fileText("/proc/meminfo"))
              << std::flush;
    return std::cout.good() ? 0 : 1;
}
