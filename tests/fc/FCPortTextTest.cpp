#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "fc/FCAdapterTables.h"
#include "fc/FCEvents.h"
#include "fc/FCPortText.h"
#include "fc/FCResourceManager.h"

namespace {

TEST(FCPortText, StatesTheirHealthAndTheirEvents) {
    const struct {
        const char* text;
        int state;
        int health;
        int event;
        bool isService;
    } rows[] = {{"Online", 15, 2, 384, false},
                {"Offline", 14, 3, 385, false},
                {"Diagnostic Mode", 8, 3, -1, false},
                {"Linkdown", 12, 1, 386, true},
                {"Loopback", 13, 3, -1, false},
                {"Bypassed", 1, 3, -1, false},
                {"Error", 10, 1, 388, true},
                {"online", 0, 0, -1, false},
                {"Online ", 0, 0, -1, false},
                {"", 0, 0, -1, false},
                {nullptr, 0, 0, -1, false}};
    for (const auto& row : rows) {
        const TAV_RESOURCE_STATE state = FCResourceManager::getState(row.text);
        EXPECT_EQ(state, row.state) << row.text;
        EXPECT_EQ(FCResourceManager::getHealth(state), row.health) << row.text;
        EXPECT_EQ(tav::fcEventOf(state).value_or(-1), row.event) << row.text;
        EXPECT_EQ(tav::isFcServiceEvent(row.event), row.isService) << row.text;
    }
    EXPECT_EQ(FCResourceManager::getHealth(static_cast<TAV_RESOURCE_STATE>(255)), 0);
}

TEST(FCPortText, WorldWideNamesOfAnyLength) {
    const struct {
        const char* text;
        const char* name;
    } rows[] = {{"0x2000001122334455", "20:00:00:11:22:33:44:55"},
                {"20000000C9112233", "20:00:00:00:C9:11:22:33"},
                {"0x2000001122334455 \n", "20:00:00:11:22:33:44:55"},
                {"0x0", "0"},
                {"0x2000", "20:00"},
                {"0x20000", "20:00:0"},
                {"0x20000011223344556", "Not Available"},
                {"0x20000011223344zz", "Not Available"},
                {"0x20000011 22334455", "Not Available"},
                {"0x", "Not Available"},
                {"", "Not Available"},
                {nullptr, "Not Available"}};
    for (const auto& row : rows)
        EXPECT_EQ(FCResourceManager::portWWNtoString(row.text), row.name);
    EXPECT_EQ(FCResourceManager::portWWNtoString(std::string(100000, 'f').c_str()),
              "Not Available");
}

TEST(FCPortText, LinksOfHosts) {
    const struct {
        const char* target;
        const char* function;
        const char* interface;
    } rows[] = {
        {"../../devices/pci0000:80/0000:80:02.0/0000:86:00.1/host8/scsi_host/host8", "0000:86:00.1",
         nullptr},
        {"../../../0000:af:00.0", "0000:af:00.0", nullptr},
        {"../../devices/pci0001:00/0001:af:00.0/net/vmnic4.1002/host9", "0001:af:00.0", "vmnic4"},
        {"../../devices/virtual/net/fcoe0/host9", "", "fcoe0"},
        {"0000:86:00.0", "0000:86:00.0", nullptr},
        {"/0000:86:00/0000:86:00.8/0000:86:00.0:pcie001/", "", nullptr},
        {"../net/", "", ""},
        {"////", "", nullptr},
        {"", "", nullptr}};
    for (const auto& row : rows) {
        EXPECT_EQ(tav::lastPciFunction(row.target), row.function) << row.target;
        const auto interface = tav::interfaceInTarget(row.target);
        EXPECT_EQ(interface.has_value(), row.interface != nullptr) << row.target;
        EXPECT_EQ(interface.value_or(""), row.interface == nullptr ? "" : row.interface);
    }
    for (const char* name : {"host", "host-1", "host8a", "hos8", "host99999999999", "host 8"})
        EXPECT_FALSE(tav::parseHostName(name)) << name;
    EXPECT_EQ(tav::parseHostName("host12"), 12);
}

TEST(FCPortText, AdaptersByTheirSubsystem) {
    const struct {
        unsigned long key;
        const char* model;
        int isConverged;
        const char* part;
    } rows[] = {
        {0xE30010DF, "LPe32002-M2 2-Port 32Gb Fibre Channel Adapter", 0, "LPe32002-M2"},
        {0x00341077, "QL45262 Flex 50Gb 2-port Ethernet Adapter w/ iSCSI/FCoE", 1, ""},
        {0x02431077, "8300 Series Single Port 10GbE Converged Network Adapter (TCP/IP Networking)",
         1, ""},
        {0x10DFE300, "Generic FCHBA Model", 0, ""},
        {0xFFFFFFFF, "Generic FCHBA Model", 0, ""},
        {0, "Generic FCHBA Model", 0, ""}};
    for (const auto& row : rows) {
        char model[131];
        int isConverged = -1;
        FCResourceManager::getFcaHostCntlrModel(row.key, model, &isConverged);
        EXPECT_STREQ(model, row.model);
        EXPECT_EQ(isConverged, row.isConverged) << row.model;
        EXPECT_EQ(FCResourceManager::getFcaHostCntlrPartNumber(row.key), row.part);
    }
}

template <std::size_t Size>
std::string textOf(const char (&field)[Size]) {
    EXPECT_EQ(field[Size - 1], '\0');
    return field;
}

void expectName(const std::string& name, std::uint32_t key) {
    EXPECT_TRUE(name.size() >= 5 && name.front() != ' ' && name.back() != ' ') << std::hex << key;
    EXPECT_EQ(name.find("  "), std::string::npos) << name;
    for (const char c : name)
        EXPECT_TRUE(c >= ' ' && c <= '~') << name;
}

/// The rows are data that nothing else would notice a slip in: a key whose halves are exchanged,
/// one that a row before it hides, a text that is cut.
TEST(FCPortText, TheFormOfTheAdapterTables) {
    const std::set<std::uint32_t> vendors = {0x1077, 0x10DF, 0x1657, 0x17AA};
    std::set<std::uint32_t> keys;
    std::pair<std::uint32_t, std::uint32_t> last;
    for (const tavFCAdapterModel& row : gFCAdapterModelList) {
        const std::pair vendorAndDevice(row.key & 0xFFFFU, row.key >> 16U);
        EXPECT_TRUE(vendors.contains(vendorAndDevice.first)) << row.model;
        EXPECT_LT(last, vendorAndDevice) << row.model << ": sorted, none twice";
        last = vendorAndDevice;
        keys.insert(row.key);
        expectName(textOf(row.model), row.key);
        expectName(textOf(row.family), row.key);
    }
    EXPECT_EQ(keys.size(), 75U);
    for (const tavFCAdapterPart& row : gFCAdapterPartList) {
        const std::string part = textOf(row.partNumber);
        const std::string model(tav::fcAdapterModel(row.key));
        EXPECT_TRUE(keys.contains(row.key)) << part;
        expectName(part, row.key);
        EXPECT_NE((model + ' ').find(part.substr(0, part.find("-SR-")) + ' '), std::string::npos)
            << part << " is not the number of " << model;
    }
}

tavFCDeviceInfo named(const char* node, const char* port) {
    tavFCDeviceInfo info;
    info.settavFCWWNN(node);
    info.settavFCWWPN(port);
    return info;
}

TEST(FCPortText, WhichPortItWasInTheBuildBefore) {
    const char* none = "Not Available";
    const struct {
        const char* what;
        tavFCDeviceInfo port;
        std::vector<tavFCDeviceInfo> previous;
        std::vector<tavFCDeviceInfo> alsoNow;
        int index;  ///< -1: it is new
    } rows[] = {
        {"the same", named("n1", "p1"), {named("n2", "p2"), named("n1", "p1")}, {}, 1},
        {"a new node", named("n3", "p3"), {named("n1", "p1")}, {}, -1},
        {"a new node with an old port's name", named("n3", "p1"), {named("n1", "p1")}, {}, -1},
        {"two ports of one node", named("n1", "p2"), {named("n1", "p1"), named("n1", "p2")}, {}, 1},
        {"a port with a new name", named("n1", "p9"), {named("n1", "p1")}, {}, 0},
        {"a second port of a known node",
         named("n1", "p2"),
         {named("n1", "p1")},
         {named("n1", "p1")},
         -1},
        {"a port without its node's name", named(none, "p1"), {named("n1", "p1")}, {}, 0},
        {"and with it again", named("n1", "p1"), {named(none, "p1")}, {}, 0},
        {"a port without its own name", named("n1", none), {named("n1", "p1")}, {}, 0},
        {"nothing to tell it by", named(none, none), {named(none, none)}, {}, -1},
        {"nothing to tell two apart",
         named("n1", "p1"),
         {named("n1", "p1"), named("n1", "p1")},
         {},
         -1}};
    for (const auto& row : rows) {
        std::vector<tavFCDeviceInfo> current = row.alsoNow;
        current.push_back(row.port);
        const tavFCDeviceInfo* const found =
            tav::findPreviousFcPort(row.port, row.previous, current);
        EXPECT_EQ(found, row.index < 0 ? nullptr : &row.previous[std::size_t(row.index)])
            << row.what;
    }
}

}  // namespace
