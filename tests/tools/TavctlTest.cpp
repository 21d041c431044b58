#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "base/JsonText.h"
#include "core/ProcessStatus.h"
#include "rmc/DeliveryRecord.h"
#include "rmc/StateFiles.h"
#include "rmc/tavMsgInfra.h"

namespace {

using namespace std::chrono_literals;

struct Outcome {
    int status;
    std::string output;
};

/// For use between single quotes.
std::string quoted(const std::string& text) {
    std::string result;
    for (const char c : text)
        result += c == '\'' ? "'\\''" : std::string(1, c);
    return result;
}

Outcome tavctl(const std::string& arguments) {
    const std::string command = "exec 2>&1; " TAVCTL " " + arguments;
    std::FILE* const pipe = ::popen(("bash -c '" + quoted(command) + '\'').c_str(), "r");
    Outcome outcome{-1, {}};
    std::array<char, 4096> chunk;
    while (const std::size_t size = std::fread(chunk.data(), 1, chunk.size(), pipe)) {
        outcome.output.append(chunk.data(), size);
    }
    outcome.status = WEXITSTATUS(::pclose(pipe));
    return outcome;
}

TEST(Tavctl, TellsWhereACodeLeadsTo) {
    const Outcome slot = tavctl("location 0003000106010005");
    EXPECT_EQ(slot.status, 0);
    EXPECT_EQ(slot.output,
              "long     rack1/chassis_u6/cpu0/pcie_slot3\n"
              "numeric  1/6/0/3\n"
              "prefix   pcie_slot-1/6/0/3\n"
              "short    r001i06s03\n");
    const Outcome drive = tavctl("location ff00020106ffff86");
    EXPECT_EQ(drive.status, 0);
    EXPECT_NE(drive.output.find("drive_slot2\n"), std::string::npos) << drive.output;
    EXPECT_NE(drive.output.find("short    none\n"), std::string::npos) << drive.output;
}

TEST(Tavctl, RefusesWithAReasonAndAStatus) {
    struct Case {
        const char* arguments;
        int status;
        const char* reason;
    };
    const std::vector<Case> cases{
        {"", 2, "Usage: tavctl COMMAND"},
        {"locate", 2, "no command 'locate'"},
        {"location", 2, "exactly one CODE"},
        {"location 0003000106010005 0003000106010005", 2, "exactly one CODE"},
        {"location ''", 2, "is not a location code"},
        {"location 000300010601000", 2, "is not a location code"},
        {"location 00030001060100050", 2, "is not a location code"},
        {"location 0x03000106010005", 2, "is not a location code"},
        {"location -003000106010005", 2, "option '-003000106010005' is unknown"},
        {"location -- -003000106010005", 2, "is not a location code"},
        {"location ' 003000106010005'", 2, "is not a location code"},
        {"location 000300010601000G", 2, "is not a location code"},
        {"capture", 2, "exactly one FILE"},
        {"capture a b", 2, "exactly one FILE"},
        {"capture --everything a", 2, "option '--everything' is unknown"},
        {"capture /nowhere/host.tar.gz", 1, "No such file"},
        {"location FFFFFFFFFFFFFFFF", 1, "not known"},
        {"location FFFFFFFFFFFFFF00", 1, "cannot be expressed"},
        {"location 0011000106010005", 1, "no component has this one"},
        {"location 0003000106010005 >/dev/full", 1, "cannot write"},
        {"status >/dev/full", 1, "cannot write"},
        {"status >&-", 1, "cannot write"},
        {"--help >/dev/full", 1, "cannot write"},
        {"--version >/dev/full", 1, "cannot write"},
        {"capture --yes /tmp/capture >/dev/full", 1, "cannot write"},
        {"--version; mkfifo /tmp/a; " TAVCTL
         " capture --yes /tmp/a; s=$?; test -p /tmp/a && exit $s",
         1, "no regular file"},
        {"--version; ln -s b /tmp/a; " TAVCTL " capture --yes /tmp/a", 1, "no regular file"},
    };
    for (const Case& given : cases) {
        const Outcome outcome = tavctl(given.arguments);
        EXPECT_EQ(outcome.status, given.status) << given.arguments;
        EXPECT_NE(outcome.output.find(given.reason), std::string::npos) << outcome.output;
    }
}

TEST(Tavctl, AFileThatMayNotGrowFailsInWords) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "its runtime needs files that grow";
#endif
    const Outcome capture = tavctl("--version; ulimit -f 0; " TAVCTL " capture --yes /tmp/c");
    EXPECT_EQ(capture.status, 1);
    EXPECT_THAT(capture.output, testing::HasSubstr("/tmp/c: File too large"));
    const Outcome version = tavctl("--version; ulimit -f 0; " TAVCTL " --version >/tmp/c");
    EXPECT_EQ(version.status, 1);
    EXPECT_THAT(version.output, testing::HasSubstr("cannot write"));
}

TEST(Tavctl, ExplainsItself) {
    for (const char* const arguments : {"--help", "--version", "location --help"}) {
        const Outcome outcome = tavctl(arguments);
        EXPECT_EQ(outcome.status, 0) << arguments;
        EXPECT_NE(outcome.output.find("tavctl"), std::string::npos);
    }
    EXPECT_NE(tavctl("location --help").output.find("r001i06s03"), std::string::npos);
}

TEST(Tavctl, NeverWaitsForAServiceThatDoesNotRun) {
    struct Case {
        const char* arguments;
        int status;
        const char* reason;
    };
    const std::vector<Case> cases{
        {"event 708", 3, "tavd does not run"},
        {"event 999", 2, "is no ID of a test event"},
        {"event 708x", 2, "is no ID of a test event"},
        {"event 538 --location x", 2, "is not a location code"},
        {"event 538 --place FFFFFFFFFFFFFFFF", 2, "option '--place' is unknown"},
        {"event 538 --location", 2, "option '--location' needs a value"},
        {"event --location=x 538", 2, "'x' is not a location code"},
        {"event --location FF00020106FFFF86 538", 3, "tavd does not run"},
        {"event 538 --location=FF00020106FFFF86", 3, "tavd does not run"},
        {"event -- 708", 3, "tavd does not run"},
        {"--version; echo >/run/orntav; " TAVCTL " event 708", 3, "is no pipe"},
        {"--version; rm /run/orntav; " TAVCTL " status", 3, "does not run"},
        {"event", 2, "exactly one ID"},
        {"send - </dev/null", 2, "is not one JSON object"},
        {"send - <<<'{\"ID\":1}'", 2, "is not one JSON object"},
        {"send - <<<'{\"ID\":1,\"a\":2}//'", 2, "is not one JSON object"},
        {"send - <<<'{\"ID\":1,\"a\":2}'", 3, "tavd does not run"},
        {"send /none", 1, "cannot read /none"},
        {"send /dev/zero", 2, "longer than"},
        {"status", 3, "does not run"},
        {"status now", 2, "nothing to be added"},
    };
    for (const Case& each : cases) {
        const Outcome outcome = tavctl(each.arguments);
        EXPECT_EQ(outcome.status, each.status) << each.arguments;
        EXPECT_NE(outcome.output.find(each.reason), std::string::npos)
            << each.arguments << ": " << outcome.output;
    }
}

/// What stands for the service holds the request pipe open for a second, and answers nothing.
constexpr const char* silentService =
    "--version; mkfifo /run/orntav; sleep 1 <>/run/orntav >/dev/null & sleep 0.2; ";

TEST(Tavctl, NoticesAServiceThatEndsWithoutAnAnswer) {
    const Outcome outcome =
        tavctl(silentService + std::string(TAVCTL " event 708; echo $?; ls /run"));
    EXPECT_NE(outcome.output.find("has ended without an answer\n4\n"), std::string::npos)
        << outcome.output;
    EXPECT_EQ(outcome.output.find("orntavcli"), std::string::npos) << "it leaves no pipe";
}

/// It works at the request when its pipe is removed, and answers all the same.
TEST(Tavctl, WaitsForAServiceThatHasLostItsPipe) {
    const tav::FileDescriptor lock(::open(tav::serviceLock, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    ASSERT_TRUE(tavCreatePipe(tavRequestPipe));
    std::thread service([reader = tav::openPipe(tavRequestPipe, O_RDWR)] {
        _TAV_MESSAGE_PACKET request{};
        EXPECT_EQ(tavReadPipe(tavRequestPipe, &request), 0);
        ::unlink(tavRequestPipe);
        std::this_thread::sleep_for(200ms);
        const _TAV_MESSAGE_PACKET answer = tav::makeCliResponse(tav::CliReason::None);
        EXPECT_EQ(tavWritePipe(tav::responsePipeOf(request.clientPID).c_str(), &answer), 0);
    });
    const Outcome outcome = tavctl("event 538");
    service.join();
    EXPECT_EQ(outcome.status, 0) << outcome.output;
}

TEST(Tavctl, RemovesItsPipeWhenItIsInterrupted) {
    const Outcome outcome =
        tavctl(silentService + std::string("timeout --preserve-status -s INT 0.3 " TAVCTL
                                           " event 708; echo $?; ls /run"));
    EXPECT_EQ(outcome.output.substr(outcome.output.find('\n') + 1), "130\norntav\nsim\n")
        << "no reason is made up, and no pipe left";
}

TEST(Tavctl, TellsWhyTheServiceHasRefused) {
    const struct {
        tav::CliReason reason;
        int status;
        const char* says;
    } rows[] = {{tav::CliReason::None, 0, "The controller has taken event 538."},
                {tav::CliReason::Dropped, 1, "the event was dropped"},
                {tav::CliReason::NotDelivered, 1, "the management controller has not taken"},
                {tav::CliReason::NoSuchEvent, 1, "nobody raises this test event"},
                {tav::CliReason::NoEvent, 1, "does not take this for an event"},
                {tav::CliReason{77}, 1, "has refused the request"}};
    ASSERT_TRUE(tavCreatePipe(tavRequestPipe));
    const tav::FileDescriptor reader = tav::openPipe(tavRequestPipe, O_RDWR);
    for (const auto& row : rows) {
        std::thread service([&] {
            _TAV_MESSAGE_PACKET request{};
            EXPECT_EQ(tavReadPipe(tavRequestPipe, &request), 0);
            const _TAV_MESSAGE_PACKET answer = tav::makeCliResponse(row.reason);
            EXPECT_EQ(tavWritePipe(tav::responsePipeOf(request.clientPID).c_str(), &answer), 0);
        });
        const Outcome outcome = tavctl("event 538");
        service.join();
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_NE(outcome.output.find(row.says), std::string::npos) << outcome.output;
    }
}

/// Keeps what a service would keep.
void writeState(const char* path, const std::string& text) {
    ::mkdir(tav::stateDirectory, 0755);
    std::ofstream(path) << text;
}

std::string healthOf(pid_t process, std::uint64_t startTicks, const tav::DeliveryRecord& record,
                     const char* more = "") {
    Json::Value health = tav::renderDeliveryRecord(record);
    health["Process"] = process;
    health["StartTicks"] = Json::UInt64{startTicks};
    health["Started"] = 1000000000;
    health["Written"] = 1000000400;
    std::string text = tav::compactJson(health);
    text.pop_back();
    return text + more + "}";
}

TEST(Tavctl, StatusTellsOfDeliveries) {
    EXPECT_NE(tavctl("status").output.find("deliveries     nothing is known"), std::string::npos);
    tav::DeliveryRecord record;
    record.inventories.acknowledged = 1000000000;
    record.inventories.failed = 1000000300;
    record.inventories.failures = 2;
    record.inventories.why = "The controller\n\x1b[31m has not answered in time";
    writeState(tav::healthFile, healthOf(::getpid(), 1, record));
    const Outcome outcome = tavctl("--version; TZ=UTC " TAVCTL " status");
    EXPECT_EQ(outcome.status, 3);
    for (const char* line :
         {"state          down\n",
          "service        does not run (systemctl status tavd); ended unasked after 2001-09-09 "
          "01:53:20\n",
          "device         /dev/ipmi0: No such file or directory",
          "configuration  /etc/config/orn/tav/tav.conf: No such file or directory",
          "inventory      acknowledged 2001-09-09 01:46:40; 2 failed since, the last 2001-09-09 "
          "01:51:40: The controller\\n\\x1B[31m has not answered in time\n",
          "events         none acknowledged yet\n"}) {
        EXPECT_NE(outcome.output.find(line), std::string::npos) << line << outcome.output;
    }
    for (const char* broken : {"", "[]", "{\"Inventories\": 7}", "{\"Events\":{\"Why\":{}}}",
                               R"({"StandingStill":7,"Unanswered":[[]],"Process":"x"})"}) {
        writeState(tav::healthFile, broken);
        EXPECT_EQ(tavctl("status").status, 3) << broken;
    }
    ASSERT_TRUE(tavCreatePipe(tavRequestPipe));
    const tav::FileDescriptor reader = tav::openPipe(tavRequestPipe, O_RDWR);
    EXPECT_EQ(tavctl("status").status, 1) << "it runs, but has no controller";
}

TEST(Tavctl, StatusOfAServiceThatHasLostItsPipe) {
    const tav::FileDescriptor lock(::open(tav::serviceLock, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    const auto serviceLine = [](int status) {
        const Outcome outcome = tavctl("status");
        EXPECT_EQ(outcome.status, status) << outcome.output;
        const std::size_t at = outcome.output.find("service");
        return outcome.output.substr(at, outcome.output.find('\n', at) - at);
    };
    const std::string runs = "service        runs; takes no requests: ";
    EXPECT_EQ(serviceLine(1),
              runs + "/var/run/orntav is missing; it makes it anew within ten seconds");
    writeState(tav::healthFile, healthOf(::getpid(), 1, {}, ",\"Stopped\":1000000500"));
    EXPECT_EQ(serviceLine(1),
              runs + "/var/run/orntav is missing; it makes it anew within ten seconds")
        << "what is kept is of an earlier one";
    std::ofstream(tavRequestPipe) << "precious";
    EXPECT_EQ(serviceLine(1),
              runs + "/var/run/orntav is no pipe; it makes it anew within ten seconds");
    ::unlink(tavRequestPipe);
    ASSERT_TRUE(tavCreatePipe(tavRequestPipe));
    EXPECT_EQ(serviceLine(1), runs + "it does not read /var/run/orntav");
    ::flock(lock.get(), LOCK_UN);
    EXPECT_EQ(serviceLine(3).find("service        does not run"), 0U);
}

/// What stands in the files may be of another service, or of another time.
TEST(Tavctl, StatusOfAServiceThatCannotWrite) {
    const tav::FileDescriptor lock(::open(tav::serviceLock, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    tav::DeliveryRecord good;
    good.inventories.acknowledged = 1000000000;
    const auto ticks = tav::processStatus(::getpid()).value().startTicks;
    const auto upSince = std::chrono::steady_clock::now().time_since_epoch() / 1s;
    const auto uptime = [](auto seconds) { return ",\"Uptime\":" + std::to_string(seconds); };
    const struct {
        std::string health;
        const char* says;
        const char* saysNot;
    } rows[] = {
        {"{}", "nothing is known of any", "acknowledged"},
        {healthOf(::getpid(), ticks + 1, good), "is of an earlier service", "acknowledged"},
        {healthOf(::getpid(), ticks, good, ",\"Stopped\":1000000500"), "is of an earlier service",
         "runs since"},
        {healthOf(::getpid(), ticks, good, uptime(upSince - 6000).c_str()),
         "has not been written for 100 min", "earlier"},
        {healthOf(::getpid(), ticks, good, uptime(upSince - 600).c_str()), "acknowledged",
         "written"},
    };
    for (const auto& row : rows) {
        writeState(tav::healthFile, row.health);
        const Outcome outcome = tavctl("status");
        EXPECT_EQ(outcome.status, 1);
        EXPECT_NE(outcome.output.find(row.says), std::string::npos) << outcome.output;
        EXPECT_EQ(outcome.output.find(row.saysNot), std::string::npos) << outcome.output;
    }
}

TEST(Tavctl, StatusWaitsForNoDriverThatHangs) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "their runtime has to be loaded first";
#endif
    ::mkdir("/run/sim/hang", 0755);
    std::ofstream("/run/sim/hang/ipmi0").put('x');
    const Outcome outcome = tavctl("--version; TAV_SIM_RMC=/none LD_PRELOAD=" TAV_SIM_PRELOAD
                                   " exec timeout 30 " TAVCTL " status");
    EXPECT_EQ(outcome.status, 3);
    EXPECT_NE(outcome.output.find("device         /dev/ipmi0 does not answer\n"), std::string::npos)
        << outcome.output;
}

TEST(Tavctl, StatusOfAServiceThatWorksOrDoesNotQuite) {
    // The service's pipe is not ours, its files are: as of somebody of its group.
    ASSERT_TRUE(tavCreatePipe(tavRequestPipe));
    ASSERT_EQ(::chmod(tavRequestPipe, 0), 0);
    std::ofstream("/dev/ipmi0").put('x');
    ASSERT_EQ(::chmod("/dev/ipmi0", 0), 0);
    const auto ticks = tav::processStatus(::getpid()).value().startTicks;
    tav::DeliveryRecord good;
    good.inventories.acknowledged = good.events.failed = 1000000000;
    good.events.failures = 1;
    tav::DeliveryRecord behind = good;
    behind.events.failed = 1000000001;
    tav::DeliveryRecord failing = good;
    failing.inventories.failures = 1;
    const struct {
        std::string health;
        int status;
        const char* says;
    } rows[] = {
        {healthOf(::getpid(), ticks, good), 0, "state          works\n"},
        {healthOf(::getpid(), ticks, behind), 1, "state          degraded\n"},
        {healthOf(::getpid(), ticks, failing), 1, "state          degraded\n"},
        {healthOf(::getpid(), ticks, good, R"(,"StandingStill":[{"Loop":"tav-host"}])"), 1,
         "stands still   tav-host\n"},
        {healthOf(::getpid(), ticks, good, R"(,"Unanswered":[{"Who":"disk 7","What":"it"}])"), 1,
         "no answer      disk 7, asked for it, since"},
        {healthOf(::getpid(), ticks + 1, good), 3, "ended unasked after"},
        {healthOf(::getpid(), ticks, good, R"(,"Stopped":1000000500)"), 3, "; stopped 2001-09-09"},
        {"{}", 5, "state          unknown\n"},
    };
    for (const auto& row : rows) {
        writeState(tav::healthFile, row.health);
        const Outcome outcome = tavctl(
            "--version; exec setpriv "
            "--bounding-set=-all " TAVCTL " status");
        EXPECT_EQ(outcome.status, row.status) << outcome.output;
        EXPECT_NE(outcome.output.find(row.says), std::string::npos) << row.says << outcome.output;
    }
}

TEST(Tavctl, WithoutADescriptorKnowsNothingOfTheService) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "their runtime needs more of them";
#endif
    for (const char* const command : {"event 708", "status"}) {
        const Outcome outcome =
            tavctl(std::string("--version; exec 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-; ulimit -n 4; "
                               "exec " TAVCTL " ") +
                   command);
        EXPECT_EQ(outcome.status, 1) << outcome.output;
        EXPECT_NE(outcome.output.find("Too many open files"), std::string::npos) << outcome.output;
        EXPECT_EQ(outcome.output.find("does not run"), std::string::npos) << outcome.output;
    }
}

TEST(Tavctl, TellsWhatIsForbiddenFromWhatDoesNotRun) {
    ASSERT_TRUE(tavCreatePipe(tavRequestPipe));
    ASSERT_EQ(::chmod(tavRequestPipe, 0), 0);
    const Outcome outcome =
        tavctl("--version; exec setpriv --bounding-set=-all " TAVCTL " event 708");
    EXPECT_EQ(outcome.status, 5) << outcome.output;
    EXPECT_NE(outcome.output.find("cannot write to /var/run/orntav: Permission denied"),
              std::string::npos)
        << outcome.output;
}

}  // namespace
