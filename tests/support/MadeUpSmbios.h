#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "hwlib/smbios/smbios.h"

namespace tav::test {

using namespace std::string_literals;

/// A field of one, two or four bytes, as it stands in memory.
inline std::string le(std::uint32_t value, int size) {
    std::string bytes;
    for (; size > 0; --size, value >>= 8)
        bytes += static_cast<char>(value);
    return bytes;
}

/// `body` is the formatted part behind the header.
inline std::string structure(unsigned type, unsigned handle, const std::string& body,
                             const std::vector<std::string>& strings = {}) {
    std::string bytes =
        le(type, 1) + le(static_cast<std::uint32_t>(body.size() + 4), 1) + le(handle, 2) + body;
    for (const std::string& text : strings)
        bytes += text + '\0';
    if (strings.empty()) bytes += '\0';
    return bytes + '\0';
}

inline std::string slotStructure(unsigned handle, const char* name, unsigned id, unsigned bus,
                                 unsigned deviceFunction = 0) {
    return structure(9, handle,
                     le(1, 1) + le(0xA5, 1) + le(0x0B, 1) + le(4, 1) + le(3, 1) + le(id, 2) +
                         le(0x0C, 1) + le(1, 1) + le(0, 2) + le(bus, 1) + le(deviceFunction, 1),
                     {name});
}

inline std::string onboardStructure(unsigned handle, unsigned instance, unsigned bus,
                                    unsigned deviceFunction) {
    return structure(
        41, handle,
        le(1, 1) + le(0x85, 1) + le(instance, 1) + le(0, 2) + le(bus, 1) + le(deviceFunction, 1),
        {"Onboard LAN"});
}

inline std::string productStructure(unsigned handle, unsigned described, const char* name) {
    return structure(203, handle, le(described, 2) + std::string(24, '\0') + le(2, 1),
                     {"unused", name});
}

inline std::string firmwareStructure(unsigned handle, unsigned product, const char* version) {
    return structure(240, handle, le(product, 2) + std::string(4, '\0') + le(1, 1), {version});
}

/// The firmware's table of a made-up host.
inline const std::string table = structure(1, 0x0100, std::string(23, '\0')) +             //
                                 slotStructure(0x0900, "not used", 9, 0xFF, 0xFF) +        //
                                 slotStructure(0x0901, "SLOT1", 0x0105, 0x3B) +            //
                                 slotStructure(0x0902, "SLOT2", 2, 0x5E) +                 //
                                 slotStructure(0x0000, "handle 0", 3, 0x60) +              //
                                 structure(9, 0x0904, le(1, 1) + le(0, 4) + le(77, 2)) +   //
                                 onboardStructure(0x2901, 0x0A, 0x01, 0x1F << 3 | 2) +     //
                                 productStructure(0xCB01, 0x0901, "Quad FC adapter") +     //
                                 productStructure(0xCB02, 0x0901, "second of the slot") +  //
                                 productStructure(0xCB03, 0x2901, "Onboard adapter") +     //
                                 productStructure(0xCB04, 0x0000, "of nothing") +          //
                                 structure(203, 0xCB05, le(0x0902, 2)) +                   //
                                 firmwareStructure(0xF001, 0xCB02, "of the second") +      //
                                 firmwareStructure(0xF002, 0xCB01, "12.8.1") +
                                 structure(127, 0x7F00, "");

inline constexpr unsigned tableAddress = 0xE1234;

inline std::string entryPoint(unsigned tableLength, unsigned minor = 8) {
    std::string bytes = "_SM_"s + le(0, 1) + le(31, 1) + le(2, 1) + le(minor, 1) +
                        std::string(8, '\0') + "_DMI_" + le(0, 1) + le(tableLength, 2) +
                        le(tableAddress, 4) + le(15, 2) + le(0x28, 1);
    const auto sumOf = [&](std::size_t from) {
        unsigned sum = 0;
        for (std::size_t i = from; i < bytes.size(); ++i)
            sum += static_cast<unsigned char>(bytes[i]);
        return sum;
    };
    bytes[0x15] = static_cast<char>(0 - sumOf(0x10));
    bytes[4] = static_cast<char>(0 - sumOf(0));
    return bytes;
}

/// Makes "/dev/mem" a file with `bytes` at a physical address.
inline void fillMemory(std::size_t address, const std::string& bytes) {
    const int memory = ::open("/dev/mem", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(::ftruncate(memory, 64 << 20), 0);
    ASSERT_EQ(::pwrite(memory, bytes.data(), bytes.size(), static_cast<off_t>(address)),
              static_cast<ssize_t>(bytes.size()));
    ::close(memory);
}

/// A host whose firmware's table is `table`.
class Smbios : public testing::Test {
 protected:
    void SetUp() override {
        fillMemory(tableAddress, table);
        fillMemory(0xF0010, entryPoint(static_cast<unsigned>(table.size())));
    }
    void TearDown() override { DeinitSMBIOS(); }
};

}  // namespace tav::test
