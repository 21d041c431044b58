#include "sim/hostcmds/HostCommands.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>

#include "sim/hostcmds/Files.h"

namespace tav::sim {
namespace {

const std::string pciDevices = "/sys/bus/pci/devices/";
const std::string pciSlots = "/sys/bus/pci/slots/";
const std::string scsiHosts = "/sys/class/scsi_host/";

/// Names of the physical slots by the address without function that each slot's file holds.
std::map<std::string, std::string> readSlots() {
    std::map<std::string, std::string> slots;
    for (const std::string& name : namesIn(pciSlots)) {
        slots.emplace(firstLine(pciSlots + name + "/address"), name);
    }
    return slots;
}

std::string padded(std::string text, std::size_t width) {
    text.append(width - std::min(width, text.size()), ' ');
    return text + "  ";
}

}  // namespace

std::string row(const std::string& label, const std::string& value) {
    return "   " + label + ": " + value + '\n';
}

std::string table(const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::size_t> widths(rows.front().size());
    for (const auto& cells : rows) {
        for (std::size_t column = 0; column < cells.size(); ++column) {
            widths[column] = std::max(widths[column], cells[column].size());
        }
    }
    std::string text;
    const auto print = [&](const auto& cellOf) {
        std::string line;
        for (std::size_t column = 0; column < widths.size(); ++column) {
            line += padded(cellOf(column), widths[column]);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + '\n';
    };
    for (std::size_t index = 0; index < rows.size(); ++index) {
        print([&](std::size_t column) { return rows[index][column]; });
        if (index == 0) print([&](std::size_t column) { return std::string(widths[column], '-'); });
    }
    return text;
}

std::string pciAddressIn(const std::filesystem::path& path) {
    std::string address;
    for (const auto& part : path) {
        const std::string name = part;
        if (name.size() >= 12 && name[4] == ':' && name[7] == ':' && name[10] == '.')
            address = name;
    }
    return address;
}

std::string valueOf(std::string_view text, std::string_view key, char separator) {
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.size() <= key.size() || line.substr(0, key.size()) != key) continue;
        if (line[key.size()] != separator) continue;
        line.remove_prefix(key.size() + 1);
        const std::size_t first = line.find_first_not_of(" \t\"'");
        if (first == std::string_view::npos) return {};
        return std::string(line.substr(first, line.find_last_not_of(" \t\"'") - first + 1));
    }
    return {};
}

std::string systemVersion(std::string_view osRelease, const std::string& kernelRelease) {
    const std::string version = valueOf(osRelease, "VERSION_ID", '=');
    return row("Product", valueOf(osRelease, "NAME", '=')) +
           row("Version", version.empty() ? kernelRelease : version) + row("Build", kernelRelease) +
           row("Update", "0");
}

std::vector<PciFunction> readPciFunctions() {
    const std::map<std::string, std::string> slots = readSlots();
    std::vector<PciFunction> functions;
    for (const std::string& address : namesIn(pciDevices)) {
        const std::string directory = pciDevices + address + '/';
        PciFunction function;
        function.address = address;
        function.vendorId = firstLine(directory + "vendor");
        function.deviceId = firstLine(directory + "device");
        function.subVendorId = firstLine(directory + "subsystem_vendor");
        function.subDeviceId = firstLine(directory + "subsystem_device");
        function.deviceClass = firstLine(directory + "class");
        function.driver = linkTarget(directory + "driver");
        const auto slot = slots.find(address.substr(0, address.rfind('.')));
        if (slot != slots.end()) function.slot = slot->second;
        functions.push_back(std::move(function));
    }
    return functions;
}

std::string pciList(std::span<const PciFunction> functions, const PciNames& names) {
    std::string text;
    for (const PciFunction& function : functions) {
        unsigned segment = 0;
        unsigned bus = 0;
        unsigned slot = 0;
        unsigned number = 0;
        const int parts =
            std::sscanf(function.address.c_str(), "%x:%x:%x.%x", &segment, &bus, &slot, &number);
        if (parts != 4) continue;
        std::array<char, 96> location{};
        std::snprintf(location.data(), location.size(),
                      "   Segment: 0x%04x\n   Bus: 0x%02x\n   Slot: 0x%02x\n   Function: 0x%x\n",
                      segment, bus, slot, number);
        text += function.address + '\n' + row("Address", function.address) + location.data() +
                row("VMkernel Name", "") + row("Vendor Name", names.vendor(function.vendorId)) +
                row("Device Name", names.device(function.vendorId, function.deviceId)) +
                row("Vendor ID", function.vendorId) + row("Device ID", function.deviceId) +
                row("SubVendor ID", function.subVendorId) +
                row("SubDevice ID", function.subDeviceId) +
                row("Device Class", function.deviceClass) +
                row("Module Name", function.driver.empty() ? "None" : function.driver) +
                row("Slot Description", function.slot) + '\n';
    }
    return text;
}

std::vector<ScsiHost> readScsiHosts() {
    std::vector<ScsiHost> hosts;
    for (const std::string& name : namesIn(scsiHosts)) {
        std::error_code error;
        const std::string address =
            pciAddressIn(std::filesystem::canonical(scsiHosts + name, error));
        if (address.empty()) continue;
        hosts.push_back({name, linkTarget(pciDevices + address + "/driver"), address});
    }
    return hosts;
}

std::string adapterList(std::span<const ScsiHost> hosts, std::span<const PciFunction> functions,
                        const PciNames& names) {
    std::vector<std::vector<std::string>> rows = {
        {"HBA Name", "Driver", "Link State", "UID", "Capabilities", "Description"}};
    for (const ScsiHost& host : hosts) {
        const auto function = std::find_if(
            functions.begin(), functions.end(),
            [&](const PciFunction& candidate) { return candidate.address == host.pciAddress; });
        std::string description = '(' + host.pciAddress + ')';
        if (function != functions.end()) {
            description += ' ' + names.vendor(function->vendorId) + ' ' +
                           names.device(function->vendorId, function->deviceId);
        }
        rows.push_back(
            {host.name, host.driver, "link-n/a", "pci." + host.name, "", std::move(description)});
    }
    return table(rows);
}

std::string memorySample(const std::string& host, const std::string& moment,
                         std::string_view meminfo) {
    const auto megabytes = [&](std::string_view key) {
        return std::to_string(std::strtoul(valueOf(meminfo, key, ':').c_str(), nullptr, 10) / 1024);
    };
    const std::pair<std::string, std::string> counters[] = {
        {"Memory\\Machine MBytes", megabytes("MemTotal")},
        {"Memory\\Kernel MBytes", megabytes("Slab")},
        {"Memory\\NonKernel MBytes", megabytes("AnonPages")},
        {"Memory\\Free MBytes", megabytes("MemFree")},
    };
    std::string names = "\"(PDH-CSV 4.0) (Local)(0)\",";
    std::string values = '"' + moment + "\",";
    for (const auto& [name, value] : counters) {
        names.append("\"\\\\").append(host).append("\\").append(name).append("\",");
        values.append("\"").append(value).append("\",");
    }
    return names + '\n' + values + '\n';
}

std::string summaryLog(std::vector<SummaryLine> lines) {
    std::stable_sort(lines.begin(), lines.end(),
                     [](const SummaryLine& a, const SummaryLine& b) { return a.time < b.time; });
    std::string text;
    for (const SummaryLine& line : lines) {
        const std::time_t moment = line.time;
        std::tm local{};
        std::array<char, 32> stamp{};
        ::localtime_r(&moment, &local);
        std::strftime(stamp.data(), stamp.size(), "%Y-%m-%dT%H:%M:%SZ", &local);
        text += std::string(stamp.data()) + " bootstop: " + line.text + '\n';
    }
    return text;
}

}  // namespace tav::sim
