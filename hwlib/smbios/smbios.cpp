#include "hwlib/smbios/smbios.h"

#include <optional>
#include <utility>

#include "hwlib/smbios/SmbiosPci.h"
#include "hwlib/smbios/SmbiosStructures.h"

namespace {

std::optional<tav::SmbiosStructures> pSMBTables;
tav::SmbiosTable table;

}  // namespace

bool InitSMBIOS() {
    DeinitSMBIOS();
    auto structures = tav::SmbiosStructures::read();
    if (!structures) return false;
    pSMBTables = *std::move(structures);
    table = pSMBTables->table();
    return true;
}

bool ReinitSMBIOS() {
    return InitSMBIOS();
}

void DeinitSMBIOS() {
    table = tav::SmbiosTable();
    pSMBTables.reset();
}

bool IsSMBIOSAvailable() {
    return pSMBTables.has_value();
}

bool SmbGetRecord(const SMBIOS_RECORD** rec) {
    const SMBIOS_RECORD* const next = *rec == nullptr ? table.first() : table.next(*rec);
    if (next != nullptr) *rec = next;
    return next != nullptr;
}

const SMBIOS_RECORD* SmbGetRecordByType(std::uint8_t type, unsigned instance) {
    return table.find(
        [&](const SMBIOS_RECORD& record) { return record.type == type && instance-- == 0; });
}

bool SmbGetRecordByHandle(std::uint16_t handle, const SMBIOS_RECORD** rec) {
    const SMBIOS_RECORD* const record =
        table.find([&](const SMBIOS_RECORD& candidate) { return candidate.handle == handle; });
    if (record != nullptr) *rec = record;
    return record != nullptr;
}

bool SmbGetRecordByNumber(unsigned number, const SMBIOS_RECORD** rec) {
    const SMBIOS_RECORD* const record =
        table.find([&](const SMBIOS_RECORD&) { return number-- == 0; });
    if (record != nullptr) *rec = record;
    return record != nullptr;
}

const char* SmbGetStringByNumber(const SMBIOS_RECORD* rec, unsigned number) {
    return table.string(rec, number);
}

const SMBIOS_RECORD* SmbGetPCIslot_rec(std::uint8_t bus) {
    return tav::smbiosSlotAt(table, bus);
}

std::uint16_t SmbGetPCIslot_bus(std::uint8_t bus) {
    return tav::smbiosSlotId(table, bus).valueOr(0);
}

const SMBIOS_RECORD* SmbGetPCIemb_rec(std::uint8_t bus, std::uint8_t device,
                                      std::uint8_t function) {
    return tav::smbiosOnboardAt(table, bus, device, function);
}

std::uint8_t SmbGetChassisPort(std::uint8_t bus, std::uint8_t device, std::uint8_t function) {
    return tav::smbiosOnboardNumber(table, bus, device, function).valueOr(0);
}

const char* SmbGetPciName(std::uint8_t bus, std::uint8_t device, std::uint8_t function) {
    return tav::smbiosProductName(table, bus, device, function);
}

const char* SmbGetFwVer(std::uint8_t bus, std::uint8_t device, std::uint8_t function) {
    return tav::smbiosFirmwareVersion(table, bus, device, function);
}

const tav::SmbiosTable& tav::defaultSmbios() {
    return table;
}
