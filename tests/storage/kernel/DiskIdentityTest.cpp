/// Disks that are pulled, exchanged, swapped, or contradict themselves about who they are.
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/FourDisks.h"
#include "tests/support/Rmc.h"
#include "tests/support/Service.h"

namespace {

namespace fs = std::filesystem;
using tav::test::logs;
using tav::test::parseJson;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

using DiskIdentity = tav::test::FourDisks;

TEST_F(DiskIdentity, ADiskThatIsPulledAndPutBack) {
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

TEST_F(DiskIdentity, AnotherDiskInTheSamePlace) {
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

/// Ways in which a disk's serial numbers can contradict each other: none of them is news, and none
/// makes the manager look at everything anew.
TEST_F(DiskIdentity, SerialNumbersThatContradictEachOther) {
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
TEST_F(DiskIdentity, ADiskThatIsSwappedWhileItIsAskedIsReportedOnce) {
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

TEST_F(DiskIdentity, ASerialNumberThatCannotBeReadSaysNothing) {
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
TEST_F(DiskIdentity, ADiskThatIsNotQuiteBackIsStillGone) {
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

TEST_F(DiskIdentity, WhoAnswersWhereADiskHasGoneIsNotTakenForItBeforeItsNumberIsRead) {
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

TEST_F(DiskIdentity, DevicesAtOnePlaceAreEachThemselves) {
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

TEST_F(DiskIdentity, DisksThatSwapTheirPlaces) {
    discover();
    std::swap(disk(0)["serial"], disk(1)["serial"]);
    build();
    discover();
    EXPECT_THAT(events(), ElementsAre("538 S0", "540 S1", "538 S1", "540 S0"));
    EXPECT_THAT(disks_, SizeIs(4));
}

}  // namespace
