/// localcli: the hypervisor's management shell, as far as it is asked, for a plain Linux machine.
#include <array>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>

#include <sys/utsname.h>

#include "sim/Hang.h"
#include "sim/hostcmds/Ethernet.h"
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

std::string nics() {
    return nicList(readEthernetAdapters());
}

/// The details of one adapter; none for a name that no adapter has.
std::optional<std::string> nic(const std::string& name) {
    for (const EthernetAdapter& adapter : readEthernetAdapters()) {
        if (adapter.name == name) return nicDetails(adapter, readEthernetDetails(name));
    }
    return std::nullopt;
}

struct Subcommand {
    std::string_view words;
    std::string (*output)();
};

constexpr std::array subcommands = {
    Subcommand{"system version get", version},
    Subcommand{"hardware pci list", pciDevices},
    Subcommand{"storage core adapter list", storageAdapters},
    Subcommand{"network nic list", nics},
};
constexpr std::string_view nicGet = "network nic get -n ";

int print(const std::string& text) {
    std::cout << text << std::flush;
    return std::cout.good() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    hangWhileTold("localcli");
    if (isToldToFail("localcli")) return 1;
    std::string words;
    for (int index = 1; index < argc; ++index) {
        if (index > 1) words += ' ';
        words += argv[index];
    }
    for (const Subcommand& known : subcommands) {
        if (known.words == words) return print(known.output());
    }
    if (words.starts_with(nicGet)) {
        if (const auto details = nic(words.substr(nicGet.size()))) return print(*details);
        std::cerr << "localcli: unknown adapter: " << words.substr(nicGet.size()) << '\n';
        return 1;
    }
    std::cerr << "localcli: unknown command: " << words << '\n';
    return 1;
}
