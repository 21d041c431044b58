#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>

#include "base/FileDescriptor.h"
#include "base/JsonText.h"
#include "core/Command.h"
#include "core/ProcessStatus.h"
#include "rmc/StateFiles.h"
#include "tests/support/Service.h"
#include "tools/CellText.h"

namespace {

using namespace std::chrono_literals;
using tav::ctl::cellText;
using tav::ctl::columnsOf;
using tav::test::parseJson;
using tav::test::readFile;
using testing::Each;
using testing::HasSubstr;
using testing::Not;

tav::CommandResult show(const std::string& arguments, const std::string& before = "") {
    return tav::runShell("export TZ=UTC LC_ALL=C.UTF-8; " + before + " " TAVCTL " show " +
                         arguments + " 2>&1");
}

/// Replaced as the service replaces it.
void keep(const char* path, const Json::Value& json) {
    tav::test::writeFile(std::string(path) + ".new", tav::compactJson(json));
    std::filesystem::rename(std::string(path) + ".new", path);
}

Json::Value drive(const char* health, const std::string& model) {
    Json::Value drive;
    drive["Model"] = model;
    drive["Status"]["Health"] = health;
    drive["CapacityBytes"] = Json::UInt64{1'920'383'410'176};
    drive["Protocol"] = "NVMe";
    drive["Oem"]["PhysicalLocation"] = "FF00020106FFFF86";
    return drive;
}

Json::Value inventoryWith(const std::vector<Json::Value>& drives, std::time_t built) {
    Json::Value json;
    json["Built"]["StorageControllers"] = Json::Int64{built};
    for (const Json::Value& each : drives)
        json["HostDataCollection"]["Drives"].append(each);
    return json;
}

void keepHealth(bool isOurs = true) {
    Json::Value health;
    health["Process"] = ::getpid();
    health["StartTicks"] =
        Json::UInt64{tav::processStatus(::getpid()).value().startTicks + (isOurs ? 0U : 1U)};
    health["Written"] = 1'000'000'000;
    keep(tav::healthFile, health);
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

TEST(Show, TablesForPeople) {
    keepHealth();
    keep(tav::inventoryFile, inventoryWith({drive("OK", "fine"), drive("Critical", "broken"),
                                            drive("OK", "fine too"), drive("Warning", "worn")},
                                           std::time(nullptr) - 12));
    const tav::CommandResult result = show("drives");
    EXPECT_EQ(result.exitStatus, 0);
    const auto lines = linesOf(result.output);
    ASSERT_EQ(lines.size(), 6U) << result.output;
    EXPECT_THAT(lines[0], testing::MatchesRegex("drives \\(4\\), as of 20.*, [0-9]+ s ago"));
    EXPECT_EQ(lines[1], "Health    Model     Capacity  Protocol  Location          Place")
        << "what nobody has is left out";
    EXPECT_EQ(lines[2],
              "Critical  broken      1.9 TB  NVMe      FF00020106FFFF86  "
              "rack1/chassis_u6/drive_slot2");
    EXPECT_THAT(lines[3], HasSubstr("worn"));
    EXPECT_THAT(lines[4], HasSubstr("fine "));
    EXPECT_THAT(lines[5], HasSubstr("fine too"));
    EXPECT_EQ(linesOf(show("").output).size(), lines.size()) << "nothing else is known";
    keepHealth(false);
    EXPECT_THAT(show("drives").output, testing::StartsWith("The service does not run any more; it "
                                                           "ended unasked after 2001-09-09"));
    EXPECT_EQ(parseJson(show("drives --json").output)["ServiceRuns"], false);
}

TEST(Show, TextsOfDevicesStayTexts) {
    const std::string hostile[] = {"\x1b[2J\r\n\x07\x7f",
                                   "\xe2\x80\xae\xd8\x9c\xe2\x80\x8f\xe2\x81\xa6mirror",
                                   std::string(4000, 'x'),
                                   "<script>alert('x')</script>",
                                   "\xff\xfe\xc3",
                                   std::string("e").append(2000, '\xcc').append("\xcc\x81"),
                                   "\xe7\xa3\x81\xe7\x9b\x98",
                                   "%s%n\\x"};
    for (const std::string& told : hostile) {
        const std::string text = tav::wellFormedUtf8(told);  // as the service keeps it
        // In the place of every text, of every number and of every object.
        Json::Value inventory = inventoryWith({drive("OK", text)}, 1);
        Json::Value& odd = inventory["HostDataCollection"]["Drives"].append(drive("OK", "x"));
        for (const std::string& member : odd.getMemberNames())
            odd[member] = text;
        odd["SerialNumber"] = text;
        inventory["HostDataCollection"]["Drives"].append(text);
        inventory["HostDataCollection"]["Volumes"] = text;
        inventory["HostDataCollection"]["Oem"]["HostOSInfo"]["HostName"] = text;
        keep(tav::inventoryFile, inventory);
        Json::Value events;
        events["Events"][0]["Why"] = text;
        events["Events"][0]["Event"]["VariableData"]["EventInfo"] = text;
        keep(tav::eventsFile, events);
        for (const char* const part : {"", "drives", "volumes", "host", "events"}) {
            const tav::CommandResult result = show(part);
            EXPECT_EQ(result.exitStatus, 0);
            EXPECT_THAT(result.output, Not(testing::ContainsRegex("[\x01-\x09\x0b-\x1f\x7f]")));
            for (const char* const mark : {"\xe2\x80\xae", "\xd8\x9c", "\xe2\x80\x8f"})
                EXPECT_THAT(result.output, Not(HasSubstr(mark)));
            EXPECT_EQ(tav::wellFormedUtf8(result.output), result.output);
            for (const std::string& line : linesOf(result.output))
                EXPECT_LE(columnsOf(line), 420U) << part;
        }
        EXPECT_EQ(parseJson(show("drives --json").output)["Drives"],
                  inventory["HostDataCollection"]["Drives"])
            << "programs get it whole";
        EXPECT_THAT(linesOf(show("drives", "export LC_ALL=C;").output),
                    Each(Not(testing::ContainsRegex("[\x80-\xff]"))));
    }
}

TEST(Show, SaysWhyThereIsNothing) {
    EXPECT_EQ(show("drives").exitStatus, 3);
    EXPECT_THAT(show("").output, HasSubstr("tavd has not run since the boot"));
    for (const char* const broken : {"", "[]", "7", "{\"HostDataCollection\":"}) {
        tav::test::writeFile(tav::inventoryFile, broken);
        EXPECT_EQ(show("host").exitStatus, 1) << broken;
    }
    tav::test::writeFile(tav::inventoryFile, std::string(2000, '['));
    EXPECT_EQ(show("host").exitStatus, 1);
    for (const char* const odd : {"{}", R"({"HostDataCollection":[7],"Built":"x"})",
                                  R"({"HostDataCollection":{"Oem":7,"Drives":{"a":1}}})"}) {
        tav::test::writeFile(tav::inventoryFile, odd);
        EXPECT_EQ(show("").exitStatus, 0) << odd;
    }
    std::filesystem::permissions(tav::inventoryFile, std::filesystem::perms::none);
    const tav::CommandResult forbidden = show("", "setpriv --bounding-set=-all");
    EXPECT_EQ(forbidden.exitStatus, 5);
    EXPECT_THAT(forbidden.output, HasSubstr("root may, and the group tavd"));
    EXPECT_THAT(show("disks").output, HasSubstr("there is no such part"));
    EXPECT_EQ(show("drives volumes").exitStatus, 2);
    EXPECT_THAT(show("--json=yes").output, HasSubstr("takes no value"));
}

/// A service runs, and has written nothing there, or an earlier one has.
TEST(Show, OfAServiceThatCannotWrite) {
    const tav::FileDescriptor lock(::open(tav::serviceLock, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    const tav::CommandResult nothing = show("");
    EXPECT_EQ(nothing.exitStatus, 1);
    EXPECT_THAT(nothing.output, HasSubstr("tavd runs, and has not kept that"));
    keepHealth(false);
    keep(tav::inventoryFile, inventoryWith({drive("OK", "earlier")}, 1));
    EXPECT_THAT(show("").output, HasSubstr("cannot write what it knows, and its log says why. "
                                           "This is what an earlier one knew."));
    keepHealth();
    keep(tav::inventoryFile, Json::objectValue);
    EXPECT_EQ(show("").output, "Nothing is known yet, or nothing is enabled.\n");
}

TEST(Show, OnATerminal) {
    keepHealth();
    keep(tav::inventoryFile, inventoryWith({drive("Critical", std::string(300, 'm'))}, 1));
    const auto onTerminal = [](const char* environment) {
        return tav::runShell(std::string("export TERM=xterm LC_ALL=C.UTF-8 ") + environment +
                             "; script -qec 'stty cols 70 rows 20; " TAVCTL
                             " show drives' /dev/null </dev/null")
            .output;
    };
    const std::string plain = onTerminal("NO_COLOR=1");
    for (std::string line : linesOf(plain)) {
        if (line.ends_with('\r')) line.pop_back();
        EXPECT_LE(columnsOf(line), 70U) << line;
    }
    EXPECT_THAT(plain, HasSubstr("m…"));
    EXPECT_THAT(plain, Not(HasSubstr("\x1b")));
    EXPECT_THAT(onTerminal("NO_COLOR="), HasSubstr("\x1b[31mCritical\x1b[0m"));
    EXPECT_THAT(onTerminal("TERM=dumb"), Not(HasSubstr("\x1b")));
}

TEST(Show, GoesOnWhenTheServiceWritesAnew) {
    const auto waitFor = [](const char* text) {
        while (readFile("/tmp/shown").find(text) == std::string::npos)
            std::this_thread::sleep_for(5ms);
    };
    const pid_t process = ::fork();
    if (process == 0) {
        [[maybe_unused]] const auto* file = std::freopen("/tmp/shown", "w", stdout);
        ::execl(TAVCTL, TAVCTL, "show", "drives", "--watch", nullptr);
        ::_exit(127);
    }
    waitFor("tavd has not run since the boot");
    keep(tav::inventoryFile, inventoryWith({drive("OK", "first")}, 1));
    waitFor("first");
    keep(tav::inventoryFile, inventoryWith({drive("Critical", "second")}, 1));
    waitFor("second");
    ::kill(process, SIGINT);
    int status = 0;
    ::waitpid(process, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status));
}

TEST(Cells, AreAsWideAsATerminalShowsThem) {
    const struct {
        std::string text;
        std::size_t room;
        const char* shown;
        std::size_t columns;
    } rows[] = {
        {"", 5, "", 0},
        {"abcde", 5, "abcde", 5},
        {"abcdef", 5, "abcd…", 5},
        {"\xc3\xa4\xc3\xb6\xc3\xbc", 3, "\xc3\xa4\xc3\xb6\xc3\xbc", 3},
        {"\xe7\xa3\x81\xe7\x9b\x98", 4, "\xe7\xa3\x81\xe7\x9b\x98", 4},
        {"\xe7\xa3\x81\xe7\x9b\x98", 3, "\xe7\xa3\x81…", 3},
        {"\xe7\xa3\x81\xe7\x9b\x98", 2, "…", 1},
        {"e\xcc\x81x", 2, "e\xcc\x81x", 2},
        {"\xf0\x9f\x92\xbe", 2, "\xf0\x9f\x92\xbe", 2},
        {"a\nb", 4, "a\\nb", 4},
        {"a\nb", 3, "a\\…", 3},
        {"\xff", 4, "\\xFF", 4},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(cellText(row.text, row.room, true), row.shown);
        EXPECT_EQ(columnsOf(row.shown), row.columns) << row.shown;
    }
    EXPECT_EQ(cellText("\xc3\xa4\xe7\xa3\x81 abcdef", 5, false), "?? a~");
}

}  // namespace
