#include "fc/FCAdapterTables.h"

#include <algorithm>

// The names are those of the public PCI ID database. A subsystem ID that it knows for several
// products stands for none here: no name is better than another product's.
constinit const std::array<tavFCAdapterModel, MAX_FC_MODEL_LIST> gFCAdapterModelList{{
    {0x000B1077, "FastLinQ QL41000 Series", "25GE 2P QL41262HxCU-DE Adapter"},
    {0x00341077, "FastLinQ QL45000 Series",
     "QL45262 Flex 50Gb 2-port Ethernet Adapter w/ iSCSI/FCoE"},
    {0x01371077, "ISP2432", "QLE2460 Single-Port 4Gbps FC-to-PCI-X/PCIe Host Bus Adapter"},
    {0x01381077, "ISP2432", "QLE2462 Dual-Port 4Gbps FC-to-PCI-X/PCIe Host Bus Adapter"},
    {0x015C1077, "ISP2532", "QLE2560 PCI Express to 8Gb FC Single Channel"},
    {0x015D1077, "ISP2532", "QLE2562 PCI Express to 8Gb FC Dual Channel"},
    {0x015E1077, "ISP2532", "QLE2564 PCI Express to 8Gb FC Quad Channel"},
    {0x01671077, "ISP2532", "QME2572 Dual Port FC8 HBA Mezzanine"},
    {0x02111077, "8200 Series", "QME8242-k 10GbE Dual Port Mezzanine Card, FCoE"},
    {0x02411077, "ISP8324", "QLE2670 16Gb Single Port Fibre Channel Adapter"},
    {0x02431077, "ISP8324",
     "8300 Series Single Port 10GbE Converged Network Adapter (TCP/IP Networking)"},
    {0x02461077, "ISP8324",
     "8300 Series Dual Port 10GbE Converged Network Adapter (TCP/IP Networking)"},
    {0x02831077, "ISP2714", "QLE2764 Quad Port 32Gb Fibre Channel to PCIe Adapter"},
    {0x02991077, "ISP2722", "QLE2740 Single Port 32Gb Fibre Channel to PCIe Adapter"},
    {0x029A1077, "ISP2722", "QLE2742 Dual Port 32Gb Fibre Channel to PCIe Adapter"},
    {0x029B1077, "ISP2722", "QLE2690 Single Port 16Gb Fibre Channel to PCIe Adapter"},
    {0x029C1077, "ISP2722", "QLE2692 Dual Port 16Gb Fibre Channel to PCIe Adapter"},
    {0x029E1077, "ISP2714", "QLE2694 Quad Port 16Gb Fibre Channel to PCIe Adapter"},
    {0x02A21077, "ISP2714", "QLE2694L Quad Port 16Gb Fibre Channel to PCIe Adapter"},
    {0x02A71077, "ISP2722", "QLE2690 Single Port 16Gb FC to PCIe Gen3 x8 Adapter"},
    {0x02A81077, "ISP2722", "QLE2692 Dual Port 16Gb FC to PCIe Gen3 x8 Adapter"},
    {0x02AB1077, "ISP2722", "QLE2740 Single Port 32Gb FC to PCIe Gen3 x8 Adapter"},
    {0x02AC1077, "ISP2722", "QLE2742 Dual Port 32Gb FC to PCIe Gen3 x8 Adapter"},
    {0x02AD1077, "ISP2714", "QLE2694U Quad Port 16/32Gb Fibre Channel to PCIe Adapter"},
    {0x02B81077, "ISP2722", "2x16Gb QME2692 FC HBA"},
    {0x02B91077, "ISP2722", "2x32Gb QME2742 FC HBA"},
    {0x02E11077, "ISP2814", "QLE2874 Quad Port 64GFC PCIe Gen4 x16 Adapter"},
    {0x02E21077, "ISP2812", "QLE2872 Dual Port 64GFC PCIe Gen4 x8 Adapter"},
    {0x02E31077, "ISP2814", "QLE2774 Quad Port 32GFC PCIe Gen4 x16 Adapter"},
    {0x02E41077, "ISP2812", "QLE2772 Dual Port 32GFC PCIe Gen4 x8 Adapter"},
    {0x02E81077, "ISP2854", "QLE2884 Quad Port 64GFC PCIe Gen4 x16 Adapter with StorCryption"},
    {0x02E91077, "ISP2852", "QLE2882 Dual Port 64GFC PCIe Gen4 x8 Adapter with StorCryption"},
    {0x02EA1077, "ISP2854", "QLE2784 Quad Port 32GFC PCIe Gen4 x16 Adapter with StorCryption"},
    {0x02EB1077, "ISP2852", "QLE2782 Dual Port 32GFC PCIe Gen4 x8 Adapter with StorCryption"},
    {0x02EE1077, "ISP2812", "QLE2870 Single Port 64GFC PCIe Gen4 x8 Adapter"},
    {0x02EF1077, "ISP2852", "QLE2880 Single Port 64GFC PCIe Gen4 x8 Adapter with StorCryption"},
    {0x02F01077, "ISP2812", "QLE2770 Single Port 32GFC PCIe Gen4 x8 Adapter"},
    {0x02F11077, "ISP2852", "QLE2780 Single Port 32GFC PCIe Gen4 x8 Adapter with StorCryption"},
    {0x02F21077, "ISP2812", "QLogic 1x32Gb QLE2770 FC HBA"},
    {0x02F31077, "ISP2812", "QLogic 2x32Gb QLE2772 FC HBA"},
    {0xE28010DF, "LPe15000/LPe16000 Series", "LPe16002B-M6 2-Port 16Gb Fibre Channel Adapter"},
    {0xE28110DF, "LPe15000/LPe16000 Series", "LPe16000B-M6 1-Port 16Gb Fibre Channel Adapter"},
    {0xE30010DF, "LPe31000/LPe32000 Series", "LPe32002-M2 2-Port 32Gb Fibre Channel Adapter"},
    {0xE30110DF, "LPe31000/LPe32000 Series", "LPe32000-M2 1-Port 32Gb Fibre Channel Adapter"},
    {0xE31010DF, "LPe31000/LPe32000 Series", "LPe31002-M6 2-Port 16Gb Fibre Channel Adapter"},
    {0xE31110DF, "LPe31000/LPe32000 Series", "LPe31000-M6 1-Port 16Gb Fibre Channel Adapter"},
    {0xE31210DF, "LPe31000/LPe32000 Series", "LPe31004-M6 4-Port 16Gb Fibre Channel Adapter"},
    {0xE32010DF, "LPe31000/LPe32000 Series", "LPe32002-M2-D 2-Port 32Gb Fibre Channel Adapter"},
    {0xE32110DF, "LPe31000/LPe32000 Series", "LPe32000-M2-D 1-Port 32Gb Fibre Channel Adapter"},
    {0xE32210DF, "LPe31000/LPe32000 Series", "LPe31002-M6-D 2-Port 16Gb Fibre Channel Adapter"},
    {0xE32310DF, "LPe31000/LPe32000 Series", "LPe31000-M6-D 1-Port 16Gb Fibre Channel Adapter"},
    {0xE32410DF, "LPe31000/LPe32000 Series", "LPm32002-D 2-Port 32Gb Fibre Channel Mezz Card"},
    {0xE32510DF, "LPe31000/LPe32000 Series", "LPm31002-D 2-Port 16Gb Fibre Channel Mezz Card"},
    {0xE33010DF, "LPe31000/LPe32000 Series",
     "LPe32002-M2-L 2-Port 32Gb PCIe Fibre Channel Adapter"},
    {0xE33110DF, "LPe31000/LPe32000 Series",
     "LPe32000-M2-L 1-Port 32Gb PCIe Fibre Channel Adapter"},
    {0xE33210DF, "LPe31000/LPe32000 Series",
     "LPe31002-M6-L 2-Port 16Gb PCIe Fibre Channel Adapter"},
    {0xE33310DF, "LPe31000/LPe32000 Series",
     "LPe31000-M6-L 1-Port 16Gb PCIe Fibre Channel Adapter"},
    {0xF14010DF, "LPe12000 Series", "LPe12000-M8-L 1-Port 8Gb PCIe Fibre Channel Adapter"},
    {0xF14110DF, "LPe12000 Series", "LPe12002-M8-L 2-Port 8Gb PCIe Fibre Channel Adapter"},
    {0xF40110DF, "LPe35000/LPe36000 Series", "LPe35000-M2 1-Port 32Gb Fibre Channel Adapter"},
    {0xF40210DF, "LPe35000/LPe36000 Series", "LPe35002-M2 2-Port 32Gb Fibre Channel Adapter"},
    {0xF40310DF, "LPe35000/LPe36000 Series", "LPe36000-M64 1-Port 64Gb Fibre Channel Adapter"},
    {0xF40410DF, "LPe35000/LPe36000 Series", "LPe36002-M64 2-Port 64Gb Fibre Channel Adapter"},
    {0xF40510DF, "LPe35000/LPe36000 Series", "LPe35004-M2 4-Port 32Gb Fibre Channel Adapter"},
    {0xF40610DF, "LPe35000/LPe36000 Series", "LPe35004-X6 4-Port Fibre Channel Adapter"},
    {0xF41010DF, "LPe35000/LPe36000 Series", "LPe35002-M2-D 2-Port 32Gb Fibre Channel Adapter"},
    {0xF41110DF, "LPe35000/LPe36000 Series", "LPe35000-M2-D 1-Port 32Gb Fibre Channel Adapter"},
    {0xF41810DF, "LPe35000/LPe36000 Series",
     "LPe35000-M2-L 1-Port 32Gb PCIe Fibre Channel Adapter"},
    {0xF41910DF, "LPe35000/LPe36000 Series",
     "LPe35002-M2-L 2-Port 32Gb PCIe Fibre Channel Adapter"},
    {0xF42110DF, "LPe35000/LPe36000 Series",
     "LPe36002-M2-L 2-Port 64Gb PCIe Fibre Channel Adapter"},
    {0xF42210DF, "LPe35000/LPe36000 Series", "LPe36002-M64-D 2-Port 64Gb Fibre Channel Adapter"},
    {0x00221657, "BR-1860", "10Gbps CNA - FCOE"},
    {0x00241657, "BR-1860", "16Gbps FC HBA"},
    {0x105417AA, "Lancer", "ThinkServer LPm16002B-M6-L AnyFabric"},
    {0x105517AA, "Lancer", "ThinkServer LPm16004B-M8-L AnyFabric"},
}};

// The numbers under which the adapters' makers sell them.
constinit const std::array<tavFCAdapterPart, MAX_FC_PART_LIST> gFCAdapterPartList{{
    {0x029A1077, "QLE2742-SR-CK"},
    {0x029C1077, "QLE2692-SR-CK"},
    {0xE30010DF, "LPe32002-M2"},
    {0xE31010DF, "LPe31002-M6"},
    {0xF40210DF, "LPe35002-M2"},
}};

namespace tav {
namespace {

constexpr std::string_view genericModel = "Generic FCHBA Model";

template <class Table>
auto findRow(const Table& table, std::uint32_t key) {
    return std::find_if(table.begin(), table.end(),
                        [key](const auto& row) { return row.key == key; });
}

}  // namespace

std::string_view fcAdapterModel(std::uint32_t key) {
    const auto row = findRow(gFCAdapterModelList, key);
    return row == gFCAdapterModelList.end() ? genericModel : std::string_view(row->model);
}

std::string_view fcAdapterPartNumber(std::uint32_t key) {
    const auto row = findRow(gFCAdapterPartList, key);
    return row == gFCAdapterPartList.end() ? std::string_view() : std::string_view(row->partNumber);
}

bool isConvergedModel(std::string_view model) {
    return model.find("Converged") != std::string_view::npos ||
           model.find("Flex") != std::string_view::npos;
}

}  // namespace tav
