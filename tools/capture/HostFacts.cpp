#include "tools/capture/HostFacts.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <netpacket/packet.h>
#include <optional>

#include <fcntl.h>
#include <ifaddrs.h>
#include <unistd.h>

#include <arpa/inet.h>
#include <json/value.h>
#include <json/writer.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/utsname.h>

#include "base/FileDescriptor.h"
#include "base/Files.h"
#include "base/StopSignal.h"
#include "core/Command.h"

namespace tav::capture {
namespace {

// --- Links ---------------------------------------------------------------------------------------

std::string fieldText(const char* field, std::size_t size) {
    return {field, ::strnlen(field, size)};
}

std::string macText(const sockaddr_ll& address) {
    std::string text;
    for (int i = 0; i < address.sll_halen && i < 8; ++i) {
        if (i > 0) text += ':';
        text += hexadecimal({reinterpret_cast<const char*>(&address.sll_addr[i]), 1});
    }
    return text;
}

void addDriver(int socket, const char* name, Json::Value& link) {
    ethtool_drvinfo driver{};
    driver.cmd = ETHTOOL_GDRVINFO;
    ifreq request{};
    std::strncpy(request.ifr_name, name, IFNAMSIZ - 1);
    request.ifr_data = reinterpret_cast<char*>(&driver);
    if (::ioctl(socket, SIOCETHTOOL, &request) != 0) return;
    link["driver"] = fieldText(driver.driver, sizeof driver.driver);
    link["version"] = fieldText(driver.version, sizeof driver.version);
    link["firmware"] = fieldText(driver.fw_version, sizeof driver.fw_version);
    link["bus"] = fieldText(driver.bus_info, sizeof driver.bus_info);
}

Json::Value linkOf(const ifaddrs& entry, int socket) {
    Json::Value link;
    sockaddr_ll address{};
    std::memcpy(&address, entry.ifa_addr, sizeof address);
    link["name"] = entry.ifa_name;
    link["index"] = address.sll_ifindex;
    link["mac"] = macText(address);
    link["isUp"] = (entry.ifa_flags & IFF_UP) != 0;
    link["isRunning"] = (entry.ifa_flags & IFF_RUNNING) != 0;
    addDriver(socket, entry.ifa_name, link);
    return link;
}

int prefixLength(const sockaddr* mask) {
    if (mask == nullptr) return 32;
    sockaddr_in address{};
    std::memcpy(&address, mask, sizeof address);
    return __builtin_popcount(address.sin_addr.s_addr);
}

Json::Value addressOf(const ifaddrs& entry) {
    sockaddr_in address{};
    std::memcpy(&address, entry.ifa_addr, sizeof address);
    std::array<char, INET_ADDRSTRLEN> text{};
    ::inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size());
    Json::Value value;
    value["link"] = entry.ifa_name;
    value["address"] = text.data();
    value["prefix"] = prefixLength(entry.ifa_netmask);
    return value;
}

std::string rendered(const Json::Value& value) {
    Json::StreamWriterBuilder writer;
    writer["indentation"] = " ";
    writer["emitUTF8"] = true;
    return Json::writeString(writer, value) + '\n';
}

// --- Commands ------------------------------------------------------------------------------------

constexpr std::size_t outputLimit = 4U << 20U;
constexpr const char* interfaceList = "localcli network nic list";
constexpr std::array fixedCommands = {
    "localcli system version get",
    "localcli hardware pci list",
    "esxtop -c /opt/orn/tav/data/esxtopconf -b -n 1",
};
constexpr std::array raidTools = {"/usr/sbin/mdadm", "/sbin/mdadm"};

/// Runs a command with its output in memory, which holds more than what is collected of a command.
CommandRun runCommand(const std::string& command) {
    const FileDescriptor file(::memfd_create("output", MFD_CLOEXEC));
    CommandRun run{command, false, -1, {}};
    if (!file.isOpen()) return run;
    const std::string place =
        "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(file.get());
    const CommandResult result = runShell(command + " >> " + place);
    run.hasEnded = result.finished;
    run.status = result.exitStatus;
    ::lseek(file.get(), 0, SEEK_SET);
    readUpTo(file.get(), outputLimit, run.output);
    return run;
}

/// Once one has not ended before the capture has to, no further one is begun.
CommandRun take(Recorder& recorder, const std::string& command) {
    if (stopRequested()) return {};
    CommandRun run = runCommand(command);
    if (!run.hasEnded) recorder.lack(command + ": it has not ended in time");
    if (run.output.size() == outputLimit) recorder.lack(command + ": the end of its output");
    recorder.addCommand(run);
    return run;
}

/// The first words of the lines behind the table's rule, where they can be the name of an
/// interface.
std::vector<std::string> interfacesIn(const std::string& table) {
    constexpr std::string_view characters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.:-";
    std::vector<std::string> names;
    std::size_t at = table.find("\n-");
    at = at == std::string::npos ? at : table.find('\n', at + 1);
    while (at != std::string::npos && at + 1 < table.size()) {
        const std::size_t begin = at + 1;
        at = table.find('\n', begin);
        const std::string line = table.substr(begin, at - begin);
        const std::string name = line.substr(0, line.find(' '));
        const bool isPlain = name.find_first_not_of(characters) == std::string::npos;
        if (!name.empty() && name.size() < IFNAMSIZ && isPlain) names.push_back(name);
    }
    return names;
}

}  // namespace

void takeSystemNames(Recorder& recorder) {
    utsname names{};
    if (::uname(&names) != 0) {
        recorder.lack("the system's names: uname failed");
        return;
    }
    std::string lines;
    const std::pair<const char*, const char*> members[] = {{"sysname", names.sysname},
                                                           {"nodename", names.nodename},
                                                           {"release", names.release},
                                                           {"version", names.version},
                                                           {"machine", names.machine}};
    for (const auto& [name, value] : members)
        lines.append(name).append("=").append(value).append("\n");
    recorder.addFact("uname", lines);
}

void takeLinks(Recorder& recorder) {
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) {
        recorder.lack("the list of links: the kernel does not tell it");
        return;
    }
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(list, &::freeifaddrs);
    const FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    Json::Value known;
    known["links"] = Json::arrayValue;
    known["addresses"] = Json::arrayValue;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr) continue;
        if (entry->ifa_addr->sa_family == AF_PACKET) {
            known["links"].append(linkOf(*entry, socket.get()));
        } else if (entry->ifa_addr->sa_family == AF_INET) {
            known["addresses"].append(addressOf(*entry));
        }
    }
    recorder.addFact("links.json", rendered(known));
}

void takeFirmwareTables(Recorder& recorder) {
    constexpr std::size_t limit = 1U << 20U;
    for (const char* const name : {"smbios_entry_point", "DMI"}) {
        const std::string path = std::string("/sys/firmware/dmi/tables/") + name;
        if (auto content = readRegularFile(path.c_str(), limit))
            recorder.addFact(name, *std::move(content));
    }
}

void takeCommands(Recorder& recorder) {
    for (const char* const command : fixedCommands)
        take(recorder, command);
    for (const std::string& name : interfacesIn(take(recorder, interfaceList).output))
        take(recorder, "localcli network nic get -n " + name);
    const auto* const tool = std::find_if(raidTools.begin(), raidTools.end(), [](const char* path) {
        return ::access(path, R_OK | X_OK) == 0;
    });
    if (tool != raidTools.end()) take(recorder, std::string(*tool) + " --detail-platform");
}

}  // namespace tav::capture
