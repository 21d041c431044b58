#include <cstdlib>
#include <thread>

#include <gmock/gmock.h>

#include "hwlib/pci/PciHost.h"
#include "hwlib/pci/pci.h"
#include "hwlib/pci/pci_slots.h"
#include "hwlib/smbios/smbios.h"
#include "hwlib/sysfs/sysfs_readers.h"
#include "tests/hwlib/pci/Listing.h"
#include "tests/support/MadeUpPci.h"

namespace {

using namespace std::string_literals;
using tav::test::addFunction;
using tav::test::makeLink;
using tav::test::writeFile;

constexpr const char* devices = "/sys/bus/pci/devices/";
const std::string port = "pci0000:00/0000:00:1c.0";
const std::string adapter = port + "/0000:01:00.0";

class PciTree : public testing::Test {
 protected:
    void SetUp() override {
        addFunction({"pci0000:00/0000:00:00.0", 0x8086, 0x2020, 0, 0, 0x060000, 4});
        addFunction({port, 0x8086, 0xA190, 0x15D9, 0x0953, 0x060400, 0xF9, 1});
        addFunction({adapter, 0x10DF, 0xE300, 0x10DF, 0xE310, 0x0C0400, 1});
        addFunction({port + "/0000:01:00.1", 0x10DF, 0xE300, 0x10DF, 0xE310, 0x0C0400, 1});
        addFunction({port + "/0000:01:01.0", 0x10B5, 0x8724, 0, 0, 0x060400, 0xCA, 0x81});
        addFunction(
            {port + "/0000:01:01.0/0000:02:00.0", 0x8086, 0x0A54, 0x8086, 0x4702, 0x010802});
        addFunction({"pci0001:40/0001:40:00.0", 0xABCD, 0x0001, 0xABCE, 0x0002, 0x0BFF00});
        addFunction({"pci0001:40/0001:40:01.0", 0x1AF4, 0x1042, 0x1AF4, 0x1042, 0xFFFF00});
        // What else the kernel, or somebody, puts into a bridge's directory.
        writeFile("/sys/devices/" + port + "/0000:00:1c.0:pcie001/driver", "");
        makeLink("/sys/devices/" + port + "/0000:00:1c.0", ".");
        makeLink("/sys/devices/" + adapter + "/0000:00:1c.0", "..");
    }

    PciNode root;
};

TEST_F(PciTree, EveryFunctionStandsOnceUnderItsBridge) {
    ASSERT_EQ(pci_node_scan(root, devices), 8);
    EXPECT_EQ(tav::test::outlineOf(root),
              "0000:00:00.0\n"
              "0000:00:1c.0\n"
              " 0000:01:00.0\n"
              " 0000:01:00.1\n"
              " 0000:01:01.0\n"
              "  0000:02:00.0\n"
              "0001:40:00.0\n"
              "0001:40:01.0\n");
}

TEST_F(PciTree, AFunctionIsListedWhateverClassStandsAboveIt) {
    addFunction({"pci0000:00/0000:00:1d.0", 0x15B3, 0x1976, 0, 0, 0x088000, 0, 1});
    addFunction({"pci0000:00/0000:00:1d.0/0000:03:00.0", 0x15B3, 0x101D});
    addFunction({"pci0000:00/0000:00:1d.0/0000:03:00.0/0000:01:1e.0", 0x15B3, 0x101E});
    // A name of the fewest digits.
    addFunction({"pci0001:40/1:40:2.0", 0x1AF4, 0x1043});
    EXPECT_EQ(pci_node_scan(root, devices), 12);
    EXPECT_THAT(tav::test::outlineOf(root), testing::HasSubstr("0000:00:1d.0\n"
                                                               " 0000:03:00.0\n"
                                                               "  0000:01:1e.0\n"
                                                               "0001:40:00.0\n"
                                                               "0001:40:01.0\n"
                                                               "0001:40:02.0\n"));
    ASSERT_NE(PciGetnode_str("0000:01:1e.0"), nullptr);
    EXPECT_EQ(PciGetnode_str("0000:01:1e.0")->device, 0x101E);
}

TEST_F(PciTree, AskingForAnUnknownFunctionScansNothingAnew) {
    const PciNodePtr known = PciGetnode_str("0000:01:00.0");
    ASSERT_NE(known, nullptr);
    // In the list, but leading to no function.
    writeFile("/sys/devices/file", "");
    makeLink("/sys/bus/pci/devices/0000:07:00.0", "../../../devices/file");
    makeLink("/sys/bus/pci/devices/0000:07:00.1", "../../../devices/missing");
    EXPECT_EQ(PciGetnode_str("0000:07:00.0"), nullptr);
    const PciNodePtr afterIt = PciGetnode_str("0000:01:00.0");
    for (const char* address : {"0000:07:00.0", "0000:07:00.1", "0000:07:00.2"})
        EXPECT_EQ(PciGetnode_str(address), nullptr) << address;
    EXPECT_EQ(PciGetnode_str("0000:01:00.0"), afterIt);
    addFunction({port + "/0000:01:00.2", 0x10DF, 0xE301});
    EXPECT_NE(PciGetnode_str("0000:01:00.2"), nullptr) << "what is new is found at once";
}

TEST_F(PciTree, AgreesWithTheListingTool) {
    writeFile("/sys/bus/pci/slots/7-1/address", "0000:01:00\n");
    writeFile("/sys/bus/pci/slots/9/address", "0000:40:00\n");
    ASSERT_TRUE(scan_hw_ids());
    pci_node_scan(root, devices);
    const auto expected = tav::test::listingOfTool();
    if (!expected) GTEST_SKIP() << "lspci is not installed";
    EXPECT_EQ(tav::test::listingOf(root), *expected);
    EXPECT_THAT(*expected, testing::HasSubstr("PhySlot:\t7-1\n")) << "or nothing was compared";
}

TEST_F(PciTree, AMissingAttributeCostsNoOther) {
    const std::string directory = "/sys/devices/" + port;
    std::filesystem::remove(directory + "/uevent");
    writeFile("/sys/devices/" + adapter + "/uevent", "PCI_ID=10DF:\nPCI_SUBSYS_ID=10DF:E310");
    std::filesystem::remove("/sys/devices/" + adapter + "/subsystem_device");
    std::filesystem::remove(directory + "/class");
    std::filesystem::remove(directory + "/subsystem_vendor");
    std::filesystem::remove(directory + "/revision");
    std::filesystem::remove("/sys/devices/" + adapter + "/config");
    std::filesystem::remove("/sys/devices/" + adapter + "/revision");
    writeFile("/sys/devices/" + adapter + "/vendor", "nonsense");
    ASSERT_EQ(pci_node_scan(root, devices), 8);
    const PciNode& bridge = *root.children[1];
    EXPECT_EQ(bridge.classCode, tav::Lack::Absent);
    EXPECT_EQ(bridge.subsystemVendor, tav::Lack::Absent);
    EXPECT_EQ(bridge.subsystemDevice, 0x0953);
    EXPECT_EQ(bridge.revision, 0xF9);
    EXPECT_EQ(bridge.readInterruptLine(), 16);
    EXPECT_EQ(bridge.children[0]->vendor, tav::Lack::Malformed);
    EXPECT_EQ(bridge.children[0]->device, 0xE300);
    EXPECT_EQ(bridge.children[0]->subsystemDevice, 0xE310);
    EXPECT_EQ(bridge.children[0]->revision, tav::Lack::Absent);
    EXPECT_EQ(bridge.children[0]->readCapabilities(), tav::Lack::Absent);
}

TEST_F(PciTree, CapabilitiesAreReadFromTheSlowSpaceAlone) {
    std::string config = tav::test::configOf({adapter, 0x10DF, 0xE300});
    config[0x06] = 0x10;
    config[0x34] = 0x44;
    config.replace(0x44, 2, "\x05\x60");
    config.replace(0x60, 2, "\x10\x44");
    config[0x72] = static_cast<char>(0x83);
    writeFile("/sys/devices/" + adapter + "/config", config);
    PciNode node;
    ASSERT_TRUE(fill_pci_node(node, ("/sys/devices/" + adapter).c_str()));
    EXPECT_EQ(node.readCapabilities(), (tav::PciCapabilities{1U << 4 | 1U << 15, 11}));
    writeFile("/sys/devices/" + adapter + "/config", config.substr(0, 64));
    PciNode unprivileged;
    ASSERT_TRUE(fill_pci_node(unprivileged, ("/sys/devices/" + adapter + "/").c_str()));
    EXPECT_EQ(unprivileged.readCapabilities(), tav::Lack::Refused) << "the list is cut off";
    writeFile("/sys/devices/" + adapter + "/config", config);
    EXPECT_EQ(unprivileged.readCapabilities(), node.readCapabilities());
    EXPECT_FALSE(fill_pci_node(unprivileged, "/sys/devices/pci0000:00"));
    EXPECT_FALSE(fill_pci_node(unprivileged, "/sys/devices/0000:ff:00.0"));
}

void writeVpd(const std::string& serial) {
    const auto length = static_cast<char>(serial.size());
    const std::string records = "SN"s + length + serial + "ZQ\4Quad";
    writeFile("/sys/devices/" + adapter + "/vpd",
              "\x82\5\0Fibre\x90"s + static_cast<char>(records.size()) + '\0' + records + "\x78");
}

TEST_F(PciTree, VitalProductDataIsOfTheFunctionThatIsThereNow) {
    writeVpd("A1");
    const PciNodePtr node = PciGetnode_str("0000:01:00");
    ASSERT_NE(node, nullptr);
    ASSERT_NE(node->vendorEntry, nullptr);
    EXPECT_EQ(vendor_search(0x10DF), node->vendorEntry) << "the names are loaded for the process";
    EXPECT_STREQ(PciGetVPDtag(node.get(), "SN"), "A1");
    EXPECT_STREQ(PciGetVPDProductName(node.get()), "Fibre");
    EXPECT_STREQ(PciGetVPDataProductName(node.get()), "Quad");
    EXPECT_EQ(PciGetVPDtag(node.get(), "VA"), nullptr);
    EXPECT_EQ(PciGetVPDtag(node.get(), "S"), nullptr);
    EXPECT_EQ(PciGetVPDtag(nullptr, "SN"), nullptr);
    EXPECT_EQ(PciGetVPDProductName(PciGetnode_str("0000:00:1c.0").get()), nullptr);
    EXPECT_EQ(PciGetnode_str("0000:01:00.0"), node) << "nothing changed, nothing is scanned anew";

    // Pulled, and another of the same model put in.
    std::filesystem::rename("/sys/devices/" + adapter, "/sys/pulled");
    EXPECT_EQ(PciGetnode_str("0000:01:00.0"), nullptr);
    std::filesystem::remove("/sys/bus/pci/devices/0000:01:00.0");
    addFunction({adapter, 0x10DF, 0xE300, 0x10DF, 0xE310, 0x0C0400, 1});
    writeVpd("B2");
    EXPECT_FALSE(node->isCurrent());
    const PciNodePtr replaced = PciGetnode_str("0000:01:00.0");
    ASSERT_NE(replaced, nullptr);
    EXPECT_STREQ(PciGetVPDtag(replaced.get(), "SN"), "B2");
    EXPECT_STREQ(PciGetVPDtag(node.get(), "SN"), "A1") << "what was handed out stays valid";
    EXPECT_EQ(node->readInterruptLine(), tav::Lack::Absent) << "it is another function's now";
    EXPECT_EQ(node->readVpd(), tav::Lack::Absent);
    EXPECT_EQ(replaced->readInterruptLine(), 16);
    EXPECT_EQ(PciGetnode_str("../devices/0000:01:00.0"), nullptr);
}

TEST_F(PciTree, AFailedReadIsNotKept) {
    const std::string file = "/sys/devices/" + adapter + "/vpd";
    const PciNodePtr node = PciGetnode_str("0000:01:00.0");
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->readVpd(), tav::Lack::Absent);
    for (const std::string& bad : {"junk"s, "\x82\x05\0Fib"s, ""s}) {
        writeFile(file, bad);
        EXPECT_EQ(PciGetVPDtag(node.get(), "SN"), nullptr);
        EXPECT_EQ(node->readVpd(), bad.empty() ? tav::Lack::Absent : tav::Lack::Malformed);
    }
    std::filesystem::remove(file);
    std::filesystem::create_directory(file);
    EXPECT_EQ(PciGetVPDtag(node.get(), "SN"), nullptr);
    EXPECT_EQ(node->readVpd(), tav::Lack::Refused) << "opened, but not read";
    std::filesystem::remove(file);
    writeVpd("A1");
    const char* const kept = PciGetVPDtag(node.get(), "SN");
    EXPECT_STREQ(kept, "A1");
    writeVpd("A2");
    EXPECT_EQ(*node->readVpd()->find("SN"), "A2") << "what is read is what stands there now";
    EXPECT_EQ(PciGetVPDtag(node.get(), "SN"), kept) << "the node's text stays";
}

TEST_F(PciTree, AContextOfOnesOwnKnowsNothingOfTheOthers) {
    tav::PciHost named;
    tav::PciHost nameless([] { return nullptr; });
    EXPECT_EQ(named.scans(), 0U);
    const auto node = named.find({0, 1, 0, 0});
    ASSERT_TRUE(node);
    EXPECT_NE((*node)->vendorEntry, nullptr);
    EXPECT_EQ((*nameless.find({0, 1, 0, 0}))->vendorEntry, nullptr);
    EXPECT_EQ(vendor_search(0x10DF), nullptr) << "nothing was loaded for the process";
    writeFile("/sys/devices/file", "");
    makeLink("/sys/bus/pci/devices/0000:07:00.0", "../../../devices/file");
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(named.find({0, 7, 0, 0}), tav::Lack::Refused);
        EXPECT_EQ(named.find({0, 7, 0, 1}), tav::Lack::Absent);
        EXPECT_EQ(named.scans(), 2U) << "once at first, once for what had not been there then";
    }
    std::filesystem::remove("/sys/bus/pci/devices/0000:07:00.0");
    addFunction({port + "/0000:07:00.0", 0x10DF, 0xE301});
    EXPECT_TRUE(named.find({0, 7, 0, 0})) << "another link is another function";
    const PciNodePtr before = named.tree();
    named.refresh();
    EXPECT_EQ(named.scans(), 4U);
    EXPECT_NE(named.tree(), before);
    EXPECT_EQ(tav::test::outlineOf(*named.tree()), tav::test::outlineOf(*before));
    EXPECT_EQ(nameless.scans(), 1U);
}

/// Of a bridge that is scanned alone, what stands in its own directory is behind it, links are not.
TEST_F(PciTree, ABridgeIsScannedByItsOwnDirectory) {
    ASSERT_EQ(pci_node_scan(root, devices), 8);
    PciNode& bridge = *root.children[1];
    bridge.children.clear();
    EXPECT_EQ(pci_node_scan(bridge, ("/sys/devices/" + port).c_str()), 4);
    EXPECT_EQ(tav::test::outlineOf(bridge),
              "0000:01:00.0\n"
              "0000:01:00.1\n"
              "0000:01:01.0\n"
              " 0000:02:00.0\n");
    EXPECT_EQ(bridge.children[2]->children[0]->parent, bridge.children[2].get());
    EXPECT_EQ(pci_node_scan(root, devices), 0) << "all are known";
    PciNode bus;
    EXPECT_EQ(pci_node_scan(bus, "/sys/devices/pci0000:00"), 6) << "directories instead of links";
    EXPECT_EQ(tav::test::outlineOf(bus),
              "0000:00:00.0\n"
              "0000:00:1c.0\n"
              " 0000:01:00.0\n"
              " 0000:01:00.1\n"
              " 0000:01:01.0\n"
              "  0000:02:00.0\n");
}

/// A link says where a function stands; one that lies makes neither a loop nor a function lost.
TEST_F(PciTree, LinksThatLieCostNoFunction) {
    addFunction({"pci0000:00/0000:09:00.0/0000:09:00.0", 0x8086, 0x0901});
    addFunction({"pci0000:00/0000:0a:00.0/0000:0b:00.0", 0x8086, 0x0A01});
    addFunction({"pci0000:00/0000:0b:00.0/0000:0a:00.0", 0x8086, 0x0B01});
    EXPECT_EQ(pci_node_scan(root, devices), 11);
    EXPECT_THAT(tav::test::outlineOf(root), testing::HasSubstr("\n0000:09:00.0\n"
                                                               "0000:0a:00.0\n"
                                                               "0000:0b:00.0\n"));
}

TEST_F(PciTree, LookUpsMayComeFromSeveralThreads) {
    writeVpd("A1");
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 50; ++round)
                EXPECT_STREQ(PciGetVPDtag(PciGetnode_str("0000:01:00.0").get(), "SN"), "A1");
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

TEST_F(PciTree, SlotTextIsTheLastComponentThatBeginsWithADigit) {
    makeLink("/sys/class/scsi_host/host3", "../../devices/" + adapter + "/host3/scsi_host/host3");
    writeFile("/sys/class/net/eth0/address", "");
    makeLink("/sys/class/net/eth0/device", "../../../devices/" + port);
    makeLink("/sys/class/net/lo", "../../devices/virtual/net/lo");
    const std::pair<const char*, const char*> cases[] = {
        {"/sys/class/scsi_host/host3", "0000:01:00.0"},
        {"/sys/class/net/eth0", "0000:00:1c.0"},
        {"/sys/class/net/lo", "NotAvailable"},
        {"/sys/class/net/eth1", "NotAvailable"},
    };
    for (const auto& [path, slot] : cases)
        EXPECT_STREQ(tav::OwnedText(getPCISlotString(path)).get(), slot) << path;
}

TEST_F(PciTree, KernelSlotIsTheOneAtTheSameDevice) {
    writeFile("/sys/bus/pci/slots/7/address", "0000:01:00\n");
    writeFile("/sys/bus/pci/slots/8/address", "0000:01:01.1");
    writeFile("/sys/bus/pci/slots/9/address", "");
    EXPECT_EQ(get_pcislot({0, 1, 0, 1}), "7");
    EXPECT_EQ(get_pcislot({0, 1, 1, 1}), "8");
    EXPECT_EQ(get_pcislot({0, 1, 1, 0}), std::nullopt);
    EXPECT_EQ(get_pcislot({1, 1, 0, 0}), std::nullopt);
}

}  // namespace
