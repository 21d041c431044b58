#include "hwlib/pci/PciAttributes.h"

#include <algorithm>
#include <array>
#include <string_view>

#include <sys/stat.h>

#include "base/FileReading.h"
#include "hwlib/pci/pci_config.h"
#include "hwlib/sysfs/SysfsNumbers.h"

namespace tav {
namespace {

constexpr std::size_t vpdLimit = 4096;

template <class Number>
Answer<Number> hexadecimal(std::string_view text) {
    return scanNumber<Number>(text, SysfsFormat::Hexadecimal);
}

/// Takes "8086:0D57" apart; both are malformed when one of them is.
void parseIds(std::string_view text, Answer<std::uint16_t>& vendor, Answer<std::uint16_t>& device) {
    const std::size_t colon = text.find(':');
    const auto low = hexadecimal<std::uint16_t>(
        colon == std::string_view::npos ? std::string_view() : text.substr(colon + 1));
    const auto high = hexadecimal<std::uint16_t>(text);
    vendor = high && low ? high : Lack::Malformed;
    device = high && low ? low : Lack::Malformed;
}

}  // namespace

/// The kernel's numbers need 64 bits in a 32-bit process too.
ino64_t placeId(const std::string& path) {
    struct stat64 own;
    struct stat64 end;
    const bool leadsToDirectory = ::lstat64(path.c_str(), &own) == 0 &&
                                  ::stat64(path.c_str(), &end) == 0 && S_ISDIR(end.st_mode);
    return leadsToDirectory ? own.st_ino : 0;
}

PciIdentity parsePciEvent(std::string_view text) {
    constexpr std::string_view classField = "PCI_CLASS=";
    constexpr std::string_view idField = "PCI_ID=";
    constexpr std::string_view subsystemField = "PCI_SUBSYS_ID=";
    PciIdentity identity;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (line.starts_with(classField)) {
            identity.classCode = hexadecimal<std::uint32_t>(line.substr(classField.size()));
        } else if (line.starts_with(idField)) {
            parseIds(line.substr(idField.size()), identity.vendor, identity.device);
        } else if (line.starts_with(subsystemField)) {
            parseIds(line.substr(subsystemField.size()), identity.subsystemVendor,
                     identity.subsystemDevice);
        }
    }
    return identity;
}

PciAttributes::PciAttributes(int parent, std::string path)
    : parent_(parent), prefix_(std::move(path)) {
    if (!prefix_.ends_with('/')) prefix_ += '/';
}

FileDescriptor PciAttributes::open(const char* name) const {
    return openForReading(parent_, pathOf(name).c_str());
}

/// Reads an attribute whose value is not known yet.
template <class Number>
void PciAttributes::readMissing(const char* name, Answer<Number>& value) const {
    if (value) return;
    value = readSysfsNumber<Number>(parent_, pathOf(name).c_str(), SysfsFormat::Hexadecimal);
}

/// The file "uevent" repeats what five other attributes say. Reading it instead of those halves the
/// cost of a scan.
PciIdentity PciAttributes::readIdentity() const {
    std::array<char, attributeLimit> room;
    const auto event = readAttribute(parent_, pathOf("uevent").c_str(), room);
    PciIdentity identity = event ? parsePciEvent(*event) : PciIdentity();
    readMissing("vendor", identity.vendor);
    readMissing("device", identity.device);
    readMissing("subsystem_vendor", identity.subsystemVendor);
    readMissing("subsystem_device", identity.subsystemDevice);
    readMissing("class", identity.classCode);
    readMissing("revision", identity.revision);
    if (!identity.revision) identity.revision = readRevisionFromConfig();
    return identity;
}

Answer<std::uint8_t> PciAttributes::readRevisionFromConfig() const {
    const FileDescriptor file = open("config");
    if (!file.isOpen()) return lackOf(errno);
    std::array<std::byte, pciConfigSize> config{};
    if (!readConfigRevision(file.get(), config)) return Lack::Refused;
    return pci_get_revision(config);
}

Answer<std::int32_t> PciAttributes::readInterruptLine() const {
    return readSysfsNumber<std::int32_t>(parent_, pathOf("irq").c_str(), SysfsFormat::Decimal);
}

Answer<PciCapabilities> PciAttributes::readCapabilities() const {
    const FileDescriptor file = open("config");
    if (!file.isOpen()) return lackOf(errno);
    std::array<std::byte, pciConfigSize> config;
    if (!readConfigCapabilities(file.get(), config)) return Lack::Refused;
    return PciCapabilities{pci_get_caps(config), pci_get_lnkwidth(config)};
}

Answer<std::vector<std::byte>> PciAttributes::readVpd() const {
    const FileDescriptor file = open("vpd");
    if (!file.isOpen()) return lackOf(errno);
    std::vector<std::byte> vpd(vpdLimit);
    std::size_t length = 0;
    while (length < vpd.size()) {
        const auto count = readOnceAt(file.get(), std::span(vpd).subspan(length), length);
        if (!count) return count.lack();
        if (*count == 0) break;
        length += *count;
    }
    vpd.resize(length);
    return vpd;
}

}  // namespace tav
