/// vmksummary: prints the hypervisor's summary log for this machine: when it was booted last, and
/// the boots and shutdowns before that, as far as the login records know them.
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include <utmpx.h>

#include "sim/hostcmds/Files.h"
#include "sim/hostcmds/HostCommands.h"

namespace {

using tav::sim::SummaryLine;

constexpr const char* booted = "Host has booted";
constexpr const char* rebooting = "Host is rebooting";
constexpr const char* loginRecords = "/var/log/wtmp";

/// The login records note a boot up to so many seconds after the kernel's.
constexpr long sameBoot = 300;

long kernelBoot() {
    return std::strtol(tav::sim::valueOf(tav::sim::fileText("/proc/stat"), "btime", ' ').c_str(),
                       nullptr, 10);
}

std::vector<SummaryLine> recordedBefore(long currentBoot) {
    std::vector<SummaryLine> lines;
    ::utmpxname(loginRecords);
    ::setutxent();
    while (const utmpx* record = ::getutxent()) {
        const long time = record->ut_tv.tv_sec;
        const bool isShutdown =
            record->ut_type == RUN_LVL &&
            std::strncmp(record->ut_user, "shutdown", sizeof record->ut_user) == 0;
        if (record->ut_type == BOOT_TIME && time < currentBoot - sameBoot) {
            lines.push_back({time, booted});
        } else if (isShutdown && time < currentBoot) {
            lines.push_back({time, rebooting});
        }
    }
    ::endutxent();
    return lines;
}

}  // namespace

int main() {
    const long boot = kernelBoot();
    if (boot <= 0) {
        std::cerr << "vmksummary: /proc/stat does not tell the time of the boot\n";
        return 1;
    }
    std::vector<SummaryLine> lines = recordedBefore(boot);
    lines.push_back({boot, booted});
    std::cout << tav::sim::summaryLog(std::move(lines)) << std::flush;
    return std::cout.good() ? 0 : 1;
}
