/// Any bytes as structure table and as memory with an entry point.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "hwlib/smbios/SmbiosTable.h"

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
    return 0;
}
