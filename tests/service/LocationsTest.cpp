#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/StopSignal.h"
#include "core/tavUtils.h"
#include "service/Locations.h"
#include "tests/support/FastWaiting.h"
#include "tests/support/Rmc.h"
#include "tests/support/Service.h"

namespace {

using namespace std::chrono_literals;
using tav::test::logEverything;
using tav::test::logs;
using tav::test::parseJson;
using tav::test::Rmc;
using tav::test::timesLogged;
using tav::test::writeCommand;
using tav::test::writeFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

/// A host with one interface, which lists its PCI functions once /tmp/lists is there.
void writeHost() {
    tav::test::writeHostCommands();
    writeCommand("localcli",
                 "case \"$*\" in\n"
                 "'network nic list') printf 'h\\n-\\nvmnic0 0000:01:00.0 igbn Up Up 1000 Full "
                 "02:00:00:00:01:00 1500 Intel I350\\n';;\n"
                 "'network nic get -n '*) printf '   Firmware Version: 1.63\\n';;\n"
                 "'hardware pci list') [ -e /tmp/lists ] || exit 1\n"
                 "printf '0000:01:00.0\\n   Address: 0000:01:00.0\\n   Slot Description: x "
                 "r001i02s00\\n';;\n"
                 "esac");
}

std::string placeIn(const tav::sim::Command& inventory) {
    return parseJson(inventory.payload)["HostDataCollection"]["EthernetDevices"][0]["Oem"]
                                       ["PhysicalLocation"]
                                           .asString();
}

TEST(Locations, ComeAndAreToldWhenTheHostListsItsFunctionsAtLast) {
    logEverything(R"("EnableResources": ["EthernetDevices"])");
    writeHost();
    Rmc rmc;
    tav::test::clockSpeed = 500;
    tavd::Locations locations(false);
    locations.start();
    const tav::test::Service service(500);
    ASSERT_TRUE(rmc.waitForCommands(1));
    while (timesLogged("Error occurred in gathering topology information.") < 4)
        std::this_thread::sleep_for(5ms);
    writeFile("/tmp/lists", "");
    ASSERT_TRUE(rmc.waitForCommands(2));
    const auto commands = rmc.commands();
    EXPECT_THAT(rmc.names(), ElementsAre("WriteInventory", "WriteInventory"));
    EXPECT_EQ(placeIn(commands[0]), "FFFFFFFFFFFFFFFF");
    EXPECT_EQ(placeIn(commands[1]), "FFFF000102FFFF88");
    EXPECT_THAT(logs(), HasSubstr("The locations of the PCI functions are known now."));
}

TEST(Locations, AreToldByTheFirstInventoryWhereTheHostAnswers) {
    logEverything();
    writeHost();
    writeFile("/tmp/lists", "");
    tavd::Locations locations(false);
    locations.start();
    EXPECT_EQ(tavUtils().getGeoIDStr("0000:01:00.0"), "r001i02s00");
    locations.stop();
    EXPECT_THAT(logs(), Not(HasSubstr("are known now"))) << "nobody has to build anew";
}

TEST(Locations, AreAskedForOnceWhereThereIsNoCommand) {
    logEverything();
    tav::test::clockSpeed = 1000;
    tavd::Locations locations(false);
    locations.start();
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(timesLogged("Error occurred in gathering topology information."), 1);
}

TEST(Locations, AStopEndsTheWaitForACommandThatHangs) {
    logEverything();
    writeCommand("localcli", "sleep 1000");
    tav::StopSignal stop;
    const tav::StopScope scope(&stop);
    const auto begin = std::chrono::steady_clock::now();
    std::thread stopper([&] {
        std::this_thread::sleep_for(100ms);
        stop.request();
    });
    tavd::Locations locations(false);
    locations.start();
    locations.stop();
    stopper.join();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s);
}

}  // namespace
