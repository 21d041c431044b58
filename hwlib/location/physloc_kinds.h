#pragma once

// What the location codes are made of, as data: encoding and decoding (physloc.cpp) and all four
// texts (physloc_text.cpp) of all kinds follow from one row per kind.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "hwlib/location/physloc.h"

namespace tav::physloc {

using DataField = std::uint8_t physloc_data_t::*;

inline constexpr DataField rack = &physloc_data_t::rack;
inline constexpr DataField u = &physloc_data_t::u_position;
inline constexpr DataField hub = &physloc_data_t::hub;
inline constexpr DataField hublet = &physloc_data_t::hublet;
inline constexpr DataField socket = &physloc_data_t::cpu_socket;
inline constexpr DataField core = &physloc_data_t::cpu_core;
inline constexpr DataField link = &physloc_data_t::link;
inline constexpr DataField slot = &physloc_data_t::slot;
inline constexpr DataField group = &physloc_data_t::group;
inline constexpr DataField instance = &physloc_data_t::instance;

inline constexpr std::uint8_t noPort = 255;

struct SocketRow {
    std::uint8_t socket, hub, hublet;
};
inline constexpr std::array<SocketRow, 4> socketTable{{{0, 0, 1}, {1, 0, 0}, {2, 1, 1}, {3, 1, 0}}};

struct PcieSlotRow {
    std::uint8_t slot, socket, rootPort;
};
// clang-format off
inline constexpr std::array<PcieSlotRow, 18> pcieSlotTable{{
    {0, 0, 0},  {1, 0, 7},  {2, 0, 1},  {3, 0, 5},  {4, 1, 9},  {5, 0, 11},
    {6, 1, 5},  {7, 1, 1},  {8, 1, 7},  {9, 2, 7},  {10, 2, 1}, {11, 2, 5},
    {12, 3, 9}, {13, 2, 9}, {14, 3, 5}, {15, 3, 1}, {16, 3, 7}, {17, 0, 9},
}};
// clang-format on

// Six DIMMs per socket, three on each of its two memory controllers (the groups). They are numbered
// through the chassis in this order; the numbers 9 and 15 are not used.
inline constexpr std::uint8_t dimmsPerGroup = 3;
inline constexpr std::array<physloc_dimm_info_t, 24> dimmTable{{
    {0, 0, 0, 1},  {0, 0, 1, 2},  {0, 0, 2, 3},  {0, 1, 0, 4},  {0, 1, 1, 5},  {0, 1, 2, 6},
    {1, 0, 0, 7},  {1, 0, 1, 8},  {1, 0, 2, 10}, {1, 1, 0, 11}, {1, 1, 1, 12}, {1, 1, 2, 13},
    {2, 0, 0, 14}, {2, 0, 1, 16}, {2, 0, 2, 17}, {2, 1, 0, 18}, {2, 1, 1, 19}, {2, 1, 2, 20},
    {3, 0, 0, 21}, {3, 0, 1, 22}, {3, 0, 2, 23}, {3, 1, 0, 24}, {3, 1, 1, 25}, {3, 1, 2, 26},
}};

// Sixteen ports of an ASIC, numbered like the connectors they lead to; two lead nowhere.
struct FabricRow {
    std::uint8_t quad, port, number;
};
// clang-format off
inline constexpr std::array<FabricRow, 16> fabricMap{{
    {0, 0, 1},      {0, 1, 2},  {0, 2, 3},      {0, 3, 4},
    {1, 0, 5},      {1, 1, 6},  {1, 2, 7},      {1, 3, 8},
    {2, 0, noPort}, {2, 1, 10}, {2, 2, 11},     {2, 3, 12},
    {3, 0, 13},     {3, 1, 14}, {3, 2, noPort}, {3, 3, 16},
}};
// clang-format on

/// One byte of a code: where an encoder takes it from, which is also what a decoder makes of it.
struct CodeByte {
    enum Source : std::uint8_t {
        Kept,             // not written, so it keeps the preset
        Fixed,            // `value`
        Field,            // `field` of the record
        SocketAndThread,  // thread in the high nibble, socket in the low one
        QuadAndPort,      // quad in the high nibble, port in the low one
        DimmOfGroup,      // number of the DIMM named by socket, group and index in the group
        DimmOfSocket,     // number of the DIMM named by socket and index in the socket
        RootPort,         // root port of the slot
    };
    Source source = Kept;
    std::uint8_t value = 0;
    DataField field = nullptr;
};
inline constexpr CodeByte kept{};
constexpr CodeByte is(std::uint8_t value) {
    return {CodeByte::Fixed, value, nullptr};
}
constexpr CodeByte from(DataField field) {
    return {CodeByte::Field, 0, field};
}

using Layout = std::array<CodeByte, 8>;
constexpr Layout inChassis(std::uint8_t kindClass, CodeByte five = kept, CodeByte six = kept) {
    return {is(kindClass), kept, kept, from(u), from(rack), five, six, kept};
}
constexpr Layout onHub(std::uint8_t kindClass, CodeByte five = kept) {
    Layout layout = inChassis(kindClass, five);
    layout[1] = from(hub);
    return layout;
}
constexpr Layout onSocket(std::uint8_t kindClass, CodeByte five = kept, CodeByte six = kept,
                          CodeByte seven = kept) {
    Layout layout = onHub(kindClass, five);
    layout[2] = from(hublet);
    layout[6] = six;
    layout[7] = seven;
    return layout;
}
constexpr Layout inZone(std::uint8_t kindClass, std::uint8_t two, CodeByte five = kept) {
    Layout layout = inChassis(kindClass, five);
    layout[2] = is(two);
    return layout;
}
constexpr Layout rackAlone(std::uint8_t kindClass) {
    Layout layout = inChassis(kindClass);
    layout[3] = kept;
    return layout;
}

/// One step in checking a record; a kind's steps are taken in order, the first failure counts.
/// Look-ups also complete the record with what they find.
struct Check {
    enum Rule : std::uint8_t {
        None,
        Range,         // `field` lies between `low` and `high`
        RangeOrUnset,  // the same; an unset field counts as 0
        Socket,        // by number or by position
        PcieSlot,      // and with it the socket
        DimmOfGroup,
        DimmOfSocket,
        Connector,  // `link` is the number of a fabric connector
    };
    Rule rule = None;
    DataField field = nullptr;
    std::uint8_t low = 0;
    std::uint8_t high = 0;
    int failure = PHYSLOC_SUCCESS;
};
constexpr Check atMost(DataField field, std::uint8_t high, int failure) {
    return {Check::Range, field, 0, high, failure};
}
constexpr Check slotAtMost(std::uint8_t high) {
    return atMost(slot, high, PHYSLOC_INVALID_SLOT);
}
constexpr Check linkAtMost(std::uint8_t high) {
    return atMost(link, high, PHYSLOC_INVALID_LINK);
}
constexpr Check instanceIn(std::uint8_t low, std::uint8_t high) {
    return {Check::Range, instance, low, high, PHYSLOC_INVALID_INSTANCE};
}
constexpr Check instanceUnsetOrAtMost(std::uint8_t high) {
    return {Check::RangeOrUnset, instance, 0, high, PHYSLOC_INVALID_INSTANCE};
}
inline constexpr Check coreInSocket = atMost(core, 31, PHYSLOC_INVALID_CPU_CORE);
inline constexpr Check groupOfDimm = atMost(group, 1, PHYSLOC_INVALID_DIMM_GROUP);
inline constexpr Check knownHub = atMost(hub, 1, PHYSLOC_INVALID_HUB);
inline constexpr Check knownSocket{Check::Socket, nullptr, 0, 0, PHYSLOC_INVALID_CPU_SOCKET};
inline constexpr Check knownSlot{Check::PcieSlot, nullptr, 0, 0, PHYSLOC_INVALID_SLOT};
inline constexpr Check dimmOfGroup{Check::DimmOfGroup, nullptr, 0, 0, PHYSLOC_INVALID_INSTANCE};
inline constexpr Check dimmOfSocket{Check::DimmOfSocket, nullptr, 0, 0, PHYSLOC_INVALID_INSTANCE};
inline constexpr Check knownConnector{Check::Connector, nullptr, 0, 0, PHYSLOC_INVALID_LINK};

/// What a placeholder of a text stands for.
struct Value {
    enum Meaning : std::uint8_t { Nothing, Number, GroupLetter, HubLetter, ConnectorName };
    Meaning meaning = Nothing;
    DataField field = nullptr;

    constexpr Value() = default;
    constexpr Value(Meaning what) : meaning(what) {}
    constexpr Value(DataField number) : meaning(Number), field(number) {}
};
using Values = std::array<Value, 6>;

inline constexpr CodeByte socketAndThread{CodeByte::SocketAndThread, 0, nullptr};
inline constexpr CodeByte quadAndPort{CodeByte::QuadAndPort, 0, nullptr};
inline constexpr CodeByte dimmNumberOfGroup{CodeByte::DimmOfGroup, 0, nullptr};
inline constexpr CodeByte dimmNumberOfSocket{CodeByte::DimmOfSocket, 0, nullptr};
inline constexpr CodeByte rootPortOfSlot{CodeByte::RootPort, 0, nullptr};

struct Kind {
    physloc_type_t type;
    physloc_encoder_t* encoder;
    Layout layout;
    std::array<Check, 4> checks;
    const char* prefix;
    const char* shortForm;  // null for a kind that has none
    const char* numericForm;
    const char* longForm;
    Values values;
    Values shortValues = values;
};

// clang-format off
// One row per type, in the order of the types. In words: what encodes it, which bytes it writes,
// what it checks; then prefix, short, numeric and long form, and the values of their placeholders.
inline constexpr std::array<Kind, 60> kinds{{
    {PHYSLOC_NODE, physloc_encode_node, onSocket(0x02, is(0), is(0), is(0)), {knownSocket},
     "node-", "r%03ui%02ub%02uh%1u", "%u/%u/%u/%u", "rack%u/chassis_u%u/hub%u/hublet%u",
     {rack, u, hub, hublet}},
    {PHYSLOC_ROUTER, physloc_encode_router, onSocket(0x03, is(0), is(0), is(0)), {knownSocket},
     "router-", "r%03ue%02ur%02uh%1u", "%u/%u/%u/%u", "rack%u/chassis_u%u/hub%u/hublet%u",
     {rack, u, hub, hublet}},
    {PHYSLOC_PCIE_SLOT, physloc_encode_io_slot, onSocket(0x05, is(0), from(slot), is(0)),
     {knownSlot, slotAtMost(16), instanceUnsetOrAtMost(0)},
     "pcie_slot-", "r%03ui%02us%02u", "%u/%u/%u/%u", "rack%u/chassis_u%u/cpu%u/pcie_slot%u",
     {rack, u, socket, slot}, {rack, u, slot}},
    {PHYSLOC_CPU_THREAD, physloc_encode_cpu, onSocket(0x06, socketAndThread, from(core), is(0)),
     {knownSocket, coreInSocket, instanceUnsetOrAtMost(1)},
     "cpu_thread-", "r%03ui%02up%uc%02ut%1u", "%u/%u/%u/%u/%u",
     "rack%u/chassis_u%u/cpu%u/core%u/thread%u", {rack, u, socket, core, instance}},
    {PHYSLOC_CPU, physloc_encode_cpu, onSocket(0x07, from(socket), is(0), is(0)), {knownSocket},
     "cpu-", "r%03ui%02up%u", "%u/%u/%u", "rack%u/chassis_u%u/cpu%u", {rack, u, socket}},
    {PHYSLOC_CPU_CORE, physloc_encode_cpu, onSocket(0x08, socketAndThread, from(core), is(0)),
     {knownSocket, coreInSocket, instanceUnsetOrAtMost(1)},
     "cpu_core-", "r%03ui%02up%uc%02u", "%u/%u/%u/%u", "rack%u/chassis_u%u/cpu%u/core%u",
     {rack, u, socket, core}},
    {PHYSLOC_CPU_UPI, physloc_encode_cpu_link, onSocket(0x14, from(link), is(0)),
     {knownSocket, linkAtMost(2)},
     "cpu_upi-", nullptr, "%u/%u/%u/%u", "rack%u/chassis_u%u/cpu%u/upi%u",
     {rack, u, socket, link}},
    {PHYSLOC_PCIE_LINK, physloc_encode_cpu_link, onSocket(0x14, from(link), is(1)),
     {knownSocket, linkAtMost(3)},
     "pcie_link-", nullptr, "%u/%u/%u/%u", "rack%u/chassis_u%u/cpu%u/pcie_link%u",
     {rack, u, socket, link}},
    {PHYSLOC_UNCORE, physloc_encode_cpu_uncore, onSocket(0x16), {knownSocket},
     "uncore-", nullptr, "%u/%u/%u", "rack%u/chassis_u%u/cpu%u/uncore", {rack, u, socket}},
    {PHYSLOC_ROM, physloc_encode_pdh, inChassis(0x32), {},
     "rom-", nullptr, "%u/%u", "rack%u/chassis_u%u/rom", {rack, u}},
    {PHYSLOC_SRAM, physloc_encode_pdh, inChassis(0x33), {},
     "sram-", nullptr, "%u/%u", "rack%u/chassis_u%u/sram", {rack, u}},
    {PHYSLOC_NVM, physloc_encode_pdh, inChassis(0x34), {},
     "nvm-", nullptr, "%u/%u", "rack%u/chassis_u%u/nvm", {rack, u}},
    {PHYSLOC_TPM, physloc_encode_pdh, inChassis(0x38), {},
     "tpm-", nullptr, "%u/%u", "rack%u/chassis_u%u/tpm", {rack, u}},
    {PHYSLOC_RMC_PSU, physloc_encode_power_supply, inChassis(0x44, from(slot), is(0)),
     {slotAtMost(1)},
     "rmc_psu-", nullptr, "%u/%u/%u", "rack%u/rmc_u%u/psu%u", {rack, u, slot}},
    {PHYSLOC_PSU, physloc_encode_power_supply, inChassis(0x44, from(slot), is(1)), {slotAtMost(3)},
     "psu-", nullptr, "%u/%u/%u", "rack%u/chassis_u%u/psu%u", {rack, u, slot}},
    {PHYSLOC_VRM, physloc_encode_vrm, inChassis(0x45, from(slot)), {},
     "vrm-", nullptr, "%u/%u/%u", "rack%u/chassis_u%u/vrm%u", {rack, u, slot}},
    {PHYSLOC_HUBLET, physloc_encode_hublet, onSocket(0x50), {knownSocket},
     "hublet-", nullptr, "%u/%u/%u/%u", "rack%u/chassis_u%u/hub%u/hublet%u",
     {rack, u, hub, hublet}},
    {PHYSLOC_KELP, physloc_encode_kelp_asic, onHub(0x52), {knownHub},
     "kelp-", nullptr, "%u/%u/%u", "rack%u/chassis_u%u/kelp%u", {rack, u, hub}},
    {PHYSLOC_MESHLINK, physloc_encode_fab_connector, onHub(0x53, from(link)), {knownConnector},
     "meshlink-", nullptr, "%u/%u/%c%u", "rack%u/chassis_u%u/meshlink%c%u",
     {rack, u, Value::HubLetter, link}},
    {PHYSLOC_KELP_PORT, physloc_encode_fab_port, onHub(0x54, quadAndPort),
     {knownHub, instanceIn(0, 3), linkAtMost(3)},
     "kelp_port-", nullptr, "%u/%u/%u/%u/%u(%s)",
     "rack%u/chassis_u%u/kelp%u/quad%u/port%u(%s)",
     {rack, u, hub, link, instance, Value::ConnectorName}},
    {PHYSLOC_KELP_UPI, physloc_encode_kelp_cpu_link, onHub(0x55, from(link)),
     {knownHub, linkAtMost(1)},
     "kelp-upi", nullptr, "%u/%u/%u/%u", "rack%u/chassis_u%u/kelp%u/upi%u", {rack, u, hub, link}},
    {PHYSLOC_RACK, physloc_encode_rack, rackAlone(0x61), {},
     "rack-", nullptr, "%u", "rack%u", {rack}},
    {PHYSLOC_RMC, physloc_encode_chassis, inChassis(0x62, is(0)), {},
     "rmc-", "r%03ui%02uc", "%u/%u", "rack%u/rmc_u%u", {rack, u}},
    {PHYSLOC_CHASSIS, physloc_encode_chassis, inChassis(0x62, is(1)), {},
     "chassis-", "r%03ui%02ub", "%u/%u", "rack%u/chassis_u%u", {rack, u}},
    {PHYSLOC_CHASSIS_FAN, physloc_encode_chassis_fan, inChassis(0x63, from(slot)), {slotAtMost(7)},
     "chassis_fan-", nullptr, "%u/%u/%u", "rack%u/chassis_u%u/chassis_fan%u", {rack, u, slot}},
    {PHYSLOC_KELP_FAN, physloc_encode_kelp_fan, inChassis(0x64, from(slot)), {slotAtMost(1)},
     "kelp_fan-", nullptr, "%u/%u/%u", "rack%u/chassis_u%u/kelp_fan%u", {rack, u, slot}},
    {PHYSLOC_FRONT_PANEL, physloc_encode_front_panel, inChassis(0x65), {},
     "front_panel-", nullptr, "%u/%u", "rack%u/chassis_u%u/front_panel", {rack, u}},
    {PHYSLOC_RMC_SP, physloc_encode_rmc_sp, inChassis(0x66), {},
     "rmc_sp-", nullptr, "%u/%u", "rack%u/rmc_u%u/processor", {rack, u}},
    {PHYSLOC_LPM, physloc_encode_lpm, inChassis(0x67), {},
     "lpm-", nullptr, "%u/%u", "rack%u/chassis_u%u/lpm", {rack, u}},
    {PHYSLOC_KELP_BOARD, physloc_encode_board, inChassis(0x69, is(0)), {},
     "kelp_board-", nullptr, "%u/%u", "rack%u/chassis_u%u/kelp_board", {rack, u}},
    {PHYSLOC_MOTHERBOARD, physloc_encode_board, inChassis(0x69, is(1)), {},
     "motherboard-", "r%03ui%02u", "%u/%u", "rack%u/chassis_u%u/motherboard", {rack, u}},
    {PHYSLOC_POWER_BOARD, physloc_encode_board, inChassis(0x69, is(2)), {},
     "power_board-", nullptr, "%u/%u", "rack%u/chassis_u%u/power_board", {rack, u}},
    {PHYSLOC_BASE_IO, physloc_encode_board, inChassis(0x69, is(4)), {},
     "base_io-", nullptr, "%u/%u", "rack%u/chassis_u%u/base_io", {rack, u}},
    {PHYSLOC_BMC_BOARD, physloc_encode_board, inChassis(0x69, is(3)), {},
     "bmc_board-", nullptr, "%u/%u", "rack%u/chassis_u%u/bmc_board", {rack, u}},
    {PHYSLOC_CHASSIS_MGMT_PORT, physloc_encode_chassis_mgmt, inChassis(0x6D, is(0)), {},
     "chassis_mgmt_port-", nullptr, "%u/%u", "rack%u/chassis_u%u/mgmt_port", {rack, u}},
    {PHYSLOC_CHASSIS_RMC_PORT, physloc_encode_chassis_mgmt, inChassis(0x6D, is(1)), {},
     "chassis_rmc_port-", nullptr, "%u/%u", "rack%u/chassis_u%u/rmc_port", {rack, u}},
    {PHYSLOC_RMC_LAN, physloc_encode_chassis_mgmt, inChassis(0x6D, is(2), from(instance)),
     {instanceIn(1, 24)},
     "rmc_lan-", nullptr, "%u/%u/%u", "rack%u/rmc_u%u/lan%u", {rack, u, instance}},
    {PHYSLOC_RMC_STACK, physloc_encode_chassis_mgmt, inChassis(0x6D, is(3), is(0)), {},
     "rmc_stack-", nullptr, "%u/%u", "rack%u/rmc_u%u/stack", {rack, u}},
    {PHYSLOC_RMC_WAN, physloc_encode_chassis_mgmt, inChassis(0x6D, is(3), is(1)), {},
     "rmc_wan-", nullptr, "%u/%u", "rack%u/rmc_u%u/wan", {rack, u}},
    {PHYSLOC_RMC_AUX, physloc_encode_chassis_mgmt, inChassis(0x6D, is(3), is(2)), {},
     "rmc_aux-", nullptr, "%u/%u", "rack%u/rmc_u%u/aux", {rack, u}},
    {PHYSLOC_DIMM, physloc_encode_dimm, onSocket(0x74, dimmNumberOfGroup, from(group)),
     {slotAtMost(5), groupOfDimm, knownSocket, dimmOfGroup},
     "dimm-", "r%03ui%02u_P%u-DIMM%c%1u", "%u/%u/%u/%c%u", "rack%u/chassis_u%u/cpu%u/dimm%c%u",
     {rack, u, socket, Value::GroupLetter, slot}},
    {PHYSLOC_MEMORY_CONTROLLER, physloc_encode_memory_controller, onSocket(0x71, from(instance)),
     {instanceIn(0, 1), knownSocket},
     "mem_controller-", nullptr, "%u/%u/%u/%u", "rack%u/chassis_u%u/cpu%u/mem_controller%u",
     {rack, u, socket, instance}},
    {PHYSLOC_MEMORY_CHANNEL, physloc_encode_memory_channel,
     onSocket(0x79, dimmNumberOfSocket, from(group)),
     {slotAtMost(5), knownSocket, dimmOfSocket},
     "mem_channel-", nullptr, "%u/%u/%u/%u", "rack%u/chassis_u%u/cpu%u/mem_channel%u",
     {rack, u, socket, slot}},
    {PHYSLOC_PCIE_RISER, physloc_encode_pcie_riser, inChassis(0x84, from(slot)), {slotAtMost(3)},
     "pcie_riser-", nullptr, "%u/%u/%u", "rack%u/chassis_u%u/pcie_riser%u", {rack, u, slot}},
    {PHYSLOC_DRIVE_SLOT, physloc_encode_chassis_disk, inChassis(0x86, from(slot), is(0)),
     {slotAtMost(3)},
     "drive_slot-", nullptr, "%u/%u/%u", "rack%u/chassis_u%u/drive_slot%u", {rack, u, slot}},
    {PHYSLOC_DRIVE_SLOT_1_8_INCH, physloc_encode_chassis_disk, inChassis(0x86, from(slot), is(1)),
     {slotAtMost(1)},
     "1.8-in_drive_slot-", nullptr, "%u/%u/%u", "rack%u/chassis_u%u/1.8-in_drive_slot%u",
     {rack, u, slot}},
    {PHYSLOC_DVD, physloc_encode_chassis_disk, inChassis(0x86, from(slot), is(2)), {slotAtMost(0)},
     "dvd-", nullptr, "%u/%u", "rack%u/chassis_u%u/dvd", {rack, u}},
    {PHYSLOC_CHASSIS_LAN, physloc_encode_chassis_network, inChassis(0x88, from(instance)),
     {instanceIn(0, 3)},
     "chassis_lan-", nullptr, "%u/%u/%u", "rack%u/chassis_u%u/lan%u", {rack, u, instance}},
    {PHYSLOC_CHASSIS_USB, physloc_encode_chassis_serial, inChassis(0x89, is(0), from(instance)),
     {instanceIn(0, 3)},
     "chassis_usb-", nullptr, "%u/%u/%u", "rack%u/chassis_u%u/usb%u", {rack, u, instance}},
    {PHYSLOC_CHASSIS_SERIAL, physloc_encode_chassis_serial, inChassis(0x89, is(1)), {},
     "chassis_serial-", nullptr, "%u/%u", "rack%u/chassis_u%u/serial_port", {rack, u}},
    {PHYSLOC_CHASSIS_UART, physloc_encode_chassis_serial, inChassis(0x89, is(2)), {},
     "chassis_uart-", nullptr, "%u/%u", "rack%u/chassis_u%u/uart_port", {rack, u}},
    {PHYSLOC_CHASSIS_VGA, physloc_encode_chassis_vga, inChassis(0x8B), {},
     "chassis_vga-", nullptr, "%u/%u", "rack%u/chassis_u%u/vga", {rack, u}},
    {PHYSLOC_DISK_ASSEMBLY, physloc_encode_chassis_io_backplane, inChassis(0x8D), {},
     "chassis_disk_assembly-", nullptr, "%u/%u", "rack%u/chassis_u%u/disk_assembly", {rack, u}},
    {PHYSLOC_PCH, physloc_encode_chassis_pch, inChassis(0x8E), {},
     "pch-", nullptr, "%u/%u", "rack%u/chassis_u%u/pch_asic", {rack, u}},
    {PHYSLOC_IIO, physloc_encode_iio, onSocket(0x8E, is(0)), {knownSocket},
     "iio-", nullptr, "%u/%u/%u", "rack%u/chassis_u%u/cpu%u/iio", {rack, u, socket}},
    {PHYSLOC_ROOT_COMPLEX, physloc_encode_root_complex, onSocket(0x8E, is(0), is(0)),
     {knownSocket, instanceUnsetOrAtMost(0)},
     "root_complex-", nullptr, "%u/%u/%u/%u", "rack%u/chassis_u%u/cpu%u/root_complex%u",
     {rack, u, socket, instance}},
    {PHYSLOC_ROOT_PORT, physloc_encode_root_port,
     onSocket(0x8E, from(slot), from(socket), rootPortOfSlot), {knownSlot},
     "root_port-", nullptr, "%u/%u/%u/%u/%u", "rack%u/chassis_u%u/cpu%u/root_port%u/io_slot%u",
     {rack, u, socket, link, slot}},
    {PHYSLOC_CHASSIS_FANS_ZONE, physloc_encode_rz_thermal, inZone(0x60, 0),
     {instanceUnsetOrAtMost(0)},
     "chassis_fans_zone-", nullptr, "%u/%u/%u", "rack%u/chassis_u%u/chassis_fans_zone%u",
     {rack, u, instance}},
    {PHYSLOC_KELP_FANS_ZONE, physloc_encode_rz_thermal, inZone(0x60, 1),
     {instanceUnsetOrAtMost(0)},
     "kelp_fans_zone-", nullptr, "%u/%u/%u", "rack%u/chassis_u%u/kelp_fans_zone%u",
     {rack, u, instance}},
    {PHYSLOC_POWER_ZONE, physloc_encode_rz_power, inZone(0x40, 0, is(0)),
     {instanceUnsetOrAtMost(0)},
     "power_zone-", nullptr, "%u/%u/%u", "rack%u/chassis_u%u/power_zone%u", {rack, u, instance}},
}};
// clang-format on

/// First byte of the kind's codes.
constexpr std::uint8_t classOf(const Kind& kind) {
    return kind.layout[0].value;
}

enum Group : std::uint8_t {
    Geographic = 0x0,
    Cpu = 0x1,
    PlatformData = 0x3,
    Power = 0x4,
    Fabric = 0x5,
    Platform = 0x6,
    Memory = 0x7,
    Io = 0x8,
};

constexpr Group groupOf(std::uint8_t kindClass) {
    return static_cast<Group>(kindClass >> 4);
}

constexpr const Kind* findKind(physloc_type_t type) {
    const auto index = static_cast<std::size_t>(type) - 1;
    return index < kinds.size() ? &kinds[index] : nullptr;
}

template <typename Table, typename Predicate>
constexpr auto* findRow(const Table& table, Predicate matches) {
    const auto row = std::find_if(table.begin(), table.end(), matches);
    return row == table.end() ? nullptr : &*row;
}

constexpr bool inOrderOfTheirTypes() {
    for (std::size_t i = 0; i < kinds.size(); ++i) {
        if (kinds[i].type != i + 1) return false;
    }
    return true;
}
static_assert(inOrderOfTheirTypes());

}  // namespace tav::physloc
