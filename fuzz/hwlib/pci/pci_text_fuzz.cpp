/// Any text as what the kernel says of a PCI function: its name, its "uevent" file, a number.
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "hwlib/pci/PciAddress.h"
#include "hwlib/pci/PciAttributes.h"
#include "hwlib/sysfs/SysfsNumbers.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

void checkAddress(std::string_view text) {
    const auto address = tav::parsePciAddress(text);
    const auto device = tav::parsePciDevice(text);
    if (address) {
        require(address->device < 32 && address->function < 8);
        require(tav::parsePciAddress(tav::textOf(*address)) == address);
        require(device == address);
    }
    if (device && !address) {
        require(device->function == 0 && text.find('.') == std::string_view::npos);
        require(tav::parsePciAddress(std::string(text) + ".0") == device);
    }
}

/// A number is the one that its text begins with, or none.
template <class Number>
void checkNumber(std::string_view text, tav::SysfsFormat format) {
    const auto number = tav::scanNumber<Number>(text, format);
    if (!number) return;
    char digits[72] = {};
    const auto [end, failure] =
        std::to_chars(digits, digits + sizeof digits, *number, static_cast<int>(format));
    require(failure == std::errc());
    require(tav::scanNumber<Number>({digits, end}, format) == number);
}

void checkEvent(std::string_view text) {
    const tav::PciIdentity identity = tav::parsePciEvent(text);
    require(bool(identity.vendor) == bool(identity.device));
    require(bool(identity.subsystemVendor) == bool(identity.subsystemDevice));
    require(!identity.vendor || text.find("PCI_ID=") != std::string_view::npos);
    require(!identity.classCode || text.find("PCI_CLASS=") != std::string_view::npos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    checkAddress(text);
    for (const auto format : {tav::SysfsFormat::Decimal, tav::SysfsFormat::Hexadecimal}) {
        checkNumber<std::uint8_t>(text, format);
        checkNumber<std::uint16_t>(text, format);
        checkNumber<std::uint32_t>(text, format);
        checkNumber<std::uint64_t>(text, format);
        checkNumber<std::int32_t>(text, format);
        checkNumber<std::int64_t>(text, format);
    }
    checkEvent(text);
    return 0;
}
