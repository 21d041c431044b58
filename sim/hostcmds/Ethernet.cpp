#include "sim/hostcmds/Ethernet.h"

#include <array>
#include <cstring>
#include <filesystem>
#include <memory>

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "base/FileDescriptor.h"
#include "sim/hostcmds/Files.h"
#include "sim/hostcmds/HostCommands.h"

namespace tav::sim {
namespace {

const std::string interfaces = "/sys/class/net/";
const std::string describedAdapters = "/run/sim/ethernet/";

/// Requests about interfaces.
class InterfaceSocket {
 public:
    /// False when the kernel knows no such interface or refuses.
    bool ask(const std::string& name, unsigned long request, ifreq& answer) const {
        std::strncpy(answer.ifr_name, name.c_str(), IFNAMSIZ - 1);
        return ::ioctl(socket_.get(), request, &answer) == 0;
    }

 private:
    FileDescriptor socket_{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

std::string macText(const sockaddr& address) {
    std::array<unsigned char, 6> bytes{};
    std::memcpy(bytes.data(), address.sa_data, bytes.size());
    std::array<char, 18> text{};
    std::snprintf(text.data(), text.size(), "%02x:%02x:%02x:%02x:%02x:%02x", bytes[0], bytes[1],
                  bytes[2], bytes[3], bytes[4], bytes[5]);
    return text.data();
}

/// What the simulated server's description says, or else what this machine does.
std::string described(const std::string& facts, const char* key, const std::string& otherwise) {
    const std::string value = valueOf(facts, key, ':');
    return value.empty() ? otherwise : value;
}

/// The names of PCI devices, read when the first of them is needed.
class DeviceNames {
 public:
    std::string operator()(const std::string& pciAddress) {
        if (!names_) names_ = std::make_unique<PciNames>(pciIdDatabase());
        const std::string directory = "/sys/bus/pci/devices/" + pciAddress + '/';
        const std::string vendor = firstLine(directory + "vendor");
        return names_->vendor(vendor) + ' ' +
               names_->device(vendor, firstLine(directory + "device"));
    }

 private:
    std::unique_ptr<PciNames> names_;
};

EthernetAdapter readAdapter(const std::string& name, const std::string& pciAddress,
                            const InterfaceSocket& socket, DeviceNames& deviceNames) {
    const std::string facts = fileText(describedAdapters + name);
    EthernetAdapter adapter;
    adapter.name = name;
    adapter.pciAddress = pciAddress;
    adapter.driver = linkTarget("/sys/bus/pci/devices/" + pciAddress + "/driver");
    ifreq answer{};
    if (socket.ask(name, SIOCGIFFLAGS, answer)) {
        const auto flags = static_cast<unsigned>(answer.ifr_flags);
        adapter.isEnabled = (flags & IFF_UP) != 0;
        adapter.hasLink = adapter.isEnabled && (flags & IFF_RUNNING) != 0;
    }
    if (socket.ask(name, SIOCGIFHWADDR, answer)) adapter.macAddress = macText(answer.ifr_hwaddr);
    if (socket.ask(name, SIOCGIFMTU, answer)) adapter.mtu = std::to_string(answer.ifr_mtu);
    const std::string speed = described(facts, "Speed", firstLine(interfaces + name + "/speed"));
    adapter.speed = adapter.hasLink && !speed.empty() && speed[0] != '-' ? speed : "0";
    adapter.description = valueOf(facts, "Description", ':');
    if (adapter.description.empty()) adapter.description = deviceNames(pciAddress);
    return adapter;
}

struct Port {
    unsigned char number;
    const char* cable;
};
constexpr std::array ports = {
    Port{PORT_TP, "Twisted Pair"},
    Port{PORT_FIBRE, "FIBRE"},
    Port{PORT_DA, "Direct Attach Copper"},
};

std::string cableType(const InterfaceSocket& socket, const std::string& name) {
    ethtool_link_settings settings{};
    settings.cmd = ETHTOOL_GLINKSETTINGS;
    ifreq request{};
    request.ifr_data = reinterpret_cast<char*>(&settings);
    if (!socket.ask(name, SIOCETHTOOL, request)) return {};
    for (const Port& port : ports) {
        if (port.number == settings.port) return port.cable;
    }
    return {};
}

}  // namespace

std::vector<EthernetAdapter> readEthernetAdapters() {
    const InterfaceSocket socket;
    DeviceNames deviceNames;
    std::vector<EthernetAdapter> adapters;
    for (const std::string& name : namesIn(interfaces)) {
        std::error_code error;
        const auto target = std::filesystem::read_symlink(interfaces + name, error);
        const std::string pciAddress = pciAddressIn(target);
        if (error || pciAddress.empty()) continue;
        adapters.push_back(readAdapter(name, pciAddress, socket, deviceNames));
    }
    return adapters;
}

EthernetDetails readEthernetDetails(const std::string& name) {
    const InterfaceSocket socket;
    const std::string facts = fileText(describedAdapters + name);
    ethtool_drvinfo driver{};
    driver.cmd = ETHTOOL_GDRVINFO;
    ifreq request{};
    request.ifr_data = reinterpret_cast<char*>(&driver);
    if (!socket.ask(name, SIOCETHTOOL, request)) driver = {};
    if (facts.empty()) return {driver.fw_version, driver.version, cableType(socket, name)};
    return {valueOf(facts, "Firmware Version", ':'), driver.version,
            valueOf(facts, "Cable Type", ':')};
}

std::string nicList(const std::vector<EthernetAdapter>& adapters) {
    std::vector<std::vector<std::string>> rows = {{"Name", "PCI Device", "Driver", "Admin Status",
                                                   "Link Status", "Speed", "Duplex", "MAC Address",
                                                   "MTU", "Description"}};
    for (const EthernetAdapter& adapter : adapters) {
        rows.push_back({adapter.name, adapter.pciAddress,
                        adapter.driver.empty() ? "None" : adapter.driver,
                        adapter.isEnabled ? "Up" : "Down", adapter.hasLink ? "Up" : "Down",
                        adapter.speed, adapter.hasLink ? "Full" : "Half", adapter.macAddress,
                        adapter.mtu, adapter.description});
    }
    return table(rows);
}

std::string nicDetails(const EthernetAdapter& adapter, const EthernetDetails& details) {
    constexpr const char* nested = "      ";
    return row("Advertised Auto Negotiation", "true") + row("Cable Type", details.cableType) +
           row("Driver Info", "") + nested + "Bus Info: " + adapter.pciAddress + '\n' + nested +
           "Driver: " + adapter.driver + '\n' + nested +
           "Firmware Version: " + details.firmwareVersion + '\n' + nested +
           "Version: " + details.driverVersion + '\n' +
           row("Link Detected", adapter.hasLink ? "true" : "false") +
           row("Link Status", adapter.hasLink ? "Up" : "Down") + row("Name", adapter.name) +
           row("Virtual Address", adapter.macAddress);
}

}  // namespace tav::sim
