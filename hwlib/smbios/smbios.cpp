#include "hwlib/smbios/smbios.h"

#include <array>
#include <optional>
#include <vector>

#include "base/FileDescriptor.h"
#include "base/FileReading.h"
#include "hwlib/smbios/PhysicalMemory.h"

namespace {

constexpr const char* systabPaths[] = {"/sys/firmware/efi/systab", "/proc/efi/systab"};
constexpr std::uint64_t biosAddress = 0xF0000;
constexpr std::size_t biosSize = 0x10000;
constexpr std::size_t efiEntryPointRead = 32;

namespace slot {  // "System Slots"
constexpr std::uint8_t type = 9;
constexpr std::size_t id = 9;
constexpr std::size_t bus = 15;
constexpr std::size_t deviceFunction = 16;
}  // namespace slot

namespace onboard {  // "Onboard Devices Extended Information"
constexpr std::uint8_t type = 41;
constexpr std::size_t instance = 6;
constexpr std::size_t bus = 9;
constexpr std::size_t deviceFunction = 10;
}  // namespace onboard

namespace product {
constexpr std::uint8_t type = 203;
constexpr std::size_t describedHandle = 4;
constexpr std::size_t name = 30;
}  // namespace product

namespace firmware {
constexpr std::uint8_t type = 240;
constexpr std::size_t productHandle = 4;
constexpr std::size_t version = 10;
}  // namespace firmware

/// In bus and device numbers: what is described does not sit on PCI.
constexpr std::uint8_t notOnPci = 0xFF;

bool fSMBiosInited = false;
std::vector<std::byte> pSMBTables;
tav::SmbiosTable table;

/// The text of the firmware's system table; absent when there is no such file.
std::optional<std::string> readSystab() {
    for (const char* path : systabPaths) {
        const tav::FileDescriptor file(tav::openForReading(path));
        if (!file.isOpen()) continue;
        std::array<char, tav::attributeLimit> text;
        return std::string(text.data(), tav::readOnce(file.get(), text));
    }
    return std::nullopt;
}

struct MemoryRange {
    std::uint64_t address;
    std::size_t length;
};

/// Where to look for the entry point; absent when the firmware names no place.
std::optional<MemoryRange> entryPointRange() {
    const auto systab = readSystab();
    if (!systab) return MemoryRange{biosAddress, biosSize};
    const auto address = tav::smbiosAddressInSystab(*systab);
    if (!address) return std::nullopt;
    return MemoryRange{*address, efiEntryPointRead};
}

std::vector<std::byte> copyTable(const MemoryRange& range) {
    const tav::PhysicalMemory memory;
    const auto entryPoint =
        tav::findSmbiosEntryPoint(memory.map(range.address, range.length).bytes());
    if (!entryPoint || entryPoint->tableLength == 0) return {};
    const auto structures = memory.map(entryPoint->tableAddress, entryPoint->tableLength);
    return {structures.bytes().begin(), structures.bytes().end()};
}

/// The first structure of a type for which `matches(record)` is true, or null.
template <class Matches>
const SMBIOS_RECORD* findRecord(std::uint8_t type, Matches matches) {
    for (const auto* record = table.first(); record != nullptr; record = table.next(record)) {
        if (record->type == type && matches(record)) return record;
    }
    return nullptr;
}

/// The first structure of a type that refers to the structure `target`, or null.
const SMBIOS_RECORD* findReference(std::uint8_t type, std::size_t field,
                                   const SMBIOS_RECORD* target) {
    if (target == nullptr || target->handle == 0) return nullptr;
    return findRecord(type, [&](const SMBIOS_RECORD* record) {
        return tav::smbiosWord(record, field) == target->handle;
    });
}

const SMBIOS_RECORD* findProduct(std::uint8_t bus, std::uint8_t device, std::uint8_t function) {
    const SMBIOS_RECORD* described = SmbGetPCIslot_rec(bus);
    if (described == nullptr) described = SmbGetPCIemb_rec(bus, device, function);
    return findReference(product::type, product::describedHandle, described);
}

/// The string whose number stands at `field` of the record; null when it has none.
const char* stringAt(const SMBIOS_RECORD* record, std::size_t field) {
    if (record == nullptr) return nullptr;
    const auto number = tav::smbiosByte(record, field);
    return number ? table.string(record, *number) : nullptr;
}

}  // namespace

bool InitSMBIOS() {
    DeinitSMBIOS();
    const auto range = entryPointRange();
    if (!range) return false;
    pSMBTables = copyTable(*range);
    table = tav::SmbiosTable(pSMBTables);
    fSMBiosInited = !pSMBTables.empty();
    return fSMBiosInited;
}

bool ReinitSMBIOS() {
    return InitSMBIOS();
}

void DeinitSMBIOS() {
    fSMBiosInited = false;
    table = tav::SmbiosTable();
    pSMBTables = std::vector<std::byte>();
}

bool IsSMBIOSAvailable() {
    return fSMBiosInited;
}

bool SmbGetRecord(const SMBIOS_RECORD** rec) {
    const SMBIOS_RECORD* const next = *rec == nullptr ? table.first() : table.next(*rec);
    if (next != nullptr) *rec = next;
    return next != nullptr;
}

const SMBIOS_RECORD* SmbGetRecordByType(std::uint8_t type, unsigned instance) {
    return findRecord(type, [&](const SMBIOS_RECORD*) { return instance-- == 0; });
}

bool SmbGetRecordByHandle(std::uint16_t handle, const SMBIOS_RECORD** rec) {
    for (const auto* record = table.first(); record != nullptr; record = table.next(record)) {
        if (record->handle != handle) continue;
        *rec = record;
        return true;
    }
    return false;
}

bool SmbGetRecordByNumber(unsigned number, const SMBIOS_RECORD** rec) {
    const SMBIOS_RECORD* record = table.first();
    for (; record != nullptr && number > 0; --number)
        record = table.next(record);
    if (record != nullptr) *rec = record;
    return record != nullptr;
}

const char* SmbGetStringByNumber(const SMBIOS_RECORD* rec, unsigned number) {
    return table.string(rec, number);
}

const SMBIOS_RECORD* SmbGetPCIslot_rec(std::uint8_t bus) {
    return findRecord(slot::type, [&](const SMBIOS_RECORD* record) {
        const bool onPci = tav::smbiosByte(record, slot::bus) != notOnPci ||
                           tav::smbiosByte(record, slot::deviceFunction) != notOnPci;
        return onPci && tav::smbiosByte(record, slot::bus) == bus;
    });
}

std::uint16_t SmbGetPCIslot_bus(std::uint8_t bus) {
    const SMBIOS_RECORD* const record = SmbGetPCIslot_rec(bus);
    return record == nullptr ? 0 : tav::smbiosWord(record, slot::id).value_or(0);
}

const SMBIOS_RECORD* SmbGetPCIemb_rec(std::uint8_t bus, std::uint8_t device,
                                      std::uint8_t function) {
    const unsigned deviceFunction = unsigned{device} << 3 | function;
    return findRecord(onboard::type, [&](const SMBIOS_RECORD* record) {
        return tav::smbiosByte(record, onboard::bus) == bus && function < 8 &&
               tav::smbiosByte(record, onboard::deviceFunction) == deviceFunction;
    });
}

std::uint8_t SmbGetChassisPort(std::uint8_t bus, std::uint8_t device, std::uint8_t function) {
    const SMBIOS_RECORD* const record = SmbGetPCIemb_rec(bus, device, function);
    const unsigned instance =
        record == nullptr ? 0 : tav::smbiosByte(record, onboard::instance).value_or(0);
    return static_cast<std::uint8_t>(instance & 7U);
}

const char* SmbGetPciName(std::uint8_t bus, std::uint8_t device, std::uint8_t function) {
    return stringAt(findProduct(bus, device, function), product::name);
}

const char* SmbGetFwVer(std::uint8_t bus, std::uint8_t device, std::uint8_t function) {
    const SMBIOS_RECORD* const described = findProduct(bus, device, function);
    return stringAt(findReference(firmware::type, firmware::productHandle, described),
                    firmware::version);
}
