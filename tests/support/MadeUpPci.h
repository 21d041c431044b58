#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/MadeUpSysfs.h"

namespace tav::test {

struct MadeUpFunction {
    std::string path;  ///< below /sys/devices, ends in the address
    std::uint16_t vendor;
    std::uint16_t device;
    std::uint16_t subsystemVendor = 0;
    std::uint16_t subsystemDevice = 0;
    std::uint32_t classCode = 0x020000;
    std::uint8_t revision = 0;
    std::uint8_t headerType = 0;
};

inline std::string hex(unsigned value, int digits) {
    std::array<char, 16> text;
    std::snprintf(text.data(), text.size(), "%0*x", digits, value);
    return text.data();
}

/// 256 bytes of configuration space, without capabilities.
inline std::string configOf(const MadeUpFunction& function) {
    std::string config(256, '\0');
    const auto put = [&](std::size_t at, std::uint32_t value, std::size_t size) {
        for (std::size_t i = 0; i < size; ++i)
            config[at + i] = static_cast<char>(value >> 8 * i);
    };
    put(0x00, function.vendor, 2);
    put(0x02, function.device, 2);
    put(0x08, function.revision, 1);
    put(0x09, function.classCode, 3);
    put(0x0E, function.headerType, 1);
    put(0x2C, function.subsystemVendor, 2);
    put(0x2E, function.subsystemDevice, 2);
    return config;
}

/// Adds a function to the private /sys the way the kernel shows it.
inline void addFunction(const MadeUpFunction& function) {
    const std::string directory = "/sys/devices/" + function.path;
    const auto put = [&](const char* name, unsigned value, int digits) {
        writeFile(directory + "/" + name, "0x" + hex(value, digits) + "\n");
    };
    put("vendor", function.vendor, 4);
    put("device", function.device, 4);
    put("subsystem_vendor", function.subsystemVendor, 4);
    put("subsystem_device", function.subsystemDevice, 4);
    put("class", function.classCode, 6);
    put("revision", function.revision, 2);
    writeFile(directory + "/irq", "16\n");
    const std::string address = function.path.substr(function.path.rfind('/') + 1);
    writeFile(directory + "/uevent",
              "DRIVER=pcieport\nPCI_CLASS=" + hex(function.classCode, 4) +
                  "\nPCI_ID=" + hex(function.vendor, 4) + ":" + hex(function.device, 4) +
                  "\nPCI_SUBSYS_ID=" + hex(function.subsystemVendor, 4) + ":" +
                  hex(function.subsystemDevice, 4) + "\nPCI_SLOT_NAME=" + address + "\n");
    std::string resources;
    for (int i = 0; i < 13; ++i)
        resources += "0x0000000000000000 0x0000000000000000 0x0000000000000000\n";
    writeFile(directory + "/resource", resources);
    writeFile(directory + "/config", configOf(function));
    makeLink("/sys/bus/pci/devices/" + address, "../../../devices/" + function.path);
}

}  // namespace tav::test
