#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "core/Command.h"
#include "hwlib/pci/pci_vpd.h"
#include "sim/server/Changes.h"
#include "sim/server/ServerTree.h"
#include "sim/server/Verdict.h"
#include "tests/support/Files.h"
#include "tests/support/Service.h"

namespace {

namespace fs = std::filesystem;
using namespace tav::sim;
using tav::test::parseJson;
using tav::test::readFile;
using tav::test::writeFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

const fs::path root = "/tmp/server";

constexpr const char* description = R"({
  "functions": [
    {"address": "0000:00:17.0", "class": "0x010400", "vendor": "0x8086", "device": "0x2826",
     "subVendor": "0x1590", "subDevice": "0x00d7", "driver": "ahci", "slot": "r001i01s00"},
    {"address": "0000:af:00.0", "driver": "qedentv",
     "vpd": {"name": "Adapter", "SN": "S1", "V3": "8.1"}}],
  "ethernet": [{"name": "vmnic4", "function": "0000:af:00.0", "mac": "02:00:00:00:af:00",
                "speed": 25000, "description": "Adapter", "firmware": "8.59", "cable": "Copper",
                "link": "up"}],
  "scsiHosts": [{"host": 2, "function": "0000:00:17.0", "ata": 3, "state": "blocked"}],
  "disks": [{"name": "sg0", "block": "sda", "address": "2:0:0:0", "protocol": "SATA",
             "model": "ST1000NX0313", "revision": "SNA3", "serial": "S1", "capacity": 2048,
             "wear": 0, "errors": 0},
            {"name": "sg9", "address": "9:0:0:0", "serial": "its host is missing"}],
  "raid": {"controllers": [{"id": 0,
      "drives": [{"id": 8, "serial": "D8", "state": "0x18"}],
      "volumes": [{"id": 1, "identifier": "V1", "state": 3}]}]},
  "fibreChannel": [
    {"host": 10, "function": "0000:af:00.0", "interface": "vmnic4", "portState": "Online",
     "wwnn": "0x1", "wwpn": "0x2"}]})";

Json::Value build() {
    Json::Value server = parseJson(description);
    buildServer(server, Tree(root));
    return server;
}

std::string at(const std::string& path) {
    return readFile(root / path.substr(1));
}

TEST(Server, ItsFiles) {
    build();
    const std::string function = "/sys/devices/pci0000:00/0000:00:17.0";
    const std::string disk = function + "/ata3/host2/target2:0:0/2:0:0:0";
    const std::map<std::string, std::string> files = {
        {"/sys/bus/pci/devices/0000:00:17.0/class", "0x010400\n"},
        {function + "/subsystem_vendor", "0x1590\n"},
        {function + "/subsystem_device", "0x00d7\n"},
        {"/sys/bus/pci/slots/r001i01s00/address", "0000:00:17\n"},
        {"/sys/class/net/vmnic4/address", "02:00:00:00:af:00\n"},
        {"/sys/class/scsi_host/host2/state", "blocked\n"},
        {"/sys/class/scsi_host/host10/state", "running\n"},
        {"/sys/class/scsi_host/host10/device/../../../vendor", "\n"},
        {"/sys/class/scsi_device/2:0:0:0/device/vendor", "ATA     \n"},
        {"/sys/class/scsi_device/2:0:0:0/device/model", "ST1000NX0313    \n"},
        {disk + "/rev", "SNA3\n"},
        {disk + "/vpd_pg80", std::string("\0\x80\0\x02S1", 6)},
        {disk + "/block/sda/size", "2048\n"},
        {"/sys/class/fc_host/host10/node_name", "0x1\n"},
        {"/sys/class/fc_host/host10/port_name", "0x2\n"},
        {"/sys/class/fc_host/host10/port_state", "Online\n"},
        {"/run/sim/ethernet/vmnic4",
         "Description: Adapter\nFirmware Version: 8.59\nCable Type: Copper\nSpeed: 25000\n"},
    };
    for (const auto& [path, content] : files)
        EXPECT_EQ(at(path), content) << path;
    EXPECT_THAT(at("/run/sim/disks/sg0"), HasSubstr("serial=S1\n"));
    EXPECT_FALSE(fs::exists(root / "run/sim/disks/sg9"));
    EXPECT_FALSE(fs::exists(root / "sys/class/scsi_host/host10/serialnum"));
    EXPECT_EQ(parseJson(at("/run/sim/server.json")), parseJson(description));

    const std::string vpd = at("/sys/bus/pci/devices/0000:af:00.0/vpd");
    const auto bytes = std::as_bytes(std::span(vpd));
    EXPECT_EQ(pci_get_vpdname(bytes), "Adapter");
    const PciVpdList keywords = pci_get_vpdtags(bytes);
    ASSERT_NE(keywords, nullptr);
    EXPECT_EQ(keywords->value, "S1");
    EXPECT_EQ(keywords->next->value, "8.1");
}

/// A link is written as the kernel would write it, and leads somewhere within the tree.
TEST(Server, ItsLinks) {
    build();
    const std::map<std::string, std::string> links = {
        {"/sys/bus/pci/devices/0000:00:17.0", "../../../devices/pci0000:00/0000:00:17.0"},
        {"/sys/bus/pci/devices/0000:00:17.0/driver", "../../../bus/pci/drivers/ahci"},
        {"/sys/class/net/vmnic4", "../../devices/pci0000:af/0000:af:00.0/net/vmnic4"},
        {"/sys/class/net/vmnic4/device", "../../../0000:af:00.0"},
        {"/sys/class/scsi_host/host2",
         "../../devices/pci0000:00/0000:00:17.0/ata3/host2/scsi_host/host2"},
        {"/sys/class/scsi_host/host2/device", "../../../host2"},
        {"/sys/class/scsi_host/host10",
         "../../devices/pci0000:af/0000:af:00.0/net/vmnic4/host10/scsi_host/host10"},
    };
    for (const auto& [path, target] : links)
        EXPECT_EQ(fs::read_symlink(root / path.substr(1)), target) << path;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        EXPECT_TRUE(fs::exists(entry.path())) << entry.path();
    }
}

TEST(Server, TheDescribedServersAndEmptyOnesCanBeBuilt) {
    for (const auto& file : fs::directory_iterator(TAV_SERVERS)) {
        const Json::Value server = parseJson(readFile(file.path()));
        ASSERT_TRUE(server.isObject()) << file.path();
        fs::remove_all(root);
        buildServer(server, Tree(root));
        for (const auto& [section, directory] :
             {std::pair{"functions", "bus/pci/devices"}, std::pair{"ethernet", "class/net"},
              std::pair{"disks", "class/scsi_device"},
              std::pair{"fibreChannel", "class/fc_host"}}) {
            const fs::directory_iterator entries(root / "sys" / directory);
            EXPECT_EQ(std::distance(entries, {}), server[section].size())
                << file.path() << ' ' << section;
        }
    }
    for (const char* odd : {"{}", "[]", R"({"functions": 7, "disks": "no", "ethernet": {}})"})
        buildServer(parseJson(odd), Tree("/tmp/odd"));
}

TEST(Server, AChangeTouchesNothingElse) {
    Json::Value server = build();
    std::map<fs::path, ino_t> before;
    const auto inode = [](const fs::path& path) {
        struct stat data {};
        ::lstat(path.c_str(), &data);
        return data.st_ino;
    };
    for (const auto& entry : fs::recursive_directory_iterator(root))
        before[entry.path()] = inode(entry.path());

    std::string fault;
    const std::vector<std::string> assignments = {"portState=Linkdown", "lip=12"};
    const Json::Value* const entry = changeEntry(server, "fibreChannel", "10", assignments, fault);
    ASSERT_NE(entry, nullptr) << fault;
    EXPECT_EQ((*entry)["lip"], 12);
    buildServer(server, Tree(root));
    EXPECT_EQ(at("/sys/class/fc_host/host10/port_state"), "Linkdown\n");

    std::vector<std::string> touched;
    for (const auto& [path, number] : before) {
        if (inode(path) != number) touched.push_back(path.filename());
    }
    EXPECT_THAT(touched, testing::UnorderedElementsAre("server.json", "port_state"));
}

/// Whatever stands on a function goes with it, and comes back with it.
TEST(Server, PartsComeAndGo) {
    Json::Value server = build();
    const auto there = [] {
        std::vector<std::string> paths;
        for (const char* path : {"sys/class/scsi_device/2:0:0:0", "run/sim/disks/sg0",
                                 "sys/class/scsi_host/host2", "sys/bus/pci/devices/0000:00:17.0",
                                 "sys/devices/pci0000:00", "sys/class/fc_host/host10"}) {
            if (fs::exists(fs::symlink_status(root / path)))
                paths.push_back(fs::path(path).filename());
        }
        return paths;
    };
    const auto change = [&](const char* section, int index, const char* gone) {
        server[section][index]["gone"] = gone;
        changeServer(server, Tree(root));
    };
    const std::vector<std::string> everything = there();
    ASSERT_EQ(everything.size(), 6U);
    change("disks", 0, "yes");
    EXPECT_THAT(there(), ElementsAre("host2", "0000:00:17.0", "pci0000:00", "host10"));
    change("disks", 0, "no");
    EXPECT_EQ(there(), everything);
    change("functions", 0, "yes");
    EXPECT_THAT(there(), ElementsAre("host10"));
    change("functions", 0, "no");
    EXPECT_EQ(there(), everything);
    for (const auto& entry : fs::recursive_directory_iterator(root / "sys"))
        EXPECT_TRUE(fs::exists(entry.path())) << entry.path();
}

TEST(Server, ChangesOfWhatIsThereAndOfWhatIsNot) {
    const struct {
        const char* section;  ///< null: an order to the RAID library
        const char* key;
        const char* change;
        const char* fault;  ///< empty: it is done
    } rows[] = {{"disks", "sg0", "answers=no", ""},
                {"functions", "0000:00:17.0", "gone=yes", ""},
                {"disks", "sg0", "wear", "not of the form member=value: wear"},
                {"disks", "sg0", "=3", "not of the form member=value: =3"},
                {"disks", "sg1", "wear=3", "no \"sg1\" in \"disks\""},
                {"raid", "0", "id=1", "no \"0\" in \"raid\""},
                {"nothing", "0", "id=1", "no \"0\" in \"nothing\""},
                {nullptr, "", "drive 0 8 state=0x11", ""},
                {nullptr, "", "volume 0 1 state=1", ""},
                {nullptr, "", "fire 0 12", ""},
                {nullptr, "", "drive 0 9 state=0x11", "no such drive: drive 0 9 state=0x11"},
                {nullptr, "", "volume 7 1 state=1", "no such volume: volume 7 1 state=1"},
                {nullptr, "", "drive", "no such drive: drive"}};
    for (const auto& row : rows) {
        Json::Value server = parseJson(description);
        std::string fault;
        const std::vector<std::string> assignments = {row.change};
        const Json::Value* const entry =
            row.section == nullptr ? changeRaid(server, row.change, fault)
                                   : changeEntry(server, row.section, row.key, assignments, fault);
        EXPECT_EQ(entry != nullptr, *row.fault == '\0') << row.change;
        EXPECT_EQ(fault, row.fault);
    }
    Json::Value server = parseJson(description);
    std::string fault;
    changeRaid(server, "drive 0 8 state=0x11", fault);
    EXPECT_EQ(server["raid"]["controllers"][0]["drives"][0]["state"], "0x11");
}

// What the controller's record says.

Reported event(int id, const char* detail = "") {
    Json::Value document;
    document["ID"] = id;
    document["VariableData"]["SerialNumber"] = detail;
    return {"MPEventGen", document};
}

TEST(Verdict, OnTheEvents) {
    const Reported inventory{"WriteInventory", {}};
    const struct {
        std::vector<Reported> reports;
        std::vector<std::string> expected;
        std::vector<std::string> faults;
    } rows[] = {
        {{inventory, event(356), inventory, event(386, "S1")}, {"356", "386@S1"}, {}},
        {{}, {}, {}},
        {{event(356)}, {"356", "386"}, {"event 386 has not come"}},
        {{event(356), event(356)}, {"356"}, {"event 356 came where none was expected"}},
        {{event(384), event(386)},
         {"386", "384"},
         {"event 384 came where 386 was expected", "event 384 has not come"}},
        {{event(386, "S2")},
         {"386@S1"},
         {"event 386 came where 386@S1 was expected", "event 386@S1 has not come"}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(compareEvents(row.reports, row.expected), row.faults);
}

TEST(Verdict, OnTheLastInventory) {
    const Json::Value server = parseJson(description);
    const auto inventory = [](const char* drives, const char* volumes, const char* links) {
        Json::Value document;
        Json::Value& collection = document["HostDataCollection"];
        collection["Drives"] = parseJson(drives);
        collection["Volumes"] = parseJson(volumes);
        collection["EthernetDevices"] = parseJson(links);
        return Reported{"WriteInventory", document};
    };
    const char* const drives = R"([{"SerialNumber": "S1", "Status": {"Health": "OK"}},
        {"SerialNumber": "its host is missing", "Status": {"Health": "OK"}},
        {"SerialNumber": "D8", "Status": {"Health": "OK"}}])";
    const char* const volumes = R"([{"DurableName": "V1", "Status": {"State": "Optimal"}}])";
    const char* const up = R"([{"Oem": {"DeviceName": "vmnic4"}, "Status": {"State": "Running"}}])";
    const char* const down = R"([{"Oem": {"DeviceName": "vmnic4"}, "Status": {"State": "Down"}}])";

    const auto judged = [&](std::vector<Reported> reports) {
        return compareInventory(reports, server);
    };
    EXPECT_THAT(judged({inventory(drives, volumes, up)}), IsEmpty());
    EXPECT_THAT(judged({inventory("[]", "[]", down), inventory(drives, volumes, up), event(1)}),
                IsEmpty())
        << "the last one counts";
    EXPECT_THAT(judged({inventory(drives, volumes, down)}),
                ElementsAre("EthernetDevices: not reported: vmnic4: Running",
                            "EthernetDevices: reported, but not so: vmnic4: Down"));
    EXPECT_THAT(judged({inventory(drives, "[]", up)}),
                ElementsAre("Volumes: not reported: V1: Optimal"));
    EXPECT_THAT(judged({inventory(drives, volumes, "7")}).size(), 1U);
    EXPECT_THAT(judged({event(356)}), ElementsAre("no inventory has come"));
}

TEST(Verdict, OnTheRecordItself) {
    std::vector<std::string> faults;
    const std::vector<Reported> reports = readRecord(
        "{\"command\": \"MPEventGen\", \"payload\": \"{\\\"ID\\\": 384}\"}\n"
        "{\"violation\": \"frame 2 came twice\"}\n"
        "not JSON\n"
        "{\"command\": \"MPEventGen\", \"payload\": \"[\"}\n"
        "{\"note\": 1}\n",
        faults);
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].document["ID"], 384);
    ASSERT_EQ(faults.size(), 3U);
    EXPECT_EQ(faults[0], "violation: frame 2 came twice");
    EXPECT_THAT(faults[1], HasSubstr("unreadable line"));
    EXPECT_THAT(faults[2], HasSubstr("unreadable report"));
}

TEST(Verdict, TheProgramsAnswers) {
    build();
    writeFile("/tmp/description", description);
    writeFile("/tmp/record", "{\"command\": \"MPEventGen\", \"payload\": \"{\\\"ID\\\": 386}\"}\n");
    const struct {
        const char* arguments;
        int status;
        const char* says;
    } rows[] = {{"build /tmp/description /", 0, ""},
                {"change fibreChannel 10 portState=Offline", 0, ""},
                {"change fibreChannel 11 portState=Offline", 1, "no \"11\" in \"fibreChannel\""},
                {"verdict /tmp/record 386", 1, "no inventory has come"},
                {"verdict /tmp/record 384", 1, "event 386 came where 384 was expected"},
                {"build /missing /tmp/x", 1, "/missing: "},
                {"change fibreChannel", 2, "usage:"},
                {"", 2, "usage:"}};
    for (const auto& row : rows) {
        const tav::CommandResult result =
            tav::runShell(std::string(TAV_SIM_SERVER) + ' ' + row.arguments + " 2>&1");
        EXPECT_EQ(result.exitStatus, row.status) << row.arguments << result.output;
        EXPECT_THAT(result.output, HasSubstr(row.says));
    }
    EXPECT_EQ(readFile("/sys/class/fc_host/host10/port_state"), "Offline\n");
    EXPECT_THAT(
        readFile("/tmp/record"),
        HasSubstr(R"({"expected":["384"],"faults":["event 386 came where 384 was expected",)"));
}

TEST(Notes, StandInTheControllersRecordBeforeTheChange) {
    writeFile("/tmp/description", description);
    std::filesystem::create_directories("/run/sim/common");
    const std::string said =
        tav::runShell(
            TAV_SIM_SERVER
            " build /tmp/description /; " TAV_RMC
            " --socket /run/sim/rmc --control /run/sim/common/orders --record /tmp/record"
            " --inject late=1 --quiet & until [ -S /run/sim/common/orders ]; do sleep 0.02; done;"
            " exec 2>&1; " TAV_SIM_SERVER
            " tell 'A \"disk\" fails.';"
            " " TAV_SIM_SERVER " change disks sg0 answers=no; " TAV_SIM_SERVER
            " raid 'volume 0 9 state=2';"
            " kill -TERM $!; wait $!")
            .output;
    EXPECT_EQ(said,
              "\n--- A \"disk\" fails.\ntav-sim-server: no such volume: volume 0 9 state=2\n");
    const std::string record = readFile("/tmp/record");
    std::vector<std::string> lines;
    std::istringstream stream(record);
    for (std::string one; std::getline(stream, one);)
        lines.push_back(one.substr(0, one.find(",\"time\"")));
    EXPECT_THAT(lines, ElementsAre(R"({"order":"late=1")", StartsWith(R"({"time":)"),
                                   R"({"change":"disks sg0 answers=no","part":"S1")"))
        << record;
    EXPECT_THAT(record, HasSubstr(R"("told":"A \"disk\" fails."})"));
}

}  // namespace
