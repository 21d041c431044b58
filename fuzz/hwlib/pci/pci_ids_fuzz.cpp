/// Any text as ID database: what is found must not depend on the pieces in which it is read.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "hwlib/pci/PciIdDatabase.h"

namespace {

tav::PciIdDatabase::Read readsOf(std::string_view text, std::size_t piece) {
    return [text, piece](std::span<char> room, std::uint64_t position) -> std::size_t {
        if (position >= text.size()) return 0;
        return text.copy(room.data(), std::min(room.size(), piece),
                         static_cast<std::size_t>(position));
    };
}

void compare(const PciIdEntryPtr& one, const PciIdEntryPtr& other) {
    if ((one == nullptr) != (other == nullptr)) std::abort();
    if (one != nullptr && one->name != other->name) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 9) return 0;
    const auto word = [&](std::size_t at) {
        return static_cast<std::uint16_t>(data[at] | data[at + 1] << 8);
    };
    const std::string_view text(reinterpret_cast<const char*>(data) + 9, size - 9);
    tav::PciIdDatabase whole(readsOf(text, text.size()));
    tav::PciIdDatabase pieces(readsOf(text, data[8] % 16U + 1));
    compare(whole.vendor(word(0)), pieces.vendor(word(0)));
    compare(whole.device(word(0), word(2)), pieces.device(word(0), word(2)));
    compare(whole.subsystem(word(0), word(2), word(4), word(6)),
            pieces.subsystem(word(0), word(2), word(4), word(6)));
    const std::uint32_t classCode = word(0) | static_cast<std::uint32_t>(data[2]) << 16;
    compare(whole.deviceClass(classCode), pieces.deviceClass(classCode));
    return 0;
}
