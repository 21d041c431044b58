#include "hwlib/smbios/SmbiosStructures.h"

#include <limits>
#include <utility>

#include "base/FileReading.h"
#include "base/Files.h"
#include "hwlib/smbios/PhysicalMemory.h"
#include "hwlib/smbios/SmbiosPci.h"

namespace tav {
namespace {

constexpr const char* systabPaths[] = {"/sys/firmware/efi/systab", "/proc/efi/systab"};
constexpr std::uint64_t biosAddress = 0xF0000;
constexpr std::size_t biosSize = 0x10000;
constexpr std::size_t efiEntryPointRead = 32;

/// The text of the firmware's system table.
Answer<std::string> readSystab() {
    for (const char* path : systabPaths) {
        const FileDescriptor file = openForReading(path);
        if (!file.isOpen()) continue;
        std::string text;
        readUpTo(file.get(), std::numeric_limits<std::size_t>::max(), text);
        return text;
    }
    return Lack::Absent;
}

struct MemoryRange {
    std::uint64_t address;
    std::size_t length;
};

/// Where to look for the entry point.
Answer<MemoryRange> entryPointRange() {
    const auto systab = readSystab();
    if (!systab) return MemoryRange{biosAddress, biosSize};
    const auto address = smbiosAddressInSystab(*systab);
    if (!address) return Lack::Malformed;
    return MemoryRange{*address, efiEntryPointRead};
}

Answer<std::string> owned(const char* text) {
    return text == nullptr ? Answer<std::string>(Lack::Absent) : std::string(text);
}

}  // namespace

Answer<SmbiosStructures> SmbiosStructures::read() {
    const auto range = entryPointRange();
    if (!range) return range.lack();
    const PhysicalMemory memory;
    const auto searched = memory.map(range->address, range->length);
    if (!searched) return searched.lack();
    const auto entryPoint = findSmbiosEntryPoint(searched->bytes());
    if (!entryPoint || entryPoint->tableLength == 0) return Lack::Absent;
    const auto table = memory.map(entryPoint->tableAddress, entryPoint->tableLength);
    if (!table) return table.lack();
    const auto bytes = table->bytes();
    return SmbiosStructures({bytes.begin(), bytes.end()});
}

Answer<std::uint16_t> SmbiosStructures::slotId(std::uint8_t bus) const {
    return smbiosSlotId(table(), bus);
}

Answer<std::uint8_t> SmbiosStructures::onboardNumber(std::uint8_t bus, std::uint8_t device,
                                                     std::uint8_t function) const {
    return smbiosOnboardNumber(table(), bus, device, function);
}

Answer<std::string> SmbiosStructures::productName(std::uint8_t bus, std::uint8_t device,
                                                  std::uint8_t function) const {
    return owned(smbiosProductName(table(), bus, device, function));
}

Answer<std::string> SmbiosStructures::firmwareVersion(std::uint8_t bus, std::uint8_t device,
                                                      std::uint8_t function) const {
    return owned(smbiosFirmwareVersion(table(), bus, device, function));
}

}  // namespace tav
