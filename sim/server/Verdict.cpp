#include "sim/server/Verdict.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string_view>

#include "sim/rmc/Json.h"

namespace tav::sim {
namespace {

/// A resource of one section and its condition: "S4700001: OK".
using Conditions = std::multiset<std::string>;

std::string condition(const std::string& identity, const std::string& state) {
    return identity + ": " + state;
}

// What a server's parts have to be reported as.

std::string diskHealth(const Json::Value& disk) {
    constexpr int wornOut = 95;
    if (textOf(disk, "answers") == "no" || textOf(disk, "present") == "no") return "Critical";
    return numberOf(disk, "wear") >= wornOut || numberOf(disk, "errors") > 0 ? "Warning" : "OK";
}

std::string nvmeHealth(const Json::Value& controller) {
    constexpr int wornOut = 95;
    if (textOf(controller, "answers") == "no" || textOf(controller, "state") == "dead") {
        return "Critical";
    }
    const bool isSick =
        numberOf(controller, "used") >= wornOut || numberOf(controller, "mediaErrors") > 0 ||
        numberOf(controller, "criticalWarning") != 0 ||
        numberOf(controller, "spare") < numberOf(controller, "spareThreshold") ||
        numberOf(controller, "temperature") >= numberOf(controller, "warningTemperature");
    return isSick ? "Warning" : "OK";
}

std::string driveHealth(const Json::Value& drive) {
    constexpr std::array failed = {0x01, 0x10, 0x11};
    const auto state = numberOf(drive, "state");
    return std::find(failed.begin(), failed.end(), state) == failed.end() ? "OK" : "Critical";
}

std::string volumeState(const Json::Value& volume) {
    constexpr std::array states = {"Offline", "Partially degraded", "Degraded", "Optimal"};
    const auto state = static_cast<std::size_t>(numberOf(volume, "state"));
    return state < states.size() ? states[state] : "Unknown";
}

std::string linkState(const Json::Value& adapter) {
    return textOf(adapter, "link") == "up" ? "Running" : "Down";
}

Conditions expectedDrives(const Json::Value& server) {
    Conditions drives;
    for (const Json::Value& disk : member(server, "disks"))
        drives.insert(condition(textOf(disk, "serial"), diskHealth(disk)));
    for (const Json::Value& controller : member(server, "nvme")) {
        for (std::int64_t id = 1; id <= numberOf(controller, "namespaces"); ++id)
            drives.insert(condition(textOf(controller, "serial"), nvmeHealth(controller)));
    }
    for (const Json::Value& controller : member(member(server, "raid"), "controllers")) {
        for (const Json::Value& drive : member(controller, "drives"))
            drives.insert(condition(textOf(drive, "serial"), driveHealth(drive)));
    }
    return drives;
}

Conditions expectedVolumes(const Json::Value& server) {
    Conditions volumes;
    for (const Json::Value& controller : member(member(server, "raid"), "controllers")) {
        for (const Json::Value& volume : member(controller, "volumes"))
            volumes.insert(condition(textOf(volume, "identifier"), volumeState(volume)));
    }
    return volumes;
}

Conditions expectedAdapters(const Json::Value& server) {
    Conditions adapters;
    for (const Json::Value& adapter : member(server, "ethernet"))
        adapters.insert(condition(textOf(adapter, "name"), linkState(adapter)));
    return adapters;
}

// What was reported.

Conditions reported(const Json::Value& section, const char* object, const char* identity,
                    const char* status) {
    Conditions conditions;
    for (const Json::Value& record : section) {
        const Json::Value& holder = *object == '\0' ? record : member(record, object);
        conditions.insert(
            condition(textOf(holder, identity), textOf(member(record, "Status"), status)));
    }
    return conditions;
}

void compareSection(std::string_view name, const Conditions& expected, const Conditions& found,
                    std::vector<std::string>& faults) {
    Conditions missing;
    Conditions surplus;
    std::set_difference(expected.begin(), expected.end(), found.begin(), found.end(),
                        std::inserter(missing, missing.end()));
    std::set_difference(found.begin(), found.end(), expected.begin(), expected.end(),
                        std::inserter(surplus, surplus.end()));
    for (const std::string& entry : missing)
        faults.push_back(std::string(name) + ": not reported: " + entry);
    for (const std::string& entry : surplus)
        faults.push_back(std::string(name) + ": reported, but not so: " + entry);
}

bool isExpectedEvent(const Json::Value& event, const std::string& expected) {
    const std::size_t at = expected.find('@');
    return textOf(event, "ID") == expected.substr(0, at) &&
           (at == std::string::npos ||
            oneLine(event).find(expected.substr(at + 1)) != std::string::npos);
}

}  // namespace

std::vector<Reported> readRecord(const std::string& text, std::vector<std::string>& faults) {
    std::vector<Reported> reports;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::string fault;
        const auto entry = parseJson(line, fault);
        const std::string violation = entry ? textOf(*entry, "violation") : "unreadable line";
        if (!violation.empty()) {
            faults.push_back("violation: " + violation);
            continue;
        }
        if (!entry->isMember("command")) continue;
        auto document = parseJson(textOf(*entry, "payload"), fault);
        if (!document) {
            faults.push_back("unreadable report: " + fault);
            continue;
        }
        reports.push_back({textOf(*entry, "command"), std::move(*document)});
    }
    return reports;
}

std::vector<std::string> compareEvents(std::span<const Reported> reports,
                                       std::span<const std::string> expected) {
    std::vector<std::string> faults;
    std::size_t next = 0;
    for (const Reported& report : reports) {
        if (report.command != "MPEventGen") continue;
        if (next < expected.size() && isExpectedEvent(report.document, expected[next])) {
            ++next;
        } else {
            faults.push_back("event " + textOf(report.document, "ID") + " came where " +
                             (next < expected.size() ? expected[next] : std::string("none")) +
                             " was expected");
        }
    }
    for (; next < expected.size(); ++next)
        faults.push_back("event " + expected[next] + " has not come");
    return faults;
}

std::vector<std::string> compareInventory(std::span<const Reported> reports,
                                          const Json::Value& server) {
    const auto last = std::find_if(reports.rbegin(), reports.rend(), [](const Reported& report) {
        return report.command == "WriteInventory";
    });
    if (last == reports.rend()) return {"no inventory has come"};
    const Json::Value& collection = member(last->document, "HostDataCollection");
    std::vector<std::string> faults;
    compareSection("Drives", expectedDrives(server),
                   reported(member(collection, "Drives"), "", "SerialNumber", "Health"), faults);
    compareSection("Volumes", expectedVolumes(server),
                   reported(member(collection, "Volumes"), "", "DurableName", "State"), faults);
    compareSection("EthernetDevices", expectedAdapters(server),
                   reported(member(collection, "EthernetDevices"), "Oem", "DeviceName", "State"),
                   faults);
    return faults;
}

}  // namespace tav::sim
