#include "nic/NicRecords.h"

#include <algorithm>
#include <array>

#include "base/JsonText.h"

namespace tav {
namespace {

struct TextMember {
    const char* name;
    const std::string& (PhyAdapterInventory::*value)() const;
};

constexpr std::array adapterMembers = {
    TextMember{"Model", &PhyAdapterInventory::getNICModel},
    TextMember{"SerialNumber", &PhyAdapterInventory::getSerialNumber},
    TextMember{"PartNumber", &PhyAdapterInventory::getPartNumber},
    TextMember{"FirmwareVersion", &PhyAdapterInventory::getFirmVersion},
    TextMember{"MACAddress", &PhyAdapterInventory::getMACAddress},
};
constexpr std::array oemMembers = {
    TextMember{"DeviceName", &PhyAdapterInventory::getDeviceName},
    TextMember{"Description", &PhyAdapterInventory::getPCIDescription},
    TextMember{"PhysicalLocation", &PhyAdapterInventory::getPhyLocation},
};
constexpr std::array statusMembers = {
    TextMember{"State", &PhyAdapterInventory::getState},
    TextMember{"Health", &PhyAdapterInventory::getHealth},
};

template <std::size_t Size>
void render(const PhyAdapterInventory& adapter, const std::array<TextMember, Size>& members,
            Json::Value& object) {
    for (const TextMember& member : members)
        object[member.name] = jsonText((adapter.*member.value)());
}

struct EventText {
    int eventId;
    const char* text;
};
constexpr std::array eventTexts = {
    EventText{0, "Injected Event"},
    EventText{678,
              "Errors detected on NIC, use 'ip' command for status. Refer to syslog for further "
              "details."},
};

const char* eventText(int eventId) {
    const auto* const found =
        std::find_if(eventTexts.begin(), eventTexts.end(),
                     [&](const EventText& candidate) { return candidate.eventId == eventId; });
    return found == eventTexts.end() ? "" : found->text;
}

Json::Value renderAdapter(const PhyAdapterInventory& adapter) {
    Json::Value object;
    render(adapter, adapterMembers, object);
    object["SpeedMbps"] = adapter.getSpeed();
    render(adapter, oemMembers, object["Oem"]);
    return object;
}

}  // namespace

Json::Value renderNicInventory(const PhyAdapterInventory& adapter) {
    Json::Value object = renderAdapter(adapter);
    render(adapter, statusMembers, object["Status"]);
    return object;
}

Json::Value renderNicEvent(const PhyAdapterInventory& adapter, int eventId) {
    Json::Value object;
    object["Data"] = renderAdapter(adapter);
    object["Type"] = "EthernetDevice";
    object["EventInfo"] = eventText(eventId);
    return object;
}

}  // namespace tav
