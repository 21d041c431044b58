#include "hwlib/pci/pci_ids.h"

#include "base/FileDescriptor.h"
#include "base/FileReading.h"

namespace {

constexpr const char* databasePaths[] = {
    "/usr/share/hwdata/pci.ids",
    "/usr/share/pci.ids",
    "/usr/share/misc/pci.ids",
};

std::mutex databaseLock;
tav::PciIdDatabasePtr database;

template <class LookUp>
PciIdEntryPtr search(LookUp lookUp) {
    const auto ids = tav::defaultPciIds();
    return ids == nullptr ? nullptr : lookUp(*ids);
}

}  // namespace

tav::PciIdDatabasePtr tav::loadPciIds() {
    for (const char* path : databasePaths) {
        // Shared, because a std::function can be copied.
        const auto file = std::make_shared<FileDescriptor>(openForReading(path));
        if (!file->isOpen()) continue;
        return std::make_shared<PciIdDatabase>(
            [file](std::span<char> room, std::uint64_t position) {
                return readOnceAt(file->get(), std::as_writable_bytes(room), position).valueOr(0);
            });
    }
    return nullptr;
}

tav::PciIdDatabasePtr tav::defaultPciIds() {
    const std::scoped_lock guard(databaseLock);
    return database;
}

bool scan_hw_ids() {
    const auto loaded = tav::loadPciIds();
    const std::scoped_lock guard(databaseLock);
    database = loaded;
    return database != nullptr;
}

PciIdEntryPtr vendor_search(std::uint16_t vendor) {
    return search([&](tav::PciIdDatabase& ids) { return ids.vendor(vendor); });
}

PciIdEntryPtr device_search(std::uint16_t vendor, std::uint16_t device) {
    return search([&](tav::PciIdDatabase& ids) { return ids.device(vendor, device); });
}

PciIdEntryPtr subsystem_search(std::uint16_t vendor, std::uint16_t device,
                               std::uint16_t subsystemVendor, std::uint16_t subsystemDevice) {
    return search([&](tav::PciIdDatabase& ids) {
        return ids.subsystem(vendor, device, subsystemVendor, subsystemDevice);
    });
}

PciIdEntryPtr class_search(std::uint32_t classCode) {
    return search([&](tav::PciIdDatabase& ids) { return ids.deviceClass(classCode); });
}
