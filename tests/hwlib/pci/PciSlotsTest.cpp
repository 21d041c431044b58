#include <gtest/gtest.h>

#include "hwlib/pci/pci_slots.h"
#include "hwlib/smbios/smbios.h"
#include "tests/support/MadeUpSmbios.h"
#include "tests/support/MadeUpSysfs.h"

namespace {

using tav::test::makeLink;
using tav::test::Smbios;

TEST_F(Smbios, SlotIsTheFirstOnTheWayFromTheRoot) {
    ASSERT_TRUE(InitSMBIOS());
    makeLink("/sys/bus/pci/devices/0000:5f:00.0",
             "../../../devices/pci0000:3a/0000:3a:00.0/0000:3b:00.0/0000:5e:08.0/0000:5f:00.0");
    makeLink("/sys/bus/pci/devices/0000:5f:00.1",
             "../../../devices/pci0000:5d/0000:5d:00.0/0000:5e:08.0/0000:5f:00.1");
    makeLink("/sys/bus/pci/devices/0000:00:00.0", "../../../devices/pci0000:00/0000:00:00.0");
    makeLink("/sys/class/scsi_host/host3",
             "../../devices/pci0000:5d/0000:5d:00.0/0000:5e:08.0/0000:5f:00.1/host3/scsi_host/"
             "host3");
    EXPECT_EQ(PciGetslot_str("0000:5f:00.0"), 0x0105);
    EXPECT_EQ(PciGetslot_str("0000:5f:00"), 0x0105);
    EXPECT_EQ(PciGetslot_str("0000:5f:00.1"), 2);
    EXPECT_EQ(PciGetslot_str("0000:00:00.0"), 0);
    EXPECT_EQ(PciGetslot_str("0000:77:00.0"), 0);
    EXPECT_EQ(PciGetslot_str(""), 0);
    EXPECT_EQ(tav::slotBySmbios(tav::defaultSmbios(), {0, 0x5F, 0, 1}), 2);
    EXPECT_EQ(tav::slotBySmbios(tav::defaultSmbios(), {0, 0, 0, 0}), tav::Lack::Absent);
    EXPECT_EQ(tav::slotBySmbios(tav::SmbiosTable(), {0, 0x5F, 0, 1}), tav::Lack::Absent);
    EXPECT_EQ(pcislot_scsi_host("/sys/class/scsi_host/host3"), 2);
    EXPECT_EQ(pcislot_scsi_host("/sys/class/scsi_host/host4"), 0);
    EXPECT_EQ(PciGetChassisPort_str("0000:01:1f.2"), 2);
}

}  // namespace
