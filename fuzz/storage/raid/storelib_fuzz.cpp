/// Whatever the vendor's library fills its records with becomes an inventory that can be sent.
#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include <json/reader.h>

#include "base/JsonText.h"
#include "storage/raid/raid_inventory.h"
#include "storage/raid/storelib_decoding.h"
#include "storage/storage_inventory.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

bool isSpace(unsigned char c) {
    return std::isspace(c) != 0;
}

/// The bytes as a record; those that are missing are 0.
template <class Record>
Record recordOf(const std::uint8_t* data, std::size_t size) {
    Record record{};
    std::memcpy(&record, data, std::min(size, sizeof record));
    return record;
}

void checkDrive(const PD_INFO& drive) {
    require(drive.serialNumber.size() <= 32 &&
            std::none_of(drive.serialNumber.begin(), drive.serialNumber.end(), isSpace));
    require(drive.model.size() <= 16 && drive.revision.size() <= 4);
    require(drive.health >= tav::storelib::Ok && drive.health <= tav::storelib::Critical);
}

void checkVolume(const LD_INFO& volume) {
    constexpr std::uint64_t mebibyte = 1U << 20U;
    require(volume.durableName.size() == 32);
    require(volume.capacityBytes % mebibyte == 0);
}

void checkDocument(const tav::StorageRecords& records) {
    const tav::StorageInventory inventory = tav::renderStorage(records);
    Json::Value document;
    for (const auto* const section :
         {&inventory.controllers, &inventory.drives, &inventory.volumes})
        for (const Json::Value& record : *section)
            document.append(record);
    const std::string text = tav::compactJson(document);
    Json::Value back;
    require(Json::Reader().parse(text, back) && tav::compactJson(back) == text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tav::StorageRecords records;
    auto controllerRecord = recordOf<_MR_CTRL_INFO>(data, size);
    // So far behind the record's beginning that inputs as long as the other records leave it empty.
    auto& version = controllerRecord.packageVersion;
    std::memcpy(version, data, std::min(size, sizeof version));
    CTRL_INFO controller;
    controller.pciId = tav::storelib::pciIdOf(controllerRecord);
    controller.firmwareVersion = tav::storelib::fieldText({version, sizeof version});
    controller.pciLocation = tav::storelib::pciLocationText(recordOf<SL_PCI_INFO_T>(data, size));
    tav::describeController(controller, controller.pciLocation, records.controllers.emplace_back());

    if (const auto drive = tav::storelib::toDrive(recordOf<_MR_PD_INFO>(data, size), 1)) {
        checkDrive(*drive);
        records.disks.push_back(tav::toDisk(*drive, controller.pciLocation));
    }
    const LD_INFO volume = tav::storelib::toVolume(recordOf<_MR_LD_INFO>(data, size), 4096);
    checkVolume(volume);
    records.volumes.push_back(tav::toVolume(volume));
    checkDocument(records);
    return 0;
}
