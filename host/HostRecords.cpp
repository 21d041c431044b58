#include "host/HostRecords.h"

#include "base/JsonText.h"

namespace tav {
namespace {

Json::Value renderAddresses(const std::vector<std::string>& addresses) {
    Json::Value list(Json::arrayValue);
    for (const std::string& address : addresses) {
        Json::Value entry(Json::objectValue);
        entry["Address"] = address;
        list.append(std::move(entry));
    }
    // The controller knows the bare text, not an object, as the sign of a host without addresses.
    if (list.empty()) list.append("127.0.0.1");
    return list;
}

Json::Value renderHost(const tavHostOSInfo& host) {
    Json::Value json(Json::objectValue);
    json["HostName"] = jsonText(host.getHostName());
    json["OSName"] = jsonText(host.getOSName());
    json["OSVersion"] = jsonText(host.getOSVersion());
    json["OSDescription"] = jsonText(host.getOSDescription());
    json["OSType"] = host.getOSType();
    Json::Value& memory = json["OSMemorySummary"];
    memory["TotalSystemMemoryGiB"] = host.getOSMemorySummary().getTotalSystemMemGiB();
    memory["TotalFreeSystemMemoryGiB"] = host.getOSMemorySummary().getTotalFreeSystemMemoryGiB();
    json["IPv4Addresses"] = renderAddresses(host.getIPv4Addresses().getIPv4Address());
    return json;
}

Json::Value renderCollection(const tavCollectionInfo& collection) {
    if (collection.getCollectionType() != "RemoteSupport") return {};
    Json::Value json(Json::objectValue);
    json["CollectionType"] = collection.getCollectionType();
    json["CollectionFrequencyMin"] = collection.getCollectionFrequencyMin();
    json["LastCollection"] = collection.getLastCollection();
    return json;
}

}  // namespace

Json::Value renderHostInventory(const tavHostOSInfo& host, const tavCollectionInfo& collection) {
    Json::Value record(Json::objectValue);
    record["HostOSInfo"] = renderHost(host);
    record["CollectionInfo"] = renderCollection(collection);
    return record;
}

}  // namespace tav
