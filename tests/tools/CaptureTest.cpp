#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/replay/TarArchive.h"
#include "sim/rmc/Json.h"
#include "sim/server/ServerTree.h"
#include "tests/support/FastWaiting.h"
#include "tests/support/Files.h"
#include "tools/capture/Capture.h"
#include "tools/capture/Recording.h"
#include "tools/capture/Scrubbing.h"
#include "tools/capture/StandIns.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace tav::capture;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

/// The members of a capture, by path.
std::map<std::string, std::string> membersOf(const Captured& captured) {
    const std::string archive = tav::sim::inflated(captured.archive, 1U << 30U);
    std::map<std::string, std::string> members;
    for (const tav::sim::TarMember& member : tav::sim::readTar(archive))
        members[member.path] = member.target + std::string(member.content);
    return members;
}

constexpr const char* server = R"({
  "functions": [{"address": "0000:00:17.0", "class": "0x010400", "vendor": "0x8086",
                 "device": "0x2826", "subVendor": "0x1590", "subDevice": "0x00d7",
                 "driver": "ahci", "slot": "r001i01s00"}],
  "scsiHosts": [{"host": 0, "function": "0000:00:17.0", "ata": 1},
                {"host": 1, "function": "0000:00:17.0", "ata": 2},
                {"host": 2, "function": "0000:00:17.0", "ata": 3}],
  "disks": [{"name": "sg0", "block": "sda", "address": "0:0:0:0", "protocol": "SATA",
             "media": "SSD", "model": "A", "serial": "S4700001", "capacity": 2048},
            {"name": "sg1", "block": "sdb", "address": "1:0:0:0", "protocol": "SATA",
             "model": "A", "serial": "S4700002", "capacity": 2048, "hang": "command"},
            {"name": "sg2", "block": "sdc", "address": "2:0:0:0", "protocol": "SAS",
             "model": "A", "serial": "S4700003", "capacity": 2048, "hang": "open"}]})";

TEST(Capture, GoesOnWithoutWhatHangs) {
    tav::test::clockSpeed = 1;
    std::string fault;
    tav::sim::buildServer(*tav::sim::parseJson(server, fault), tav::sim::Tree("/"));
    tav::test::writeCommand("localcli",
                            "[ \"$1\" = system ] && echo Product: X && exit 0\nsleep 1000");
    const auto begun = std::chrono::steady_clock::now();
    const auto captured = captureHost({.patience = 2s});
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 5s);
    ASSERT_TRUE(captured);
    EXPECT_THAT(captured->lacking, Contains(HasSubstr("/dev/sg1: has not answered in time")));
    EXPECT_THAT(captured->lacking, Contains(HasSubstr("/dev/sg2: has not answered in time")));
    EXPECT_THAT(captured->lacking, Contains(HasSubstr("the host's commands")));
    const auto members = membersOf(*captured);
    EXPECT_THAT(members.at("recorded/devices/sg0"),
                AllOf(HasSubstr("ec00 status=0"), HasSubstr("070000002f00 status=0"),
                      Not(HasSubstr("hangs"))));
    EXPECT_THAT(members.at("recorded/devices/sg1"), HasSubstr("hangs\n"));
    EXPECT_EQ(members.at("recorded/devices/sg2"), "open hangs\n");
    EXPECT_THAT(members.at("recorded/commands/index"),
                HasSubstr("0 0 localcli system version get\n"));
    EXPECT_THAT(members.at("manifest.json"), HasSubstr("/dev/sg2"));
}

TEST(Capture, IsNotLedAstrayByLinks) {
    fs::create_directories("/sys/class/net");
    fs::create_symlink("round", "/sys/class/net/round");
    fs::create_symlink("../../../etc/secrets", "/sys/class/net/out");
    tav::test::writeFile("/etc/secrets/speed", "10");
    const auto captured = captureHost({});
    ASSERT_TRUE(captured);
    const auto members = membersOf(*captured);
    EXPECT_TRUE(members.contains("root/sys/class/net/round"));
    EXPECT_FALSE(members.contains("root/etc/secrets/speed"));
}

std::string swapped(std::string text) {
    for (std::size_t i = 0; i + 1 < text.size(); i += 2)
        std::swap(text[i], text[i + 1]);
    return text;
}

std::string padded(std::string text, std::size_t width) {
    text.resize(width, ' ');
    return text;
}

/// IDENTIFY DEVICE data that sums to zero.
std::string identifyData(const std::string& serial, const std::string& wwn) {
    std::string data(512, '\0');
    data.replace(20, 20, padded(serial, 20)).replace(216, 8, wwn);
    data = swapped(data);
    data[510] = '\xA5';
    unsigned sum = 0;
    for (const char byte : data)
        sum += static_cast<unsigned char>(byte);
    data[511] = static_cast<char>(0U - sum);
    return data;
}

Recording identifiedHost() {
    Recording host;
    host.facts["uname"] = "sysname=Linux\nnodename=vm.lab.example.org\nversion=1 vmx\n";
    host.facts["links.json"] =
        R"({"addresses": [{"address": "10.1.22.133"}], "links": [{"mac": "02:0a:0b:0c:0d:0e"}]})";
    const auto file = [&](const std::string& path, std::string content) {
        host.entries[path] = {HostEntry::Kind::File, std::move(content)};
    };
    file("/sys/a/vpd_pg80", std::string("\0\x80\0\x07", 4) + "ODD1234");
    file("/sys/b/vpd_pg80", std::string("\0\x80\0\x04", 4) + "Q123");
    file("/sys/c/serialnum", "To be filled by O.E.M.\n");
    file("/sys/d/port_name", "0x500605b0cafe0001\n");
    file("/sys/class/net/enx020a0b0c0d0e/speed", "10\n");
    host.entries["/sys/class/net/l"] = {HostEntry::Kind::Link, "../x/enx020a0b0c0d0e"};
    host.commands.push_back({"localcli network nic list", true, 0,
                             "vmnic0 02:0A:0B:0C:0D:0E vm vmnic Q123 Q1234 8.59.1.0\n"});
    const std::string wwn("\x50\x06\x05\xb0\xca\xfe\0\x01", 8);
    host.conversations["sg0"].answers = {
        {"scsi 85ec00", "status=0", "", identifyData("ODD1234", wwn), true},
        {"scsi 12", "status=0", "", "SNA3Q123    " + wwn + "ODD1234", false}};
    host.logs["/var/log/tav.log"] =
        "vm.lab.example.org: 192.168.7.9 10.1.22.133 50:06:05:B0:CA:FE:00:01 0000:3b:00.0 "
        "02-0a-0b-0c-0d-0e "
        "2001:db8::7:9 09:15:00";
    return host;
}

/// Whatever the working directory holds, and however the configuration spells a log's place.
TEST(Capture, TakesTheServicesOwnLogsAlone) {
    tav::test::writeConfiguration(
        R"("DebugLogLocation":"syslog", "TAVLogLocation":"/var/log/tav/..//tav.log")");
    fs::create_directory("/var/log/tav");
    tav::test::writeFile("/var/log/tav.log", "its own\n");
    fs::current_path("/tmp");
    tav::test::writeFile("/tmp/syslog", "somebody else's\n");
    const auto captured = captureHost({});
    ASSERT_TRUE(captured);
    const auto members = membersOf(*captured);
    EXPECT_EQ(members.at("logs/var/log/tav.log"), "its own\n");
    EXPECT_FALSE(members.contains("logssyslog"));
}

/// More addresses of one shape than the shape has, and one that has nothing that could be replaced.
TEST(Capture, RunsOutOfAddressesWithoutEnd) {
    StandIns standIns(1);
    std::string text;
    for (const char last : std::string("123456789abcdef"))
        text += std::string("fd00::") + last + ' ';
    for (const char* const address :
         {"2::1", "fd00::1", "fd00::2", "fd00::3", "fd00::4", "fd00::5", "fd00::6", "fd00::7",
          "fd00::8", "fd00::9", "fd00::a", "fd00::b", "fd00::c", "fd00::d", "fd00::e", "fd00::f"})
        standIns.addAddress(address);
    EXPECT_NE(standIns.replaced(text, StandIns::Place::Text), text);
    EXPECT_EQ(standIns.replaced("2::1", StandIns::Place::Text), "2::1");
}

TEST(Capture, StandInsAreTheSameEverywhereAndTellNothing) {
    const Recording before = identifiedHost();
    const Recording after = scrubbed(before, 4711);
    const auto content = [&](const char* path) { return after.entries.at(path).content; };
    const std::string odd = content("/sys/a/vpd_pg80").substr(4);
    const std::string four = content("/sys/b/vpd_pg80").substr(4);
    const std::string wwn = content("/sys/d/port_name").substr(2, 16);
    EXPECT_THAT(odd, testing::MatchesRegex("[A-Z][A-Z][A-Z][0-9][0-9][0-9][0-9]"));
    EXPECT_NE(odd, "ODD1234");
    EXPECT_NE(four, "Q123");
    EXPECT_EQ(wwn.substr(0, 7), "500605b");  // the maker's
    EXPECT_NE(wwn, "500605b0cafe0001");
    EXPECT_EQ(content("/sys/c/serialnum"), "To be filled by O.E.M.\n");

    const std::string& identified = after.conversations.at("sg0").answers[0].data;
    EXPECT_EQ(swapped(identified).substr(20, 20), padded(odd, 20));
    EXPECT_EQ(hexadecimal(swapped(identified).substr(216, 8)), wwn);
    unsigned sum = 0;
    for (const char byte : identified)
        sum += static_cast<unsigned char>(byte);
    EXPECT_EQ(sum % 256, 0U);
    const std::string& inquired = after.conversations.at("sg0").answers[1].data;
    EXPECT_EQ(inquired.substr(0, 12), "SNA3" + four + "    ");
    EXPECT_EQ(inquired.substr(20), odd);

    const std::string& listed = after.commands[0].output;
    EXPECT_THAT(listed, AllOf(HasSubstr("vmnic0 02:0A:0B:"), HasSubstr(" vmnic "),
                              HasSubstr(" Q1234 8.59.1.0"), Not(HasSubstr(" vm ")),
                              Not(HasSubstr("0C:0D:0E"))));
    std::string link;
    for (const auto& [path, entry] : after.entries)
        if (entry.kind == HostEntry::Kind::Link) link = entry.content;
    EXPECT_TRUE(after.entries.contains("/sys/class/net/" + link.substr(5) + "/speed")) << link;
    const std::string& log = after.logs.at("/var/log/tav.log");
    for (const char* gone :
         {"vm", "example", "192.168.7.9", "10.1.22.133", "CA:FE", "0c-0d-0e", "2001:db8::7:9"})
        EXPECT_THAT(log, Not(HasSubstr(gone)));
    EXPECT_THAT(log, AllOf(HasSubstr(" 0000:3b:00.0 "), HasSubstr(" 09:15:00")));
    EXPECT_NE(scrubbed(before, 4712).entries.at("/sys/a/vpd_pg80").content,
              content("/sys/a/vpd_pg80"));
}

}  // namespace
