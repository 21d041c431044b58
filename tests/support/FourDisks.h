#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <json/value.h>

#include "core/tavUtils.h"
#include "rmc/tavJsonAggregator.h"
#include "sim/device/DiskModel.h"
#include "sim/device/ScsiGeneric.h"
#include "sim/server/ServerTree.h"
#include "storage/kernel/tavStorageControllerFactory.h"
#include "tests/support/FastWaiting.h"
#include "tests/support/Rmc.h"
#include "tests/support/Service.h"

namespace tav::test {

inline constexpr const char* pciLocation = "0000:00:17.0";

inline Json::Value fourPorts() {
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

/// The generic factory and its controllers on a simulated server: four SATA ports of an Intel SATA
/// RAID controller, a disk on each.
class FourDisks : public testing::Test {
 protected:
    void SetUp() override {
        logEverything(R"("EnableResources": ["HostOSInfo"])");
        writeHostCommands();
        {
            const Service service(500);
            ASSERT_TRUE(rmc_.waitForCommands(2));
        }
        clockSpeed = 10;
        build();
        locate();
    }

    virtual void locate() {
        writeCommand("localcli",
                     "printf '0000:00:17.0\\n   Address: 0000:00:17.0\\n   Slot Description: x "
                     "r001i06s00\\n'");
        tavUtils().initGeoIDMap();
    }

    void build() { sim::changeServer(server_, sim::Tree("/")); }

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
        const sim::DiskFacts facts(sim::diskFacts(disk(number)));
        const std::uint8_t key = senseKey.value_or(facts.isSas() ? 5 : 0x0B);
        const auto answer = [facts, fits, key, &refuses, &commands](sg_io_hdr& request) {
            ++commands;
            if (refuses && fits(request)) {
                sim::completeWithSense(request, std::array<std::uint8_t, 3>{0x70, 0, key});
                return 0;
            }
            const auto whole = answerCommand(facts, {request.cmdp, request.cmd_len});
            if (whole.sense.empty()) {
                sim::completeWithData(request, whole.data);
            } else {
                sim::completeWithSense(request, whole.sense);
            }
            return 0;
        };
        sim::installDevice("/dev/" + disk(number)["name"].asString(),
                           sim::scriptedScsiDevice(answer));
    }

    /// What the storage manager does in one build.
    void discover() {
        disks_.clear();
        infos_.clear();
        std::vector<ItavStorageController*> counted;
        factory().discoverControllers(counted);
        for (ItavStorageController* const each : counted) {
            const Reference<ItavStorageController> controller(each);
            controller->discoverInventory(infos_.emplace_back());
            controller->discoverPhysicalDiskInventory(disks_);
            controller->enableEvents();
        }
    }

    static void poll() {
        std::vector<ItavStorageController*> counted;
        factory().getControllers(TAV_FAMILY_ANY, counted);
        for (ItavStorageController* const each : counted)
            Reference<ItavStorageController>(each)->poll();
    }

    static tavStorageControllerFactory& factory() {
        return *tavStorageControllerFactory::getInstance();
    }

    std::string conditionOf(const std::string& serial) const {
        for (const tavDiskInfo& found : disks_) {
            if (found.getSerialNumber() == serial) return displayText(found.getState());
        }
        return "absent";
    }

    /// Without the simulated devices' own ends, which go when the next one is opened.
    static std::ptrdiff_t ownDescriptors() {
        return std::count_if(std::filesystem::directory_iterator("/proc/self/fd"), {},
                             [](const auto& entry) {
                                 std::error_code gone;
                                 return !std::filesystem::read_symlink(entry.path(), gone)
                                             .string()
                                             .starts_with("socket:");
                             });
    }

    /// Sends an inventory, which the controller acknowledges.
    static void pushInventory() {
        tavJsonAggregator& aggregator = *tavJsonAggregator::getInstance();
        const std::uint64_t before = aggregator.acknowledgedInventories();
        clockSpeed = 500;
        aggregator.sendInventory(true);
        aggregator.sendInventory(false);
        while (aggregator.acknowledgedInventories() == before)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        tavJsonAggregator::stoptavJsonAggregator();
        clockSpeed = 10;
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

}  // namespace tav::test
