#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hwlib/sysfs/sysfs_readers.h"
#include "storage/scsi/scsi_info.h"
#include "storage/scsi/scsi_sysfs.h"
#include "tests/storage/scsi/Hexadecimal.h"
#include "tests/support/Files.h"

namespace {

using tav::test::bytes;
using tav::test::writeFile;
using testing::HasSubstr;

constexpr const char* link = "0:0:3:0";
const std::string device = "/sys/class/scsi_device/0:0:3:0/device/";

void writeBytes(const std::string& path, const std::string& hexadecimal) {
    const tav::test::Bytes content = bytes(hexadecimal);
    writeFile(path, {reinterpret_cast<const char*>(content.data()), content.size()});
}

std::string owned(char* text) {
    const tav::OwnedText owner(text);
    return text == nullptr ? "null" : text;
}

TEST(ScsiSysfs, AttributesOfADevice) {
    const struct {
        char* (*read)(const char*);
        const char* attribute;
    } rows[] = {{get_DiskModel, "model"},
                {get_sas_DiskRev, "rev"},
                {get_DiskVendor, "vendor"},
                {get_DiskState, "state"},
                {get_DiskType, "type"}};
    for (const auto& row : rows) {
        EXPECT_EQ(owned(row.read(link)), "null") << row.attribute;
        writeFile(device + row.attribute, std::string(row.attribute) + "  \n");
        EXPECT_EQ(owned(row.read(link)), std::string(row.attribute) + "  ");
        EXPECT_EQ(owned(row.read(std::string(300, '1').c_str())), "null");
    }
}

TEST(ScsiSysfs, OnlyPeripheralType0IsABlockDevice) {
    EXPECT_FALSE(is_direct_access_block_device(link));
    for (const auto& [type, direct] : {std::pair("0\n", true),
                                       {"10000", true},
                                       {"5", false},
                                       {"d", false},
                                       {"x", false},
                                       {"8000", false}}) {
        writeFile(device + "type", type);
        EXPECT_EQ(is_direct_access_block_device(link), direct) << type;
    }
}

TEST(ScsiSysfs, FindsTheGenericNode) {
    EXPECT_EQ(get_ScsiGeneric(link), nullptr);
    std::filesystem::create_directories(device + "scsi_generic/power");
    EXPECT_EQ(get_ScsiGeneric(link), nullptr) << "nothing that is a node";
    std::filesystem::create_directories(device + "scsi_generic/sg7");
    EXPECT_EQ(owned(get_ScsiGeneric(link)), "sg7");
    std::filesystem::create_directories(device + "scsi_generic/sg12");
    EXPECT_EQ(owned(get_ScsiGeneric(link)), "sg12");
    std::filesystem::create_directories(device + "scsi_generic/scsi_generic:sg3");
    EXPECT_EQ(owned(get_ScsiGeneric(link)), "scsi_generic:sg3");
}

TEST(ScsiSysfs, FindsTheBlockDeviceWhereverItIs) {
    const auto expect = [](const char* name, std::uint64_t sectors) {
        EXPECT_EQ(get_BlockDevice(link).name, name);
        EXPECT_EQ(get_BlockDevice(link).sectors, sectors);
        EXPECT_EQ(get_BlockSize(link), sectors);
    };
    expect("", 0);
    writeFile(device + "block/sdb/size", "1953525168\n");
    expect("sdb", 1953525168);
    writeFile(device + "block/sda/size", "no number");
    expect("sda", 0);
    writeFile(device + "block:sdc/size", "18446744073709551614\n");
    expect("sdc", 18446744073709551614U);  // the device's own directory first
}

TEST(ScsiSysfs, SerialNumbers) {
    tav::test::logEverything();
    const struct {
        const char* page;
        const char* serial;
        const char* trimmed;
        const char* logged;
    } rows[] = {
        {"", "null", "", "Unable to retrieve sysfs VPD page 80."},
        {"00 80 00 00", "null", "", "serial number from sysfs VPD page 80. (4, 128)"},
        {"00", "null", "", "serial number from sysfs VPD page 80. (1, 0)"},
        {"00 83 00 01 41", "null", "", "serial number from sysfs VPD page 80. (5, 131)"},
        {"00 80 00 02 41 42 43", "AB", "AB", ""},
        {"00 80 FF FF 20 42 20", " B ", "B", ""},
        {"00 80 00 04 41 20 00 42", "A ", "A", ""},
    };
    for (const auto& row : rows) {
        writeBytes(device + "vpd_pg80", row.page);
        EXPECT_EQ(owned(get_unit_sn_from_sysfs_vpd_pg80(link)), row.serial) << row.page;
        EXPECT_EQ(tav::scsi::unitSerial(link), row.trimmed) << row.page;
        EXPECT_THAT(tav::test::logs(), HasSubstr(row.logged));
    }
    std::string inquiry = "00 00 06 12 34";
    EXPECT_EQ(get_unit_sn_from_sysfs_inquiry(link), nullptr);
    for (int i = 5; i < 55; ++i)
        inquiry += " 41";
    writeBytes(device + "inquiry", inquiry);
    EXPECT_EQ(get_unit_sn_from_sysfs_inquiry(link), nullptr) << "55 bytes";
    EXPECT_THAT(tav::test::logs(), HasSubstr("serial number from sysfs inquiry. (55, 52)"));
    writeBytes(device + "inquiry", inquiry + " 42");
    EXPECT_EQ(owned(get_unit_sn_from_sysfs_inquiry(link)), std::string(19, 'A') + 'B');
    writeBytes(device + "inquiry", "00 00 06 12 33" + inquiry.substr(14) + " 42 43");
    EXPECT_EQ(get_unit_sn_from_sysfs_inquiry(link), nullptr) << "the length does not cover it";

    EXPECT_EQ(get_durableName_from_block_vpd_pg83("sda"), nullptr);
    writeBytes("/sys/block/sda/device/vpd_pg83", "00 83 00 07 01 03 00 03 50 00 c5");
    EXPECT_EQ(owned(get_durableName_from_block_vpd_pg83("sda")), "5000C5");
}

}  // namespace
