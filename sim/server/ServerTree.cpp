#include "sim/server/ServerTree.h"

#include <algorithm>
#include <array>
#include <set>
#include <string>

#include "sim/rmc/Json.h"

namespace tav::sim {
namespace {

/// "/sys/devices/pci0000:3b/0000:3b:00.0"
std::string functionDirectory(const std::string& address) {
    return "/sys/devices/pci" + address.substr(0, 7) + '/' + address;
}

/// A file of a PCI function's vital product data: the name, then the keywords as one read-only
/// section (PCI Local Bus 3.0, Appendix I).
std::string vitalProductData(const Json::Value& vpd) {
    const auto resource = [](char tag, const std::string& content) {
        return std::string{tag, static_cast<char>(content.size() & 0xFFU),
                           static_cast<char>(content.size() >> 8U)} +
               content;
    };
    std::string keywords;
    for (const std::string& keyword : vpd.getMemberNames()) {
        if (keyword.size() != 2) continue;
        const std::string value = textOf(vpd, keyword.c_str());
        keywords.append(keyword).append(1, static_cast<char>(value.size())).append(value);
    }
    constexpr char nameTag = '\x82';
    constexpr char readOnlyTag = '\x90';
    constexpr char endTag = '\x78';
    return resource(nameTag, textOf(vpd, "name")) + resource(readOnlyTag, keywords) + endTag;
}

/// The tables that the firmware names. SMBIOS is none of them, so that nobody waits for a memory
/// device to read it from.
constexpr const char* firmwareTables = "/sys/firmware/efi/systab";

struct FunctionAttribute {
    const char* file;
    const char* name;
};

constexpr std::array functionAttributes = {
    FunctionAttribute{"class", "class"},
    FunctionAttribute{"vendor", "vendor"},
    FunctionAttribute{"device", "device"},
    FunctionAttribute{"subsystem_vendor", "subVendor"},
    FunctionAttribute{"subsystem_device", "subDevice"},
};

void buildFunction(const Json::Value& function, const Tree& tree) {
    const std::string address = textOf(function, "address");
    const std::string directory = functionDirectory(address) + '/';
    for (const FunctionAttribute& attribute : functionAttributes) {
        tree.write(directory + attribute.file, textOf(function, attribute.name) + '\n');
    }
    const std::string driver = "/sys/bus/pci/drivers/" + textOf(function, "driver");
    tree.makeDirectory(driver);
    tree.link(directory + "driver", driver);
    tree.link("/sys/bus/pci/devices/" + address, functionDirectory(address));
    if (const Json::Value& vpd = member(function, "vpd"); vpd.isObject()) {
        tree.write(directory + "vpd", vitalProductData(vpd));
    }
    const std::string device = address.substr(0, address.rfind('.'));
    const std::string slot = textOf(function, "slot");
    if (!slot.empty()) {
        tree.write("/sys/bus/pci/slots/" + slot + "/address", device + '\n');
    }
}

void buildEthernet(const Json::Value& adapter, const Tree& tree) {
    const std::string name = textOf(adapter, "name");
    const std::string function = functionDirectory(textOf(adapter, "function"));
    const std::string directory = function + "/net/" + name;
    tree.write(directory + "/address", textOf(adapter, "mac") + '\n');
    tree.write(directory + "/speed", textOf(adapter, "speed") + '\n');
    tree.link(directory + "/device", function);
    tree.link("/sys/class/net/" + name, directory);
    tree.write(ethernetDirectory + name, "Description: " + textOf(adapter, "description") +
                                             "\nFirmware Version: " + textOf(adapter, "firmware") +
                                             "\nCable Type: " + textOf(adapter, "cable") +
                                             "\nSpeed: " + textOf(adapter, "speed") + '\n');
}

/// The directory of a SCSI host, which for a SATA port stands below the port's own.
std::string hostDirectory(const Json::Value& host) {
    std::string directory = functionDirectory(textOf(host, "function"));
    if (const std::string interface = textOf(host, "interface"); !interface.empty()) {
        directory += "/net/" + interface;
    }
    if (const std::string ata = textOf(host, "ata"); !ata.empty()) directory += "/ata" + ata;
    return directory + "/host" + textOf(host, "host");
}

/// Returns the directory of the host's entry in the SCSI host class.
std::string buildScsiHost(const Json::Value& host, const Tree& tree) {
    const std::string name = "host" + textOf(host, "host");
    std::string entry = hostDirectory(host) + "/scsi_host/" + name;
    tree.write(entry + "/state",
               (host.isMember("state") ? textOf(host, "state") : "running") + '\n');
    tree.link(entry + "/device", hostDirectory(host));
    tree.link("/sys/class/scsi_host/" + name, entry);
    return entry;
}

/// A field of fixed width, filled up with blanks.
std::string field(std::string content, std::size_t width) {
    content.resize(width, ' ');
    return content;
}

/// Unit serial number (SPC-4, VPD page 80h).
std::string serialPage(const std::string& serial) {
    return std::string{'\0', '\x80', '\0', static_cast<char>(serial.size())} + serial;
}

void buildDisk(const Json::Value& disk, const Json::Value& hosts, const Tree& tree) {
    const std::string address = textOf(disk, "address");
    const std::string hostNumber = address.substr(0, address.find(':'));
    const auto host = std::find_if(hosts.begin(), hosts.end(), [&](const Json::Value& candidate) {
        return textOf(candidate, "host") == hostNumber;
    });
    if (host == hosts.end()) return;
    const std::string device =
        hostDirectory(*host) + "/target" + address.substr(0, address.rfind(':')) + '/' + address;
    const std::string vendor = textOf(disk, "protocol") == "SATA" ? "ATA" : textOf(disk, "vendor");
    tree.write(device + "/type", "0\n");
    tree.write(device + "/state", "running\n");
    tree.write(device + "/vendor", field(vendor, 8) + '\n');
    tree.write(device + "/model", field(textOf(disk, "model"), 16) + '\n');
    tree.write(device + "/rev", field(textOf(disk, "revision"), 4) + '\n');
    if (textOf(disk, "serialUnreadable") != "yes") {
        tree.write(device + "/vpd_pg80", serialPage(textOf(disk, "serial")));
    }
    tree.write(device + "/block/" + textOf(disk, "block") + "/size",
               textOf(disk, "capacity") + '\n');
    tree.makeDirectory(device + "/scsi_generic/" + textOf(disk, "name"));
    tree.link(device + "/scsi_device/" + address + "/device", device);
    tree.link("/sys/class/scsi_device/" + address, device + "/scsi_device/" + address);
    tree.link("/sys/bus/scsi/devices/" + address, device);
    tree.write(disksDirectory + textOf(disk, "name"), diskFacts(disk));
}

/// A controller stands in the directory of its function, its namespaces stand in its own. What
/// belongs to a "subsystem" is shared by the controllers of the same, as a path of each.
void buildNvmeController(const Json::Value& controller, const Tree& tree) {
    const std::string name = textOf(controller, "name");
    const std::string function = functionDirectory(textOf(controller, "function"));
    const std::string directory = function + "/nvme/" + name;
    const std::string state = controller.isMember("state") ? textOf(controller, "state") : "live";
    tree.write(directory + "/model", textOf(controller, "model") + '\n');
    tree.write(directory + "/serial", textOf(controller, "serial") + '\n');
    tree.write(directory + "/firmware_rev", textOf(controller, "firmware") + '\n');
    tree.write(directory + "/state", state + '\n');
    tree.write(directory + "/transport", "pcie\n");
    tree.link(directory + "/device", function);
    tree.link("/sys/class/nvme/" + name, directory);
    const std::string subsystem = textOf(controller, "subsystem");
    const std::string path =
        subsystem.empty()
            ? name
            : "nvme" + subsystem + 'c' + name.substr(name.find_last_not_of("0123456789") + 1);
    if (!subsystem.empty()) {
        tree.link("/sys/class/nvme-subsystem/nvme-subsys" + subsystem + '/' + name, directory);
    }
    for (std::int64_t id = 1; id <= numberOf(controller, "namespaces"); ++id) {
        const std::string listed =
            std::string(directory).append("/").append(path).append("n").append(std::to_string(id));
        tree.write(listed + "/nsid", std::to_string(id) + '\n');
        tree.write(listed + "/size", textOf(controller, "blocks") + '\n');
    }
    tree.write(nvmeDirectory + name, diskFacts(controller));
}

struct PortAttribute {
    const char* file;
    const char* name;
};

constexpr std::array scsiHostAttributes = {
    PortAttribute{"fw_version", "firmware"},
    PortAttribute{"option_rom_version", "rom"},
    PortAttribute{"serialnum", "serial"},
};
constexpr std::array fcHostAttributes = {
    PortAttribute{"node_name", "wwnn"},
    PortAttribute{"port_name", "wwpn"},
    PortAttribute{"port_state", "portState"},
};

void buildFibreChannelPort(const Json::Value& port, const Tree& tree) {
    const std::string name = "host" + textOf(port, "host");
    const std::string scsiHost = buildScsiHost(port, tree) + '/';
    for (const PortAttribute& attribute : scsiHostAttributes) {
        if (!port.isMember(attribute.name)) continue;
        tree.write(scsiHost + attribute.file, textOf(port, attribute.name) + '\n');
    }
    const std::string fcHost = hostDirectory(port) + "/fc_host/" + name;
    for (const PortAttribute& attribute : fcHostAttributes) {
        tree.write(fcHost + '/' + attribute.file, textOf(port, attribute.name) + '\n');
    }
    tree.link("/sys/class/fc_host/" + name, fcHost);
}

}  // namespace

std::string diskFacts(const Json::Value& disk) {
    std::string lines;
    for (const std::string& key : disk.getMemberNames()) {
        lines += key + '=' + textOf(disk, key.c_str()) + '\n';
    }
    return lines;
}

namespace {

Json::Value thoseThatAreThere(const Json::Value& entries, const std::set<std::string>& functions) {
    Json::Value there(Json::arrayValue);
    for (const Json::Value& entry : entries) {
        const std::string function = textOf(entry, "function");
        if (!isGone(entry) && (function.empty() || functions.contains(function)))
            there.append(entry);
    }
    return there;
}

/// Without the parts that are gone, and what stands on a function that is.
Json::Value presentPart(const Json::Value& server) {
    Json::Value present = server;
    std::set<std::string> functions;
    for (const Json::Value& function : member(server, "functions")) {
        if (!isGone(function)) functions.insert(textOf(function, "address"));
    }
    for (const char* section :
         {"functions", "ethernet", "scsiHosts", "disks", "nvme", "fibreChannel"})
        present[section] = thoseThatAreThere(member(server, section), functions);
    return present;
}

}  // namespace

bool isGone(const Json::Value& entry) {
    return textOf(entry, "gone") == "yes";
}

void changeServer(const Json::Value& server, const Tree& tree) {
    buildServer(server, tree);
    for (const char* directory :
         {"/sys/bus", "/sys/class", "/sys/devices", disksDirectory, nvmeDirectory}) {
        tree.makeDirectory(directory);
        tree.removeOthers(directory);
    }
}

void buildServer(const Json::Value& described, const Tree& tree) {
    const Json::Value server = described.isObject() ? presentPart(described) : described;
    for (const char* directory :
         {"/sys/bus/pci/devices", "/sys/bus/pci/slots", "/sys/class/net", "/sys/class/scsi_host",
          "/sys/class/scsi_device", "/sys/class/fc_host"}) {
        tree.makeDirectory(directory);
    }
    for (const Json::Value& function : member(server, "functions"))
        buildFunction(function, tree);
    for (const Json::Value& adapter : member(server, "ethernet"))
        buildEthernet(adapter, tree);
    const Json::Value& hosts = member(server, "scsiHosts");
    for (const Json::Value& host : hosts)
        buildScsiHost(host, tree);
    for (const Json::Value& disk : member(server, "disks"))
        buildDisk(disk, hosts, tree);
    for (const Json::Value& controller : member(server, "nvme"))
        buildNvmeController(controller, tree);
    for (const Json::Value& port : member(server, "fibreChannel"))
        buildFibreChannelPort(port, tree);
    tree.write(firmwareTables, "ACPI20=0x7bffe014\n");
    if (const Json::Value& configuration = member(server, "configuration");
        configuration.isObject()) {
        tree.write("/etc/config/orn/tav/tav.conf", oneLine(configuration) + '\n');
    }
    tree.write(serverDescription, oneLine(described) + '\n');
}

}  // namespace tav::sim
