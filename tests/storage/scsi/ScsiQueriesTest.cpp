/// Every query against a disk that answers as the test says: what is sent, and what becomes of
/// answers of every length, of failures and of lies.
#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/FileDescriptor.h"
#include "hwlib/sysfs/sysfs_readers.h"
#include "sim/device/ScsiGeneric.h"
#include "storage/scsi/scsi_info.h"
#include "tests/storage/scsi/Hexadecimal.h"
#include "tests/support/Files.h"

namespace {

using tav::FileDescriptor;
using tav::sim::completeWithData;
using tav::sim::completeWithSense;
using tav::test::Bytes;
using tav::test::bytes;
using tav::test::hex;
using testing::HasSubstr;

using Ask = std::function<std::string(int descriptor)>;

std::string ownedText(char* text) {
    const tav::OwnedText owner(text);
    return text == nullptr ? "null" : text;
}

std::string ownedBytes(unsigned char* start, std::size_t size) {
    const tav::OwnedBytes owner(start);
    return start == nullptr ? "null" : hex({start, size});
}

template <auto query>
std::string number(int descriptor) {
    return std::to_string(query(descriptor));
}

template <auto query>
std::string text(int descriptor) {
    return ownedText(query(descriptor));
}

template <auto query>
std::string counted(int descriptor) {
    std::size_t length = 0;
    return ownedBytes(query(descriptor, &length), length);
}

std::string temperaturePage(int descriptor) {
    unsigned char* const page = get_sas_temp(descriptor);
    return ownedBytes(page, page == nullptr ? 0 : page[3] + 4U);
}

std::string sctStatus(int descriptor) {
    return ownedBytes(get_sata_sct_stat(descriptor), 2);
}

/// How many bytes came, the first and the last ones; the result alone when it is a failure.
std::string identify(int descriptor) {
    std::array<unsigned char, 512> buffer;
    buffer.fill(0xEE);
    std::size_t length = buffer.size();
    const int result = get_ata_identify_device_info(descriptor, buffer.data(), &length);
    if (result != 0) return std::to_string(result);
    return std::to_string(length) + ":" + hex(std::span(buffer).first(4)) + hex({&buffer[508], 4});
}

/// A query, and an answer that it understands.
struct Row {
    const char* name;
    Ask ask;
    const char* command;
    unsigned room;
    std::size_t minimum;
    const char* reply;  ///< filled up with zeros
    const char* result;
    const char* messageName;
    std::string tooShort = "-4";
    std::string failed = "-2";
    std::string checked = "-3";
};

Row nulls(Row row) {
    row.tooShort = row.failed = row.checked = "null";
    return row;
}

std::vector<Row> rows() {
    const char* const ata = "FF FF 02 07 10 27 00 00 08 07 06 05 04 03 02 01 10 27 00 00";
    return {
        {"get_unit_temp", number<get_unit_temp>, "4D 00 6F 00 00 00 00 00 62 00", 98, 11,
         "2F 00 00 08 00 00 03 04 5D 10 1E", "30", "LOG SENSE(6Fh)"},
        {"get_sas_health", number<get_sas_health>, "4D 00 6F 00 00 00 00 00 62 00", 98, 10,
         "2F 00 00 08 00 00 03 04 5D 10", "23824", "LOG SENSE(6Fh)"},
        nulls({"get_sas_temp", temperaturePage, "4D 00 4D 00 00 00 00 00 10 00", 16, 10,
               "0D 00 00 06 00 00 03 02 00 1E",
               "0D0000060000030200"
               "1E",
               "LOG SENSE(4Dh)"}),
        {"get_sas_ssd_wear", number<get_sas_ssd_wear>, "4D 00 51 00 00 00 00 00 10 00", 16, 12,
         "11 00 00 08 00 01 03 04 00 00 00 C8", "200", "LOG SENSE(51h)"},
        {"get_sas_pwron", number<get_sas_pwron>, "4D 00 55 00 00 00 00 00 20 00", 32, 12,
         "15 00 00 10 00 00 03 0C 80 00 00 00", "35791394", "LOG SENSE(55h)"},
        {"get_sata_ssd_wear", number<get_sata_ssd_wear>,
         "85 09 0E 00 00 00 01 00 04 00 07 00 00 00 2F 00", 512, 9, "01 00 07 00 00 00 00 00 C8",
         "200", "ATA DEV STAT LOG(7)", "255", "255", "255"},
        {"get_sata_pwron", number<get_sata_pwron>,
         "85 09 0E 00 00 00 01 00 04 00 01 00 00 00 2F 00", 512, 20, ata, "10000",
         "ATA DEV STAT LOG(1)", "-1", "-1", "-1"},
        {"get_sata_health", number<get_sata_health>,
         "85 08 0E 00 00 00 01 00 03 00 00 00 00 00 2F 00", 512, 4, "01 00 02 01", "258",
         "SMART error log (address 03h)"},
        nulls({"get_sata_DiskRev", text<get_sata_DiskRev>,
               "85 08 0E 00 00 00 01 00 00 00 00 00 00 00 EC 00", 512, 53,
               "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
               "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
               "4E 53 33 41 20 20 20 20",
               "SNA3", "ATA IDENTIFY DEVICE"}),
        {"get_scsi_transport_protocol", number<get_scsi_transport_protocol>, "1A 08 19 00 FF 00",
         255, 7, "0B 00 00 00 99 06 F6", "6", "protocol-specific port page"},
        {"get_scsi_disk_medium_rotation_rate", number<get_scsi_disk_medium_rotation_rate>,
         "12 01 B1 00 FC 00", 252, 6, "00 B1 00 3C 1C 20", "7200", "VPD page 0xB1"},
        {"is_unit_ssd", number<is_unit_ssd>, "12 01 B1 00 FC 00", 252, 6, "00 B1 00 3C 00 01", "1",
         "VPD page(B1h)"},
        {"get_unit_speed", number<get_unit_speed>, "5A 00 04 00 00 00 00 00 FC 00", 252, 38,
         "00 28 00 00 00 00 00 08 00 00 00 00 00 00 02 00 84 16 00 00 00 00 00 00 "
         "00 00 00 00 00 00 00 00 00 00 00 00 1C 20",
         "7200", "MODE SENSE 10"},
        {"get_disk_capacity", number<get_disk_capacity>, "25 00 00 00 00 00 00 00 00 00", 8, 4,
         "80 00 00 00", "2147483649", "READ CAPACITY"},
        {"get_disk_capacity, beyond ten bytes", number<get_disk_capacity>,
         "9E 10 00 00 00 00 00 00 00 00 00 00 00 20 00 00", 32, 8, "FF FF FF FF FF FF FF FF", "-1",
         "READ CAPACITY"},
        {"is_unit_smart", number<is_unit_smart>, "1A 08 1C 00 FF 00", 252, 4,
         "0F 00 00 00 9C 0A 00 06", "1", "MODE SENSE"},
        nulls({"get_sata_sct_stat", sctStatus, "85 08 0E 00 D5 00 01 00 E0 00 4F 00 C2 00 B0 00",
               512, 512, "03 00", "0300", "READ SMART LOG"}),
        {"get_defect_data_size", number<get_defect_data_size>, "37 00 1D 00 00 00 00 00 04 00", 4,
         4, "00 1D 80 08", "32776", "READ DEFECT DATA"},
        nulls({"get_identify_info", counted<get_identify_info>, "12 00 00 00 FC 00", 252, 252,
               "00 00 06 12 FF", "", "standard inquiry"}),
        nulls({"get_unit_sn_from_device_inquiry", text<get_unit_sn_from_device_inquiry>,
               "12 00 00 00 FC 00", 252, 56,
               "00 00 06 12 34 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
               "00 00 00 00 00 00 00 00 00 00 00 00 "
               "41 42 20 20 20 20 20 20 20 20 20 20 20 20 20 20 20 20 20 5A 58",
               "AB                 Z", "standard inquiry"}),
        nulls({"get_unit_sn_from_device_vpd_pg80", text<get_unit_sn_from_device_vpd_pg80>,
               "12 01 80 00 FC 00", 252, 7, "00 80 00 03 41 20 42", "A B", "VPD page 80 inquiry"}),
    };
}

/// Answers every command with the row's reply, cut to `length`, and remembers the last request.
class Disk {
 public:
    Disk() {
        tav::sim::installDevice(
            "/dev/sg9",
            tav::sim::scriptedScsiDevice([this](sg_io_hdr& request) { return serve(request); }));
        descriptor_.reset(::open("/dev/sg9", O_RDWR | O_NONBLOCK));
    }
    Disk(const Disk&) = delete;
    Disk& operator=(const Disk&) = delete;
    ~Disk() { tav::sim::removeDevice("/dev/sg9"); }

    int descriptor() const { return descriptor_.get(); }

    Bytes reply;
    std::function<int(sg_io_hdr&)> failure;  ///< instead of the reply
    sg_io_hdr seen{};
    Bytes command;
    bool roomWasZero = true;

 private:
    int serve(sg_io_hdr& request) {
        seen = request;
        command.assign(request.cmdp, request.cmdp + request.cmd_len);
        const auto* const room = static_cast<const unsigned char*>(request.dxferp);
        for (unsigned i = 0; i < request.dxfer_len; ++i)
            roomWasZero = roomWasZero && room[i] == 0;
        if (failure) return failure(request);
        completeWithData(request, reply);
        return 0;
    }

    FileDescriptor descriptor_;
};

TEST(ScsiQueries, SendTheirCommandAndReadAnswersOfEveryLength) {
    Disk disk;
    for (const Row& row : rows()) {
        for (std::size_t length = 0; length <= row.room; ++length) {
            disk.reply = bytes(row.reply);
            disk.reply.resize(length);
            const std::string result = row.ask(disk.descriptor());
            if (length < row.minimum) {
                EXPECT_EQ(result, row.tooShort) << row.name << ' ' << length;
            } else if (length >= bytes(row.reply).size() && *row.result != '\0') {
                EXPECT_EQ(result, row.result) << row.name << ' ' << length;
            } else {
                EXPECT_NE(result, row.tooShort) << row.name << ' ' << length;
            }
        }
        EXPECT_EQ(disk.command, bytes(row.command)) << row.name;
        EXPECT_EQ(disk.seen.dxfer_len, row.room) << row.name;
        EXPECT_EQ(disk.seen.interface_id, 'S');
        EXPECT_EQ(disk.seen.dxfer_direction, SG_DXFER_FROM_DEV);
        EXPECT_EQ(disk.seen.mx_sb_len, 32);
        EXPECT_EQ(disk.seen.timeout, 60000U);
        EXPECT_TRUE(disk.roomWasZero) << row.name;
    }
}

TEST(ScsiQueries, TellRequestsThatFailFromChecksAndFromShortReplies) {
    tav::test::logEverything();
    Disk disk;
    for (const Row& row : rows()) {
        disk.failure = [](sg_io_hdr&) { return ENODEV; };
        EXPECT_EQ(row.ask(disk.descriptor()), row.failed) << row.name;
        disk.failure = [](sg_io_hdr& request) {
            completeWithSense(request, bytes("70 00 05 00"));
            return 0;
        };
        EXPECT_EQ(row.ask(disk.descriptor()), row.checked) << row.name;
        disk.failure = nullptr;
        disk.reply.clear();
        EXPECT_EQ(row.ask(disk.descriptor()), row.tooShort) << row.name;
        EXPECT_THAT(tav::test::logs(), HasSubstr(row.messageName));
    }
    const std::string logs = tav::test::logs();
    for (const char* const line :
         {"SCSI_INFO: IOCTL for LOG SENSE(6Fh) failed. (-1, 19)",
          "SCSI_INFO: IOCTL for LOG SENSE(6Fh) returned 0 bytes. (Min expected: 11)",
          "SCSI_INFO: IOCTL for LOG SENSE(6Fh) returned 0 bytes. (Min expected: 10)",
          "IOCTL to fetch VPD page 0xB1 failed. (-1, 19)",
          "IOCTL to read SMART error log failed. (-1, 19)", "ATA DEV STAT LOG(7) returned no data.",
          "get_sas_temp: sgiob: info=[0x1]; masked_status=[0x1]; host_status=[0x0]; "
          "driver_status=[0x8]; status=[0x2]; sb_len_wr=[4]; dxfer_len=[16]; resid=[16]\n"
          "    Sense data: 70 00 05 00\n"}) {
        EXPECT_THAT(logs, HasSubstr(line));
    }
}

TEST(ScsiQueries, RefuseWrongPagesAndMarkedValues) {
    Disk disk;
    const struct {
        const char* name;
        Ask ask;
        const char* reply;
        const char* result;
    } cases[] = {
        {"not the page", number<get_unit_temp>, "0D 00 00 08 00 00 03 04 00 00 1E", "-1"},
        {"no temperature", number<get_unit_temp>, "2F 00 00 08 00 00 03 04 00 00 FF", "-1"},
        {"a subpage", number<get_sas_health>, "6F 00 00 08 00 00 03 04 00 00 1E", "-1"},
        {"the qualifier alone", number<get_sas_health>, "2F 00 00 08 00 00 03 04 00 01", "1"},
        {"two parameters", number<get_sas_ssd_wear>, "11 00 00 09 00 01 03 04 00 00 00 05", "255"},
        {"not the page", number<get_sas_ssd_wear>, "2F 00 00 08 00 01 03 04 00 00 00 05", "255"},
        {"not the status", number<get_sas_pwron>, "15 00 00 08 00 01 03 04 00 00 00 3C", "-1"},
        {"the page is longer", temperaturePage, "0D 00 00 0D 00 00 03 02 00 1E 00 01 03 02 00 3C",
         "null"},
        {"another version", number<get_sata_health>, "02 00 01 00", "-1"},
        {"subpage format", number<get_scsi_transport_protocol>, "00 00 00 00 59 06 06", "-1"},
        {"empty page", number<get_scsi_transport_protocol>, "00 00 00 00 19 00 06", "-1"},
        {"not the page", number<get_scsi_disk_medium_rotation_rate>, "00 B0 00 3C 1C 20", "-1"},
        {"not the page", number<is_unit_ssd>, "00 B0 00 3C 00 01", "-1"},
        {"it rotates", number<is_unit_ssd>, "00 B1 00 3C 01 01", "0"},
        {"a longer descriptor ends the page outside", number<get_unit_speed>,
         "00 28 00 00 01 00 00 10 00 00 00 00 00 00 02 00 00 00 00 00 00 00 00 00 84 16 00 00 00 "
         "00 00 00 00 00 00 00 1C 20",
         "-1"},
        {"a descriptor beyond the reply", number<get_unit_speed>,
         "FF FF 00 00 00 00 FF FF 00 00 00 00 00 00 02 00 84 16 00 00 00 00 00 00 00 00 00 00 00 "
         "00 00 00 00 00 00 00 1C 20",
         "-1"},
        {"off", number<is_unit_smart>, "0F 00 00 00 1C 0A 08 00", "0"},
        {"not the page", number<is_unit_smart>, "0F 00 00 00 19 0A 00 06", "-1"},
        {"cut in the page", number<is_unit_smart>, "0F 00 00 00 1C 0A 00", "-1"},
        {"the length does not cover it", text<get_unit_sn_from_device_inquiry>, "00 00 06 12 33",
         "null"},
        {"not the page", text<get_unit_sn_from_device_vpd_pg80>, "00 83 00 01 41", "null"},
        {"a page length of two bytes", text<get_unit_sn_from_device_vpd_pg80>, "00 80 01 01 41",
         "null"},
        {"identify, cut", identify, "40 00 FF 3F", "4:4000FF3F00000000"},
    };
    for (const auto& each : cases) {
        disk.reply = bytes(each.reply);
        EXPECT_EQ(each.ask(disk.descriptor()), each.result) << each.name << ": " << each.reply;
    }
    disk.failure = [](sg_io_hdr&) { return EIO; };
    EXPECT_EQ(identify(disk.descriptor()), "-2");
}

TEST(ScsiQueries, BelieveNoDriverThatClaimsMoreThanThereIs) {
    tav::test::logEverything();
    std::array<unsigned char, 32> sense;
    sense.fill(0xAB);
    sg_io_hdr header{};
    header.dxfer_len = 98;
    header.sbp = sense.data();
    header.mx_sb_len = sense.size();
    const struct {
        int residual;
        std::size_t received;
    } residuals[] = {{0, 98}, {1, 97}, {98, 0}, {99, 0}, {INT_MAX, 0}, {-1, 98}, {INT_MIN, 98}};
    for (const auto& [residual, expected] : residuals) {
        header.resid = residual;
        std::size_t received = 1;
        EXPECT_EQ(process_scsi_completion(header, &received, "name"), 0);
        EXPECT_EQ(received, expected) << residual;
    }
    header.info = SG_INFO_CHECK | SG_INFO_DIRECT_IO;
    for (const int claimed : {0, 1, 32, 33, 255}) {
        header.sb_len_wr = static_cast<unsigned char>(claimed);
        std::size_t received = 1;
        EXPECT_EQ(process_scsi_completion(header, &received, "name"), -3);
        EXPECT_EQ(received, 0U);
        std::string logged = "sb_len_wr=[" + std::to_string(claimed) +
                             "]; dxfer_len=[98]; resid=[-2147483648]" + "\n    Sense data:";
        for (int i = 0; i < std::min(claimed, 32); ++i)
            logged += " ab";
        EXPECT_THAT(tav::test::logs(), HasSubstr(logged + '\n'));
    }
}

/// A node that answers requests of the storage management interface.
class ManagementNode final : public tav::sim::Device {
 public:
    class File final : public tav::sim::OpenDevice {
     public:
        File(FileDescriptor end, ManagementNode& node) : OpenDevice(std::move(end)), node_(node) {}
        int control(int /*descriptor*/, unsigned long request, void* argument) override {
            auto* const buffer = static_cast<unsigned char*>(argument);
            node_.seen = std::to_string(request & 0xFFU) + ":" + hex({buffer, 32});
            buffer[8] = node_.returnCode;
            buffer[csmiBufferSize - 1] = 0x77;
            return -node_.error;
        }

     private:
        ManagementNode& node_;
    };
    std::shared_ptr<tav::sim::OpenDevice> open(FileDescriptor end, int& /*error*/) override {
        return std::make_shared<File>(std::move(end), *this);
    }

    std::string seen;
    unsigned char returnCode = 0;
    int error = 0;
};

TEST(ScsiQueries, AskHostBusAdaptersThroughTheManagementInterface) {
    const auto node = std::make_shared<ManagementNode>();
    tav::sim::installDevice("/dev/sg9", node);
    const auto address = [](const char* device, std::uint32_t controller) {
        return SasGetScsiAddress(device, controller, "5000C500a1b2c3d4");
    };
    const std::string rest = "000000003C00000000000000";
    const struct {
        std::function<unsigned char*(const char*, std::uint32_t)> ask;
        std::string sent;
    } requests[] = {{SasGetHbaConfig, "2:02000000B4000000" + rest + "000000000000000000000000"},
                    {address, "33:0200000014000000" + rest + "5000C500A1B2C3D400000000"},
                    {SasGetHbaConnector, "36:0200000080040000" + rest + "000000000000000000000000"},
                    {SasGetLocation, "37:0200000080040000" + rest + "000000000000000000000000"}};
    for (const auto& [ask, sent] : requests) {
        const tav::OwnedBytes buffer(ask("/dev/sg9", 2));
        ASSERT_NE(buffer, nullptr) << sent;
        EXPECT_EQ(buffer.get()[csmiBufferSize - 1], 0x77);
        EXPECT_EQ(node->seen, sent);
        EXPECT_EQ(ask("/dev/none", 2), nullptr);
    }
    for (const char* const wrong :
         {"", "5000C500A1B2C3D", "5000C500A1B2C3D40", "5000C500A1B2C3DG"}) {
        EXPECT_EQ(SasGetScsiAddress("/dev/sg9", 0, wrong), nullptr) << wrong;
    }
    node->returnCode = 1;
    EXPECT_EQ(SasGetHbaConfig("/dev/sg9", 0), nullptr);
    node->returnCode = 0;
    node->error = ENOTTY;
    EXPECT_EQ(SasGetHbaConfig("/dev/sg9", 0), nullptr);
    tav::sim::removeDevice("/dev/sg9");
}

}  // namespace
