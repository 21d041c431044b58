/// Any bytes as structure table and as memory with an entry point.
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "hwlib/smbios/SmbiosPci.h"
#include "hwlib/smbios/SmbiosTable.h"

namespace {

void checkFunction(const tav::SmbiosTable& table, std::size_t size, std::uint8_t bus,
                   std::uint8_t device, std::uint8_t function) {
    for (const char* const text : {tav::smbiosProductName(table, bus, device, function),
                                   tav::smbiosFirmwareVersion(table, bus, device, function)}) {
        if (text != nullptr && std::strlen(text) > size) std::abort();
    }
    if (tav::smbiosOnboardNumber(table, bus, device, function).valueOr(0) > 7) std::abort();
    if (tav::smbiosSlotId(table, bus) && tav::smbiosSlotAt(table, bus) == nullptr) std::abort();
}

/// What is told about the PCI functions at the edges of each number's range.
void checkFunctions(const tav::SmbiosTable& table, std::size_t size) {
    for (const std::uint8_t bus : std::array<std::uint8_t, 4>{0x00, 0x01, 0x3B, 0xFF}) {
        checkFunction(table, size, bus, 0, 0);
        checkFunction(table, size, bus, 31, 7);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto bytes = std::as_bytes(std::span(data, size));
    tav::findSmbiosEntryPoint(bytes);

    const tav::SmbiosTable table(bytes);
    std::size_t count = 0;
    for (const auto* record = table.first(); record != nullptr; record = table.next(record)) {
        if (++count > size / 6 + 1) std::abort();
        for (std::size_t offset = 0; offset < 256; ++offset) {
            tav::smbiosByte(record, offset);
            tav::smbiosWord(record, offset);
        }
        for (unsigned number = 0; number < 4; ++number) {
            const char* const text = table.string(record, number);
            if (text != nullptr && std::strlen(text) > size) std::abort();
        }
    }
    checkFunctions(table, size);
    return 0;
}
