/// The generic factory and its controllers on a simulated server: four SATA ports of an Intel SATA
/// RAID controller, a disk on each.
#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/tavUtils.h"
#include "sim/server/ServerTree.h"
#include "storage/kernel/tavStorageController.h"
#include "storage/kernel/tavStorageControllerFactory.h"
#include "storage/scsi/scsi_scan.h"
#include "tests/support/Rmc.h"
#include "tests/support/Service.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using tav::test::logEverything;
using tav::test::logs;
using tav::test::openDescriptors;
using tav::test::parseJson;
using tav::test::Rmc;
using tav::test::writeCommand;
using testing::AllOf;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* pciLocation = "0000:00:17.0";

Json::Value fourPorts() {
    Json::Value server = parseJson(R"({"functions": [
        {"address": "0000:00:17.0", "class": "0x010400", "vendor": "0x8086", "device": "0x2826",
         "subVendor": "0x1590", "subDevice": "0x00d7", "driver": "ahci"}]})");
    for (int port = 0; port < 4; ++port) {
        Json::Value host;
        host["host"] = port;
        host["function"] = pciLocation;
        host["ata"] = port + 3;
        host["state"] = "running";
        server["scsiHosts"].append(host);
        Json::Value disk = parseJson(R"({"protocol": "SATA", "media": "SSD", "rotation": 1,
            "model": "INTEL SSDSC2BB480G7", "revision": "N2010121", "capacity": 937703088,
            "temperature": 30, "maximumTemperature": 70, "wear": 3, "errors": 0})");
        disk["name"] = "sg" + std::to_string(port);
        disk["block"] = std::string("sd") + static_cast<char>('a' + port);
        disk["address"] = std::to_string(port) + ":0:0:0";
        disk["serial"] = "S" + std::to_string(port);
        server["disks"].append(disk);
    }
    return server;
}

class Controllers : public testing::Test {
 protected:
    void SetUp() override {
        logEverything(R"("EnableResources": ["HostOSInfo"])");
        tav::test::writeHostCommands();
        {
            const tav::test::Service service(500);
            ASSERT_TRUE(rmc_.waitForCommands(2));
        }
        writeCommand("localcli",
                     "printf '0000:00:17.0\\n   Address: 0000:00:17.0\\n   Slot Description: x "
                     "r001i06s00\\n'");
        tavUtils().initGeoIDMap();
        build();
    }

    void build() { tav::sim::buildServer(server_, tav::sim::Tree("/")); }

    Json::Value& disk(int number) { return server_["disks"][number]; }

    /// What the storage manager does in one build.
    void discover() {
        disks_.clear();
        infos_.clear();
        std::vector<ItavStorageController*> counted;
        factory().discoverControllers(counted);
        for (ItavStorageController* const each : counted) {
            const tav::Reference<ItavStorageController> controller(each);
            controller->discoverInventory(infos_.emplace_back());
            controller->discoverPhysicalDiskInventory(disks_);
            controller->enableEvents();
        }
    }

    static void poll() {
        std::vector<ItavStorageController*> counted;
        factory().getControllers(TAV_FAMILY_ANY, counted);
        for (ItavStorageController* const each : counted)
            tav::Reference<ItavStorageController>(each)->poll();
    }

    static tavStorageControllerFactory& factory() {
        return *tavStorageControllerFactory::getInstance();
    }

    std::string conditionOf(const std::string& serial) const {
        for (const tavDiskInfo& found : disks_) {
            if (found.getSerialNumber() == serial) return tav::displayText(found.getState());
        }
        return "absent";
    }

    /// "538 S2" for every event of a component since the start.
    std::vector<std::string> events() const {
        std::vector<std::string> found;
        for (const auto& command : rmc_.commands()) {
            const Json::Value event = parseJson(command.payload);
            if (command.name != "MPEventGen" || event["ID"].asInt() == 356) continue;
            found.push_back(std::to_string(event["ID"].asInt()) + ' ' +
                            event["VariableData"]["Data"]["SerialNumber"].asString());
        }
        return found;
    }

    Rmc rmc_;
    Json::Value server_ = fourPorts();
    std::vector<tavStorageControllerInfo> infos_;
    std::vector<tavDiskInfo> disks_;
};

TEST_F(Controllers, AreDescribedWithTheirDisks) {
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

TEST_F(Controllers, AWornDiskIsReportedOnceWhoeverSeesItFirst) {
    discover();
    disk(1)["wear"] = 95;
    build();
    poll();
    poll();
    discover();
    EXPECT_THAT(events(), ElementsAre("539 S1"));
    disk(2)["errors"] = 1;
    build();
    discover();
    poll();
    EXPECT_THAT(events(), ElementsAre("539 S1", "539 S2"));
    disk(1)["wear"] = 10;
    build();
    poll();
    EXPECT_THAT(events(), ElementsAre("539 S1", "539 S2", "540 S1"));
}

TEST_F(Controllers, ADiskThatIsPulledAndPutBack) {
    discover();
    disk(2)["present"] = "no";
    build();
    poll();
    EXPECT_THAT(events(), ElementsAre("538 S2"));
    discover();
    EXPECT_EQ(conditionOf("S2"), "Offline") << "kept, so that nobody misses it in silence";
    discover();
    EXPECT_EQ(conditionOf("S2"), "Offline");
    disk(2)["present"] = "yes";
    build();
    discover();
    EXPECT_EQ(conditionOf("S2"), "Running");
    EXPECT_THAT(events(), ElementsAre("538 S2", "540 S2"));
}

TEST_F(Controllers, AnotherDiskInTheSamePlace) {
    discover();
    disk(3)["serial"] = "NEW";
    build();
    poll();
    EXPECT_THAT(events(), ElementsAre("538 S3"));
    EXPECT_THAT(parseJson(rmc_.commands().back().payload)["VariableData"]["EventInfo"].asString(),
                HasSubstr("(Current serial number: NEW; Last known serial number: S3)"));
    discover();
    EXPECT_EQ(conditionOf("S3"), "absent");
    EXPECT_EQ(conditionOf("NEW"), "Running");
    EXPECT_THAT(events(), ElementsAre("538 S3", "540 NEW"));
    disk(0)["serial"] = "FAST";  // between two polls
    build();
    discover();
    EXPECT_THAT(events(), ElementsAre("538 S3", "540 NEW", "538 S0", "540 FAST"));
    EXPECT_THAT(disks_, SizeIs(4));
}

TEST_F(Controllers, ReportLostPortsAndTheirReturn) {
    discover();
    const auto setPorts = [this](const char* state) {
        for (Json::Value& host : server_["scsiHosts"])
            host["state"] = state;
        build();
    };
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
    const std::size_t before = openDescriptors();
    discover();
    factory().shutdownFactory();
    factory().shutdownFactory();
    std::vector<ItavStorageController*> counted;
    EXPECT_EQ(factory().getControllers(TAV_FAMILY_ANY, counted), 0);
    EXPECT_THAT(counted, IsEmpty());
    EXPECT_THAT(events(), IsEmpty());
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(Controllers, AttributesThatAreMissingCostNoMoreThanThemselves) {
    const fs::path device = "/sys/class/scsi_device/0:0:0:0/device";
    const fs::path host = "/sys/class/scsi_host/host0";
    for (const fs::path& path : {device / "model", device / "rev", device / "vendor",
                                 device / "vpd_pg80", device / "block", host / "state"}) {
        const fs::path aside = "/tmp/aside";
        fs::rename(fs::canonical(path), aside);
        discover();
        EXPECT_THAT(disks_, testing::Not(IsEmpty())) << path;
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
