#pragma once

#include <cstddef>
#include <cstdint>

#include "base/Export.h"

/// Physical location codes: one 64-bit number names one component by the place where it sits
/// (rack, chassis position in the rack, and a path inside the chassis).
///
/// A code is made from a description record and can be turned back into one, or into four texts.
/// Decoding is the exact inverse of encoding: every code that an encoder makes is decoded, and
/// every other code is refused with 5. docs/locations.md explains codes to those who read them.
///
/// Plain functions without state: any thread may call any of them, none takes a lock, allocates,
/// logs or throws. All return 0 or one of PHYSLOC_RTN.

/// What the functions return.
enum PHYSLOC_RTN : int {
    PHYSLOC_SUCCESS = 0,
    PHYSLOC_NOT_IMPLEMENTED = 1,
    PHYSLOC_BAD_POINTER = 2,
    PHYSLOC_INVALID_SLOT = 3,
    PHYSLOC_CANNOT_EXECUTE = 4,
    PHYSLOC_INVALID_PHYSLOC = 5,
    PHYSLOC_INVALID_RACK = 6,
    PHYSLOC_INVALID_U_POSITION = 7,
    PHYSLOC_INVALID_DIMM_GROUP = 8,
    PHYSLOC_INVALID_CPU_CORE = 9,
    PHYSLOC_INVALID_CPU_LINK = 10,
    PHYSLOC_INVALID_LINK = 11,
    PHYSLOC_INVALID_INSTANCE = 12,
    PHYSLOC_INVALID_VERSION = 13,
    PHYSLOC_INVALID_CPU_SOCKET = 14,
    PHYSLOC_INVALID_FABRIC_PORT = 15,
    PHYSLOC_INVALID_HUB = 16,
    PHYSLOC_INVALID_HUBLET = 17,
};

/// Kinds of component.
enum physloc_type_t : std::uint32_t {
    PHYSLOC_NO_TYPE = 0,
    PHYSLOC_NODE = 1,
    PHYSLOC_ROUTER = 2,
    PHYSLOC_PCIE_SLOT = 3,
    PHYSLOC_CPU_THREAD = 4,
    PHYSLOC_CPU = 5,
    PHYSLOC_CPU_CORE = 6,
    PHYSLOC_CPU_UPI = 7,
    PHYSLOC_PCIE_LINK = 8,
    PHYSLOC_UNCORE = 9,
    PHYSLOC_ROM = 10,
    PHYSLOC_SRAM = 11,
    PHYSLOC_NVM = 12,
    PHYSLOC_TPM = 13,
    PHYSLOC_RMC_PSU = 14,
    PHYSLOC_PSU = 15,
    PHYSLOC_VRM = 16,
    PHYSLOC_HUBLET = 17,
    PHYSLOC_KELP = 18,
    PHYSLOC_MESHLINK = 19,
    PHYSLOC_KELP_PORT = 20,
    PHYSLOC_KELP_UPI = 21,
    PHYSLOC_RACK = 22,
    PHYSLOC_RMC = 23,
    PHYSLOC_CHASSIS = 24,
    PHYSLOC_CHASSIS_FAN = 25,
    PHYSLOC_KELP_FAN = 26,
    PHYSLOC_FRONT_PANEL = 27,
    PHYSLOC_RMC_SP = 28,
    PHYSLOC_LPM = 29,
    PHYSLOC_KELP_BOARD = 30,
    PHYSLOC_MOTHERBOARD = 31,
    PHYSLOC_POWER_BOARD = 32,
    PHYSLOC_BASE_IO = 33,
    PHYSLOC_BMC_BOARD = 34,
    PHYSLOC_CHASSIS_MGMT_PORT = 35,
    PHYSLOC_CHASSIS_RMC_PORT = 36,
    PHYSLOC_RMC_LAN = 37,
    PHYSLOC_RMC_STACK = 38,
    PHYSLOC_RMC_WAN = 39,
    PHYSLOC_RMC_AUX = 40,
    PHYSLOC_DIMM = 41,
    PHYSLOC_MEMORY_CONTROLLER = 42,
    PHYSLOC_MEMORY_CHANNEL = 43,
    PHYSLOC_PCIE_RISER = 44,
    PHYSLOC_DRIVE_SLOT = 45,
    PHYSLOC_DRIVE_SLOT_1_8_INCH = 46,
    PHYSLOC_DVD = 47,
    PHYSLOC_CHASSIS_LAN = 48,
    PHYSLOC_CHASSIS_USB = 49,
    PHYSLOC_CHASSIS_SERIAL = 50,
    PHYSLOC_CHASSIS_UART = 51,
    PHYSLOC_CHASSIS_VGA = 52,
    PHYSLOC_DISK_ASSEMBLY = 53,
    PHYSLOC_PCH = 54,
    PHYSLOC_IIO = 55,
    PHYSLOC_ROOT_COMPLEX = 56,
    PHYSLOC_ROOT_PORT = 57,
    PHYSLOC_CHASSIS_FANS_ZONE = 58,
    PHYSLOC_KELP_FANS_ZONE = 59,
    PHYSLOC_POWER_ZONE = 60,
};

/// What a field holds that has not been set.
inline constexpr std::uint8_t PHYSLOC_UNSET = 255;

/// Describes a component. Which fields count depends on the type; the others are not looked at.
struct physloc_data_t {
    physloc_type_t type;
    std::uint8_t rack;
    std::uint8_t u_position;  ///< Chassis position in the rack, 1 to 42.
    std::uint8_t hub;         ///< Hub; with `hublet` also another way to name a CPU socket.
    std::uint8_t hublet;
    std::uint8_t cpu_socket;  ///< 0 to 3.
    std::uint8_t cpu_core;    ///< 0 to 31.
    std::uint8_t link;        ///< Link, port, quad of an ASIC port, or root port.
    std::uint8_t slot;        ///< Slot or index within the chassis, or DIMM within its group.
    std::uint8_t group;       ///< DIMM group, 0 or 1.
    std::uint8_t instance;    ///< Instance, thread, port or link.
    std::uint8_t spare[2];    ///< Not read.

    bool operator==(const physloc_data_t&) const = default;
};
static_assert(sizeof(physloc_data_t) == 16 && offsetof(physloc_data_t, rack) == 4 &&
              offsetof(physloc_data_t, hub) == 6 && offsetof(physloc_data_t, cpu_socket) == 8 &&
              offsetof(physloc_data_t, slot) == 11 && offsetof(physloc_data_t, spare) == 14);

/// A location code. Byte 0 is the class (high nibble the group, low nibble the kind within it),
/// bytes 1 and 2 the CPU socket's position, 3 the chassis position, 4 the rack, 5 to 7 depend on
/// the kind. A byte that the kind does not use is FFh.
struct physloc_code_t {
    std::uint8_t byte[8];

    bool operator==(const physloc_code_t&) const = default;
};

/// Bytes 0 to 3 (`index` 0) or 4 to 7 (`index` 1) of a code as a little-endian number.
constexpr std::uint32_t physloc_word(const physloc_code_t& code, std::size_t index) {
    const std::uint8_t* const byte = code.byte + 4 * index;
    return byte[0] | std::uint32_t{byte[1]} << 8 | std::uint32_t{byte[2]} << 16 |
           std::uint32_t{byte[3]} << 24;
}

/// The four texts of a code, and the room that each of them fits in with its terminating NUL.
enum PHYSLOC_FORM : int {
    PHYSLOC_FORM_LONG = 0,     ///< rack1/chassis_u6/cpu0/pcie_slot3
    PHYSLOC_FORM_NUMERIC = 1,  ///< 1/6/0/3
    PHYSLOC_FORM_PREFIX = 2,   ///< pcie_slot-1/6/0/3
    PHYSLOC_FORM_SHORT = 3,    ///< r001i06s03; few kinds have one
};
inline constexpr std::size_t PHYSLOC_TEXT_SIZE = 64;

/// The text of a return code; empty for an unknown one.
TAV_API const char* physloc_get_rtn_string(int code);

/// Makes every field read unset and the type 0. 13 if `version` is not 0, 2 for a null record.
TAV_API int physloc_init_data(physloc_data_t* data, int version);

/// Sets `code` to 00h followed by seven FFh, then writes the bytes of the record's kind. On any
/// other result than 0 that preset is what `code` holds. 2 for a null pointer, 1 for an unknown
/// type, else what the encoder of the kind returns.
TAV_API int physloc_encode(const physloc_data_t* data, physloc_code_t* code);

/// The inverse: `decoded` receives the type and every field that the code tells, all others read
/// unset; an unset field that its encoder counts as 0 comes back as 0. Fields are cross-filled: a
/// socket comes with its hub and hublet, a slot with its socket. 2 for a null pointer, 5 for a code
/// that no encoder makes; `decoded` is then left alone.
TAV_API int physloc_decode(std::uint32_t word0, std::uint32_t word1, physloc_data_t* decoded);

/// Renders a code in one of the PHYSLOC_FORMs into `dst` of PHYSLOC_TEXT_SIZE characters. 2 for a
/// null `dst`, 1 for an unknown form or one that the kind does not have, 5 for a code that no
/// encoder makes, 4 if the text does not fit; `dst` is then left alone or holds an empty text.
TAV_API int physloc_get_string(int form, std::uint32_t word0, std::uint32_t word1, char* dst);

/// The encoders of the kinds. Each checks everything before it writes anything, and writes only
/// the bytes that its kind uses: the others keep what the caller preset. 2 for a null pointer, 7
/// for a chassis position outside 1 to 42 (not for the rack), 1 for a type of another encoder,
/// else the code of the first field that is out of range.
using physloc_encoder_t = int(physloc_code_t* code, const physloc_data_t* data);

TAV_API physloc_encoder_t physloc_encode_node;
TAV_API physloc_encoder_t physloc_encode_router;
TAV_API physloc_encoder_t physloc_encode_io_slot;
TAV_API physloc_encoder_t physloc_encode_cpu;
TAV_API physloc_encoder_t physloc_encode_cpu_link;
TAV_API physloc_encoder_t physloc_encode_cpu_uncore;
TAV_API physloc_encoder_t physloc_encode_pdh;
TAV_API physloc_encoder_t physloc_encode_power_supply;
TAV_API physloc_encoder_t physloc_encode_vrm;
TAV_API physloc_encoder_t physloc_encode_hublet;
TAV_API physloc_encoder_t physloc_encode_kelp_asic;
TAV_API physloc_encoder_t physloc_encode_fab_connector;
TAV_API physloc_encoder_t physloc_encode_fab_port;
TAV_API physloc_encoder_t physloc_encode_kelp_cpu_link;
TAV_API physloc_encoder_t physloc_encode_rack;
TAV_API physloc_encoder_t physloc_encode_chassis;
TAV_API physloc_encoder_t physloc_encode_chassis_fan;
TAV_API physloc_encoder_t physloc_encode_kelp_fan;
TAV_API physloc_encoder_t physloc_encode_front_panel;
TAV_API physloc_encoder_t physloc_encode_rmc_sp;
TAV_API physloc_encoder_t physloc_encode_lpm;
TAV_API physloc_encoder_t physloc_encode_board;
TAV_API physloc_encoder_t physloc_encode_chassis_mgmt;
TAV_API physloc_encoder_t physloc_encode_dimm;
TAV_API physloc_encoder_t physloc_encode_memory_controller;
TAV_API physloc_encoder_t physloc_encode_memory_channel;
TAV_API physloc_encoder_t physloc_encode_pcie_riser;
TAV_API physloc_encoder_t physloc_encode_chassis_disk;
TAV_API physloc_encoder_t physloc_encode_chassis_network;
TAV_API physloc_encoder_t physloc_encode_chassis_serial;
TAV_API physloc_encoder_t physloc_encode_chassis_vga;
TAV_API physloc_encoder_t physloc_encode_chassis_io_backplane;
TAV_API physloc_encoder_t physloc_encode_chassis_pch;
TAV_API physloc_encoder_t physloc_encode_iio;
TAV_API physloc_encoder_t physloc_encode_root_complex;
TAV_API physloc_encoder_t physloc_encode_root_port;
TAV_API physloc_encoder_t physloc_encode_rz_thermal;
TAV_API physloc_encoder_t physloc_encode_rz_power;

/// The decoders of the groups: physloc_decode for the codes of one group, 5 for all others.
using physloc_decoder_t = int(std::uint32_t word0, std::uint32_t word1, physloc_data_t* decoded);

TAV_API physloc_decoder_t physloc_decode_geoid_src;
TAV_API physloc_decoder_t physloc_decode_cpu_src;
TAV_API physloc_decoder_t physloc_decode_pdh_src;
TAV_API physloc_decoder_t physloc_decode_power_src;
TAV_API physloc_decoder_t physloc_decode_fabric_src;
TAV_API physloc_decoder_t physloc_decode_platform_src;
TAV_API physloc_decoder_t physloc_decode_memory_src;
TAV_API physloc_decoder_t physloc_decode_io_src;

/// The formatters of the groups: render a decoded record into `dst` of `size` characters, without
/// any prefix. 2 for a null pointer, 1 for a kind of another group or a form that the kind does not
/// have (PHYSLOC_FORM_PREFIX among them), 4 if the text does not fit.
using physloc_formatter_t = int(int form, const physloc_data_t* decoded, char* dst,
                                std::size_t size);

TAV_API physloc_formatter_t physloc_get_geoid_string;
TAV_API physloc_formatter_t physloc_get_cpu_string;
TAV_API physloc_formatter_t physloc_get_pdh_string;
TAV_API physloc_formatter_t physloc_get_power_string;
TAV_API physloc_formatter_t physloc_get_fabric_string;
TAV_API physloc_formatter_t physloc_get_platform_string;
TAV_API physloc_formatter_t physloc_get_memory_string;
TAV_API physloc_formatter_t physloc_get_io_string;

/// One DIMM of a chassis.
struct physloc_dimm_info_t {
    std::uint8_t cpu_socket;  ///< 0 to 3.
    std::uint8_t group;       ///< 0 or 1, rendered as A or B.
    std::uint8_t index;       ///< Within the group, 0 to 2.
    std::uint8_t number;      ///< Within the chassis, 1 to 26 without 9 and 15.
};

/// Looks a DIMM up by its number in the chassis. 12 for a number that no DIMM has.
TAV_API int physloc_get_dimm_info(std::uint8_t number, physloc_dimm_info_t* info);

/// The fabric port number (1 to 16 without 9 and 15) of a port (0 to 3) of a quad (0 to 3) of an
/// ASIC; 255 for the two ports that have none. 15 when quad or port is out of range.
TAV_API int physloc_get_fabric_port(std::uint8_t quad, std::uint8_t port, std::uint8_t* number);

/// The letter that the connectors of a hub carry: A and B; '?' for a hub that is not known.
TAV_API char physloc_get_fabric_connector(std::uint8_t hub);
