/// Runs with the machine's own /sys.
#include <gtest/gtest.h>

#include "hwlib/pci/pci.h"
#include "tests/hwlib/pci/Listing.h"

namespace {

TEST(PciOfThisMachine, AgreesWithTheListingTool) {
    const auto expected = tav::test::listingOfTool();
    if (!expected) GTEST_SKIP() << "no PCI functions here, or lspci is not installed";
    ASSERT_TRUE(scan_hw_ids());
    PciNode root;
    EXPECT_GT(pci_node_scan(root, "/sys/bus/pci/devices/"), 0);
    EXPECT_EQ(tav::test::listingOf(root), *expected);
}

}  // namespace
