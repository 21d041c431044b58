#include "storage/raid/storelib_decoding.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "base/printed.h"

namespace tav::storelib {
namespace {

template <class Key, class Value>
struct Row {
    Key key;
    Value value;
};

template <class Table, class Key>
const auto* find(const Table& table, Key key) {
    const auto* const row = std::find_if(table.begin(), table.end(),
                                         [key](const auto& each) { return each.key == key; });
    return row == table.end() ? nullptr : &row->value;
}

constexpr std::array driveStates = {
    Row<std::uint16_t, StateText>{0x00, {"Online", Ok}},
    Row<std::uint16_t, StateText>{0x01, {"Unconfigured bad", Critical}},
    Row<std::uint16_t, StateText>{0x02, {"Online", Ok}},
    Row<std::uint16_t, StateText>{0x10, {"Offline", Critical}},
    Row<std::uint16_t, StateText>{0x11, {"Failed", Critical}},
    Row<std::uint16_t, StateText>{0x14, {"Rebuild", Ok}},
    Row<std::uint16_t, StateText>{0x18, {"Online", Ok}},
    Row<std::uint16_t, StateText>{0x20, {"Online", Ok}},
    Row<std::uint16_t, StateText>{0x40, {"Online", Ok}},
};

constexpr std::array volumeStates = {
    Row<std::uint8_t, StateText>{0, {"Offline", Critical}},
    Row<std::uint8_t, StateText>{1, {"Partially degraded", Warning}},
    Row<std::uint8_t, StateText>{2, {"Degraded", Critical}},
    Row<std::uint8_t, StateText>{3, {"Optimal", Ok}},
};

constexpr std::array interfaceTypes = {
    Row<int, const char*>{1, "Prallel SCSI"},
    Row<int, const char*>{2, "SAS"},
    Row<int, const char*>{3, "SATA"},
    Row<int, const char*>{4, "FC"},
};

using RaidLevel = Row<std::uint8_t, const char*>;
constexpr std::array BASIC_RAID_TYPES = {
    RaidLevel{0, "RAID0"},    RaidLevel{1, "RAID1"}, RaidLevel{3, "RAID3"},
    RaidLevel{5, "RAID5"},    RaidLevel{6, "RAID6"}, RaidLevel{0x0F, "SingleDisk"},
    RaidLevel{0x11, "PRL11"},
};
/// For volumes of several spans. Those of RAID 5 and 6 are not named by their primary level.
constexpr std::array HYBRID_RAID_TYPES = {
    RaidLevel{0x00, "RAID00"},
    RaidLevel{0x01, "RAID01"},
    RaidLevel{0x11, "PRL11 with Spanning"},
};

constexpr std::uint64_t mebibyte = 1U << 20U;

/// The text without any white space, wherever it stands.
std::string withoutSpaces(std::string_view field) {
    std::string text = fieldText(field);
    std::erase_if(text, [](unsigned char c) { return std::isspace(c) != 0; });
    return text;
}

template <std::size_t Size>
std::string_view view(const char (&field)[Size]) {
    return {field, Size};
}

}  // namespace

StateText driveState(std::uint16_t firmwareState) {
    const StateText* const state = find(driveStates, firmwareState);
    return state == nullptr ? StateText{"Unknown", Unknown} : *state;
}

StateText volumeState(std::uint8_t state) {
    const StateText* const known = find(volumeStates, state);
    return known == nullptr ? StateText{"Undefined", Unknown} : *known;
}

const char* raidLevelText(std::uint8_t primary, std::uint8_t /*qualifier*/, std::uint8_t secondary,
                          std::uint8_t spanDepth) {
    constexpr std::uint8_t namedByItself = 3;
    const char* const* const basic = find(BASIC_RAID_TYPES, primary);
    if (basic == nullptr) return "";
    if (secondary == namedByItself) return "SRL 3";
    if (spanDepth <= 1) return *basic;
    const char* const* const hybrid = find(HYBRID_RAID_TYPES, primary);
    return hybrid == nullptr ? "" : *hybrid;
}

std::string fieldText(std::string_view field) {
    return std::string(field.substr(0, field.find('\0')));
}

std::uint32_t pciIdOf(const _MR_CTRL_INFO& record) {
    return std::uint32_t{record.pciDeviceId} << 16U | record.vendorId;
}

std::string pciLocationText(const SL_PCI_INFO_T& record) {
    return printed("%.04x:%.02x:%.02x.%.01x", record.domain, record.bus, unsigned{record.device},
                   unsigned{record.function});
}

std::optional<PD_INFO> toDrive(const _MR_PD_INFO& record, std::uint16_t deviceId) {
    constexpr std::uint8_t disk = 0;
    if (record.scsiDeviceType != disk) return std::nullopt;
    const StateText state = driveState(record.firmwareState);
    const char* const* const interface = find(interfaceTypes, record.interfaceType >> 4);
    PD_INFO drive;
    drive.serialNumber = withoutSpaces(view(record.vendorSpecific));
    drive.model = withoutSpaces(view(record.productId));
    drive.capacityBytes = record.rawSize * record.userDataBlockSize;
    drive.interfaceType = interface == nullptr ? "Unknown" : *interface;
    drive.mediaType = record.mediaType != 0 ? "SSD" : "HDD";
    drive.revision = fieldText(view(record.revision));
    drive.slotNumber = record.slotNumber;
    drive.firmwareState = state.text;
    drive.health = state.health;
    drive.deviceId = deviceId;
    return drive;
}

std::uint64_t capacityOf(const _MR_LD_INFO& record, std::uint32_t blockSize) {
    return record.size * blockSize / mebibyte * mebibyte;
}

LD_INFO toVolume(const _MR_LD_INFO& record, std::uint32_t blockSize) {
    const StateText state = volumeState(record.state);
    LD_INFO volume;
    volume.targetId = record.targetId;
    for (const std::uint8_t byte : record.identifier)
        volume.durableName += printed("%02x", unsigned{byte});
    volume.raidLevel = raidLevelText(record.primaryRaidLevel, record.raidLevelQualifier,
                                     record.secondaryRaidLevel, record.spanDepth);
    volume.capacityBytes = capacityOf(record, blockSize);
    volume.state = state.text;
    volume.health = state.health;
    return volume;
}

}  // namespace tav::storelib
