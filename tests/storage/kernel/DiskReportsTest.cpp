/// What of the disks is reported, when, and that it agrees with what the inventory says.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "storage/SASResourceManager.h"
#include "tests/support/FourDisks.h"
#include "tests/support/Rmc.h"
#include "tests/support/Service.h"

namespace {

using tav::test::logs;
using testing::ElementsAre;

using DiskReports = tav::test::FourDisks;

TEST_F(DiskReports, AWornDiskIsReportedOnceWhoeverSeesItFirst) {
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

TEST_F(DiskReports, ThePublishedInventorySaysWhatTheEventsSay) {
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
TEST_F(DiskReports, ADiskThatFailsIsToldAgainOnlyWhereNobodyHasHeardOfIt) {
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
TEST_F(DiskReports, WhatNoEventTellsAnInventoryDoes) {
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

}  // namespace
