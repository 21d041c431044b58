/// The generic factory and its controllers.
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "storage/kernel/tavStorageController.h"
#include "storage/scsi/scsi_scan.h"
#include "tests/support/FastWaiting.h"
#include "tests/support/FourDisks.h"
#include "tests/support/Rmc.h"
#include "tests/support/Service.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using tav::test::fourPorts;
using tav::test::logs;
using tav::test::parseJson;
using tav::test::pciLocation;
using testing::AllOf;
using testing::AnyOf;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::UnorderedElementsAre;

using Controllers = tav::test::FourDisks;

TEST_F(Controllers, AreDescribedWithTheirDisks) {
    disk(1)["rotation"] = 0x0401;
    disk(2)["rotation"] = 0xFFFE;
    disk(3)["rotation"] = 0x0400;
    build();
    discover();
    ASSERT_THAT(infos_, SizeIs(1)) << "four hosts, one controller";
    EXPECT_EQ(infos_[0].getModel(), "Intel C600/X79 series chipset SATA RAID Controller");
    EXPECT_EQ(infos_[0].getControllerPortListSize(), 4U);
    EXPECT_EQ(infos_[0].getControllerPort(3).getDriverName(), "ahci");
    EXPECT_EQ(infos_[0].getDescription(), "PCI 0000:00:17.0 r001i06s00");
    EXPECT_EQ(infos_[0].getState(), TAV_STATE_RUNNING);
    ASSERT_THAT(disks_, SizeIs(4));
    for (int number = 0; number < 4; ++number) {
        const auto& found = disks_[static_cast<std::size_t>(number)];
        EXPECT_EQ(found.getSlot(), number) << "the lowest ATA port is 3";
        EXPECT_EQ(found.getPhysicalLocation(), "FF000" + std::to_string(number) + "0106FFFF86");
    }
    const tavDiskInfo& first = disks_[0];
    EXPECT_EQ(first.getSerialNumber(), "S0");
    EXPECT_EQ(first.getOSDeviceName(), "/dev/sda");
    EXPECT_EQ(first.getModel(), "INTEL SSDSC2BB480G7");
    EXPECT_EQ(first.getRevision(), "N2010121");
    EXPECT_EQ(first.getMediaType(), "SSD");
    EXPECT_EQ(disks_[1].getMediaType(), "HDD");
    EXPECT_EQ(disks_[2].getMediaType(), "HDD");
    EXPECT_EQ(disks_[3].getMediaType(), "") << "no rotation rate";
    EXPECT_EQ(first.getCapacityBytes(), 937703088ULL * 512);
    EXPECT_EQ(first.getState(), TAV_STATE_RUNNING);
    EXPECT_THAT(
        logs(),
        AllOf(ContainsRegex("STOR_LB[^\n]*Claimed device .0000:00:17.0 0x28268086 0xd71590"),
              HasSubstr("pciloc=[0000:00:17.0] rack=[001] upos=[06] slot=[00] phyloc=["),
              HasSubstr("Disk: HBA pciloc=[0000:00:17.0] rack=[001] upos=[06] disk slot=[3] phyl"),
              HasSubstr("0:0:0:0: Device /dev/sda: Found an ATA disk")));
    discover();
    EXPECT_THAT(disks_, SizeIs(4)) << "found again, not added";
    EXPECT_THAT(events(), IsEmpty());
}

class UnlocatedControllers : public Controllers {
 protected:
    void locate() override {}
};

TEST_F(UnlocatedControllers, KeepTheirDisksWhenTheirLocationsCome) {
    discover();
    disk(1)["present"] = "no";
    build();
    discover();
    Controllers::locate();
    poll();
    discover();
    ASSERT_THAT(disks_, SizeIs(4));
    for (const tavDiskInfo& found : disks_) {
        EXPECT_EQ(found.getPhysicalLocation(),
                  "FF000" + std::to_string(found.getSlot()) + "0106FFFF86");
    }
    EXPECT_EQ(infos_.back().getDescription(), "PCI 0000:00:17.0 r001i06s00");
    EXPECT_THAT(events(), IsEmpty());
    disk(2)["errors"] = 1;
    disk(1)["present"] = "yes";
    build();
    discover();
    EXPECT_THAT(events(), UnorderedElementsAre("540 S1", "539 S2"));
}

TEST_F(Controllers, TwoOfAKindAreKnownByTheirPlacesAlsoWithoutAClass) {
    server_["functions"].append(server_["functions"][0]);
    server_["functions"][1]["address"] = "0000:00:18.0";
    server_["scsiHosts"][3]["function"] = "0000:00:18.0";
    build();
    for (const char* const host : {"host0", "host3"})
        fs::remove(
            fs::canonical(std::string("/sys/class/scsi_host/") + host + "/device/../../class"));
    discover();
    ASSERT_THAT(infos_, SizeIs(2));
    EXPECT_EQ(infos_[0].getControllerPortListSize() + infos_[1].getControllerPortListSize(), 4U);
}

TEST_F(Controllers, ReportLostPortsAndTheirReturn) {
    discover();
    server_["scsiHosts"][0]["state"] = "offline";
    build();
    poll();
    EXPECT_THAT(events(), IsEmpty()) << "a warning is not reported";
    setPorts("offline");
    poll();
    poll();
    EXPECT_THAT(events(), ElementsAre("398 NotAvailable"));
    EXPECT_EQ(parseJson(rmc_.commands().back().payload)["PhysicalLocation"].asString(),
              infos_[0].getPhysicalLocation());
    setPorts("running");
    poll();
    EXPECT_THAT(events(), ElementsAre("398 NotAvailable", "397 NotAvailable"));
}

TEST_F(Controllers, OneThatVanishesIsReportedAndMayComeBack) {
    discover();
    fs::rename("/sys/class/scsi_host", "/sys/class/away");
    fs::create_directories("/sys/class/scsi_host");
    discover();
    EXPECT_EQ(infos_[0].getState(), TAV_STATE_OFFLINE) << "what was last known of it";
    EXPECT_THAT(events(), ElementsAre("398 NotAvailable", "538 S0", "538 S1", "538 S2", "538 S3"));
    discover();
    fs::remove("/sys/class/scsi_host");
    fs::rename("/sys/class/away", "/sys/class/scsi_host");
    discover();
    EXPECT_THAT(infos_, SizeIs(1));
    EXPECT_EQ(infos_[0].getState(), TAV_STATE_RUNNING);
    EXPECT_THAT(disks_, SizeIs(4));
    EXPECT_THAT(events(), SizeIs(10)) << "five losses, five returns";
}

TEST_F(Controllers, AShutDownFactoryReportsNothingAndHoldsNothing) {
    const std::ptrdiff_t before = ownDescriptors();
    discover();
    factory().shutdownFactory();
    factory().shutdownFactory();
    std::vector<ItavStorageController*> counted;
    EXPECT_EQ(factory().getControllers(TAV_FAMILY_ANY, counted), 0);
    EXPECT_THAT(counted, IsEmpty());
    EXPECT_THAT(events(), IsEmpty());
    for (int tries = 0; ownDescriptors() != before && tries < 200; ++tries)
        std::this_thread::sleep_for(10ms);  // the threads that have asked end when they get to it
    EXPECT_EQ(ownDescriptors(), before);
}

TEST_F(Controllers, AttributesThatAreMissingCostNoMoreThanThemselves) {
    const fs::path device = "/sys/class/scsi_device/0:0:0:0/device";
    const fs::path host = "/sys/class/scsi_host/host0";
    for (const fs::path& path : {device / "model", device / "rev", device / "vendor",
                                 device / "vpd_pg80", device / "block", host / "state"}) {
        const fs::path aside = "/tmp/aside";
        fs::rename(fs::canonical(path), aside);
        discover();
        EXPECT_THAT(disks_, Not(IsEmpty())) << path;
        EXPECT_THAT(infos_, SizeIs(1)) << path;
        fs::remove_all(aside);
        server_ = fourPorts();
        build();
    }
    discover();
    EXPECT_THAT(disks_, SizeIs(4));
}

TEST_F(Controllers, TextsOfADiskMayBeAnything) {
    disk(0)["serial"] = std::string("a \x01\x02\xff\xfe z", 8);
    build();
    discover();
    ASSERT_THAT(disks_, SizeIs(4));
    disk(0)["errors"] = 3;
    build();
    poll();
    ASSERT_THAT(events(), SizeIs(1));
    EXPECT_THAT(logs(), HasSubstr("Detected disk status change."));
}

TEST_F(Controllers, ARecoveryGoesOnFromTheLastLookWhoeverTookIt) {
    tav::test::clockSpeed = 500;
    discover();
    setPorts("recovery");
    poll();
    std::this_thread::sleep_for(80ms);  // 40 s
    discover();
    std::this_thread::sleep_for(60ms);
    poll();
    EXPECT_THAT(events(), ElementsAre("398 NotAvailable")) << "60 s after it began, not 90";
    setPorts("running");
    poll();
    setPorts("recovery");
    discover();
    setPorts("running");
    poll();
    std::this_thread::sleep_for(140ms);
    setPorts("recovery");
    discover();
    EXPECT_THAT(events(), ElementsAre("398 NotAvailable", "397 NotAvailable"))
        << "another recovery, which has just begun";
}

/// As on a real kernel, where a directory's times tell nothing of its entries: they are those of a
/// link here.
TEST_F(Controllers, WhatComesAndGoesIsNoticedByItsName) {
    for (const char* const directory : {"/sys/class/scsi_host", "/sys/class/scsi_device"}) {
        fs::rename(directory, std::string(directory) + "s");
        fs::create_directory_symlink(std::string(directory) + "s", directory);
    }
    const auto noticed = [this] {
        factory().poll();
        const std::string log = logs();
        std::size_t times = 0;
        for (std::size_t at = 0;
             (at = log.find("Detected change in SCSI hosts/devices.", at)) != std::string::npos;
             ++at)
            ++times;
        return times;
    };
    discover();
    EXPECT_EQ(noticed(), 0U);
    fs::rename("/sys/class/scsi_devices/2:0:0:0", "/sys/class/away");
    EXPECT_EQ(noticed(), 1U);
    EXPECT_EQ(noticed(), 1U) << "once";
    fs::rename("/sys/class/away", "/sys/class/scsi_devices/9:0:0:0");
    EXPECT_EQ(noticed(), 2U) << "another one, and as many as before the last";
    discover();
    fs::rename("/sys/class/scsi_hosts/host3", "/sys/class/away");
    discover();
    EXPECT_EQ(noticed(), 2U) << "a discovery has seen it";
}

TEST_F(Controllers, OfAStorageClassAreClaimedWhateverTheyAreWhenTheServiceWantsIt) {
    server_["functions"][0]["device"] = "0x2922";
    server_["functions"][0]["class"] = "0x010601";
    build();
    discover();
    EXPECT_THAT(infos_, IsEmpty());
    factory().claimAnyController();
    discover();
    ASSERT_THAT(infos_, SizeIs(1));
    EXPECT_THAT(infos_[0].getModel(),
                AnyOf(HasSubstr("SATA Controller"), testing::Eq("NotAvailable")))
        << "as the ID database calls it, where there is one";
    EXPECT_EQ(infos_[0].getPhysicalLocation().size(), 16U);
    EXPECT_THAT(disks_, SizeIs(4));
    disk(1)["errors"] = 2;
    build();
    poll();
    EXPECT_EQ(events().size(), 0U) << "a disk without a place has no event";
    factory().shutdownFactory();
    server_["functions"][0]["class"] = "0x020000";
    build();
    discover();
    EXPECT_THAT(infos_, IsEmpty()) << "no storage";
}

TEST_F(Controllers, ABlockDeviceThatComesLaterIsLookedFor) {
    const fs::path block = "/sys/class/scsi_device/2:0:0:0/device/block";
    fs::rename(block, "/run/block");
    discover();
    EXPECT_EQ(disks_[2].getCapacityBytes(), 0U);
    fs::rename("/run/block", block);
    poll();
    std::vector<ItavStorageController*> counted;
    factory().getControllers(TAV_FAMILY_ANY, counted);
    const tav::Reference<ItavStorageController> controller(counted.at(0));
    auto& known = dynamic_cast<tavStorageController&>(*counted.at(0));
    EXPECT_EQ(known.getPhysicalDrivesInventory()[2].getCapacityBytes(), 937703088U * 512ULL);
    EXPECT_EQ(known.getPhysicalDrivesInventory()[2].getOSDeviceName(), "/dev/sdc");
}

TEST(ScsiScan, TheNearestFunctionDecides) {
    EXPECT_EQ(tav::nearestPciLocation(
                  "../../devices/pci0000:00/0000:00:1c.0/0000:03:00.0/host0/scsi_host/host0"),
              "0000:03:00.0");
    EXPECT_EQ(tav::nearestPciLocation("../../devices/virtual/x"), "");
    EXPECT_EQ(tav::nearestPciLocation("/0000:"), "0000:");
    EXPECT_EQ(tav::numberBehind("/a/ata12/host3", "/ata"), 12);
    EXPECT_EQ(tav::numberBehind("/atax/ata7", "/ata"), 7);
    EXPECT_EQ(tav::numberBehind("/ata-1", "/ata"), -1);
    EXPECT_EQ(tav::numberBehind("/ata99999999999", "/ata"), -1);
    EXPECT_THAT(tav::scsiDevicesBehind(pciLocation), IsEmpty()) << "there is no such class";
}

}  // namespace
