#include "storage/storage_inventory.h"

#include <algorithm>
#include <utility>

#include "base/JsonText.h"
#include "core/Logger.h"
#include "storage/registered_factories.h"

namespace tav {
namespace {

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

bool isSameButForCondition(const Json::Value& one, const Json::Value& other) {
    if (one.size() != other.size()) return false;
    for (auto a = one.begin(), b = other.begin(); a != one.end(); ++a, ++b) {
        const std::string name = a.name();
        if (name != b.name() || (name != "Status" && *a != *b)) return false;
    }
    return true;
}

using Objects = std::vector<Json::Value>;

Objects sortedWithoutConditions(Objects objects) {
    for (Json::Value& object : objects)
        object.removeMember("Status");
    std::sort(objects.begin(), objects.end());
    return objects;
}

/// What has gone stands behind what is there: only then is the order another one.
bool areSameButForConditions(const Objects& one, const Objects& other) {
    if (one.size() != other.size()) return false;
    return std::equal(one.begin(), one.end(), other.begin(), isSameButForCondition) ||
           sortedWithoutConditions(one) == sortedWithoutConditions(other);
}

}  // namespace

const StorageGeneration::Part* StorageGeneration::partOf(
    const ItavStorageController& controller) const {
    const auto part = std::find_if(parts.begin(), parts.end(), [&](const Part& candidate) {
        return candidate.controller == &controller;
    });
    return part == parts.end() ? nullptr : &*part;
}

StorageInventory renderStorage(const StorageRecords& records) {
    return {renderAll(records.controllers, "controller"), renderAll(records.disks, "disk"),
            renderAll(records.volumes, "logical disk")};
}

bool saysSameButForConditions(const StorageInventory& one, const StorageInventory& other) {
    return areSameButForConditions(one.controllers, other.controllers) &&
           areSameButForConditions(one.drives, other.drives) &&
           areSameButForConditions(one.volumes, other.volumes);
}

}  // namespace tav
