/// The PCI tree with names against lspci, and the ID database against reading all of it into maps.
///
///   pci_bench                           on this machine
///   sim/enter .../pci_bench --made-up   on a made-up tree of 256 functions; and there, what it
///                                       costs to ask for a function that cannot be found
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>

#include "bench/Measure.h"
#include "hwlib/pci/PciHost.h"
#include "hwlib/pci/pci.h"
#include "tests/support/MadeUpPci.h"

namespace {

constexpr const char* devices = "/sys/bus/pci/devices/";
constexpr const char* idFile = "/usr/share/misc/pci.ids";

std::string_view nameOf(const PciIdEntryPtr& entry) {
    return entry == nullptr ? "?" : std::string_view(entry->name);
}

void append(std::string& text, std::string_view label, std::string_view name, unsigned id) {
    constexpr std::string_view digits = "0123456789abcdef";
    text.append(label).append(name).append(" [");
    for (int shift = 12; shift >= 0; shift -= 4)
        text += digits[id >> shift & 0xFU];
    text.append("]\n");
}

void print(const PciNode& node, std::string& text) {
    for (const auto& child : node.children) {
        text.append("Slot:\t").append(tav::textOf(child->address)).append("\n");
        append(text, "Class:\t", nameOf(child->classEntry), child->classCode.valueOr(0) >> 8);
        append(text, "Vendor:\t", nameOf(child->vendorEntry), child->vendor.valueOr(0));
        append(text, "Device:\t", nameOf(child->deviceEntry), child->device.valueOr(0));
        append(text, "SVendor:\t", nameOf(child->subsystemVendorEntry),
               child->subsystemVendor.valueOr(0));
        append(text, "SDevice:\t", nameOf(child->subsystemEntry),
               child->subsystemDevice.valueOr(0));
        append(text, "Rev:\t", "", child->revision.valueOr(0));
        print(*child, text);
    }
}

int list() {
    PciNode root;
    scan_hw_ids();
    if (pci_node_scan(root, devices) == 0) return 1;
    std::string text;
    print(root, text);
    std::fwrite(text.data(), 1, text.size(), stdout);
    return 0;
}

/// 16 ports with 15 functions each: 40 models of the makers that a server's parts come from.
void makeTree() {
    constexpr std::uint16_t models[][2] = {
        {0x8086, 0x1572}, {0x8086, 0x158B}, {0x8086, 0x0A54}, {0x8086, 0x2021}, {0x8086, 0x2024},
        {0x8086, 0x1521}, {0x8086, 0x1592}, {0x8086, 0x0B60}, {0x15B3, 0x1013}, {0x15B3, 0x1015},
        {0x15B3, 0x1017}, {0x15B3, 0x1019}, {0x15B3, 0x101D}, {0x15B3, 0xA2D6}, {0x14E4, 0x16D7},
        {0x14E4, 0x1657}, {0x14E4, 0x16D8}, {0x14E4, 0x1750}, {0x1000, 0x0014}, {0x1000, 0x0016},
        {0x1000, 0x005D}, {0x1000, 0x00AF}, {0x1000, 0x00E6}, {0x10DF, 0xE300}, {0x10DF, 0xF400},
        {0x1077, 0x2261}, {0x1077, 0x1656}, {0x144D, 0xA822}, {0x144D, 0xA824}, {0x144D, 0xA80A},
        {0x10DE, 0x1DB6}, {0x10DE, 0x20B0}, {0x1C5C, 0x2839}, {0x1344, 0x51A2}, {0x1344, 0x51C0},
        {0x1B96, 0x2400}, {0x1E0F, 0x0007}, {0x19E5, 0x3714}, {0x10B5, 0x8724}, {0x1A03, 0x2000}};
    for (unsigned port = 0; port < 16; ++port) {
        const std::string path = "pci0000:00/0000:00:" + tav::test::hex(port, 2) + ".0";
        tav::test::addFunction(
            {path, 0x8086, 0xA190, 0x8086, 0xA190, 0x060400, static_cast<std::uint8_t>(port), 1});
        for (unsigned i = 0; i < 15; ++i) {
            const auto& [maker, model] = models[(port * 15 + i) % std::size(models)];
            tav::test::addFunction(
                {path + "/0000:" + tav::test::hex(port + 1, 2) + ":" + tav::test::hex(i, 2) + ".0",
                 maker, model, maker, 1, 0x020000, 1});
        }
    }
}

using Names = std::map<unsigned, std::string>;
struct Device {
    std::string name;
    Names subsystems;
};
struct Vendor {
    std::string name;
    std::map<unsigned, Device> devices;
};
struct WholeFile {
    std::map<unsigned, Vendor> vendors;
    std::map<unsigned, Vendor> classes;
};

WholeFile readWholeFile() {
    WholeFile whole;
    std::ifstream file(idFile);
    Vendor* section = nullptr;
    Device* device = nullptr;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line[0] == '#') continue;
        const char* const text = line.c_str();
        char* end = nullptr;
        if (line.starts_with("\t\t")) {
            const unsigned long high = std::strtoul(text + 2, &end, 16);
            const unsigned long low = std::strtoul(end, &end, 16);
            device->subsystems[static_cast<unsigned>(high << 16 | low)] = end + 2;
        } else if (line[0] == '\t') {
            device = &section->devices[static_cast<unsigned>(std::strtoul(text + 1, &end, 16))];
            device->name = end + 2;
        } else {
            const bool isClass = line.starts_with("C ");
            const auto id = static_cast<unsigned>(std::strtoul(text + (isClass ? 2 : 0), &end, 16));
            section = isClass ? &whole.classes[id] : &whole.vendors[id];
            section->name = end + 2;
        }
    }
    return whole;
}

void lookUpAll(const PciNode& node) {
    for (const auto& child : node.children) {
        const std::uint16_t vendor = child->vendor.valueOr(0);
        const std::uint16_t device = child->device.valueOr(0);
        vendor_search(vendor);
        device_search(vendor, device);
        subsystem_search(vendor, device, child->subsystemVendor.valueOr(0),
                         child->subsystemDevice.valueOr(0));
        class_search(child->classCode.valueOr(0));
        lookUpAll(*child);
    }
}

void tree(bench::Report& report, const char* self) {
    bench::Pair cpu;
    for (int round = 0; round < 40; ++round) {
        cpu.ours = std::min(cpu.ours, bench::run({self, "--list"}).cpu);
        cpu.theirs =
            std::min(cpu.theirs, bench::run({"lspci", "-O", "hwdb.disable=1", "-vmmnn"}).cpu);
    }
    report.ratio("PCI tree with names, processor time", "lspci -vmmnn", cpu, 0.25);
}

void database(bench::Report& report) {
    PciNode root;
    pci_node_scan(root, devices);
    double lookUps = 1;
    const auto ours = [&] {
        const double load = bench::secondsPerCall(1, scan_hw_ids);
        lookUps = std::min(lookUps, bench::secondsPerCall(1, [&] { lookUpAll(root); }));
        return load;
    };
    const auto theirs = [] {
        const double seconds = bench::secondsPerCall(1, [] {
            if (readWholeFile().vendors.size() < 1000) std::abort();
        });
        // What the maps leave to the allocator to tidy up must not count as ours.
        ::malloc_trim(0);
        return seconds;
    };
    report.ratio("ID database loaded", "the whole file in maps", bench::leastOf(40, ours, theirs),
                 0.15);
    report.value("look-ups of all functions", lookUps * 1e6, "us", 1000);
}

/// A function that the kernel does not list, and one that it lists but that cannot be read: either
/// is looked at in the list, and the host is not scanned for it again and again.
void unknownFunctions(bench::Report& report) {
    tav::test::writeFile("/sys/devices/file", "");
    tav::test::makeLink("/sys/bus/pci/devices/0000:ff:00.0", "../../../devices/file");
    tav::PciHost host;
    const double scan = bench::secondsPerCall(1, [&] { host.refresh(); });
    const auto asking = [&](std::uint8_t function) {
        return bench::secondsPerCall(1000, [&] { host.find({0, 0xFF, 0, function}); });
    };
    const unsigned scans = host.scans();
    bench::Report::value("scan of all functions", scan * 1e6, "us");
    report.value("asking for one that is not listed", asking(1) * 1e6, "us", 20);
    report.value("asking for one that cannot be read", asking(0) * 1e6, "us", 20);
    if (host.scans() != scans) std::abort();
}

/// First of all, while no database is loaded.
void databaseMemory(bench::Report& report) {
    PciNode root;
    pci_node_scan(root, devices);
    double before = bench::allocatedBytes();
    scan_hw_ids();
    lookUpAll(root);
    const double ours = bench::allocatedBytes() - before;
    before = bench::allocatedBytes();
    const WholeFile whole = readWholeFile();
    const double maps = bench::allocatedBytes() - before;
    std::printf("ID database %.0f KiB, whole file in maps %.0f KiB\n", ours / 1024, maps / 1024);
    report.value("ID database / whole file in maps, memory", ours / maps * 100, "percent", 15);
}

}  // namespace

int main(int argc, char** argv) {
    const char* const mode = argc > 1 ? argv[1] : "";
    if (std::strcmp(mode, "--list") == 0) return list();
    const bool isMadeUp = std::strcmp(mode, "--made-up") == 0;
    if (isMadeUp) {
        if (std::filesystem::exists("/sys/bus")) return 2;
        makeTree();
    }
    bench::Report report;
    databaseMemory(report);
    database(report);
    tree(report, "/proc/self/exe");
    if (isMadeUp) unknownFunctions(report);
    return report.exitStatus();
}
