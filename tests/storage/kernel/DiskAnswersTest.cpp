/// Disks that hang, are silent, refuse what they are asked, or tell half of it.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/StopSignal.h"
#include "base/Waiting.h"
#include "core/Unanswered.h"
#include "sim/device/ScsiGeneric.h"
#include "storage/SASResourceManager.h"
#include "tests/support/FastWaiting.h"
#include "tests/support/FourDisks.h"
#include "tests/support/Rmc.h"
#include "tests/support/Service.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using tav::test::logs;
using tav::test::parseJson;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

using DiskAnswers = tav::test::FourDisks;

TEST_F(DiskAnswers, ADiskThatDoesNotIdentifyItselfIsStillKnownAndWatched) {
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

TEST_F(DiskAnswers, ADiskThatAnswersAgainInTheMiddleOfItsTurnIsNotTakenForHealthy) {
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

TEST_F(DiskAnswers, WhatADiskDoesNotSupportIsNoFault) {
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

TEST_F(DiskAnswers, WhatADiskCannotTellNowIsAsItWas) {
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

TEST_F(DiskAnswers, AKnownDiskIsOneUntilTheKernelSaysOtherwise) {
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
TEST_F(DiskAnswers, DisksThatHang) {
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
TEST_F(DiskAnswers, ADiskThatHangsAtItsFirstDiscovery) {
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
TEST_F(DiskAnswers, OneThatAnswersLateAtItsFirstDiscovery) {
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

TEST_F(DiskAnswers, AShutDownWaitsForNoDiskThatHangs) {
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

/// As virtual disks are, which tell nothing of their transport.
TEST_F(DiskAnswers, ADiskOfNoKnownProtocolIsJudgedByItsAnswersWhereAnyControllerIs) {
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

}  // namespace
