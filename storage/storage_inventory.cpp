#include "storage/storage_inventory.h"

#include <algorithm>
#include <utility>

#include "base/JsonText.h"
#include "core/Logger.h"
#include "storage/registered_factories.h"

namespace tav {
namespace {

/// How far the discovery of a controller has come.
struct Discovered {
    StorageRecords records;
    bool hasDrives = false;
    bool hasVolumes = false;
};

void discoverController(ItavStorageController& controller, Discovered& found) {
    tavStorageControllerInfo info;
    if (controller.discoverInventory(info) < 0) return;
    found.records.controllers.push_back(std::move(info));
    found.hasDrives = controller.discoverPhysicalDiskInventory(found.records.disks) >= 0;
    if (!found.hasDrives) return;
    found.hasVolumes = controller.discoverLogicalDiskInventory(found.records.volumes) >= 0;
}

/// What an event of the resource tells about it, and its condition.
Json::Value render(const tavStatusInfo& record) {
    Json::Value event = record.getVariableData();
    Json::Value object = std::move(event["Data"]);
    object["Status"] = record.tavStatusInfo::getVariableData();
    return object;
}

Json::Value render(const tavLogicalDiskInfo& volume) {
    Json::Value object = render(static_cast<const tavStatusInfo&>(volume));
    if (!object.isMember("Drives")) object["Drives"] = Json::Value(Json::arrayValue);
    return object;
}

template <class Record>
std::vector<Json::Value> renderAll(const std::vector<Record>& records, const char* kind) {
    std::vector<Json::Value> objects;
    objects.reserve(records.size());
    for (const Record& record : records)
        objects.push_back(render(record));
    // Thousands of texts are only made when somebody reads them.
    if (!CPlusPlusLogging::Logger::getInstance()->writesDebug()) return objects;
    for (std::size_t i = 0; i < objects.size(); ++i) {
        storageLog.debug(here(), "Printing %s instance %zu:    %s", kind, i,
                         compactJson(objects[i]).c_str());
    }
    return objects;
}

}  // namespace

const StorageGeneration::Part* StorageGeneration::partOf(
    const ItavStorageController& controller) const {
    const auto part = std::find_if(parts.begin(), parts.end(), [&](const Part& candidate) {
        return candidate.controller == &controller;
    });
    return part == parts.end() ? nullptr : &*part;
}

namespace {

/// What the controller's part is now: a list that could not be asked for is not an empty one.
std::shared_ptr<const StorageInventory> inventoryOf(const Discovered& found,
                                                    const StorageGeneration::Part* known) {
    const bool isAsked = !found.records.controllers.empty();
    if (!isAsked) return known == nullptr ? nullptr : known->inventory;
    StorageInventory inventory = renderStorage(found.records);
    if (known != nullptr && !found.hasDrives) inventory.drives = known->inventory->drives;
    if (known != nullptr && !found.hasVolumes) inventory.volumes = known->inventory->volumes;
    return std::make_shared<const StorageInventory>(std::move(inventory));
}

}  // namespace

StorageGeneration discoverStorage(const StorageGeneration& before) {
    StorageGeneration found;
    forEachFactory("The discovery of a factory's controllers", [&](auto& factory) {
        if (stopRequested()) return;
        const Controllers controllers = discoverControllers(factory);
        forEachController("Enabling a controller's events", controllers, [&](auto& controller) {
            Discovered records;
            contain("The discovery of a controller",
                    [&] { discoverController(controller, records); });
            if (auto inventory = inventoryOf(records, before.partOf(controller))) {
                found.parts.push_back({&controller, std::move(inventory)});
            }
            // Also where that failed: a controller in trouble has most to report.
            controller.enableEvents();
        });
    });
    return found;
}

StorageInventory renderStorage(const StorageRecords& records) {
    return {renderAll(records.controllers, "controller"), renderAll(records.disks, "disk"),
            renderAll(records.volumes, "logical disk")};
}

}  // namespace tav
