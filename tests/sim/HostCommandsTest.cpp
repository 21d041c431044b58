#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>

#include "sim/hostcmds/Files.h"
#include "sim/hostcmds/HostCommands.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;

void write(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path) << text;
}

std::vector<std::string> linesWith(const std::string& text,
                                   std::initializer_list<const char*> keys) {
    std::vector<std::string> found;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        for (const char* key : keys) {
            if (line.find(key) != std::string::npos) found.push_back(line);
        }
    }
    return found;
}

TEST(HostCommands, TellTheSystemsNameAndVersion) {
    const std::string text = tav::sim::systemVersion(
        "PRETTY_NAME=\"Some System 12 (code)\"\nNAME=\"Some System\"\nVERSION_ID='12.5'\n",
        "6.1.0-9");
    EXPECT_EQ(text, "   Product: Some System\n   Version: 12.5\n   Build: 6.1.0-9\n   Update: 0\n");
    EXPECT_THAT(tav::sim::systemVersion("NAME=Rolling\n", "6.1"), HasSubstr("   Version: 6.1\n"));
}

TEST(HostCommands, ListPciFunctionsWithTheirSlots) {
    const auto function = [](const std::string& address, const std::string& deviceId) {
        const fs::path directory = "/sys/bus/pci/devices/" + address;
        write(directory / "vendor", "0x8086\n");
        write(directory / "device", deviceId + "\n");
    };
    function("0000:3b:00.1", "0x1572");
    function("0000:3b:00.0", "0x1572");
    function("0000:00:1f.2", "0xa182");
    write("/sys/bus/pci/slots/r001i06s03/address", "0000:3b:00\n");
    fs::create_directories("/sys/bus/pci/drivers/i40e");
    fs::create_directory_symlink("../../drivers/i40e", "/sys/bus/pci/devices/0000:3b:00.0/driver");

    const tav::sim::PciNames names(
        "# list\n8086  Maker\n\t1572  Adapter\n\t\t8086 0000  Board\n"
        "C 02  Network controller\n\t00  Ethernet\n");
    const std::string text = tav::sim::pciList(tav::sim::readPciFunctions(), names);
    EXPECT_THAT(text, StartsWith("0000:00:1f.2\n   Address: 0000:00:1f.2\n   Segment: 0x0000\n"
                                 "   Bus: 0x00\n   Slot: 0x1f\n   Function: 0x2\n"));
    EXPECT_THAT(linesWith(text, {"Address: ", "Slot Description:"}),
                testing::ElementsAre("   Address: 0000:00:1f.2",
                                     "   Slot Description: ", "   Address: 0000:3b:00.0",
                                     "   Slot Description: r001i06s03", "   Address: 0000:3b:00.1",
                                     "   Slot Description: r001i06s03"));
    EXPECT_THAT(linesWith(text, {"Device Name", "Module Name"}),
                testing::ElementsAre("   Device Name: 0xa182", "   Module Name: None",
                                     "   Device Name: Adapter", "   Module Name: i40e",
                                     "   Device Name: Adapter", "   Module Name: None"));
}

TEST(HostCommands, ListStorageAdaptersWithTheirPciAddress) {
    const fs::path device =
        "/sys/devices/pci0000:00/0000:00:1c.0/0000:3b:00.0/host3/scsi_host/host3";
    fs::create_directories(device);
    fs::create_directories("/sys/class/scsi_host");
    fs::create_directory_symlink(device, "/sys/class/scsi_host/host3");
    fs::create_directories("/sys/devices/virtual/scsi_host/host4");
    fs::create_directory_symlink("/sys/devices/virtual/scsi_host/host4",
                                 "/sys/class/scsi_host/host4");
    const auto hosts = tav::sim::readScsiHosts();
    const std::string text = tav::sim::adapterList(hosts, {}, tav::sim::PciNames(""));
    EXPECT_THAT(linesWith(text, {"host"}), testing::ElementsAre(HasSubstr("(0000:3b:00.0)")));
}

/// As a reader of the batch form goes about it: fields between commas, a new row where a field
/// begins with a line feed.
TEST(HostCommands, SampleThisMachinesMemoryInBatchForm) {
    const std::string meminfo = tav::sim::fileText("/proc/meminfo");
    std::istringstream sample(tav::sim::memorySample("host", "now", meminfo));
    std::vector<std::vector<std::string>> rows(1);
    for (std::string field; std::getline(sample, field, ',');) {
        if (field[0] == '\n') {
            rows.emplace_back();
            field.erase(0, 1);
        }
        rows.back().push_back(field);
    }
    ASSERT_EQ(rows.size(), 3u) << "the last row is empty: nothing follows the last comma";
    ASSERT_EQ(rows[0].size(), rows[1].size());
    long total = 0;
    ASSERT_EQ(std::sscanf(meminfo.c_str(), "MemTotal: %ld", &total), 1);
    long found = -1;
    for (std::size_t column = 0; column < rows[0].size(); ++column) {
        if (rows[0][column] == R"("\\host\Memory\Machine MBytes")") {
            std::sscanf(rows[1][column].c_str(), "\"%ld\"", &found);
        }
    }
    EXPECT_EQ(found, total / 1024);
    EXPECT_EQ(rows[0].back(), R"("\\host\Memory\Free MBytes")");
}

TEST(HostCommands, WriteTheSummaryLogInLocalTime) {
    ::setenv("TZ", "XYZ-2", 1);  // two hours ahead of UTC
    ::tzset();
    EXPECT_EQ(tav::sim::summaryLog({{1551967509, "Host has booted"}, {86399, "Host is rebooting"}}),
              "1970-01-02T01:59:59Z bootstop: Host is rebooting\n"
              "2019-03-07T16:05:09Z bootstop: Host has booted\n");
}

}  // namespace
