#include "hwlib/location/physloc.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "hwlib/location/physloc_kinds.h"

namespace tav::physloc {
namespace {

constexpr physloc_code_t presetCode{{0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};

const physloc_dimm_info_t* findDimm(std::uint8_t number) {
    return findRow(dimmTable, [&](const physloc_dimm_info_t& row) { return row.number == number; });
}

std::uint8_t indexInSocket(const physloc_dimm_info_t& dimm) {
    return static_cast<std::uint8_t>(dimm.group * dimmsPerGroup + dimm.index);
}

bool isConnector(std::uint8_t number) {
    return number != noPort && findRow(fabricMap, [&](const FabricRow& row) {
                                   return row.number == number;
                               }) != nullptr;
}

void fillRecord(physloc_data_t& data, physloc_type_t type) {
    std::memset(&data, PHYSLOC_UNSET, sizeof data);
    data.type = type;
}

// --- Checking a record, completing it on the way -------------------------------------------------

/// A record on its way into a code or out of it.
struct Place {
    physloc_data_t data;
    std::uint8_t dimmNumber = PHYSLOC_UNSET;
    std::uint8_t rootPort = PHYSLOC_UNSET;
};

bool takeSocket(Place& place) {
    physloc_data_t& data = place.data;
    const SocketRow* const row = findRow(socketTable, [&](const SocketRow& candidate) {
        return candidate.socket == data.cpu_socket ||
               (candidate.hub == data.hub && candidate.hublet == data.hublet);
    });
    if (row == nullptr) return false;
    data.cpu_socket = row->socket;
    data.hub = row->hub;
    data.hublet = row->hublet;
    return true;
}

int takePcieSlot(Place& place) {
    const PcieSlotRow* const row = findRow(pcieSlotTable, [&](const PcieSlotRow& candidate) {
        return candidate.slot == place.data.slot;
    });
    if (row == nullptr) return PHYSLOC_INVALID_SLOT;
    place.rootPort = row->rootPort;
    place.data.cpu_socket = row->socket;
    place.data.hub = place.data.hublet = PHYSLOC_UNSET;
    return takeSocket(place) ? PHYSLOC_SUCCESS : PHYSLOC_INVALID_CPU_SOCKET;
}

template <typename Predicate>
bool takeDimm(Place& place, Predicate matches) {
    const physloc_dimm_info_t* const row = findRow(dimmTable, [&](const physloc_dimm_info_t& dimm) {
        return dimm.cpu_socket == place.data.cpu_socket && matches(dimm);
    });
    if (row == nullptr) return false;
    place.data.group = row->group;
    place.dimmNumber = row->number;
    return true;
}

bool inRange(const Check& check, physloc_data_t& data) {
    std::uint8_t& value = data.*check.field;
    if (check.rule == Check::RangeOrUnset && value == PHYSLOC_UNSET) value = 0;
    return value >= check.low && value <= check.high;
}

int apply(const Check& check, Place& place) {
    const physloc_data_t& data = place.data;
    bool passed = true;
    switch (check.rule) {
        case Check::None:
            break;
        case Check::Range:
        case Check::RangeOrUnset:
            passed = inRange(check, place.data);
            break;
        case Check::Socket:
            passed = takeSocket(place);
            break;
        case Check::PcieSlot:
            return takePcieSlot(place);
        case Check::DimmOfGroup:
            passed = takeDimm(place, [&](const physloc_dimm_info_t& dimm) {
                return dimm.group == data.group && dimm.index == data.slot;
            });
            break;
        case Check::DimmOfSocket:
            passed = takeDimm(place, [&](const physloc_dimm_info_t& dimm) {
                return indexInSocket(dimm) == data.slot;
            });
            break;
        case Check::Connector:
            passed = isConnector(data.link);
            break;
    }
    return passed ? PHYSLOC_SUCCESS : check.failure;
}

/// A rack has no position in a rack; everything else has.
bool hasGoodPosition(physloc_encoder_t* encoder, const physloc_data_t& data) {
    return encoder == &physloc_encode_rack || (data.u_position >= 1 && data.u_position <= 42);
}

int complete(const Kind& kind, Place& place) {
    if (!hasGoodPosition(kind.encoder, place.data)) return PHYSLOC_INVALID_U_POSITION;
    for (const Check& check : kind.checks) {
        const int result = apply(check, place);
        if (result != PHYSLOC_SUCCESS) return result;
    }
    return PHYSLOC_SUCCESS;
}

// --- Between records and bytes -------------------------------------------------------------------

void writeByte(const CodeByte& part, const Place& place, std::uint8_t& byte) {
    const physloc_data_t& data = place.data;
    switch (part.source) {
        case CodeByte::Kept:
            break;
        case CodeByte::Fixed:
            byte = part.value;
            break;
        case CodeByte::Field:
            byte = data.*part.field;
            break;
        case CodeByte::SocketAndThread:
            byte = static_cast<std::uint8_t>(data.instance << 4 | data.cpu_socket);
            break;
        case CodeByte::QuadAndPort:
            byte = static_cast<std::uint8_t>(data.link << 4 | data.instance);
            break;
        case CodeByte::DimmOfGroup:
        case CodeByte::DimmOfSocket:
            byte = place.dimmNumber;
            break;
        case CodeByte::RootPort:
            byte = place.rootPort;
            break;
    }
}

void readDimm(CodeByte::Source source, std::uint8_t number, physloc_data_t& data) {
    const physloc_dimm_info_t* const dimm = findDimm(number);
    if (dimm == nullptr) return;
    data.slot = source == CodeByte::DimmOfGroup ? dimm->index : indexInSocket(*dimm);
}

/// Takes what a byte tells. Whether it tells the truth shows when the record is encoded again.
void readByte(const CodeByte& part, std::uint8_t byte, physloc_data_t& data) {
    switch (part.source) {
        case CodeByte::Kept:
        case CodeByte::Fixed:
            break;
        case CodeByte::Field:
            data.*part.field = byte;
            break;
        case CodeByte::SocketAndThread:
            data.cpu_socket = byte & 0x0F;
            data.instance = byte >> 4;
            break;
        case CodeByte::QuadAndPort:
            data.link = byte >> 4;
            data.instance = byte & 0x0F;
            break;
        case CodeByte::DimmOfGroup:
        case CodeByte::DimmOfSocket:
            readDimm(part.source, byte, data);
            break;
        case CodeByte::RootPort:
            data.link = byte;
            break;
    }
}

void write(const Kind& kind, const Place& place, physloc_code_t& code) {
    for (std::size_t i = 0; i < kind.layout.size(); ++i) {
        writeByte(kind.layout[i], place, code.byte[i]);
    }
}

/// The record that makes exactly this code as this kind, if there is one.
bool readAs(const Kind& kind, const physloc_code_t& code, physloc_data_t& data) {
    Place place{};
    fillRecord(place.data, kind.type);
    for (std::size_t i = 0; i < kind.layout.size(); ++i) {
        readByte(kind.layout[i], code.byte[i], place.data);
    }
    if (complete(kind, place) != PHYSLOC_SUCCESS) return false;
    physloc_code_t again = presetCode;
    write(kind, place, again);
    if (again != code) return false;
    data = place.data;
    return true;
}

physloc_code_t toCode(std::uint32_t word0, std::uint32_t word1) {
    physloc_code_t code{};
    for (unsigned i = 0; i < 4; ++i) {
        code.byte[i] = static_cast<std::uint8_t>(word0 >> 8 * i);
        code.byte[4 + i] = static_cast<std::uint8_t>(word1 >> 8 * i);
    }
    return code;
}

int encode(physloc_encoder_t* encoder, physloc_code_t* code, const physloc_data_t* data) {
    if (code == nullptr || data == nullptr) return PHYSLOC_BAD_POINTER;
    if (!hasGoodPosition(encoder, *data)) return PHYSLOC_INVALID_U_POSITION;
    const Kind* const kind = findKind(data->type);
    if (kind == nullptr || kind->encoder != encoder) return PHYSLOC_NOT_IMPLEMENTED;
    Place place{.data = *data};
    const int result = complete(*kind, place);
    if (result == PHYSLOC_SUCCESS) write(*kind, place, *code);
    return result;
}

int decode(Group group, std::uint32_t word0, std::uint32_t word1, physloc_data_t* decoded) {
    if (decoded == nullptr) return PHYSLOC_BAD_POINTER;
    const physloc_code_t code = toCode(word0, word1);
    if (groupOf(code.byte[0]) != group) return PHYSLOC_INVALID_PHYSLOC;
    for (const Kind& kind : kinds) {
        if (classOf(kind) == code.byte[0] && readAs(kind, code, *decoded)) return PHYSLOC_SUCCESS;
    }
    return PHYSLOC_INVALID_PHYSLOC;
}

struct GroupDecoder {
    Group group;
    physloc_decoder_t* decode;
};
constexpr std::array<GroupDecoder, 8> decoders{{
    {Geographic, physloc_decode_geoid_src},
    {Cpu, physloc_decode_cpu_src},
    {PlatformData, physloc_decode_pdh_src},
    {Power, physloc_decode_power_src},
    {Fabric, physloc_decode_fabric_src},
    {Platform, physloc_decode_platform_src},
    {Memory, physloc_decode_memory_src},
    {Io, physloc_decode_io_src},
}};

}  // namespace
}  // namespace tav::physloc

using namespace tav::physloc;

int physloc_init_data(physloc_data_t* data, int version) {
    if (version != 0) return PHYSLOC_INVALID_VERSION;
    if (data == nullptr) return PHYSLOC_BAD_POINTER;
    fillRecord(*data, PHYSLOC_NO_TYPE);
    return PHYSLOC_SUCCESS;
}

int physloc_encode(const physloc_data_t* data, physloc_code_t* code) {
    if (data == nullptr || code == nullptr) return PHYSLOC_BAD_POINTER;
    *code = presetCode;
    const Kind* const kind = findKind(data->type);
    return kind == nullptr ? PHYSLOC_NOT_IMPLEMENTED : kind->encoder(code, data);
}

int physloc_decode(std::uint32_t word0, std::uint32_t word1, physloc_data_t* decoded) {
    if (decoded == nullptr) return PHYSLOC_BAD_POINTER;
    const GroupDecoder* const decoder = findRow(decoders, [&](const GroupDecoder& row) {
        return row.group == groupOf(static_cast<std::uint8_t>(word0));
    });
    return decoder == nullptr ? PHYSLOC_INVALID_PHYSLOC : decoder->decode(word0, word1, decoded);
}

int physloc_get_dimm_info(std::uint8_t number, physloc_dimm_info_t* info) {
    if (info == nullptr) return PHYSLOC_BAD_POINTER;
    const physloc_dimm_info_t* const dimm = findDimm(number);
    if (dimm == nullptr) return PHYSLOC_INVALID_INSTANCE;
    *info = *dimm;
    return PHYSLOC_SUCCESS;
}

// The encoders differ only in the rows of the kind table that name them.

int physloc_encode_node(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_node, code, data);
}
int physloc_encode_router(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_router, code, data);
}
int physloc_encode_io_slot(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_io_slot, code, data);
}
int physloc_encode_cpu(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_cpu, code, data);
}
int physloc_encode_cpu_link(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_cpu_link, code, data);
}
int physloc_encode_cpu_uncore(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_cpu_uncore, code, data);
}
int physloc_encode_pdh(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_pdh, code, data);
}
int physloc_encode_power_supply(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_power_supply, code, data);
}
int physloc_encode_vrm(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_vrm, code, data);
}
int physloc_encode_hublet(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_hublet, code, data);
}
int physloc_encode_kelp_asic(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_kelp_asic, code, data);
}
int physloc_encode_fab_connector(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_fab_connector, code, data);
}
int physloc_encode_fab_port(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_fab_port, code, data);
}
int physloc_encode_kelp_cpu_link(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_kelp_cpu_link, code, data);
}
int physloc_encode_rack(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_rack, code, data);
}
int physloc_encode_chassis(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_chassis, code, data);
}
int physloc_encode_chassis_fan(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_chassis_fan, code, data);
}
int physloc_encode_kelp_fan(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_kelp_fan, code, data);
}
int physloc_encode_front_panel(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_front_panel, code, data);
}
int physloc_encode_rmc_sp(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_rmc_sp, code, data);
}
int physloc_encode_lpm(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_lpm, code, data);
}
int physloc_encode_board(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_board, code, data);
}
int physloc_encode_chassis_mgmt(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_chassis_mgmt, code, data);
}
int physloc_encode_dimm(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_dimm, code, data);
}
int physloc_encode_memory_controller(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_memory_controller, code, data);
}
int physloc_encode_memory_channel(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_memory_channel, code, data);
}
int physloc_encode_pcie_riser(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_pcie_riser, code, data);
}
int physloc_encode_chassis_disk(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_chassis_disk, code, data);
}
int physloc_encode_chassis_network(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_chassis_network, code, data);
}
int physloc_encode_chassis_serial(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_chassis_serial, code, data);
}
int physloc_encode_chassis_vga(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_chassis_vga, code, data);
}
int physloc_encode_chassis_io_backplane(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_chassis_io_backplane, code, data);
}
int physloc_encode_chassis_pch(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_chassis_pch, code, data);
}
int physloc_encode_iio(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_iio, code, data);
}
int physloc_encode_root_complex(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_root_complex, code, data);
}
int physloc_encode_root_port(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_root_port, code, data);
}
int physloc_encode_rz_thermal(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_rz_thermal, code, data);
}
int physloc_encode_rz_power(physloc_code_t* code, const physloc_data_t* data) {
    return encode(physloc_encode_rz_power, code, data);
}

int physloc_decode_geoid_src(std::uint32_t word0, std::uint32_t word1, physloc_data_t* decoded) {
    return decode(Geographic, word0, word1, decoded);
}
int physloc_decode_cpu_src(std::uint32_t word0, std::uint32_t word1, physloc_data_t* decoded) {
    return decode(Cpu, word0, word1, decoded);
}
int physloc_decode_pdh_src(std::uint32_t word0, std::uint32_t word1, physloc_data_t* decoded) {
    return decode(PlatformData, word0, word1, decoded);
}
int physloc_decode_power_src(std::uint32_t word0, std::uint32_t word1, physloc_data_t* decoded) {
    return decode(Power, word0, word1, decoded);
}
int physloc_decode_fabric_src(std::uint32_t word0, std::uint32_t word1, physloc_data_t* decoded) {
    return decode(Fabric, word0, word1, decoded);
}
int physloc_decode_platform_src(std::uint32_t word0, std::uint32_t word1, physloc_data_t* decoded) {
    return decode(Platform, word0, word1, decoded);
}
int physloc_decode_memory_src(std::uint32_t word0, std::uint32_t word1, physloc_data_t* decoded) {
    return decode(Memory, word0, word1, decoded);
}
int physloc_decode_io_src(std::uint32_t word0, std::uint32_t word1, physloc_data_t* decoded) {
    return decode(Io, word0, word1, decoded);
}
