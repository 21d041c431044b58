#include "sim/storelib/Records.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iterator>

#include "sim/rmc/Json.h"

namespace tav::sim {
namespace {

constexpr std::size_t mostControllers = 64;
constexpr std::size_t mostEntries = 256;

/// Numbers as a table: which member goes where.
struct Field {
    std::size_t offset, width;
    const char* name;
};

template <std::size_t count>
void putFields(RaidRecord& record, const Json::Value& source, const Field (&fields)[count]) {
    for (const Field& field : fields)
        record.put(field.offset, field.width, numberOf(source, field.name));
}

/// A count, and the "id" of each entry of `list` that is there at the start of an entry of the
/// record.
RaidRecord listOf(const Json::Value& list, std::size_t size, std::size_t countAt,
                  std::size_t entrySize, std::size_t idWidth) {
    constexpr std::size_t firstEntry = 8;
    RaidRecord record(size);
    std::size_t count = 0;
    for (const Json::Value& entry : list) {
        if (textOf(entry, "gone") == "yes") continue;
        record.put(firstEntry + count++ * entrySize, idWidth, numberOf(entry, "id"));
    }
    record.put(countAt, 4, static_cast<std::int64_t>(count));
    return record;
}

int interfaceCode(const std::string& name) {
    constexpr const char* names[] = {"SCSI", "SAS", "SATA", "FC"};
    const auto* const found = std::find(std::begin(names), std::end(names), name);
    return found == std::end(names) ? 0 : int(found - std::begin(names)) + 1;
}

// --- Events -------------------------------------------------------------------------------------

/// Where an argument of some type refers to a drive or a volume; at its start unless listed here.
struct ArgumentLayout {
    int type;
    std::size_t driveAt, volumeAt;
};
constexpr ArgumentLayout argumentLayouts[] = {
    {4, 0, 8}, {6, 20, 16}, {9, 0, 8}, {12, 8, 0}, {13, 8, 0}, {26, 16, 0},
};

ArgumentLayout layoutOf(std::int64_t type) {
    for (const ArgumentLayout& layout : argumentLayouts) {
        if (layout.type == type) return layout;
    }
    return {0, 0, 0};
}

void putArguments(RaidRecord& record, const Json::Value& controller, const Json::Value& event) {
    constexpr std::size_t arguments = 36;
    const ArgumentLayout layout = layoutOf(numberOf(event, "type"));
    if (event.isMember("drive")) {
        const std::size_t at = arguments + layout.driveAt;
        const std::int64_t id = numberOf(event, "drive");
        const Json::Value& drive = entryWithId(member(controller, "drives"), id);
        record.put(at, 2, id);
        record.put(at + 2, 1, numberOf(drive, "enclosure"));
        record.put(at + 3, 1, numberOf(drive, "slot"));
    }
    if (event.isMember("volume")) {
        record.put(arguments + layout.volumeAt, 2, numberOf(event, "volume"));
    }
    if (event.isMember("new")) {
        record.put(arguments + 4, 4, numberOf(event, "previous"));
        record.put(arguments + 8, 4, numberOf(event, "new"));
    }
}

}  // namespace

void RaidRecord::put(std::size_t offset, std::size_t width, std::int64_t value) {
    if (offset + width > bytes_.size()) return;
    for (std::size_t i = 0; i < width; ++i)
        bytes_[offset + i] = static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> 8 * i);
}

void RaidRecord::putText(std::size_t offset, std::size_t width, const std::string& text,
                         char fill) {
    if (offset + width > bytes_.size()) return;
    std::memset(bytes_.data() + offset, fill, width);
    std::memcpy(bytes_.data() + offset, text.data(), std::min(width, text.size()));
}

const Json::Value& entryWithId(const Json::Value& list, std::int64_t id) {
    for (const Json::Value& entry : list) {
        if (numberOf(entry, "id") == id) return entry;
    }
    return Json::Value::nullSingleton();
}

/// The count tells of more than the list has room for, where there are more.
RaidRecord controllerList(const Json::Value& raid) {
    const Json::Value& controllers = member(raid, "controllers");
    RaidRecord record(4 + 4 * mostControllers);
    record.put(2, 1, numberOf(raid, "simulation"));
    std::int64_t count = 0;
    for (const Json::Value& controller : controllers) {
        if (textOf(controller, "gone") == "yes") continue;
        record.put(4 + 4 * static_cast<std::size_t>(count++), 4, numberOf(controller, "id"));
    }
    record.put(0, 2, count);
    return record;
}

RaidRecord controllerInformation(const Json::Value& controller) {
    RaidRecord record(2384);
    putFields(record, controller,
              {{0, 2, "vendor"}, {2, 2, "device"}, {4, 2, "subVendor"}, {6, 2, "subDevice"}});
    record.putText(1600, 96, textOf(controller, "package"), '\0');
    return record;
}

RaidRecord pciInformation(const Json::Value& controller) {
    unsigned domain = 0;
    unsigned bus = 0;
    unsigned device = 0;
    unsigned function = 0;
    const std::string address = textOf(controller, "pci");
    std::sscanf(address.c_str(), "%x:%x:%x.%x", &domain, &bus, &device, &function);
    RaidRecord record(112);
    record.put(0, 4, bus);
    record.put(4, 1, device);
    record.put(5, 1, function);
    record.put(80, 4, domain);
    return record;
}

RaidRecord manufacturingRecord(const Json::Value& controller) {
    RaidRecord record(32);
    record.putText(2, 29, textOf(controller, "serial"), '\0');
    return record;
}

RaidRecord safeId(const Json::Value& controller) {
    RaidRecord record(41);
    record.putText(0, 40, "SAFE" + textOf(controller, "serial"), '\0');
    return record;
}

RaidRecord driveList(const Json::Value& controller) {
    return listOf(member(controller, "drives"), 8 + 24 * mostEntries, 4, 24, 2);
}

RaidRecord enclosureList(const Json::Value& /*controller*/) {
    return RaidRecord(4616);
}

RaidRecord volumeList(const Json::Value& controller) {
    return listOf(member(controller, "volumes"), 8 + 16 * mostEntries, 0, 16, 1);
}

RaidRecord driveInformation(const Json::Value& drive) {
    constexpr std::size_t inquiry = 4;  // standard INQUIRY data (SPC-4, 6.4.2)
    RaidRecord record(512);
    putFields(record, drive,
              {{0, 2, "id"},
               {165, 1, "type"},
               {184, 2, "state"},
               {232, 8, "blocks"},
               {259, 1, "slot"},
               {404, 2, "blockSize"}});
    record.putText(inquiry + 8, 8, textOf(drive, "interface") == "SATA" ? "ATA" : "SEAGATE", ' ');
    record.putText(inquiry + 16, 16, textOf(drive, "model"), ' ');
    record.putText(inquiry + 32, 4, textOf(drive, "revision"), ' ');
    record.putText(inquiry + 36, 32, textOf(drive, "serial"), ' ');
    record.put(189, 1, interfaceCode(textOf(drive, "interface")) << 4);
    record.put(370, 1, textOf(drive, "media") == "SSD" ? 1 : 0);
    return record;
}

RaidRecord volumeInformation(const Json::Value& volume) {
    RaidRecord record(384);
    putFields(record, volume,
              {{0, 1, "id"},
               {32, 1, "level"},
               {34, 1, "secondaryLevel"},
               {37, 1, "spanDepth"},
               {38, 1, "state"},
               {256, 8, "blocks"}});
    const std::string digits = textOf(volume, "identifier");
    for (std::size_t i = 0; i < 16 && 2 * i + 1 < digits.size(); ++i)
        record.put(312 + i, 1, std::strtol(digits.substr(2 * i, 2).c_str(), nullptr, 16));
    return record;
}

RaidRecord volumeDrives(const Json::Value& volume) {
    const Json::Value& drives = member(volume, "drives");
    RaidRecord record(4 + 2 * mostEntries);
    record.put(0, 4, drives.size());
    std::size_t offset = 4;
    for (const Json::Value& drive : drives) {
        record.put(offset, 2, drive.asInt64());
        offset += 2;
    }
    return record;
}

RaidRecord sequenceInformation(std::uint32_t newest) {
    RaidRecord record(20);
    record.put(0, 4, newest);
    return record;
}

/// The controller's id, then the event record of its firmware as public kernel drivers have it.
RaidRecord eventDetail(const Json::Value& controller, const Json::Value& event,
                       std::uint32_t sequence) {
    RaidRecord record(4 + 256);
    record.put(0, 4, numberOf(controller, "id"));
    record.put(4, 4, sequence);
    record.put(8, 4, std::time(nullptr));
    putFields(record, event,
              {{12, 4, "code"}, {16, 2, "locale"}, {19, 1, "class"}, {20, 1, "type"}});
    putArguments(record, controller, event);
    record.putText(132, 127, textOf(event, "text"), '\0');
    return record;
}

}  // namespace tav::sim
