/// The generic factory and its controllers on a simulated server: four SATA ports of an Intel SATA
/// RAID controller, a disk on each.
#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/StopSignal.h"
#include "base/Waiting.h"
#include "core/Unanswered.h"
#include "core/tavUtils.h"
#include "rmc/tavJsonAggregator.h"
#include "sim/device/DiskModel.h"
#include "sim/device/ScsiGeneric.h"
#include "sim/server/ServerTree.h"
#include "storage/SASResourceManager.h"
#include "storage/kernel/tavStorageController.h"
#include "storage/kernel/tavStorageControllerFactory.h"
#include "storage/scsi/scsi_scan.h"
#include "tests/support/FastWaiting.h"
#include "tests/support/Rmc.h"
#include "tests/support/Service.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using tav::test::logEverything;
using tav::test::logs;
using tav::test::parseJson;
using tav::test::Rmc;
using tav::test::writeCommand;
using testing::AllOf;
using testing::AnyOf;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::UnorderedElementsAre;

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
        tav::test::clockSpeed = 10;
        build();
        locate();
    }

    virtual void locate() {
        writeCommand("localcli",
                     "printf '0000:00:17.0\\n   Address: 0000:00:17.0\\n   Slot Description: x "
                     "r001i06s00\\n'");
        tavUtils().initGeoIDMap();
    }

    void build() { tav::sim::changeServer(server_, tav::sim::Tree("/")); }

    Json::Value& disk(int number) { return server_["disks"][number]; }

    void makeSas(int number) {
        disk(number)["protocol"] = "SAS";
        disk(number)["vendor"] = "SEAGATE";
    }

    void setPorts(const char* state) {
        for (Json::Value& host : server_["scsiHosts"])
            host["state"] = state;
        build();
    }

    /// Lets a disk refuse the commands that fit, as its kind does or with the sense key; and counts
    /// those that reach it.
    void refuse(int number, const std::atomic<bool>& refuses, std::atomic<int>& commands,
                bool (*fits)(const sg_io_hdr&), std::optional<std::uint8_t> senseKey = {}) {
        const tav::sim::DiskFacts facts(tav::sim::diskFacts(disk(number)));
        const std::uint8_t key = senseKey.value_or(facts.isSas() ? 5 : 0x0B);
        const auto answer = [facts, fits, key, &refuses, &commands](sg_io_hdr& request) {
            ++commands;
            if (refuses && fits(request)) {
                tav::sim::completeWithSense(request, std::array<std::uint8_t, 3>{0x70, 0, key});
                return 0;
            }
            const auto whole = answerCommand(facts, {request.cmdp, request.cmd_len});
            if (whole.sense.empty()) {
                tav::sim::completeWithData(request, whole.data);
            } else {
                tav::sim::completeWithSense(request, whole.sense);
            }
            return 0;
        };
        tav::sim::installDevice("/dev/" + disk(number)["name"].asString(),
                                tav::sim::scriptedScsiDevice(answer));
    }

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

    /// Without the simulated devices' own ends, which go when the next one is opened.
    static std::ptrdiff_t ownDescriptors() {
        return std::count_if(fs::directory_iterator("/proc/self/fd"), {}, [](const auto& entry) {
            std::error_code gone;
            return !fs::read_symlink(entry.path(), gone).string().starts_with("socket:");
        });
    }

    /// Sends an inventory, which the controller acknowledges.
    static void pushInventory() {
        tavJsonAggregator& aggregator = *tavJsonAggregator::getInstance();
        const std::uint64_t before = aggregator.acknowledgedInventories();
        tav::test::clockSpeed = 500;
        aggregator.sendInventory(true);
        aggregator.sendInventory(false);
        while (aggregator.acknowledgedInventories() == before)
            std::this_thread::sleep_for(1ms);
        tavJsonAggregator::stoptavJsonAggregator();
        tav::test::clockSpeed = 10;
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

/// Ways in which a disk's serial numbers can contradict each other: none of them is news, and none
/// makes the manager look at everything anew.
TEST_F(Controllers, SerialNumbersThatContradictEachOther) {
    disk(0)["identifySerial"] = "OTHER";
    disk(1)["identify"] = "ones";
    disk(2)["identify"] = "short";
    build();
    for (int round = 0; round < 3; ++round) {
        discover();
        poll();
    }
    EXPECT_EQ(conditionOf("OTHER"), "Running") << "the number that the disk tells is the one shown";
    EXPECT_EQ(conditionOf("S1"), "Running");
    EXPECT_EQ(conditionOf("S2"), "Running");
    EXPECT_THAT(disks_, SizeIs(4));
    EXPECT_THAT(events(), IsEmpty());
    EXPECT_THAT(logs(), Not(HasSubstr("Invalidating inventory cache.")));
    disk(0)["serial"] = "NEW";
    disk(0)["identifySerial"] = "NEWER";
    build();
    poll();
    poll();
    discover();
    EXPECT_THAT(events(), ElementsAre("538 OTHER", "540 NEWER"));
    EXPECT_THAT(disks_, SizeIs(4));
}

/// Either source may tell of the new one first.
TEST_F(Controllers, ADiskThatIsSwappedWhileItIsAskedIsReportedOnce) {
    discover();
    disk(0)["serial"] = "NEW0";
    disk(0)["identifySerial"] = "S0";
    disk(1)["identifySerial"] = "NEW1";
    build();
    discover();
    disk(0)["identifySerial"] = "";
    disk(1)["serial"] = "NEW1";
    build();
    discover();
    discover();
    EXPECT_THAT(events(), ElementsAre("538 S1", "540 NEW1", "538 S0", "540 NEW0"));
    EXPECT_EQ(conditionOf("NEW0"), "Running");
    EXPECT_THAT(disks_, SizeIs(4));
}

TEST_F(Controllers, ASerialNumberThatCannotBeReadSaysNothing) {
    makeSas(1);
    build();
    discover();
    disk(1)["serialUnreadable"] = "yes";
    build();
    poll();
    discover();
    EXPECT_EQ(conditionOf("S1"), "Running") << "it keeps the number it had";
    discover();
    disk(1)["serialUnreadable"] = "no";
    build();
    discover();
    poll();
    EXPECT_THAT(events(), IsEmpty());
    EXPECT_THAT(disks_, SizeIs(4));
    disk(1)["serial"] = "LATE";
    build();
    discover();
    EXPECT_THAT(events(), ElementsAre("538 S1", "540 LATE")) << "and is recognised by it";
}

/// The kernel shows a device before its node is there.
TEST_F(Controllers, ADiskThatIsNotQuiteBackIsStillGone) {
    discover();
    disk(0)["gone"] = "yes";
    build();
    poll();
    disk(0)["gone"] = "no";
    build();
    const fs::path node = std::string(tav::sim::disksOfThisProcess) + "sg0";
    fs::rename(node, "/tmp/node");
    poll();
    discover();
    fs::rename("/tmp/node", node);
    poll();
    EXPECT_THAT(events(), ElementsAre("538 S0", "540 S0"));
}

TEST_F(Controllers, WhoAnswersWhereADiskHasGoneIsNotTakenForItBeforeItsNumberIsRead) {
    discover();
    disk(1)["present"] = "no";
    build();
    poll();
    disk(1)["present"] = "yes";
    disk(1)["serial"] = "NEW";
    disk(1)["serialUnreadable"] = "yes";
    build();
    poll();
    EXPECT_THAT(events(), ElementsAre("538 S1"));
    disk(1)["serialUnreadable"] = "no";
    build();
    EXPECT_THAT(logs(), Not(HasSubstr("Invalidating inventory cache.")));
    poll();
    EXPECT_THAT(logs(), HasSubstr("Invalidating inventory cache."));
    discover();
    EXPECT_THAT(events(), ElementsAre("538 S1", "540 NEW"));
}

TEST_F(Controllers, DevicesAtOnePlaceAreEachThemselves) {
    Json::Value second = disk(0);
    second["name"] = "sg9";
    second["block"] = "sdz";
    second["address"] = "0:1:0:0";
    second["serial"] = "SECOND";
    server_["disks"].append(second);
    build();
    for (int round = 0; round < 3; ++round) {
        discover();
        poll();
        EXPECT_THAT(disks_, SizeIs(5));
    }
    EXPECT_THAT(events(), IsEmpty());
    server_["disks"][4]["gone"] = "yes";
    disk(3)["serialUnreadable"] = "yes";
    build();
    discover();
    EXPECT_THAT(events(), ElementsAre("538 SECOND"));
    server_["disks"][4]["gone"] = "no";
    server_["disks"][4]["serial"] = "THIRD";
    build();
    discover();
    EXPECT_THAT(events(), ElementsAre("538 SECOND", "540 THIRD")) << "in the place of the second";
    EXPECT_EQ(conditionOf("S0"), "Running");
    EXPECT_THAT(disks_, SizeIs(5));
}

TEST_F(Controllers, DisksThatSwapTheirPlaces) {
    discover();
    std::swap(disk(0)["serial"], disk(1)["serial"]);
    build();
    discover();
    EXPECT_THAT(events(), ElementsAre("538 S0", "540 S1", "538 S1", "540 S0"));
    EXPECT_THAT(disks_, SizeIs(4));
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

TEST_F(Controllers, ADiskThatDoesNotIdentifyItselfIsStillKnownAndWatched) {
    discover();
    for (const char* const answer : {"zeros", "ones", "short"}) {
        disk(1)["identify"] = answer;
        build();
        discover();
        EXPECT_EQ(disks_[1].getMediaType(), "SSD") << answer;
        EXPECT_EQ(disks_[1].getRevision(), "N2010121") << answer;
    }
    disk(1)["wear"] = 97;
    build();
    discover();
    EXPECT_THAT(events(), ElementsAre("539 S1"));
    disk(1)["answers"] = "no";
    disk(1)["patience"] = 1;
    build();
    discover();
    EXPECT_EQ(conditionOf("S1"), "Failed");
    EXPECT_EQ(disks_[1].getModel(), "INTEL SSDSC2BB480G7");
    EXPECT_EQ(disks_[1].getMediaType(), "SSD");
    EXPECT_EQ(disks_[1].getProtocol(), "ATA");
    EXPECT_THAT(disks_[1].getEventInfoString(), HasSubstr("did not answer in time"));
    EXPECT_THAT(events(), ElementsAre("539 S1", "538 S1"));
}

TEST_F(Controllers, ADiskThatAnswersAgainInTheMiddleOfItsTurnIsNotTakenForHealthy) {
    disk(2)["wear"] = 97;
    build();
    discover();
    disk(2)["answers"] = "no";
    disk(2)["patience"] = 60;
    build();
    poll();
    std::thread recovering([this] {
        std::this_thread::sleep_for(90ms);
        disk(2)["answers"] = "yes";
        build();
    });
    poll();
    recovering.join();
    poll();
    EXPECT_THAT(events(), ElementsAre("538 S2", "539 S2"));
}

TEST_F(Controllers, WhatADiskDoesNotSupportIsNoFault) {
    std::atomic<int> commands{0};
    std::atomic<bool> refuses{true};
    makeSas(0);
    build();
    refuse(0, refuses, commands, [](const sg_io_hdr& request) { return request.cmdp[0] == 0x4D; });
    refuse(1, refuses, commands, [](const sg_io_hdr& request) {
        return request.cmdp[0] == 0x85 && request.cmdp[14] == 0x2F && request.cmdp[8] != 5;
    });
    discover();
    EXPECT_EQ(conditionOf("S0"), "Running");
    EXPECT_EQ(conditionOf("S1"), "Running");
    poll();
    commands = 0;
    poll();
    EXPECT_EQ(commands, 4 + 3) << "its directory is asked once, not at every poll";
    const std::string log = logs();
    const auto first = log.find("1:0:0:0: The disk does not support to be asked for its errors.");
    ASSERT_NE(first, std::string::npos);
    EXPECT_EQ(log.find("1:0:0:0: The disk does not support to be asked for its errors.", first + 1),
              std::string::npos);
    EXPECT_THAT(events(), IsEmpty());
    refuses = false;
    poll();
    refuses = true;
    poll();
    EXPECT_THAT(events(), UnorderedElementsAre("538 S0", "538 S1")) << "what it has told before";
    EXPECT_THAT(parseJson(rmc_.commands().back().payload)["VariableData"]["EventInfo"].asString(),
                HasSubstr("which it has told before"));
}

TEST_F(Controllers, WhatADiskCannotTellNowIsAsItWas) {
    constexpr std::uint8_t hardwareError = 4;
    std::atomic<int> commands{0};
    std::atomic<bool> fails{false};
    makeSas(0);
    makeSas(1);
    disk(0)["temperature"] = 75;
    disk(1)["wear"] = 97;
    disk(2)["temperature"] = 75;
    build();
    const auto asksForTemperatureOrWear = [](const sg_io_hdr& request) {
        if (request.cmdp[0] == 0x85) return request.cmdp[14] == 0x2F && request.cmdp[10] == 5;
        const int page = request.cmdp[2] & 0x3F;
        return request.cmdp[0] == 0x4D && (page == 0x0D || page == 0x11);
    };
    for (const int number : {0, 1, 2})
        refuse(number, fails, commands, asksForTemperatureOrWear, hardwareError);
    for (const bool fail : {false, true}) {
        fails = fail;
        discover();
        poll();
        EXPECT_EQ(conditionOf("S0"), "Predictive failure") << fail;
        EXPECT_EQ(conditionOf("S1"), "Predictive failure") << fail;
        EXPECT_EQ(conditionOf("S2"), "Predictive failure") << fail;
    }
    EXPECT_THAT(events(), IsEmpty());
}

TEST_F(Controllers, AKnownDiskIsOneUntilTheKernelSaysOtherwise) {
    const fs::path type = "/sys/class/scsi_device/0:0:0:0/device/type";
    discover();
    fs::remove(type);
    discover();
    EXPECT_THAT(disks_, SizeIs(4));
    EXPECT_THAT(events(), IsEmpty());
    tav::test::writeFile(type, "5\n");
    discover();
    EXPECT_THAT(events(), ElementsAre("538 S0")) << "an optical drive stands in its place";
}

/// How many are told to whoever shows what hangs.
std::ptrdiff_t silentDisks() {
    const auto silent = tav::Unanswered::all();
    return std::count_if(silent.begin(), silent.end(),
                         [](const auto& entry) { return entry.who.starts_with("disk "); });
}

/// Disks that hang hold up nobody, are said to have failed once their time is up, keep what they
/// are, and are well again when they answer.
TEST_F(Controllers, DisksThatHang) {
    tav::registerGenericStorageFactory();
    SASResourceManager& manager = *SASResourceManager::getInstance();
    manager.cacheBuild();
    discover();
    tav::test::clockSpeed = 20;  // an answer is waited for 250 ms
    disk(0)["hang"] = "command";
    disk(1)["hang"] = "open";
    disk(3)["errors"] = 1;
    build();
    const tav::Stopwatch watch;
    manager.pollDevices();
    EXPECT_THAT(events(), ElementsAre("539 S3")) << "of a disk that answers";
    EXPECT_LT(watch.elapsed(), 20s);
    const tav::Stopwatch again;
    disk(3)["errors"] = 0;
    build();
    manager.pollDevices();
    EXPECT_LT(again.elapsed(), 4s) << "what hangs is not waited for again";
    EXPECT_THAT(events(), ElementsAre("539 S3", "540 S3"));
    discover();
    EXPECT_EQ(conditionOf("S0"), "Running") << "its last record stands";
    EXPECT_THAT(disks_, SizeIs(4));
    while (watch.elapsed() < 95s)
        std::this_thread::sleep_for(10ms);
    manager.pollDevices();
    manager.pollDevices();
    discover();
    EXPECT_EQ(conditionOf("S0"), "Failed");
    EXPECT_EQ(silentDisks(), 2);
    EXPECT_EQ(disks_[1].getModel(), "INTEL SSDSC2BB480G7");
    EXPECT_THAT(
        disks_[1].getEventInfoString(),
        ContainsRegex("has not answered for [0-9]+ seconds. It was asked for its condition"));
    EXPECT_THAT(events(), UnorderedElementsAre("539 S3", "540 S3", "538 S0", "538 S1"));
    disk(0).removeMember("hang");
    disk(1).removeMember("hang");
    build();
    for (int round = 0; round < 100 && events().size() < 6; ++round) {
        std::this_thread::sleep_for(5ms);
        manager.pollDevices();
    }
    EXPECT_THAT(events(),
                UnorderedElementsAre("539 S3", "540 S3", "538 S0", "538 S1", "540 S0", "540 S1"));
    EXPECT_EQ(silentDisks(), 0);
}

/// One that hangs from the beginning is found when it answers.
TEST_F(Controllers, ADiskThatHangsAtItsFirstDiscovery) {
    tav::test::clockSpeed = 20;
    disk(0)["hang"] = "open";
    build();
    discover();
    EXPECT_THAT(disks_, SizeIs(3));
    disk(0).removeMember("hang");
    build();
    for (int round = 0;
         round < 100 && logs().find("Invalidating inventory cache.") == std::string::npos;
         ++round) {
        std::this_thread::sleep_for(5ms);
        poll();
    }
    EXPECT_THAT(logs(), HasSubstr("Invalidating inventory cache."));
    discover();
    EXPECT_THAT(disks_, SizeIs(4));
    EXPECT_THAT(events(), IsEmpty());
}

/// An inventory has left without it: everything is looked at anew as soon as it answers.
TEST_F(Controllers, OneThatAnswersLateAtItsFirstDiscovery) {
    constexpr unsigned ports = 100;  // it has a lot to tell
    server_.removeMember("disks");
    for (unsigned port = 4; port < ports; ++port) {
        Json::Value host = server_["scsiHosts"][0];
        host["host"] = port;
        host["ata"] = port + 3;
        server_["scsiHosts"].append(host);
    }
    build();
    tav::test::clockSpeed = 1'000'000;  // nobody's answer can be waited for
    discover();
    EXPECT_EQ(infos_.at(0).getControllerPortListSize(), 0U);
    tav::test::clockSpeed = 10;
    const auto isAskedFor = [] {
        return logs().find("Invalidating inventory cache.") != std::string::npos;
    };
    EXPECT_FALSE(isAskedFor());
    for (int round = 0; round < 100 && !isAskedFor(); ++round) {
        std::this_thread::sleep_for(5ms);
        poll();
    }
    EXPECT_TRUE(isAskedFor());
    discover();
    EXPECT_EQ(infos_.at(0).getControllerPortListSize(), ports);
}

TEST_F(Controllers, AShutDownWaitsForNoDiskThatHangs) {
    discover();
    disk(0)["hang"] = "command";
    build();
    tav::StopSignal stop;
    std::thread polling([&] {
        const tav::StopScope scope(&stop);
        poll();
    });
    std::this_thread::sleep_for(50ms);
    const auto begin = std::chrono::steady_clock::now();
    stop.request();
    polling.join();
    factory().shutdownFactory();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s);
    EXPECT_THAT(events(), IsEmpty());
    disk(0).removeMember("hang");
    build();
    std::this_thread::sleep_for(50ms);  // what was left behind ends by itself
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

/// As virtual disks are, which tell nothing of their transport.
TEST_F(Controllers, ADiskOfNoKnownProtocolIsJudgedByItsAnswersWhereAnyControllerIs) {
    std::atomic<int> commands{0};
    std::atomic<bool> refuses{true};
    makeSas(0);
    refuse(0, refuses, commands, [](const sg_io_hdr& request) {
        return request.cmdp[0] == 0x1A || request.cmdp[0] == 0x4D;
    });
    build();
    discover();
    EXPECT_EQ(conditionOf("S0"), "Failed") << "behind a controller of the table";
    factory().shutdownFactory();
    server_["functions"][0]["device"] = "0x2922";
    build();
    factory().claimAnyController();
    discover();
    EXPECT_EQ(conditionOf("S0"), "Running") << "a refusal is an answer";
    EXPECT_EQ(disks_[0].getProtocol(), "Unknown");
    refuse(0, refuses, commands, [](const sg_io_hdr& request) { return request.cmdp[0] == 0x1A; });
    disk(0)["errors"] = 1;
    build();
    refuse(0, refuses, commands, [](const sg_io_hdr& request) { return request.cmdp[0] == 0x1A; });
    discover();
    EXPECT_EQ(conditionOf("S0"), "Predictive failure");
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

TEST_F(Controllers, ThePublishedInventorySaysWhatTheEventsSay) {
    tav::registerGenericStorageFactory();
    SASResourceManager& manager = *SASResourceManager::getInstance();
    const auto stateOf = [&](unsigned index) {
        std::vector<Json::Value> drives;
        manager.getInventoryJsonObject2(2, drives);
        return drives.size() == 4 ? drives[index]["Status"]["State"].asString() : "absent";
    };
    manager.cacheBuild();
    EXPECT_EQ(stateOf(1), "Running");
    disk(1)["errors"] = 1;
    build();
    manager.pollDevices();
    EXPECT_EQ(stateOf(1), "Predictive failure") << "without a build";
    disk(1)["errors"] = 0;
    setPorts("offline");
    manager.pollDevices();
    EXPECT_EQ(stateOf(1), "Running");
    std::vector<Json::Value> controllers;
    manager.getInventoryJsonObject2(1, controllers);
    EXPECT_EQ(controllers.at(0)["Status"]["State"].asString(), "Offline");
    const auto shown = events();
    factory().shutdownFactory();
    EXPECT_EQ(stateOf(0), "Running") << "a controller that is shut down takes nothing with it";
    EXPECT_EQ(events(), shown);
}

/// What the RMC has acknowledged, by an event or an inventory, is told once; what it has not,
/// again.
TEST_F(Controllers, ADiskThatFailsIsToldAgainOnlyWhereNobodyHasHeardOfIt) {
    discover();
    poll();
    pushInventory();
    poll();
    const auto becomes = [&](int number, const char* member, bool isHeard) {
        if (!isHeard) rmc_.intercept([](const auto&) { return tav::sim::Reply::failure(0xC0); });
        disk(number)[member] = "no";
        disk(number)["patience"] = 10;
        build();
        poll();
        rmc_.intercept(nullptr);
    };
    becomes(0, "answers", true);
    becomes(0, "present", true);
    EXPECT_THAT(events(), ElementsAre("538 S0")) << "it has failed before, and that was heard";
    becomes(1, "answers", false);
    becomes(1, "present", true);
    EXPECT_THAT(events(), ElementsAre("538 S0", "538 S1")) << "the first one was not";
    becomes(2, "answers", false);
    pushInventory();
    becomes(2, "present", true);
    EXPECT_THAT(events(), ElementsAre("538 S0", "538 S1")) << "the inventory has told it";
}

/// The next build asks for an inventory that tells what no event does.
TEST_F(Controllers, WhatNoEventTellsAnInventoryDoes) {
    tav::registerGenericStorageFactory();
    SASResourceManager& manager = *SASResourceManager::getInstance();
    server_["disks"][3]["gone"] = "yes";
    build();
    manager.cacheBuild();
    manager.pollDevices();
    const auto asksAfter = [&](Json::Value& part, const char* member, const Json::Value& value) {
        part[member] = value;
        build();
        manager.pollDevices();
        const std::size_t before = logs().size();
        manager.cacheBuild();
        const bool asks = logs().find("SASRM requesting cache push", before) != std::string::npos;
        manager.cacheBuild();  // what is found in a build is asked for twice
        return asks;
    };
    EXPECT_TRUE(asksAfter(disk(3), "gone", "no")) << "a disk that is new";
    EXPECT_TRUE(asksAfter(server_["scsiHosts"][0], "state", "offline")) << "worse, but not lost";
    EXPECT_FALSE(asksAfter(disk(1), "wear", 97));
    EXPECT_THAT(events(), ElementsAre("539 S1")) << "which has told it";
    factory().shutdownFactory();
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
