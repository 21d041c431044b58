#include "sim/rmc/Summary.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "sim/rmc/Json.h"

namespace tav::sim {
namespace {

struct Meaning {
    int eventId;
    std::string_view text;
};

constexpr std::array meanings = {
    Meaning{356, "the operating system has booted"},
    Meaning{359, "the previous shutdown was graceful"},
    Meaning{360, "the previous shutdown was critical"},
    Meaning{384, "status change of a Fibre Channel port"},
    Meaning{385, "status change of a Fibre Channel port"},
    Meaning{386, "status change of a Fibre Channel port"},
    Meaning{388, "status change of a Fibre Channel port"},
    Meaning{397, "status change of a storage controller"},
    Meaning{398, "status change of a storage controller"},
    Meaning{434, "host event"},
    Meaning{435, "host event"},
    Meaning{538, "status change of a physical disk"},
    Meaning{539, "status change of a physical disk"},
    Meaning{540, "status change of a physical disk"},
    Meaning{678, "status change of an Ethernet adapter"},
    Meaning{680, "status change of an Ethernet adapter"},
    Meaning{681, "RAID controller event"},
    Meaning{683, "RAID controller event"},
    Meaning{708, "test event"},
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

std::string meaningOf(const Json::Value& eventId) {
    if (!eventId.isInt()) return "unknown event";
    const auto* const known =
        std::find_if(meanings.begin(), meanings.end(),
                     [&](const Meaning& meaning) { return meaning.eventId == eventId.asInt(); });
    return std::string(known == meanings.end() ? "unknown event" : known->text);
}

std::string eventSummary(const Json::Value& event) {
    const Json::Value& id = member(event, "ID");
    std::string lines =
        row("event " + shown(id), meaningOf(id)) +
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
