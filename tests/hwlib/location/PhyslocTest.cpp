#include <cstdio>
#include <map>
#include <numeric>
#include <random>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "hwlib/location/physloc.h"
#include "hwlib/location/tavPhyLoc.h"

namespace {

using Field = std::uint8_t physloc_data_t::*;

constexpr Field hub = &physloc_data_t::hub;
constexpr Field hublet = &physloc_data_t::hublet;
constexpr Field socket = &physloc_data_t::cpu_socket;
constexpr Field core = &physloc_data_t::cpu_core;
constexpr Field link = &physloc_data_t::link;
constexpr Field slot = &physloc_data_t::slot;
constexpr Field group = &physloc_data_t::group;
constexpr Field instance = &physloc_data_t::instance;

using Settings = std::vector<std::pair<Field, std::uint8_t>>;

physloc_data_t record(unsigned type, const Settings& settings, std::uint8_t u = 6,
                      std::uint8_t rack = 1) {
    physloc_data_t data;
    EXPECT_EQ(physloc_init_data(&data, 0), 0);
    data.type = static_cast<physloc_type_t>(type);
    data.rack = rack;
    data.u_position = u;
    for (const auto& [field, value] : settings)
        data.*field = value;
    return data;
}

std::string hex(const physloc_code_t& code) {
    char text[17];
    std::snprintf(text, sizeof text, "%08X%08X", physloc_word(code, 1), physloc_word(code, 0));
    return text;
}

std::string text(int form, const physloc_code_t& code) {
    char buffer[PHYSLOC_TEXT_SIZE];
    const int result =
        physloc_get_string(form, physloc_word(code, 0), physloc_word(code, 1), buffer);
    return result == 0 ? buffer : "error " + std::to_string(result);
}

int decode(const physloc_code_t& code, physloc_data_t& data) {
    return physloc_decode(physloc_word(code, 0), physloc_word(code, 1), &data);
}

struct Known {
    unsigned type;
    Settings settings;
    const char* code;
    const char* longForm;
    const char* prefixForm;
    const char* shortForm;
};

constexpr const char* none = "error 1";

// Rack 1, chassis position 6. Sockets 0 to 3 stand at hub and hublet 0/1, 0/0, 1/1, 1/0.
const std::vector<Known> knownCodes{
    {1,
     {{socket, 2}},
     "0000000106010102",
     "rack1/chassis_u6/hub1/hublet1",
     "node-1/6/1/1",
     "r001i06b01h1"},
    {2,
     {{hub, 1}, {hublet, 0}},
     "0000000106000103",
     "rack1/chassis_u6/hub1/hublet0",
     "router-1/6/1/0",
     "r001e06r01h0"},
    {3,
     {{slot, 3}},
     "0003000106010005",
     "rack1/chassis_u6/cpu0/pcie_slot3",
     "pcie_slot-1/6/0/3",
     "r001i06s03"},
    {3,
     {{slot, 16}},
     "0010000106000105",
     "rack1/chassis_u6/cpu3/pcie_slot16",
     "pcie_slot-1/6/3/16",
     "r001i06s16"},
    {4,
     {{socket, 3}, {core, 31}, {instance, 1}},
     "001F130106000106",
     "rack1/chassis_u6/cpu3/core31/thread1",
     "cpu_thread-1/6/3/31/1",
     "r001i06p3c31t1"},
    {5, {{socket, 1}}, "0000010106000007", "rack1/chassis_u6/cpu1", "cpu-1/6/1", "r001i06p1"},
    {6,
     {{socket, 0}, {core, 7}},
     "0007000106010008",
     "rack1/chassis_u6/cpu0/core7",
     "cpu_core-1/6/0/7",
     "r001i06p0c07"},
    {7,
     {{socket, 2}, {link, 2}},
     "FF00020106010114",
     "rack1/chassis_u6/cpu2/upi2",
     "cpu_upi-1/6/2/2",
     none},
    {8,
     {{socket, 2}, {link, 3}},
     "FF01030106010114",
     "rack1/chassis_u6/cpu2/pcie_link3",
     "pcie_link-1/6/2/3",
     none},
    {9, {{socket, 0}}, "FFFFFF0106010016", "rack1/chassis_u6/cpu0/uncore", "uncore-1/6/0", none},
    {10, {}, "FFFFFF0106FFFF32", "rack1/chassis_u6/rom", "rom-1/6", none},
    {11, {}, "FFFFFF0106FFFF33", "rack1/chassis_u6/sram", "sram-1/6", none},
    {12, {}, "FFFFFF0106FFFF34", "rack1/chassis_u6/nvm", "nvm-1/6", none},
    {13, {}, "FFFFFF0106FFFF38", "rack1/chassis_u6/tpm", "tpm-1/6", none},
    {14, {{slot, 1}}, "FF00010106FFFF44", "rack1/rmc_u6/psu1", "rmc_psu-1/6/1", none},
    {15, {{slot, 3}}, "FF01030106FFFF44", "rack1/chassis_u6/psu3", "psu-1/6/3", none},
    {16, {{slot, 200}}, "FFFFC80106FFFF45", "rack1/chassis_u6/vrm200", "vrm-1/6/200", none},
    {17,
     {{socket, 3}},
     "FFFFFF0106000150",
     "rack1/chassis_u6/hub1/hublet0",
     "hublet-1/6/1/0",
     none},
    {18, {{hub, 1}}, "FFFFFF0106FF0152", "rack1/chassis_u6/kelp1", "kelp-1/6/1", none},
    {19,
     {{hub, 1}, {link, 16}},
     "FFFF100106FF0153",
     "rack1/chassis_u6/meshlinkB16",
     "meshlink-1/6/B16",
     none},
    {20,
     {{hub, 0}, {link, 3}, {instance, 1}},
     "FFFF310106FF0054",
     "rack1/chassis_u6/kelp0/quad3/port1(A14)",
     "kelp_port-1/6/0/3/1(A14)",
     none},
    {20,
     {{hub, 1}, {link, 2}, {instance, 0}},
     "FFFF200106FF0154",
     "rack1/chassis_u6/kelp1/quad2/port0(none)",
     "kelp_port-1/6/1/2/0(none)",
     none},
    {21,
     {{hub, 0}, {link, 1}},
     "FFFF010106FF0055",
     "rack1/chassis_u6/kelp0/upi1",
     "kelp-upi1/6/0/1",
     none},
    {22, {}, "FFFFFF01FFFFFF61", "rack1", "rack-1", none},
    {23, {}, "FFFF000106FFFF62", "rack1/rmc_u6", "rmc-1/6", "r001i06c"},
    {24, {}, "FFFF010106FFFF62", "rack1/chassis_u6", "chassis-1/6", "r001i06b"},
    {25,
     {{slot, 7}},
     "FFFF070106FFFF63",
     "rack1/chassis_u6/chassis_fan7",
     "chassis_fan-1/6/7",
     none},
    {26, {{slot, 1}}, "FFFF010106FFFF64", "rack1/chassis_u6/kelp_fan1", "kelp_fan-1/6/1", none},
    {27, {}, "FFFFFF0106FFFF65", "rack1/chassis_u6/front_panel", "front_panel-1/6", none},
    {28, {}, "FFFFFF0106FFFF66", "rack1/rmc_u6/processor", "rmc_sp-1/6", none},
    {29, {}, "FFFFFF0106FFFF67", "rack1/chassis_u6/lpm", "lpm-1/6", none},
    {30, {}, "FFFF000106FFFF69", "rack1/chassis_u6/kelp_board", "kelp_board-1/6", none},
    {31, {}, "FFFF010106FFFF69", "rack1/chassis_u6/motherboard", "motherboard-1/6", "r001i06"},
    {32, {}, "FFFF020106FFFF69", "rack1/chassis_u6/power_board", "power_board-1/6", none},
    {33, {}, "FFFF040106FFFF69", "rack1/chassis_u6/base_io", "base_io-1/6", none},
    {34, {}, "FFFF030106FFFF69", "rack1/chassis_u6/bmc_board", "bmc_board-1/6", none},
    {35, {}, "FFFF000106FFFF6D", "rack1/chassis_u6/mgmt_port", "chassis_mgmt_port-1/6", none},
    {36, {}, "FFFF010106FFFF6D", "rack1/chassis_u6/rmc_port", "chassis_rmc_port-1/6", none},
    {37, {{instance, 24}}, "FF18020106FFFF6D", "rack1/rmc_u6/lan24", "rmc_lan-1/6/24", none},
    {38, {}, "FF00030106FFFF6D", "rack1/rmc_u6/stack", "rmc_stack-1/6", none},
    {39, {}, "FF01030106FFFF6D", "rack1/rmc_u6/wan", "rmc_wan-1/6", none},
    {40, {}, "FF02030106FFFF6D", "rack1/rmc_u6/aux", "rmc_aux-1/6", none},
    {41,
     {{socket, 1}, {group, 1}, {slot, 2}},
     "FF010D0106000074",
     "rack1/chassis_u6/cpu1/dimmB2",
     "dimm-1/6/1/B2",
     "r001i06_P1-DIMMB2"},
    {41,
     {{socket, 3}, {group, 0}, {slot, 0}},
     "FF00150106000174",
     "rack1/chassis_u6/cpu3/dimmA0",
     "dimm-1/6/3/A0",
     "r001i06_P3-DIMMA0"},
    {42,
     {{socket, 0}, {instance, 1}},
     "FFFF010106010071",
     "rack1/chassis_u6/cpu0/mem_controller1",
     "mem_controller-1/6/0/1",
     none},
    {43,
     {{socket, 2}, {slot, 4}},
     "FF01130106010179",
     "rack1/chassis_u6/cpu2/mem_channel4",
     "mem_channel-1/6/2/4",
     none},
    {44, {{slot, 3}}, "FFFF030106FFFF84", "rack1/chassis_u6/pcie_riser3", "pcie_riser-1/6/3", none},
    {45, {{slot, 3}}, "FF00030106FFFF86", "rack1/chassis_u6/drive_slot3", "drive_slot-1/6/3", none},
    {46,
     {{slot, 1}},
     "FF01010106FFFF86",
     "rack1/chassis_u6/1.8-in_drive_slot1",
     "1.8-in_drive_slot-1/6/1",
     none},
    {47, {{slot, 0}}, "FF02000106FFFF86", "rack1/chassis_u6/dvd", "dvd-1/6", none},
    {48, {{instance, 3}}, "FFFF030106FFFF88", "rack1/chassis_u6/lan3", "chassis_lan-1/6/3", none},
    {49, {{instance, 3}}, "FF03000106FFFF89", "rack1/chassis_u6/usb3", "chassis_usb-1/6/3", none},
    {50, {}, "FFFF010106FFFF89", "rack1/chassis_u6/serial_port", "chassis_serial-1/6", none},
    {51, {}, "FFFF020106FFFF89", "rack1/chassis_u6/uart_port", "chassis_uart-1/6", none},
    {52, {}, "FFFFFF0106FFFF8B", "rack1/chassis_u6/vga", "chassis_vga-1/6", none},
    {53,
     {},
     "FFFFFF0106FFFF8D",
     "rack1/chassis_u6/disk_assembly",
     "chassis_disk_assembly-1/6",
     none},
    {54, {}, "FFFFFF0106FFFF8E", "rack1/chassis_u6/pch_asic", "pch-1/6", none},
    {55, {{socket, 0}}, "FFFF00010601008E", "rack1/chassis_u6/cpu0/iio", "iio-1/6/0", none},
    {56,
     {{socket, 0}},
     "FF0000010601008E",
     "rack1/chassis_u6/cpu0/root_complex0",
     "root_complex-1/6/0/0",
     none},
    {57,
     {{slot, 12}},
     "09030C010600018E",
     "rack1/chassis_u6/cpu3/root_port9/io_slot12",
     "root_port-1/6/3/9/12",
     none},
    {58,
     {},
     "FFFFFF010600FF60",
     "rack1/chassis_u6/chassis_fans_zone0",
     "chassis_fans_zone-1/6/0",
     none},
    {59, {}, "FFFFFF010601FF60", "rack1/chassis_u6/kelp_fans_zone0", "kelp_fans_zone-1/6/0", none},
    {60, {}, "FFFF00010600FF40", "rack1/chassis_u6/power_zone0", "power_zone-1/6/0", none},
};

TEST(Physloc, EveryKindHasItsBytesAndTexts) {
    for (const Known& known : knownCodes) {
        SCOPED_TRACE(known.longForm);
        const physloc_data_t data = record(known.type, known.settings);
        physloc_code_t code;
        ASSERT_EQ(physloc_encode(&data, &code), 0);
        EXPECT_EQ(hex(code), known.code);
        EXPECT_EQ(text(PHYSLOC_FORM_LONG, code), known.longForm);
        EXPECT_EQ(text(PHYSLOC_FORM_PREFIX, code), known.prefixForm);
        EXPECT_EQ(text(PHYSLOC_FORM_SHORT, code), known.shortForm);
        const std::string numeric = text(PHYSLOC_FORM_NUMERIC, code);
        EXPECT_TRUE(std::string(known.prefixForm).ends_with(numeric));
        EXPECT_EQ(numeric.substr(0, 1), "1") << "numbers alone, from the rack on";
    }
}

// The fields that a kind's encoder reads, and how many of the sampled combinations it accepts.
struct Domain {
    unsigned type;
    std::vector<Field> fields;
    int accepted;
};

std::vector<std::uint8_t> samples(Field field) {
    const bool many = field == core || field == slot || field == instance || field == link;
    std::vector<std::uint8_t> values(many ? 32 : 6);
    std::iota(values.begin(), values.end(), std::uint8_t{0});
    values.insert(values.end(), {32, 33, 127, 128, 254, 255});
    return values;
}

// clang-format off
const std::vector<Domain> domains{
    {1, {socket}, 4}, {2, {socket}, 4}, {3, {slot, instance}, 17 * 2},
    {4, {socket, core, instance}, 4 * 32 * 3}, {5, {socket}, 4},
    {6, {socket, core, instance}, 4 * 32 * 3}, {7, {socket, link}, 4 * 3},
    {8, {socket, link}, 4 * 4}, {9, {socket}, 4}, {10, {}, 1}, {11, {}, 1}, {12, {}, 1},
    {13, {}, 1}, {14, {slot}, 2}, {15, {slot}, 4}, {16, {slot}, 38}, {17, {socket}, 4},
    {18, {hub}, 2}, {19, {hub, link}, 12 * 14}, {20, {hub, link, instance}, 2 * 4 * 4},
    {21, {hub, link}, 2 * 2}, {22, {}, 1}, {23, {}, 1}, {24, {}, 1}, {25, {slot}, 8},
    {26, {slot}, 2}, {27, {}, 1}, {28, {}, 1}, {29, {}, 1}, {30, {}, 1}, {31, {}, 1},
    {32, {}, 1}, {33, {}, 1}, {34, {}, 1}, {35, {}, 1}, {36, {}, 1}, {37, {instance}, 24},
    {38, {}, 1}, {39, {}, 1}, {40, {}, 1}, {41, {socket, group, slot}, 4 * 2 * 3},
    {42, {socket, instance}, 4 * 2}, {43, {socket, slot}, 4 * 6}, {44, {slot}, 4},
    {45, {slot}, 4}, {46, {slot}, 2}, {47, {slot}, 1}, {48, {instance}, 4},
    {49, {instance}, 4}, {50, {}, 1}, {51, {}, 1}, {52, {}, 1}, {53, {}, 1}, {54, {}, 1},
    {55, {socket}, 4}, {56, {socket, instance}, 4 * 2}, {57, {slot}, 18},
    {58, {instance}, 2}, {59, {instance}, 2}, {60, {instance}, 2},
};
// clang-format on

template <typename Visitor>
void forEachCombination(physloc_data_t data, std::span<const Field> fields, Visitor visit) {
    if (fields.empty()) return visit(data);
    for (const std::uint8_t value : samples(fields.front())) {
        data.*fields.front() = value;
        forEachCombination(data, fields.subspan(1), visit);
    }
}

TEST(Physloc, DecodingInvertsWhateverEncodingAccepts) {
    std::map<std::string, std::string> codeOfPlace;
    ASSERT_EQ(domains.size(), 60u);
    for (const Domain& domain : domains) {
        SCOPED_TRACE(domain.type);
        int accepted = 0;
        const auto roundTrip = [&](const physloc_data_t& data) {
            physloc_code_t code;
            const int result = physloc_encode(&data, &code);
            if (result != 0) {
                EXPECT_EQ(hex(code), "FFFFFFFFFFFFFF00") << "a refused record writes nothing";
                return;
            }
            ++accepted;
            physloc_data_t decoded;
            ASSERT_EQ(decode(code, decoded), 0) << hex(code);
            EXPECT_EQ(decoded.type, data.type);
            EXPECT_EQ(decoded.rack, data.rack);
            EXPECT_EQ(decoded.u_position, domain.type == 22 ? PHYSLOC_UNSET : data.u_position);
            for (const Field field : domain.fields) {
                const bool unset = field == instance && data.*field == PHYSLOC_UNSET;
                EXPECT_EQ(decoded.*field, unset ? 0 : data.*field) << hex(code);
            }
            physloc_code_t again;
            EXPECT_EQ(physloc_encode(&decoded, &again), 0);
            EXPECT_EQ(again, code);
            // Threads of one core share the core's text; hubs without a letter share the '?'.
            const std::string place = text(PHYSLOC_FORM_PREFIX, code);
            const bool sharesText = domain.type == 6 || place.find('?') != std::string::npos;
            if (!sharesText) {
                EXPECT_EQ(codeOfPlace.emplace(place, hex(code)).first->second, hex(code));
            }
        };
        for (const std::uint8_t rack : std::vector<std::uint8_t>{0, 1, 128, 255}) {
            for (const std::uint8_t u : std::vector<std::uint8_t>{1, 6, 42}) {
                accepted = 0;
                forEachCombination(record(domain.type, {}, u, rack), domain.fields, roundTrip);
                EXPECT_EQ(accepted, domain.accepted);
            }
        }
    }
}

TEST(Physloc, AnyChangedByteIsRefusedOrStillMeansWhatItSays) {
    const auto refusedOrConsistent = [](const physloc_code_t& code) {
        physloc_data_t decoded;
        const int result = decode(code, decoded);
        if (result != 0) {
            EXPECT_EQ(result, 5);
            EXPECT_EQ(text(PHYSLOC_FORM_LONG, code), "error 5");
            return false;
        }
        physloc_code_t again;
        EXPECT_EQ(physloc_encode(&decoded, &again), 0);
        EXPECT_EQ(hex(again), hex(code));
        EXPECT_EQ(text(PHYSLOC_FORM_LONG, code).find("error"), std::string::npos);
        return true;
    };
    for (const Known& known : knownCodes) {
        const physloc_data_t data = record(known.type, known.settings);
        physloc_code_t code;
        ASSERT_EQ(physloc_encode(&data, &code), 0);
        for (std::uint8_t& byte : code.byte) {
            const std::uint8_t original = byte;
            for (unsigned value = 0; value < 256; ++value) {
                byte = static_cast<std::uint8_t>(value);
                refusedOrConsistent(code);
            }
            byte = original;
        }
    }
    std::mt19937 random(7);
    for (int i = 0; i < 200'000; ++i) {
        physloc_code_t code;
        for (std::uint8_t& byte : code.byte) {
            const auto value = random();
            byte = static_cast<std::uint8_t>(value & 0x100   ? 0xFF
                                             : value & 0x200 ? value & 3
                                                             : value);
        }
        refusedOrConsistent(code);
    }
}

TEST(Physloc, EveryRefusalNamesItsReason) {
    struct Refusal {
        int result;
        unsigned type;
        Settings settings;
        std::uint8_t u = 6;
    };
    const std::vector<Refusal> refusals{
        {1, 0, {}},
        {1, 61, {}},
        {1, 0xFFFFFFFF, {}},
        {7, 3, {{slot, 99}}, 0},
        {7, 41, {}, 43},
        {7, 31, {}, 255},
        {3, 3, {{slot, 17}, {instance, 1}}},
        {3, 3, {{slot, 18}}},
        {3, 3, {}},
        {12, 3, {{slot, 3}, {instance, 1}}},
        {14, 1, {{socket, 4}, {hub, 2}, {hublet, 0}}},
        {14, 4, {{core, 32}}},
        {9, 4, {{socket, 0}, {core, 32}, {instance, 2}}},
        {12, 6, {{socket, 0}, {core, 31}, {instance, 2}}},
        {14, 7, {{link, 9}}},
        {11, 7, {{socket, 1}, {link, 3}}},
        {11, 8, {{socket, 1}, {link, 4}}},
        {3, 14, {{slot, 2}}},
        {3, 15, {{slot, 4}}},
        {16, 18, {{hub, 2}}},
        {11, 19, {{hub, 0}, {link, 9}}},
        {11, 19, {{hub, 0}, {link, 0}}},
        {16, 20, {{link, 4}, {instance, 4}}},
        {12, 20, {{hub, 0}, {link, 4}, {instance, 4}}},
        {11, 20, {{hub, 0}, {link, 4}, {instance, 3}}},
        {11, 21, {{hub, 0}, {link, 2}}},
        {12, 37, {{instance, 0}}},
        {12, 37, {{instance, 25}}},
        {3, 41, {{slot, 6}, {group, 2}}},
        {8, 41, {{slot, 0}, {group, 2}}},
        {14, 41, {{slot, 5}, {group, 1}}},
        {12, 41, {{socket, 0}, {slot, 5}, {group, 1}}},
        {12, 42, {{instance, 2}}},
        {14, 42, {{instance, 1}}},
        {3, 45, {{slot, 4}}},
        {3, 47, {{slot, 1}}},
        {12, 48, {{instance, 4}}},
        {12, 49, {}},
        {14, 56, {{instance, 1}}},
        {12, 56, {{socket, 0}, {instance, 1}}},
        {3, 57, {{socket, 0}}},
        {3, 57, {{slot, 18}}},
        {12, 60, {{instance, 1}}},
    };
    for (const Refusal& refusal : refusals) {
        const physloc_data_t data = record(refusal.type, refusal.settings, refusal.u);
        physloc_code_t code;
        EXPECT_EQ(physloc_encode(&data, &code), refusal.result)
            << "type " << refusal.type << ", row " << &refusal - refusals.data();
        EXPECT_EQ(hex(code), "FFFFFFFFFFFFFF00");
    }
    const physloc_data_t rack = record(22, {}, 255);
    physloc_code_t code;
    EXPECT_EQ(physloc_encode(&rack, &code), 0) << "a rack stands in no rack";
}

TEST(Physloc, TheFirstSocketRowThatMatchesCounts) {
    const physloc_data_t byPositionOf1ByNumberOf3 = record(5, {{socket, 3}, {hub, 0}, {hublet, 0}});
    physloc_code_t code;
    ASSERT_EQ(physloc_encode(&byPositionOf1ByNumberOf3, &code), 0);
    EXPECT_EQ(text(PHYSLOC_FORM_NUMERIC, code), "1/6/1");
}

TEST(Physloc, GroupsEncodersAndPointersAreChecked) {
    const physloc_data_t drive = record(45, {{slot, 3}});
    physloc_code_t code;
    ASSERT_EQ(physloc_encode(&drive, &code), 0);
    const std::uint32_t word0 = physloc_word(code, 0);
    const std::uint32_t word1 = physloc_word(code, 1);

    physloc_data_t decoded;
    EXPECT_EQ(physloc_decode_io_src(word0, word1, &decoded), 0);
    EXPECT_EQ(physloc_decode_memory_src(word0, word1, &decoded), 5);
    char buffer[PHYSLOC_TEXT_SIZE] = "";
    EXPECT_EQ(physloc_get_io_string(PHYSLOC_FORM_NUMERIC, &decoded, buffer, 6), 0);
    EXPECT_STREQ(buffer, "1/6/3");
    EXPECT_EQ(physloc_get_io_string(PHYSLOC_FORM_NUMERIC, &decoded, buffer, 5), 4);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(physloc_get_io_string(PHYSLOC_FORM_PREFIX, &decoded, buffer, sizeof buffer), 1);
    EXPECT_EQ(physloc_get_cpu_string(PHYSLOC_FORM_NUMERIC, &decoded, buffer, sizeof buffer), 1);
    EXPECT_EQ(physloc_encode_dimm(&code, &drive), 1);

    EXPECT_EQ(physloc_init_data(nullptr, 0), 2);
    EXPECT_EQ(physloc_init_data(nullptr, 1), 13);
    EXPECT_EQ(physloc_encode(&drive, nullptr), 2);
    EXPECT_EQ(physloc_encode(nullptr, &code), 2);
    EXPECT_EQ(physloc_encode_dimm(nullptr, &drive), 2);
    EXPECT_EQ(physloc_decode(word0, word1, nullptr), 2);
    EXPECT_EQ(physloc_get_string(9, word0, 0, nullptr), 2);
    EXPECT_EQ(physloc_get_string(4, word0, 0, buffer), 1);
    EXPECT_EQ(physloc_get_string(-1, word0, word1, buffer), 1);
    EXPECT_STREQ(physloc_get_rtn_string(17), "invalid hublet");
    EXPECT_STREQ(physloc_get_rtn_string(18), "");
    EXPECT_STREQ(physloc_get_rtn_string(-1), "");
}

TEST(Physloc, EverySlotHangsOnItsSocketAndRootPort) {
    const std::vector<std::string> socketAndRootPort{"0/0", "0/7", "0/1", "0/5", "1/9", "0/11",
                                                     "1/5", "1/1", "1/7", "2/7", "2/1", "2/5",
                                                     "3/9", "2/9", "3/5", "3/1", "3/7", "0/9"};
    for (std::size_t number = 0; number < socketAndRootPort.size(); ++number) {
        physloc_code_t code;
        const physloc_data_t port = record(57, {{slot, static_cast<std::uint8_t>(number)}});
        ASSERT_EQ(physloc_encode(&port, &code), 0);
        EXPECT_EQ(text(PHYSLOC_FORM_NUMERIC, code),
                  "1/6/" + socketAndRootPort[number] + "/" + std::to_string(number));
    }
}

TEST(Physloc, DimmsAndFabricPortsAreNumberedWithoutNineAndFifteen) {
    std::set<unsigned> connectors;
    for (std::uint8_t quad = 0; quad < 4; ++quad) {
        for (std::uint8_t port = 0; port < 4; ++port) {
            std::uint8_t number = 0;
            ASSERT_EQ(physloc_get_fabric_port(quad, port, &number), 0);
            connectors.insert(number);
        }
    }
    EXPECT_EQ(connectors,
              (std::set<unsigned>{1, 2, 3, 4, 5, 6, 7, 8, 10, 11, 12, 13, 14, 16, 255}));
    std::uint8_t number = 0;
    EXPECT_EQ(physloc_get_fabric_port(4, 0, &number), 15);

    int dimms = 0;
    for (unsigned candidate = 0; candidate < 256; ++candidate) {
        physloc_dimm_info_t dimm;
        if (physloc_get_dimm_info(static_cast<std::uint8_t>(candidate), &dimm) != 0) continue;
        EXPECT_TRUE(candidate >= 1 && candidate <= 26 && candidate != 9 && candidate != 15);
        const int place = dimm.cpu_socket * 6 + dimm.group * 3 + dimm.index;
        EXPECT_EQ(place, dimms++) << "numbered in order";
    }
    EXPECT_EQ(dimms, 24);
}

TEST(tavPhyLoc, RendersWhatTheHostSaysOfAPlace) {
    struct Case {
        std::vector<std::string> geo;
        unsigned type;
        const char* instance;
        const char* expected;
    };
    const std::vector<Case> cases{
        {{"1", "6", "3"}, 3, "NA", "0003000106010005"},
        {{"257", "262", "259"}, 3, "NA", "0003000106010005"},
        {{"1", "6", "junk"}, 48, "0x3", "FFFF030106FFFF88"},
        {{"1", "6", "0"}, 48, "03", "FFFF030106FFFF88"},
        {{"1", "6", "0"}, 48, "4", "FFFFFFFFFFFFFF00"},
        {{"1", "6", "2"}, 45, "NA", "FF00020106FFFF86"},
        {{"1", "43", "2"}, 45, "NA", "FFFFFFFFFFFFFF00"},
        {{"1", "6", "2"}, 61, "NA", "FFFFFFFFFFFFFF00"},
        {{"1", "6"}, 45, "NA", "FFFFFFFFFFFFFF00"},
        {{}, 45, "", "FFFFFFFFFFFFFF00"},
    };
    for (const Case& given : cases) {
        EXPECT_EQ(tavPhyLoc::getPhyLoc(given.geo, static_cast<physloc_type_t>(given.type),
                                       given.instance),
                  given.expected)
            << &given - cases.data();
    }
}

}  // namespace
