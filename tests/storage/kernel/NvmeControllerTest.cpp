/// The factory of NVMe controllers and its controllers on a simulated server, seen through the
/// storage manager: one controller with two namespaces and one with a single one.
#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/Waiting.h"
#include "core/tavUtils.h"
#include "sim/device/DiskModel.h"
#include "sim/device/NvmeController.h"
#include "sim/server/ServerTree.h"
#include "storage/SASResourceManager.h"
#include "storage/kernel/tavNVMeControllerFactory.h"
#include "tests/support/FastWaiting.h"
#include "tests/support/Rmc.h"
#include "tests/support/Service.h"

namespace {

using namespace std::chrono_literals;
using tav::test::logEverything;
using tav::test::logs;
using tav::test::parseJson;
using tav::test::Rmc;
using tav::test::writeCommand;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

class NvmeControllers : public testing::Test {
 protected:
    void SetUp() override {
        logEverything(R"("EnableResources": ["HostOSInfo"])");
        tav::test::writeHostCommands();
        {
            const tav::test::Service service(500);
            ASSERT_TRUE(rmc_.waitForCommands(2));
        }
        tav::test::clockSpeed = 10;
        describeSlots("x r001i06s03", "x r001i06s04");
        tav::registerNVMeFactory();
        build();
    }

    static void describeSlots(const std::string& first, const std::string& second) {
        writeCommand(
            "localcli",
            "printf '0000:3b:00.0\\n   Address: 0000:3b:00.0\\n   Slot Description: " + first +
                "\\n   Address: 0000:5e:00.0\\n   Slot Description: " + second + "\\n'");
        tavUtils().initGeoIDMap();
    }

    void build() { tav::sim::changeServer(server_, tav::sim::Tree("/")); }

    Json::Value& controller(int number) { return server_["nvme"][number]; }

    /// A change of the server, and one of the manager's rounds.
    template <class Value>
    void change(int number, const char* member, const Value& value) {
        controller(number)[member] = value;
        build();
    }
    void discover() { manager().cacheBuild(); }
    void poll() { manager().pollDevices(); }

    static SASResourceManager& manager() { return *SASResourceManager::getInstance(); }

    std::vector<Json::Value> records(int kind) const {
        std::vector<Json::Value> found;
        manager().getInventoryJsonObject2(kind, found);
        return found;
    }
    /// "S1/1 Running" for every drive.
    std::vector<std::string> drives() const {
        std::vector<std::string> found;
        for (const Json::Value& drive : records(2)) {
            found.push_back(drive["SerialNumber"].asString() + '/' +
                            drive["Oem"]["Namespace"].asString() + ' ' +
                            drive["Status"]["State"].asString());
        }
        return found;
    }
    std::vector<std::string> controllers() const {
        std::vector<std::string> found;
        for (const Json::Value& each : records(1)) {
            found.push_back(each["SerialNumber"].asString() + ' ' +
                            each["Status"]["State"].asString() + ' ' +
                            each["Status"]["Health"].asString());
        }
        return found;
    }

    Json::Value lastEvent() const { return parseJson(rmc_.commands().back().payload); }
    /// Of the last event of that number.
    std::string textOf(int id) const {
        std::string text;
        for (const auto& command : rmc_.commands()) {
            const Json::Value event = parseJson(command.payload);
            if (event["ID"] == id) text = event["VariableData"]["EventInfo"].asString();
        }
        return text;
    }
    std::string lastText() const { return lastEvent()["VariableData"]["EventInfo"].asString(); }

    /// "538 S1/1" for every event since the last call: serial number and, of a drive, namespace.
    std::vector<std::string> events() {
        std::vector<std::string> found;
        for (const auto& command : rmc_.commands()) {
            const Json::Value event = parseJson(command.payload);
            if (command.name != "MPEventGen" || event["ID"].asInt() == 356) continue;
            const Json::Value& data = event["VariableData"]["Data"];
            const Json::Value& id = data["Oem"]["Namespace"];
            found.push_back(std::to_string(event["ID"].asInt()) + ' ' +
                            data["SerialNumber"].asString() +
                            (id.isNull() ? "" : '/' + id.asString()));
        }
        const std::size_t before = std::exchange(seen_, found.size());
        found.erase(found.begin(), found.begin() + static_cast<std::ptrdiff_t>(before));
        return found;
    }

    Rmc rmc_;
    std::size_t seen_ = 0;
    Json::Value server_ = parseJson(R"({
        "functions": [
            {"address": "0000:3b:00.0", "class": "0x010802", "vendor": "0x8086", "device": "0x0a54",
             "subVendor": "0x8086", "subDevice": "0x4702", "driver": "nvme"},
            {"address": "0000:5e:00.0", "class": "0x010802", "vendor": "0x144d", "device": "0xa808",
             "subVendor": "0x144d", "subDevice": "0xa801", "driver": "nvme"}],
        "nvme": [
            {"name": "nvme0", "function": "0000:3b:00.0", "model": "INTEL SSDPE2KX010T8",
             "serial": "S1", "firmware": "VDV10131", "namespaces": 2, "blocks": 976762584,
             "temperature": 38, "warningTemperature": 70, "criticalTemperature": 80},
            {"name": "nvme1", "function": "0000:5e:00.0", "model": "SAMSUNG MZQLB960HAJR-00007",
             "serial": "S2", "firmware": "EDA5402Q", "namespaces": 1, "blocks": 1875385008,
             "temperature": 41, "warningTemperature": 85, "criticalTemperature": 90}]})");
};

TEST_F(NvmeControllers, AreDescribedWithTheirNamespaces) {
    // Its own word counts, not the kernel's.
    tav::test::writeFile("/sys/class/nvme/nvme0/nvme0n2/size", "8\n");
    discover();
    EXPECT_EQ(records(1).at(0), parseJson(R"({"Model": "INTEL SSDPE2KX010T8", "SerialNumber": "S1",
        "FirmwareVersion": "VDV10131", "Protocol": "NVMe",
        "Status": {"State": "Running", "Health": "OK"},
        "Oem": {"Description": "PCI 0000:3b:00.0 r001i06s03",
                "PhysicalLocation": "0003000106010005"}})"));
    EXPECT_THAT(drives(), ElementsAre("S1/1 Running", "S1/2 Running", "S2/1 Running"));
    EXPECT_EQ(records(2).at(1).toStyledString(),
              parseJson(R"({"SerialNumber": "S1", "PartNumber": "SSDPE2KX010T801",
        "Model": "INTEL SSDPE2KX010T8", "CapacityBytes": 500102443008, "Protocol": "NVMe",
        "MediaType": "SSD", "Revision": "VDV10131",
        "Status": {"State": "Running", "Health": "OK"},
        "Oem": {"Slot": -1, "PhysicalLocation": "0003000106010005", "Namespace": 2}})")
                  .toStyledString());
    discover();
    poll();
    EXPECT_THAT(drives(), SizeIs(3)) << "found again, not added";
    EXPECT_THAT(events(), IsEmpty());
}

TEST_F(NvmeControllers, APollIsOneCommandADrive) {
    std::atomic<int> commands{0};
    for (int number = 0; number < 2; ++number) {
        const tav::sim::DiskFacts facts(tav::sim::diskFacts(controller(number)));
        tav::sim::installDevice("/dev/" + controller(number)["name"].asString(),
                                tav::sim::scriptedNvmeDevice([facts, &commands](auto& command) {
                                    ++commands;
                                    EXPECT_EQ(command.timeout_ms, 0U) << "the kernel's own";
                                    return tav::sim::answerAdminCommand(facts, command);
                                }));
    }
    discover();
    commands = 0;
    poll();
    poll();
    EXPECT_EQ(commands, 2 * 3);
}

TEST_F(NvmeControllers, ADriveThatIsUnwellIsReportedOnceWhoeverSeesItFirst) {
    discover();
    change(1, "used", 97);
    poll();
    discover();
    EXPECT_THAT(events(), ElementsAre("539 S2/1"));
    EXPECT_EQ(lastText(), "[SSD Wear percentage (97); Threshold (95)]");
    EXPECT_EQ(lastEvent()["PhysicalLocation"].asString(), "0004000106000005");
    EXPECT_THAT(drives(), ElementsAre("S1/1 Running", "S1/2 Running", "S2/1 Predictive failure"));
    change(1, "used", 3);
    discover();
    poll();
    EXPECT_THAT(events(), ElementsAre("540 S2/1"));
    change(1, "criticalWarning", 8);
    poll();
    EXPECT_THAT(events(), ElementsAre("538 S2/1"));
    change(1, "criticalWarning", 0);
    poll();
    EXPECT_THAT(events(), ElementsAre("540 S2/1"));
    change(0, "temperature", 71);
    poll();
    EXPECT_THAT(events(), UnorderedElementsAre("539 S1/1", "539 S1/2"));
    EXPECT_EQ(lastText(), "[Current Temp (71 C); Warning Temperature (70 C)]");
}

TEST_F(NvmeControllers, ADriveIsReportedWhereItIsOrWasLast) {
    discover();
    describeSlots("x", "x");
    change(1, "used", 97);
    discover();
    EXPECT_THAT(events(), ElementsAre("539 S2/1"));
    EXPECT_EQ(lastEvent()["PhysicalLocation"].asString(), "0004000106000005");
    change(1, "used", 3);
    discover();
    EXPECT_THAT(events(), IsEmpty()) << "nobody knows where";
    describeSlots("x", "x r001i06s05");
    change(1, "criticalWarning", 8);
    discover();
    EXPECT_THAT(events(), ElementsAre("538 S2/1"));
    EXPECT_EQ(lastEvent()["PhysicalLocation"].asString(), "0005000106010005");
}

TEST_F(NvmeControllers, WhatTheyAnswerThatTellsNothingIsNoFault) {
    change(0, "healthLog", "ones");
    change(1, "healthLog", "refused");
    discover();
    EXPECT_THAT(drives(), ElementsAre("S1/1 Running", "S1/2 Running", "S2/1 Running"));
    change(0, "healthLog", "no");
    change(0, "used", 99);
    poll();
    EXPECT_THAT(events(), UnorderedElementsAre("539 S1/1", "539 S1/2"));
    for (const char* nothing : {"ones", "zeros"}) {
        change(0, "healthLog", nothing);
        poll();
        discover();
        EXPECT_THAT(events(), IsEmpty()) << "what it has told last stands: " << nothing;
    }
    change(0, "healthLog", "refused");
    poll();
    EXPECT_THAT(events(), UnorderedElementsAre("538 S1/1", "538 S1/2"));
    EXPECT_THAT(lastText(), HasSubstr("which it has told before"));

    for (const char* identify : {"ones", "zeros"}) {
        change(1, "identify", identify);
        discover();
        EXPECT_EQ(records(1).at(1)["Model"].asString(), "SAMSUNG MZQLB960HAJR-00007");
        EXPECT_EQ(records(2).at(2)["PartNumber"].asString(), "MZQLB960HAJR-00007");
    }
    EXPECT_THAT(events(), IsEmpty());
}

TEST_F(NvmeControllers, ControllersInResetAndDeadOnes) {
    tav::test::clockSpeed = 40;
    discover();
    const tav::Stopwatch watch;
    change(0, "state", "resetting");
    poll();
    discover();
    EXPECT_THAT(drives(), ElementsAre("S1/1 Running", "S1/2 Running", "S2/1 Running"));
    EXPECT_THAT(controllers(), ElementsAre("S1 Running OK", "S2 Running OK"));
    EXPECT_THAT(events(), IsEmpty()) << "a reset is over in a moment";
    while (watch.elapsed() < 70s)
        std::this_thread::sleep_for(5ms);
    poll();
    poll();
    EXPECT_THAT(events(), UnorderedElementsAre("398 S1", "538 S1/1", "538 S1/2"));
    EXPECT_THAT(controllers(), ElementsAre("S1 Recovering Critical", "S2 Running OK"));
    EXPECT_EQ(textOf(398), "The NVMe controller has been in reset for >= 60 seconds.");
    EXPECT_EQ(textOf(538), "The NVMe controller nvme0 has been in reset for >= 60 seconds.");
    change(0, "state", "live");
    poll();
    EXPECT_THAT(events(), UnorderedElementsAre("397 S1", "540 S1/1", "540 S1/2"));
    EXPECT_EQ(textOf(397), "The NVMe controller is live again.");

    change(1, "state", "dead");
    poll();
    EXPECT_THAT(events(), UnorderedElementsAre("398 S2", "538 S2/1"));
    EXPECT_THAT(controllers(), ElementsAre("S1 Running OK", "S2 Failed Critical"));
    EXPECT_EQ(textOf(398), "The NVMe controller is dead: the kernel has given it up.");
    EXPECT_EQ(textOf(538), "The NVMe controller nvme1 is dead: the kernel has given it up.");
    discover();
    EXPECT_THAT(drives(), ElementsAre("S1/1 Running", "S1/2 Running", "S2/1 Failed"));
}

TEST_F(NvmeControllers, DrivesThatArePulledPutBackAndExchanged) {
    discover();
    change(1, "gone", "yes");
    poll();
    EXPECT_THAT(logs(), HasSubstr("Detected change in NVMe controllers/namespaces."));
    EXPECT_THAT(events(), UnorderedElementsAre("398 S2", "538 S2/1"));
    discover();
    EXPECT_THAT(events(), IsEmpty()) << "whoever sees it first";
    change(0, "gone", "yes");
    discover();
    EXPECT_THAT(events(), UnorderedElementsAre("398 S1", "538 S1/1", "538 S1/2"));
    EXPECT_EQ(lastText(), "The NVMe controller nvme0 has been removed.");
    EXPECT_EQ(textOf(398), "The NVMe controller has been removed from the system.");
    change(0, "gone", "no");
    discover();
    EXPECT_THAT(events(), UnorderedElementsAre("397 S1", "540 S1/1", "540 S1/2"));
    EXPECT_THAT(drives(), UnorderedElementsAre("S1/1 Running", "S1/2 Running", "S2/1 Offline"));
    controller(1)["name"] = "nvme7";
    change(1, "gone", "no");
    discover();
    EXPECT_THAT(events(), UnorderedElementsAre("397 S2", "540 S2/1"));

    controller(1)["model"] = "SAMSUNG MZQL2960HCJR-00A07";
    server_["functions"][1]["device"] = "0xa80a";
    change(1, "serial", "S3");
    discover();
    EXPECT_THAT(events(), ElementsAre("538 S2/1", "540 S3/1")) << "another one at the same place";
    EXPECT_THAT(controllers(), UnorderedElementsAre("S1 Running OK", "S3 Running OK"));
    change(1, "serial", "S4");
    poll();
    EXPECT_THAT(events(), ElementsAre("538 S3/1"));
    discover();
    EXPECT_THAT(events(), ElementsAre("540 S4/1"));
    EXPECT_THAT(drives(), UnorderedElementsAre("S1/1 Running", "S1/2 Running", "S4/1 Running"));

    controller(1)["state"] = "resetting";
    change(1, "serial", "S5");
    discover();
    EXPECT_THAT(events(), ElementsAre("538 S4/1")) << "the new one cannot be asked yet";
    change(1, "state", "live");
    poll();
    discover();
    EXPECT_THAT(events(), IsEmpty()) << "an inventory tells of it";
    EXPECT_THAT(drives(), UnorderedElementsAre("S1/1 Running", "S1/2 Running", "S5/1 Running"));
}

TEST_F(NvmeControllers, NamespacesThatComeAndGo) {
    discover();
    change(0, "namespaces", 1);
    poll();
    EXPECT_THAT(events(), ElementsAre("538 S1/2"));
    EXPECT_EQ(lastText(), "Namespace 2 of NVMe controller nvme0 is gone.");
    discover();
    EXPECT_THAT(drives(), ElementsAre("S1/1 Running", "S1/2 Offline", "S2/1 Running"));
    change(0, "namespaces", 2);
    discover();
    EXPECT_THAT(events(), ElementsAre("540 S1/2"));
    change(1, "namespaces", 0);
    discover();
    EXPECT_THAT(events(), ElementsAre("538 S2/1"));
    EXPECT_THAT(controllers(), SizeIs(2)) << "a controller without any is still one";
    change(1, "namespaces", 1);
    change(1, "blocks", 0);
    std::filesystem::remove("/sys/class/nvme/nvme1/nvme1n1/size");
    discover();
    EXPECT_EQ(records(2).at(2)["CapacityBytes"], 0U) << "without a block device, of no size";
    std::filesystem::remove("/sys/class/nvme/nvme0/nvme0n1/nsid");
    discover();
    EXPECT_THAT(drives(), SizeIs(3)) << "one that tells no id cannot be told apart";
}

/// Two controllers of one drive, as its two ports are; the kernel shows a path through each.
TEST_F(NvmeControllers, ADriveThatTwoControllersShareIsOne) {
    for (int number = 0; number < 2; ++number) {
        controller(number)["subsystem"] = 5;
        controller(number)["serial"] = "S1";
        controller(number)["namespaces"] = 1;
    }
    build();
    discover();
    EXPECT_THAT(drives(), ElementsAre("S1/1 Running"));
    EXPECT_THAT(controllers(), SizeIs(2));
    change(0, "state", "dead");
    poll();
    discover();
    EXPECT_THAT(events(), ElementsAre("398 S1")) << "the other one still reaches it";
    EXPECT_THAT(drives(), ElementsAre("S1/1 Running"));
    change(0, "gone", "yes");
    discover();
    poll();
    EXPECT_THAT(events(), IsEmpty());
    EXPECT_THAT(drives(), ElementsAre("S1/1 Running"));
    change(1, "used", 99);
    poll();
    EXPECT_THAT(events(), ElementsAre("539 S1/1")) << "by the one that is left";
    change(1, "gone", "yes");
    discover();
    EXPECT_THAT(events(), UnorderedElementsAre("398 S1", "538 S1/1"));
}

/// A path that leads to a drive although nothing says who shares it.
TEST_F(NvmeControllers, APathThatNobodyElseKnowsOf) {
    controller(0)["subsystem"] = 5;
    controller(0)["namespaces"] = 1;
    build();
    std::filesystem::remove_all("/sys/class/nvme-subsystem");
    discover();
    EXPECT_THAT(drives(), ElementsAre("S1/1 Running", "S2/1 Running"));
}

TEST_F(NvmeControllers, ThoseOverANetworkAreLeftOut) {
    tav::test::writeFile("/sys/class/nvme/nvme1/transport", "tcp\n");
    discover();
    EXPECT_THAT(controllers(), ElementsAre("S1 Running OK"));
    EXPECT_THAT(logs(), HasSubstr("Skipping nvme1, which is not on PCI."));
}

/// A controller that hangs holds up nobody, and one that times out has failed.
TEST_F(NvmeControllers, DrivesThatDoNotAnswer) {
    discover();
    controller(0)["patience"] = 1;
    change(0, "answers", "no");
    poll();
    EXPECT_THAT(events(), UnorderedElementsAre("538 S1/1", "538 S1/2"));
    EXPECT_THAT(lastText(), HasSubstr("did not answer in time"));
    EXPECT_EQ(records(2).at(0)["Model"].asString(), "INTEL SSDPE2KX010T8");
    change(0, "answers", "yes");
    poll();
    EXPECT_THAT(events(), SizeIs(2));

    tav::test::clockSpeed = 20;
    change(1, "hang", "command");
    const tav::Stopwatch watch;
    poll();
    EXPECT_LT(watch.elapsed(), 20s);
    discover();
    EXPECT_THAT(drives(), SizeIs(3)) << "its last record stands";
    EXPECT_THAT(events(), IsEmpty());
    while (watch.elapsed() < 95s)
        std::this_thread::sleep_for(10ms);
    poll();
    EXPECT_THAT(events(), ElementsAre("538 S2/1"));
    EXPECT_THAT(lastText(), HasSubstr("(NVMe namespace: nvme1n1) has not answered for"));
    change(1, "hang", "no");
    std::vector<std::string> recovered;
    for (int round = 0; round < 100 && recovered.empty(); ++round) {
        std::this_thread::sleep_for(5ms);
        poll();
        recovered = events();
    }
    EXPECT_THAT(recovered, ElementsAre("540 S2/1"));
}

}  // namespace
