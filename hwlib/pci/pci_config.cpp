#include "hwlib/pci/pci_config.h"

#include <algorithm>
#include <array>
#include <bitset>

#include "base/FileReading.h"

namespace {

constexpr std::size_t wordSize = 4;
constexpr std::size_t statusOffset = 0x06;
constexpr unsigned statusHasCapabilities = 1U << 4;
constexpr std::size_t revisionOffset = 0x08;
constexpr std::size_t headerTypeOffset = 0x0E;
constexpr unsigned cardBusHeader = 2;
constexpr std::size_t capabilitiesPointer = 0x34;
constexpr std::size_t cardBusCapabilitiesPointer = 0x14;
constexpr std::size_t firstCapability = 0x40;
constexpr unsigned expressCapability = 0x10;
constexpr unsigned absentCapability = 0xFF;
constexpr std::size_t linkStatusInCapability = 18;

/// Width codes by the four low bits of the link width field, which counts lanes.
constexpr std::array<std::uint8_t, 16> linkWidthCodes = [] {
    std::array<std::uint8_t, 16> codes{};
    codes.fill(tav::unknownLinkWidth);
    codes[1] = 8;
    codes[2] = 9;
    codes[4] = 10;
    codes[8] = 11;
    codes[12] = 12;
    return codes;
}();

/// Walks the capability list through `byteAt(offset)`, which returns an optional byte, and calls
/// `visit(id, offset)` until it returns false. A list that loops ends where it meets itself.
template <class ByteAt, class Visit>
void walkCapabilities(ByteAt byteAt, Visit visit) {
    const auto status = byteAt(statusOffset);
    const auto headerType = byteAt(headerTypeOffset);
    if (!status || !headerType || (*status & statusHasCapabilities) == 0) return;
    const bool cardBus = (*headerType & 0x7FU) == cardBusHeader;
    auto next = byteAt(cardBus ? cardBusCapabilitiesPointer : capabilitiesPointer);
    std::bitset<pciConfigSize> visited;
    while (next) {
        const std::size_t offset = *next & 0xFCU;
        if (offset < firstCapability || visited[offset]) return;
        visited[offset] = true;
        const auto id = byteAt(offset);
        if (!id || *id == absentCapability || !visit(*id, offset)) return;
        next = byteAt(offset + 1);
    }
}

std::optional<unsigned> byteOf(PciConfig config, std::size_t offset) {
    if (offset >= config.size()) return std::nullopt;
    return std::to_integer<unsigned>(config[offset]);
}

auto bytesOf(PciConfig config) {
    return [config](std::size_t offset) { return byteOf(config, offset); };
}

/// Reads the word that the byte at `offset` is in.
bool readWord(int configFile, tav::PciConfigRoom config, std::size_t offset) {
    const std::size_t start = offset / wordSize * wordSize;
    return tav::readOnceAt(configFile, config.subspan(start, wordSize), start) == wordSize;
}

}  // namespace

std::uint32_t pci_get_caps(PciConfig config) {
    std::uint32_t capabilities = 0;
    walkCapabilities(bytesOf(config), [&](unsigned id, std::size_t) {
        if (id >= 1 && id <= 32) capabilities |= 1U << (id - 1);
        return true;
    });
    return capabilities;
}

std::uint8_t pci_get_revision(PciConfig config) {
    return static_cast<std::uint8_t>(byteOf(config, revisionOffset).value_or(0));
}

std::uint8_t pci_get_lnkwidth(PciConfig config) {
    std::uint8_t code = tav::unknownLinkWidth;
    walkCapabilities(bytesOf(config), [&](unsigned id, std::size_t offset) {
        if (id != expressCapability) return true;
        const auto linkStatus = byteOf(config, offset + linkStatusInCapability);
        if (linkStatus) code = linkWidthCodes[*linkStatus >> 4];
        return false;
    });
    return code;
}

bool tav::readConfigRevision(int configFile, PciConfigRoom config) {
    return readWord(configFile, config, revisionOffset);
}

bool tav::readConfigCapabilities(int configFile, PciConfigRoom config) {
    std::ranges::fill(config, std::byte{0});
    std::bitset<pciConfigSize / wordSize> present;
    bool isWhole = true;
    const auto byteAt = [&](std::size_t offset) -> std::optional<unsigned> {
        if (offset >= config.size()) return std::nullopt;
        const std::size_t word = offset / wordSize;
        if (!present[word]) present[word] = readWord(configFile, config, offset);
        if (!present[word]) {
            isWhole = false;
            return std::nullopt;
        }
        return std::to_integer<unsigned>(config[offset]);
    };
    walkCapabilities(byteAt, [&](unsigned id, std::size_t offset) {
        if (id == expressCapability) byteAt(offset + linkStatusInCapability);
        return true;
    });
    return isWhole;
}
