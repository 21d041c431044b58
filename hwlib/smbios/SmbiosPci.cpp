#include "hwlib/smbios/SmbiosPci.h"

namespace tav {
namespace {

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

/// The first structure of a type that refers to the structure `target`, or null.
const SMBIOS_RECORD* findReference(const SmbiosTable& table, std::uint8_t type, std::size_t field,
                                   const SMBIOS_RECORD* target) {
    // A copy: in the table it may stand at an odd address, where nothing may refer to it.
    const std::uint16_t handle = target != nullptr ? target->handle : 0;
    if (handle == 0) return nullptr;
    return table.find([&](const SMBIOS_RECORD& record) {
        return record.type == type && smbiosWord(&record, field) == handle;
    });
}

const SMBIOS_RECORD* findProduct(const SmbiosTable& table, std::uint8_t bus, std::uint8_t device,
                                 std::uint8_t function) {
    const SMBIOS_RECORD* described = smbiosSlotAt(table, bus);
    if (described == nullptr) described = smbiosOnboardAt(table, bus, device, function);
    return findReference(table, product::type, product::describedHandle, described);
}

/// The string whose number stands at `field` of the record; null when it has none.
const char* stringAt(const SmbiosTable& table, const SMBIOS_RECORD* record, std::size_t field) {
    if (record == nullptr) return nullptr;
    const auto number = smbiosByte(record, field);
    return number ? table.string(record, *number) : nullptr;
}

}  // namespace

const SMBIOS_RECORD* smbiosSlotAt(const SmbiosTable& table, std::uint8_t bus) {
    return table.find([&](const SMBIOS_RECORD& record) {
        if (record.type != slot::type || smbiosByte(&record, slot::bus) != bus) return false;
        return bus != notOnPci || smbiosByte(&record, slot::deviceFunction) != notOnPci;
    });
}

const SMBIOS_RECORD* smbiosOnboardAt(const SmbiosTable& table, std::uint8_t bus,
                                     std::uint8_t device, std::uint8_t function) {
    const unsigned deviceFunction = unsigned{device} << 3 | function;
    return table.find([&](const SMBIOS_RECORD& record) {
        return record.type == onboard::type && smbiosByte(&record, onboard::bus) == bus &&
               function < 8 && smbiosByte(&record, onboard::deviceFunction) == deviceFunction;
    });
}

const char* smbiosProductName(const SmbiosTable& table, std::uint8_t bus, std::uint8_t device,
                              std::uint8_t function) {
    return stringAt(table, findProduct(table, bus, device, function), product::name);
}

const char* smbiosFirmwareVersion(const SmbiosTable& table, std::uint8_t bus, std::uint8_t device,
                                  std::uint8_t function) {
    const SMBIOS_RECORD* const described = findProduct(table, bus, device, function);
    return stringAt(table, findReference(table, firmware::type, firmware::productHandle, described),
                    firmware::version);
}

Answer<std::uint16_t> smbiosSlotId(const SmbiosTable& table, std::uint8_t bus) {
    const SMBIOS_RECORD* const record = smbiosSlotAt(table, bus);
    return record == nullptr ? Lack::Absent : smbiosWord(record, slot::id);
}

Answer<std::uint8_t> smbiosOnboardNumber(const SmbiosTable& table, std::uint8_t bus,
                                         std::uint8_t device, std::uint8_t function) {
    const SMBIOS_RECORD* const record = smbiosOnboardAt(table, bus, device, function);
    const auto instance = record == nullptr ? Lack::Absent : smbiosByte(record, onboard::instance);
    if (!instance) return instance.lack();
    return static_cast<std::uint8_t>(*instance & 7U);
}

}  // namespace tav
