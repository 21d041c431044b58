#include "tools/Sections.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <utility>

#include "hwlib/location/physloc.h"
#include "tools/CellText.h"
#include "tools/LocationCode.h"

namespace tav::ctl {
namespace {

// --- Values, as people read them -----------------------------------------------------------------

/// With `places` decimals.
std::string quantity(double value, int places, const char* unit) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.*f %s", places, value, unit);
    return text.data();
}

/// In the units that drives are sold in.
std::string bytesText(const Json::Value& value) {
    constexpr std::array units = {"B", "kB", "MB", "GB", "TB", "PB", "EB"};
    if (!value.isUInt64() || value.asUInt64() == 0) return {};
    double size = static_cast<double>(value.asUInt64());
    std::size_t unit = 0;
    for (; size >= 999.95 && unit + 1 < units.size(); ++unit)
        size /= 1000;
    return quantity(size, unit == 0 ? 0 : 1, units.at(unit));
}

std::string speedText(const Json::Value& value) {
    if (!value.isUInt64() || value.asUInt64() == 0) return {};
    const auto mbps = static_cast<double>(value.asUInt64());
    if (mbps < 1000) return quantity(mbps, 0, "Mb/s");
    return quantity(mbps / 1000, value.asUInt64() % 1000 == 0 ? 0 : 1, "Gb/s");
}

std::string gibibytesText(const Json::Value& value) {
    return value.isNumeric() ? quantity(value.asDouble(), 1, "GiB") : std::string();
}

/// Placeholders tell nothing; a list is its members.
std::string plainText(const Json::Value& value) {
    constexpr std::array<std::string_view, 5> placeholders = {
        "NotAvailable", "Not Available", "NOT AVAILABLE", "Not-Available", "NA"};
    if (value.isString()) {
        std::string text = value.asString();
        const bool isNothing =
            std::find(placeholders.begin(), placeholders.end(), text) != placeholders.end();
        return isNothing ? std::string() : text;
    }
    if (value.isArray()) {
        std::string list;
        for (const Json::Value& member : value) {
            const Json::Value& text = member.isObject() ? memberIn(member, "Address") : member;
            list += (list.empty() ? "" : ", ") + plainText(text);
        }
        return list;
    }
    if (value.isNull() || value.isObject()) return {};
    return value.asString();
}

std::string slotText(const Json::Value& value) {
    return value.isInt() && value.asInt() >= 0 ? value.asString() : std::string();
}

/// The way to the component of a location code.
std::string placeText(const Json::Value& value) {
    if (!value.isString()) return {};
    const auto code = parseLocationCode(value.asString());
    char text[PHYSLOC_TEXT_SIZE] = "";
    if (!code ||
        physloc_get_string(PHYSLOC_FORM_LONG, static_cast<std::uint32_t>(*code),
                           static_cast<std::uint32_t>(*code >> 32U), text) != PHYSLOC_SUCCESS) {
        return {};
    }
    return text;
}

std::string timeValueText(const Json::Value& value) {
    return value.isInt64() && value.asInt64() > 0
               ? timeText(static_cast<std::time_t>(value.asInt64()))
               : std::string();
}

std::string secondsText(const Json::Value& value) {
    return value.isNumeric() ? quantity(value.asDouble(), 3, "s") : std::string();
}

// --- Tables of records ---------------------------------------------------------------------------

struct Field {
    const char* title;
    std::array<const char*, 3> path;  ///< from the record inwards
    std::string (*text)(const Json::Value& value);
    bool isNumber = false;
};

const Json::Value& valueAt(const Json::Value& record, const Field& field) {
    const Json::Value* value = &record;
    for (const char* const step : field.path) {
        if (step != nullptr) value = &memberIn(*value, step);
    }
    return *value;
}

constexpr Field health{"Health", {"Status", "Health"}, plainText};
constexpr Field state{"State", {"Status", "State"}, plainText};
constexpr Field code{"Location", {"Oem", "PhysicalLocation"}, plainText};
constexpr Field place{"Place", {"Oem", "PhysicalLocation"}, placeText};
constexpr Field model{"Model", {"Model"}, plainText};
constexpr Field serial{"Serial number", {"SerialNumber"}, plainText};
constexpr Field firmware{"Firmware", {"FirmwareVersion"}, plainText};
constexpr Field capacity{"Capacity", {"CapacityBytes"}, bytesText, true};
constexpr Field protocol{"Protocol", {"Protocol"}, plainText};

constexpr std::array controllerFields = {health,
                                         state,
                                         model,
                                         serial,
                                         firmware,
                                         protocol,
                                         Field{"Description", {"Oem", "Description"}, plainText},
                                         code,
                                         place};
constexpr std::array driveFields = {health,
                                    state,
                                    Field{"Slot", {"Oem", "Slot"}, slotText, true},
                                    model,
                                    serial,
                                    capacity,
                                    Field{"Media", {"MediaType"}, plainText},
                                    protocol,
                                    Field{"Revision", {"Revision"}, plainText},
                                    code,
                                    place};
constexpr std::array volumeFields = {health,
                                     state,
                                     Field{"Device", {"Oem", "DeviceName"}, plainText},
                                     Field{"Type", {"VolumeType"}, plainText},
                                     capacity,
                                     Field{"Name", {"DurableName"}, plainText},
                                     Field{"Drives", {"Drives"}, plainText}};
constexpr std::array ethernetFields = {health,
                                       state,
                                       Field{"Device", {"Oem", "DeviceName"}, plainText},
                                       model,
                                       Field{"MAC address", {"MACAddress"}, plainText},
                                       Field{"Speed", {"SpeedMbps"}, speedText, true},
                                       firmware,
                                       serial,
                                       code,
                                       place};
constexpr std::array fibreChannelFields = {health,
                                           state,
                                           model,
                                           Field{"WWPN", {"WWPN"}, plainText},
                                           Field{"WWNN", {"WWNN"}, plainText},
                                           firmware,
                                           serial,
                                           code,
                                           place};

std::vector<Column> columnsFor(std::span<const Field> fields) {
    std::vector<Column> columns(fields.size());
    std::transform(fields.begin(), fields.end(), columns.begin(), [](const Field& field) {
        return Column{field.title, field.isNumber};
    });
    return columns;
}

std::vector<std::string> cellsOf(const Json::Value& record, std::span<const Field> fields) {
    std::vector<std::string> cells(fields.size());
    std::transform(fields.begin(), fields.end(), cells.begin(),
                   [&](const Field& field) { return field.text(valueAt(record, field)); });
    return cells;
}

/// The worst first; within a health the order stays.
int severityOf(const Json::Value& record) {
    constexpr std::array<std::string_view, 3> worstFirst = {"Critical", "Warning", "Unknown"};
    const std::string text = textIn(memberIn(record, "Status"), "Health");
    if (text == "OK") return static_cast<int>(worstFirst.size());
    const auto* const found = std::find(worstFirst.begin(), worstFirst.end(), text);
    return found == worstFirst.end() ? 2 : static_cast<int>(found - worstFirst.begin());
}

Tone toneOf(int severity) {
    constexpr std::array tones = {Tone::Bad, Tone::Doubtful, Tone::Doubtful, Tone::Plain};
    return tones.at(static_cast<std::size_t>(severity));
}

template <const auto& fields>
void printRecords(const Json::Value& records, std::ostream& out, const Look& look) {
    std::vector<std::pair<int, const Json::Value*>> order;
    order.reserve(records.size());
    for (const Json::Value& record : records)
        order.emplace_back(severityOf(record), &record);
    std::stable_sort(order.begin(), order.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    Table table(columnsFor(fields));
    for (const auto& [severity, record] : order)
        table.add({cellsOf(*record, fields), toneOf(severity)});
    table.print(out, look);
}

/// A name and a value on each line.
class Facts {
 public:
    Facts(std::ostream& out, const Look& look) : out_(out), look_(look) {}

    void tell(const char* name, const std::string& value, Tone tone = Tone::Plain) {
        constexpr std::size_t nameWidth = 15;
        constexpr std::size_t widestValue = 400;
        if (value.empty()) return;
        std::string line(name);
        line.append(nameWidth - std::min(nameWidth, line.size()), ' ');
        const std::size_t room =
            look_.columns > nameWidth ? look_.columns - nameWidth : widestValue;
        out_ << line << toned(cellText(value, room, look_.isUtf8), tone, look_) << '\n';
    }

 private:
    std::ostream& out_;
    const Look& look_;
};

void printHost(const Json::Value& host, std::ostream& out, const Look& look) {
    Facts facts(out, look);
    const Json::Value& memory = memberIn(host, "OSMemorySummary");
    const auto text = [&](const char* member) { return plainText(memberIn(host, member)); };
    facts.tell("host", text("HostName"));
    facts.tell("system", text("OSName") + ' ' + text("OSVersion"));
    facts.tell("description", text("OSDescription"));
    facts.tell("memory", gibibytesText(memberIn(memory, "TotalSystemMemoryGiB")));
    facts.tell("free memory", gibibytesText(memberIn(memory, "TotalFreeSystemMemoryGiB")));
    facts.tell("addresses", text("IPv4Addresses"));
}

void printEvents(const Json::Value& events, std::ostream& out, const Look& look) {
    constexpr std::array fields = {Field{"Time", {"Time"}, timeValueText},
                                   Field{"ID", {"ID"}, plainText, true},
                                   Field{"Outcome", {"Outcome"}, plainText},
                                   Field{"Why not", {"Why"}, plainText},
                                   Field{"About", {"Event", "VariableData", "Type"}, plainText},
                                   Field{"What", {"Event", "VariableData", "EventInfo"}, plainText},
                                   Field{"Source", {"Event", "Source"}, plainText},
                                   Field{"Location", {"Event", "PhysicalLocation"}, plainText},
                                   Field{"Place", {"Event", "PhysicalLocation"}, placeText}};
    Table table(columnsFor(fields));
    for (Json::ArrayIndex i = events.size(); i-- > 0;) {  // the newest first
        const bool isDelivered = textIn(events[i], "Outcome") == "Delivered";
        table.add({cellsOf(events[i], fields), isDelivered ? Tone::Plain : Tone::Bad});
    }
    table.print(out, look);
}

std::string deliveryText(const Json::Value& delivery) {
    const std::string acknowledged = timeValueText(memberIn(delivery, "Acknowledged"));
    const Json::Value& failures = memberIn(delivery, "Failures");
    std::string text =
        acknowledged.empty() ? "none acknowledged yet" : "acknowledged " + acknowledged;
    if (failures.isUInt() && failures.asUInt() > 0) {
        text += "; " + failures.asString() + " failed since, the last " +
                timeValueText(memberIn(delivery, "Failed")) + ": " + textIn(delivery, "Why");
    }
    return text;
}

void printManagers(const Json::Value& managers, std::ostream& out, const Look& look) {
    constexpr std::array fields = {Field{"Builds", {"Builds"}, plainText, true},
                                   Field{"Time", {"BuildSeconds"}, secondsText, true},
                                   Field{"Last build", {"LastBuild"}, timeValueText},
                                   Field{"Polls", {"Polls"}, plainText, true},
                                   Field{"Time", {"PollSeconds"}, secondsText, true},
                                   Field{"Last poll", {"LastPoll"}, timeValueText}};
    std::vector<Column> columns = columnsFor(fields);
    columns.insert(columns.begin(), {"Manager"});
    Table table(std::move(columns));
    if (!managers.isObject()) return;
    for (const std::string& name : managers.getMemberNames()) {
        std::vector<std::string> cells = cellsOf(managers[name], fields);
        cells.insert(cells.begin(), name);
        table.add({std::move(cells)});
    }
    table.print(out, look);
}

void printService(const Json::Value& service, std::ostream& out, const Look& look) {
    Facts facts(out, look);
    facts.tell("version", textIn(service, "Version"));
    facts.tell("process", plainText(memberIn(service, "Process")));
    facts.tell("started", timeValueText(memberIn(service, "Started")));
    facts.tell("stopped", timeValueText(memberIn(service, "Stopped")), Tone::Bad);
    for (const Json::Value& loop : memberIn(service, "StandingStill"))
        facts.tell("stands still", textIn(loop, "Loop"), Tone::Bad);
    for (const Json::Value& silent : memberIn(service, "Unanswered")) {
        facts.tell("no answer",
                   textIn(silent, "Who") + ", asked for " + textIn(silent, "What") + ", since " +
                       timeValueText(memberIn(silent, "Since")),
                   Tone::Bad);
    }
    facts.tell("inventory", deliveryText(memberIn(service, "Inventories")));
    facts.tell("events", deliveryText(memberIn(service, "Events")));
    facts.tell("frames", plainText(memberIn(service, "Frames")));
    const Json::Value& failures = memberIn(service, "FailuresByStep");
    for (const std::string& step :
         failures.isObject() ? failures.getMemberNames() : std::vector<std::string>()) {
        const Json::Value& count = failures[step];
        if (count.isUInt64() && count.asUInt64() > 0)
            facts.tell("failures", step + ": " + count.asString());
    }
    const Json::Value& use = memberIn(service, "Use");
    facts.tell("processor time", secondsText(memberIn(use, "CpuSeconds")));
    facts.tell("memory", bytesText(memberIn(use, "ResidentBytes")));
    facts.tell("threads", plainText(memberIn(use, "Threads")));
    out << '\n';
    printManagers(memberIn(service, "Managers"), out, look);
}

// --- Where they stand in the files ---------------------------------------------------------------

const Json::Value& collection(const Shown& shown) {
    return memberIn(shown.inventory.json, "HostDataCollection");
}

const Json::Value& listIn(const Json::Value& json, const char* member) {
    static const Json::Value none(Json::arrayValue);
    const Json::Value& list = memberIn(json, member);
    return list.isArray() ? list : none;
}

template <const auto& member>
const Json::Value& pickList(const Shown& shown) {
    return listIn(collection(shown), member);
}
constexpr char controllersMember[] = "StorageControllers";
constexpr char drivesMember[] = "Drives";
constexpr char volumesMember[] = "Volumes";
constexpr char ethernetMember[] = "EthernetDevices";

const Json::Value& pickHost(const Shown& shown) {
    return memberIn(memberIn(collection(shown), "Oem"), "HostOSInfo");
}
const Json::Value& pickFibreChannel(const Shown& shown) {
    return listIn(shown.inventory.json, "FibreChannelDevices");
}
const Json::Value& pickEvents(const Shown& shown) {
    return listIn(shown.events.json, "Events");
}
const Json::Value& pickService(const Shown& shown) {
    return shown.health.json;
}

}  // namespace

const std::vector<Section> sections{
    {"host", "Host", "HostOSInfo", &Shown::inventory, pickHost, printHost},
    {"storage", controllersMember, controllersMember, &Shown::inventory,
     pickList<controllersMember>, printRecords<controllerFields>},
    {"drives", drivesMember, controllersMember, &Shown::inventory, pickList<drivesMember>,
     printRecords<driveFields>},
    {"volumes", volumesMember, controllersMember, &Shown::inventory, pickList<volumesMember>,
     printRecords<volumeFields>},
    {"ethernet", ethernetMember, ethernetMember, &Shown::inventory, pickList<ethernetMember>,
     printRecords<ethernetFields>},
    {"fibre-channel", "FibreChannelDevices", "FibreChannelDevices", &Shown::inventory,
     pickFibreChannel, printRecords<fibreChannelFields>},
    {"events", "Events", nullptr, &Shown::events, pickEvents, printEvents},
    {"service", "Service", nullptr, &Shown::health, pickService, printService},
};

std::time_t asOf(const Section& section, const Shown& shown) {
    if (section.manager == nullptr) return timeIn(shown.health.json, "Written");
    return timeIn(memberIn(shown.inventory.json, "Built"), section.manager);
}

}  // namespace tav::ctl
