/// localcli: the hypervisor's management shell, as far as it is asked, for a plain Linux machine.
#include <array>
#include <iostream>
#include <string>
#include <string_view>

#include <sys/utsname.h>

#include "sim/hostcmds/Files.h"
#include "sim/hostcmds/HostCommands.h"

namespace {

using namespace tav::sim;

std::string version() {
    utsname system{};
    ::uname(&system);
    return systemVersion(fileText("/etc/os-release"), system.release);
}

std::string pciDevices() {
    return pciList(readPciFunctions(), PciNames(pciIdDatabase()));
}

std::string storageAdapters() {
    return adapterList(readScsiHosts(), readPciFunctions(), PciNames(pciIdDatabase()));
}

struct Subcommand {
    std::string_view words;
    std::string (*output)();
};

constexpr std::array subcommands = {
    Subcommand{"system version get", version},
    Subcommand{"hardware pci list", pciDevices},
    Subcommand{"storage core adapter list", storageAdapters},
};

}  // namespace

int main(int argc, char** argv) {
    std::string words;
    for (int index = 1; index < argc; ++index) {
        if (index > 1) words += ' ';
        words += argv[index];
    }
    for (const Subcommand& known : subcommands) {
        if (known.words != words) continue;
        std::cout << known.output() << std::flush;
        return std::cout.good() ? 0 : 1;
    }
    std::cerr << "localcli: unknown command: " << words << '\n';
    return 1;
}
