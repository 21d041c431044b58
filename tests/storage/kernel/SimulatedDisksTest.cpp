/// The queries and the simulated disks, each written from the standards, must understand each
/// other.
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include <fcntl.h>

#include <gtest/gtest.h>

#include "base/FileDescriptor.h"
#include "hwlib/sysfs/sysfs_readers.h"
#include "storage/scsi/scsi_info.h"
#include "tests/support/Files.h"

namespace {

using namespace std::chrono_literals;
using tav::test::writeFile;

constexpr const char* factsPath = "/run/sim/disks/sg3";
const std::string sasFacts =
    "protocol=SAS\nmedia=HDD\nrotation=10000\nvendor=SEAGATE\nmodel=ST1200MM0007\nrevision=0004\n"
    "serial=S4700001\ncapacity=2344225968\ntemperature=31\nmaximumTemperature=60\nerrors=0\n";
const std::string sataFacts =
    "protocol=SATA\nmedia=SSD\nrotation=1\nmodel=INTEL SSDSC2BB480G7\nrevision=N2010121\n"
    "serial=PHDV0001\ncapacity=5368709120\ntemperature=-4\nmaximumTemperature=70\nwear=12\n"
    "errors=3\nhours=20000\n";

tav::FileDescriptor openDisk() {
    return tav::FileDescriptor(::open("/dev/sg3", O_RDWR | O_NONBLOCK | O_CLOEXEC));
}

std::string owned(char* text) {
    const tav::OwnedText owner(text);
    return text == nullptr ? "null" : text;
}

TEST(SimulatedDisks, ASasDiskThatRotates) {
    writeFile(factsPath, sasFacts);
    const tav::FileDescriptor disk = openDisk();
    const int fd = disk.get();
    EXPECT_EQ(get_scsi_transport_protocol(fd), 6);
    EXPECT_EQ(get_scsi_disk_medium_rotation_rate(fd), 10000);
    EXPECT_EQ(get_unit_speed(fd), 10000);
    EXPECT_EQ(is_unit_ssd(fd), 0);
    EXPECT_EQ(is_unit_smart(fd), 1);
    EXPECT_EQ(get_disk_capacity(fd), 2344225968);
    EXPECT_EQ(get_unit_temp(fd), 31);
    const tav::OwnedBytes page(get_sas_temp(fd));
    ASSERT_NE(page, nullptr);
    EXPECT_EQ(sas_parse_current(page.get()), 31);
    EXPECT_EQ(sas_parse_mcot(page.get()), 60);
    EXPECT_EQ(get_sas_pwron(fd), 1000);
    EXPECT_EQ(get_sas_ssd_wear(fd), -3) << "no such page";
    EXPECT_EQ(get_sas_health(fd), 0);
    EXPECT_EQ(get_defect_data_size(fd), 0);
    writeFile(factsPath, sasFacts + "errors=2\n");
    EXPECT_EQ(get_sas_health(fd), 0x5D10) << "facts are read at every command";
    EXPECT_EQ(get_defect_data_size(fd), 16);
    EXPECT_EQ(get_sata_health(fd), -3) << "no ATA disk";
    std::size_t length = 0;
    const tav::OwnedBytes inquiry(get_identify_info(fd, &length));
    ASSERT_NE(inquiry, nullptr);
    EXPECT_EQ(owned(inq_parse_vendor(inquiry.get(), length)), "SEAGATE");
    EXPECT_EQ(owned(inq_parse_prodID(inquiry.get(), length)), "ST1200MM0007");
    EXPECT_EQ(owned(get_unit_sn_from_device_inquiry(fd)), "S4700001            ");
    EXPECT_EQ(owned(get_unit_sn_from_device_vpd_pg80(fd)), "S4700001");
}

TEST(SimulatedDisks, ASolidStateSataDisk) {
    writeFile(factsPath, sataFacts);
    const tav::FileDescriptor disk = openDisk();
    const int fd = disk.get();
    EXPECT_EQ(get_scsi_transport_protocol(fd), 8);
    EXPECT_EQ(is_unit_ssd(fd), 1);
    EXPECT_EQ(get_disk_capacity(fd), 5368709120) << "more than the short command can tell";
    EXPECT_EQ(get_sata_ssd_wear(fd), 12);
    EXPECT_EQ(get_sata_pwron(fd), 20000);
    EXPECT_EQ(get_sata_health(fd), 3);
    std::size_t length = 0;
    const tav::OwnedBytes page(get_sata_temp(fd, &length));
    int current = 0;
    int maximum = 0;
    EXPECT_TRUE(sata_parse_current(page.get(), length, &current));
    EXPECT_TRUE(sata_parse_mcot(page.get(), length, &maximum));
    EXPECT_EQ(current, -4);
    EXPECT_EQ(maximum, 70);
    EXPECT_EQ(owned(get_sata_DiskRev(fd)), "N2010121");
    EXPECT_EQ(get_unit_temp(fd), -3) << "no log pages behind the translation layer";
    writeFile(factsPath, sataFacts + "media=HDD\n");
    EXPECT_EQ(get_sata_ssd_wear(fd), 255);
}

TEST(SimulatedDisks, AnswerNobodyWhenGoneOrHanging) {
    tav::test::logEverything();
    EXPECT_FALSE(openDisk().isOpen());
    EXPECT_EQ(errno, ENOENT);
    writeFile(factsPath, sasFacts + "present=no\n");
    EXPECT_FALSE(openDisk().isOpen());
    EXPECT_EQ(errno, ENXIO);

    writeFile(factsPath, sasFacts);
    const tav::FileDescriptor disk = openDisk();
    ASSERT_TRUE(disk.isOpen());
    writeFile(factsPath, sasFacts + "answers=no\npatience=30\n");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(get_sas_health(disk.get()), -3);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
    EXPECT_NE(tav::test::logs().find("host_status=[0x3]; driver_status=[0x6]"), std::string::npos);

    writeFile(factsPath, sasFacts + "answers=no\n");
    std::thread pulling([] {
        std::this_thread::sleep_for(50ms);
        std::filesystem::remove(factsPath);
    });
    EXPECT_EQ(get_sas_health(disk.get()), -2) << "pulled while it hangs";
    pulling.join();
}

}  // namespace
