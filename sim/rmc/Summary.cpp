#include "sim/rmc/Summary.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "sim/rmc/Json.h"

namespace tav::sim {
namespace {

constexpr std::array meanings = {
    EventMeaning{356, "the operating system has booted", ""},
    EventMeaning{359, "the previous shutdown was graceful", ""},
    EventMeaning{360, "the previous shutdown was critical", "Critical"},
    EventMeaning{384, "a Fibre Channel port is online", "OK"},
    EventMeaning{385, "a Fibre Channel port is offline", "Warning"},
    EventMeaning{386, "a Fibre Channel port has lost its link", "Critical"},
    EventMeaning{388, "a Fibre Channel port has failed", "Critical"},
    EventMeaning{397, "a storage controller works again", "OK"},
    EventMeaning{398, "a storage controller has failed", "Critical"},
    EventMeaning{434, "host event", ""},
    EventMeaning{435, "host event", ""},
    EventMeaning{538, "a drive has failed or is gone", "Critical"},
    EventMeaning{539, "a drive is predicted to fail", "Warning"},
    EventMeaning{540, "a drive works", "OK"},
    EventMeaning{678, "an Ethernet adapter has errors", "Critical"},
    EventMeaning{680, "an Ethernet adapter works again", "OK"},
    EventMeaning{681, "a volume is no longer whole", "Critical"},
    EventMeaning{683, "a volume is whole again", "OK"},
    EventMeaning{708, "test event", ""},
};

struct Counted {
    const char* section;
    std::string_view what;
};

constexpr std::array countedSections = {
    Counted{"StorageControllers", "storage controllers"},
    Counted{"Drives", "drives"},
    Counted{"Volumes", "volumes"},
    Counted{"EthernetDevices", "Ethernet adapters"},
};

std::string row(std::string_view label, const std::string& value) {
    constexpr std::size_t labelWidth = 14;
    std::string line = "  ";
    line += label;
    line.append(labelWidth - std::min(labelWidth, label.size()) + 1, ' ');
    return line + value + '\n';
}

/// The addresses are objects; a host without one has a bare string instead.
std::string addresses(const Json::Value& list) {
    if (!list.isArray() || list.empty()) return "none";
    std::string joined;
    for (const Json::Value& entry : list) {
        if (!joined.empty()) joined += ", ";
        joined += shown(entry.isObject() ? member(entry, "Address") : entry);
    }
    return joined;
}

std::string hostSummary(const Json::Value& host) {
    const Json::Value& memory = member(host, "OSMemorySummary");
    return row("host", shown(member(host, "HostName"))) +
           row("system", shown(member(host, "OSName")) + ' ' + shown(member(host, "OSVersion"))) +
           row("description", shown(member(host, "OSDescription"))) +
           row("memory", shown(member(memory, "TotalSystemMemoryGiB")) + " GiB, " +
                             shown(member(memory, "TotalFreeSystemMemoryGiB")) + " GiB free") +
           row("addresses", addresses(member(host, "IPv4Addresses")));
}

std::string inventorySummary(const Json::Value& document) {
    const Json::Value& collection = member(document, "HostDataCollection");
    std::string lines;
    const Json::Value& host = member(member(collection, "Oem"), "HostOSInfo");
    if (!host.isNull()) lines += hostSummary(host);
    for (const Counted& counted : countedSections) {
        const Json::Value& section = member(collection, counted.section);
        if (section.isArray()) {
            lines += row("", std::to_string(section.size()) + ' ' + std::string(counted.what));
        }
    }
    return lines.empty() ? row("", "no host data") : lines;
}

std::string eventSummary(const Json::Value& event) {
    const Json::Value& id = member(event, "ID");
    std::string lines =
        row("event " + shown(id), std::string(meaningOf(event).text)) +
        row("from", shown(member(event, "Source")) + " on " + shown(member(event, "HostName")) +
                        ", " + addresses(member(event, "IPv4Addresses"))) +
        row("time", shown(member(event, "EventTime")));
    const Json::Value& location = member(event, "PhysicalLocation");
    if (!location.isNull()) lines += row("location", shown(location));
    const Json::Value& details = member(event, "VariableData");
    if (!details.isNull()) lines += row("details", oneLine(details));
    return lines;
}

}  // namespace

EventMeaning meaningOf(const Json::Value& event) {
    const std::int64_t id = numberOf(event, "ID");
    const auto* const known =
        std::find_if(meanings.begin(), meanings.end(),
                     [&](const EventMeaning& meaning) { return meaning.id == id; });
    return known == meanings.end() ? EventMeaning{0, "unknown event", ""} : *known;
}

std::string summaryOf(const Command& command) {
    const std::string size = std::to_string(command.payload.size()) + " bytes in " +
                             std::to_string(command.frames) +
                             (command.frames == 1 ? " frame\n" : " frames\n");
    const std::string heading = command.name + ": " + size;
    std::string fault;
    const auto document = parseJson(command.payload, fault);
    if (!document) return heading + row("", fault);
    return heading +
           (command.name == "MPEventGen" ? eventSummary(*document) : inventorySummary(*document));
}

}  // namespace tav::sim
