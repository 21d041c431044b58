#include "hwlib/pci/pci_slots.h"

#include <array>
#include <cstring>
#include <string_view>
#include <utility>

#include "base/DirectoryListing.h"
#include "base/FileReading.h"
#include "hwlib/smbios/SmbiosPci.h"
#include "hwlib/smbios/smbios.h"

namespace {

constexpr std::string_view devicesDirectory = "/sys/bus/pci/devices/";
constexpr std::string_view slotsDirectory = "/sys/bus/pci/slots/";
constexpr std::size_t slotAddressLimit = 80;

/// Calls `visit(component)` for the components of a path from its start, until it returns false.
template <class Visit>
void forEachComponent(std::string_view path, Visit visit) {
    while (!path.empty()) {
        const std::string_view component = path.substr(0, path.find('/'));
        if (!visit(component)) return;
        path.remove_prefix(std::min(component.size() + 1, path.size()));
    }
}

std::string targetOfDevice(const std::string& path) {
    auto target = tav::linkTarget(path.c_str());
    if (!target) target = tav::linkTarget((path + "/device").c_str());
    return std::move(target).valueOr(std::string());
}

/// Whether `text`, "0000:3b:00" with or without a function, is where the function sits.
bool isSlotOf(std::string_view text, const PciAddress& address) {
    text = text.substr(0, text.find('\n'));
    const auto slot = tav::parsePciDevice(text);
    if (!slot) return false;
    const bool anyFunction = text.find('.') == std::string_view::npos;
    PciAddress wanted = address;
    if (anyFunction) wanted.function = 0;
    return *slot == wanted;
}

}  // namespace

tav::Answer<std::uint16_t> tav::slotBySmbios(const SmbiosTable& table, const PciAddress& address) {
    const auto target = linkTarget((std::string(devicesDirectory) + textOf(address)).c_str());
    if (!target) return target.lack();
    Answer<std::uint16_t> slot = Lack::Absent;
    forEachComponent(*target, [&](std::string_view component) {
        const auto above = parsePciAddress(component);
        if (above) slot = smbiosSlotId(table, above->bus);
        return slot.valueOr(0) == 0;
    });
    return slot;
}

int PciGetslot_str(const char* address) {
    const auto parsed = tav::parsePciDevice(address);
    return parsed ? tav::slotBySmbios(tav::defaultSmbios(), *parsed).valueOr(0) : 0;
}

int PciGetChassisPort_str(const char* address) {
    const auto parsed = tav::parsePciDevice(address);
    return parsed ? SmbGetChassisPort(parsed->bus, parsed->device, parsed->function) : 0;
}

char* getPCISlotString(const char* path) {
    std::string slot = "NotAvailable";
    forEachComponent(targetOfDevice(path), [&](std::string_view component) {
        if (component.find_first_of("0123456789") == 0) slot = component;
        return true;
    });
    return ::strdup(slot.c_str());
}

int pcislot_scsi_host(const char* path) {
    std::string function;
    forEachComponent(targetOfDevice(path), [&](std::string_view component) {
        if (tav::parsePciAddress(component)) function = component;
        return true;
    });
    return PciGetslot_str(function.c_str());
}

std::optional<std::string> get_pcislot(const PciAddress& address) {
    std::optional<std::string> slot;
    const std::string directory(slotsDirectory);
    tav::forEachEntry(directory.c_str(), 0, [&](const tav::DirectoryEntry& entry) {
        std::array<char, slotAddressLimit> text;
        const std::string path = directory + std::string(entry.name) + "/address";
        const auto read = tav::readAttribute(path.c_str(), text);
        if (read && isSlotOf(*read, address)) slot = entry.name;
    });
    return slot;
}
