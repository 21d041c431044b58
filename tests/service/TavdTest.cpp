#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include <signal.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "core/Command.h"
#include "rmc/StateFiles.h"
#include "tests/support/Service.h"

namespace {

using namespace std::chrono_literals;
using tav::runShell;
using tav::test::logEverything;
using tav::test::logs;
using tav::test::readFile;
using tav::test::writeCommand;
using tav::test::writeFile;
using tav::test::writeHostCommands;
using testing::HasSubstr;
using testing::IsEmpty;
using Clock = std::chrono::steady_clock;

tav::CommandResult tavd(const std::string& arguments) {
    return runShell(TAVD " " + arguments + " 2>&1");
}

/// A running service; its standard error goes to a file.
class Tavd {
 public:
    explicit Tavd(const char* argument = nullptr) : process_(::fork()) {
        if (process_ == 0) {
            [[maybe_unused]] const auto* file = std::freopen("/tmp/stderr", "w", stderr);
            ::execl(TAVD, TAVD, argument, nullptr);
            ::_exit(127);
        }
    }
    Tavd(const Tavd&) = delete;
    Tavd& operator=(const Tavd&) = delete;
    ~Tavd() {
        if (process_ > 0) stop(SIGKILL);
    }

    void waitForLog(const std::string& text) const {
        while (logs().find(text) == std::string::npos)
            std::this_thread::sleep_for(5ms);
    }

    /// Sends the signal and returns the status of the ended process.
    int stop(int signal) {
        ::kill(process_, signal);
        int status = -1;
        ::waitpid(process_, &status, 0);
        process_ = -1;
        return status;
    }
    /// The names of its threads, a line each.
    std::string threads() const {
        return runShell("cat /proc/" + std::to_string(process_) + "/task/*/comm").output;
    }
    void signal(int number) const { ::kill(process_, number); }

 private:
    pid_t process_;
};

TEST(Tavd, CommandLine) {
    const struct {
        const char* arguments;
        int exitStatus;
        const char* says;
    } rows[] = {
        {"--version", 0, "tavd "},
        {"--help", 0, "Exit status:"},
        {"--nonsense", 2, "tavd: option '--nonsense' is unknown"},
        {"--print=x", 2, "option '--print=x' is unknown, or takes no argument; see tavd"},
        {"--generic-storage --check-config /missing", 3, "/missing: No such file"},
        {"--generic-storage=any --check-config /missing", 3, "/missing: No such file"},
        {"--metrics-file tavd.prom", 2, "takes an absolute path, not 'tavd.prom'"},
        {"--generic-storage=all", 2, "takes 'any' or nothing, not 'all'"},
        {"word", 2, "unexpected argument 'word'"},
        {"--check-config", 2, "option '--check-config' requires an argument; see tavd --help"},
        {"--check-config /missing", 3, "/missing: No such file"},
        {"--check-config /tmp", 3, "/tmp: not a regular file"}};
    for (const auto& row : rows) {
        const tav::CommandResult result = tavd(row.arguments);
        EXPECT_EQ(result.exitStatus, row.exitStatus) << row.arguments;
        EXPECT_THAT(result.output, HasSubstr(row.says));
    }
}

TEST(Tavd, RefusesToServeWithoutRoot) {
    const tav::CommandResult result = runShell("exec unshare --user " TAVD " 2>&1");
    EXPECT_EQ(result.exitStatus, 5);
    EXPECT_THAT(result.output, HasSubstr("run it as root"));
}

TEST(Tavd, OutputThatCannotBeWrittenIsAnError) {
    writeHostCommands();
    writeFile("/tmp/good", R"({"EnableResources":["All"],"LoggingLevel":"Info"})");
    for (const char* arguments : {"--help", "--version", "--print", "--check-config /tmp/good"}) {
        const tav::CommandResult result =
            runShell("2>&1 " TAVD " " + std::string(arguments) + " >/dev/full");
        EXPECT_EQ(result.exitStatus, 1) << arguments;
        EXPECT_THAT(result.output, HasSubstr("cannot write the result: No space left"));
    }
    EXPECT_THAT(runShell(TAVD " --check-config /missing 2>/dev/null").output, IsEmpty());
}

/// Starts the service behind `before`, and goes on when it serves or has ended.
std::string started(const std::string& before) {
    return before + " & while kill -0 $! && [ ! -p /run/orntav ]; do sleep 0.02; done; ";
}

TEST(Tavd, NothingOfItsOwnStandsInForAStreamThatIsClosed) {
    writeHostCommands();
    EXPECT_EQ(runShell(started(TAVD " <&- >&- 2>&-") +
                       "for fd in 0 1 2; do readlink /proc/$!/fd/$fd; done; kill $!")
                  .output,
              "/dev/null\n/dev/null\n/dev/null\n");
}

TEST(Tavd, NobodyElseMayTakeItsRequestsOrTheirAnswers) {
    writeHostCommands();
    const tav::CommandResult result =
        runShell("umask 022; " + started(TAVD) +
                 "service=$!; stat -L -c %a /run/orntav; kill -STOP $service; " TAVCTL
                 " event 708 & while [ ! -p /run/orntavcli$! ]; do sleep 0.02; done; "
                 "stat -c %a /run/orntavcli$!; kill -KILL $service $!");
    EXPECT_EQ(result.output, "600\n600\n");
}

TEST(Tavd, AFileThatMayNotGrowEndsNoService) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "its runtime needs files that grow";
#endif
    logEverything();
    writeHostCommands();
    const tav::CommandResult result =
        runShell("ulimit -f 0; " + started(TAVD) + "sleep 0.2; kill $!; wait $!");
    EXPECT_EQ(result.exitStatus, 0);
}

TEST(Tavd, AnInterruptedPrintTellsNoInventory) {
    writeHostCommands();
    writeCommand("localcli", "kill -INT $(cat /tmp/pid); sleep 1000");
    const tav::CommandResult result =
        runShell("sh -c 'echo $$ > /tmp/pid; exec " TAVD " --print' 2>&1");
    EXPECT_EQ(result.exitStatus, 130);
    EXPECT_THAT(result.output, IsEmpty());
}

TEST(Tavd, AHangUpBeforeItsFirstLineDoesNotEndIt) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "their runtime has to be loaded first";
#endif
    logEverything();
    writeHostCommands();
    ::setenv("LD_PRELOAD", TAV_EARLY_HANG_UP, 1);
    Tavd service;
    ::unsetenv("LD_PRELOAD");
    service.waitForLog("starts.");
    EXPECT_EQ(service.stop(SIGTERM), 0);
    EXPECT_EQ(runShell("LD_PRELOAD=" TAV_EARLY_HANG_UP " " TAVD " --version").exitStatus, 0);
}

Json::Value stateIn(const char* path) {
    return tav::test::parseJson(readFile(path));
}

unsigned modeOf(const char* path) {
    return static_cast<unsigned>(std::filesystem::status(path).permissions());
}

TEST(Tavd, KeepsWhatItKnowsForOthersToRead) {
    logEverything(R"("EnableResources":["HostOSInfo"], "InventoryQueryIntervalInSeconds": 1)");
    writeHostCommands();
    for (const char* name : {"modprobe", "mknod"})
        writeCommand(name, "true");
    ::umask(0077);
    Tavd service("--metrics-file=/tmp/tavd.prom");
    Json::Value health;
    while (health["Inventories"]["Failures"].asUInt() == 0) {
        std::this_thread::sleep_for(5ms);
        health = stateIn(tav::healthFile);
    }
    EXPECT_THAT(health["Inventories"]["Why"].asString(), HasSubstr("cannot be opened"));
    EXPECT_EQ(health["Managers"]["HostOSInfo"]["Builds"].asUInt(), 1U);
    EXPECT_GE(health["FailuresByStep"]["open"].asUInt(), 2U);
    const Json::Value inventory = stateIn(tav::inventoryFile);
    EXPECT_EQ(inventory["HostDataCollection"]["Oem"]["HostOSInfo"]["OSName"], "TestOS");
    EXPECT_FALSE(inventory["Sent"]["Acknowledged"].asBool());
    EXPECT_GT(inventory["Built"]["HostOSInfo"].asInt64(), 0);
    const Json::Value boot = stateIn(tav::eventsFile)["Events"][0];
    EXPECT_EQ(boot["ID"], 356);
    EXPECT_EQ(boot["Outcome"], "Failed");
    EXPECT_THAT(boot["Why"].asString(), HasSubstr("cannot be opened"));
    EXPECT_EQ(boot["Event"]["HostName"],
              inventory["HostDataCollection"]["Oem"]["HostOSInfo"]["HostName"]);
    EXPECT_EQ(modeOf(tav::healthFile), 0640U);
    EXPECT_EQ(modeOf("/tmp/tavd.prom"), 0644U);
    EXPECT_THAT(readFile("/tmp/tavd.prom"),
                HasSubstr("tav_events_total{id=\"356\",outcome=\"failed\"} 1\n"));
    const tav::CommandResult shown = runShell(TAVCTL " show");
    EXPECT_THAT(shown.output, testing::StartsWith("host, as of "));
    EXPECT_THAT(shown.output, HasSubstr("TestOS 1.2\n"));
    EXPECT_THAT(runShell(TAVCTL " show events").output, HasSubstr("356  Failed"));
    EXPECT_EQ(runShell(TAVCTL " status").exitStatus, 1);
    EXPECT_EQ(service.stop(SIGTERM), 0);
    EXPECT_EQ(runShell(TAVCTL " status").exitStatus, 3);
    EXPECT_THAT(runShell(TAVCTL " show").output,
                testing::MatchesRegex(
                    "The service does not run any more; it was stopped (.|\n)*TestOS(.|\n)*"));
    EXPECT_GE(stateIn(tav::healthFile)["Stopped"].asInt64(), health["Started"].asInt64());
    EXPECT_THAT(readFile("/tmp/tavd.prom"), HasSubstr("tav_up 0\n"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(tav::stateDirectory), {}), 3)
        << "what it has begun it has finished or removed";
}

TEST(Tavd, FilesThatCannotBeWrittenCostTheFilesAlone) {
    logEverything(R"("EnableResources":["HostOSInfo"])");
    writeHostCommands();
    writeFile("/run/tavd/inventory.json/in/the/way", "");
    ASSERT_EQ(::mkfifo("/run/tavd/events.json", 0600), 0);
    Tavd service("--metrics-file=/missing/tavd.prom");
    const std::string complaint = "/missing/tavd.prom cannot be written: No such file";
    service.waitForLog(complaint);
    service.waitForLog("inventory.json cannot be written: Is a directory");
    service.waitForLog("events.json cannot be written: File exists");
    while (stateIn(tav::healthFile)["Managers"]["HostOSInfo"]["Builds"].asUInt() == 0)
        std::this_thread::sleep_for(5ms);
    const auto begin = Clock::now();
    EXPECT_EQ(service.stop(SIGTERM), 0);
    EXPECT_LT(Clock::now() - begin, 1500ms);
    const std::string log = logs();
    EXPECT_EQ(log.find(complaint), log.rfind(complaint)) << "it is told once";
    EXPECT_TRUE(std::filesystem::is_fifo("/run/tavd/events.json")) << "a device's node would go";
}

TEST(Tavd, SaysWhatBecameOfEachSetting) {
    writeFile("/tmp/good", R"({"EnableResources":["All"],"LoggingLevel":"Info"})");
    EXPECT_EQ(tavd("--check-config /tmp/good").exitStatus, 0);
    writeFile("/tmp/bad", "{\"LogingLevel\":\"Info\",\"IPMIDoorBellMonitorInterval\":\"\x1b[2J\"}");
    const tav::CommandResult bad = tavd("--check-config /tmp/bad");
    EXPECT_EQ(bad.exitStatus, 3);
    EXPECT_THAT(bad.output, HasSubstr("\"LogingLevel\""));
    EXPECT_THAT(bad.output, HasSubstr("no such setting; ignored"));
    EXPECT_THAT(bad.output, HasSubstr("\"?[2J\" is not valid; \"10\" applies"));
    writeFile("/tmp/odd", R"({"EnableResources":["HostOSInfo","FibreChannelDevices"],
        "InventoryQueryIntervalInSeconds":"2 hours"})");
    const tav::CommandResult odd = tavd("--check-config /tmp/odd");
    EXPECT_EQ(odd.exitStatus, 0);
    EXPECT_THAT(odd.output, HasSubstr("\"HostOSInfo\" accepted\n"));
    EXPECT_THAT(odd.output,
                HasSubstr("\"FibreChannelDevices\" accepted; \"enables nothing\" applies\n"));
    EXPECT_THAT(odd.output, HasSubstr("\"2 hours\" accepted; \"2\" applies\n"));
    writeFile("/tmp/empty", R"({"EnableResources":[],"LoggingLevel":"Info"})");
    EXPECT_THAT(tavd("--check-config /tmp/empty").output, HasSubstr("\"EnableResources\""));
    writeFile("/tmp/none", "[1,2]");
    EXPECT_THAT(tavd("--check-config /tmp/none").output, HasSubstr("built-in defaults apply"));
    writeFile("/tmp/huge", "");
    std::filesystem::resize_file("/tmp/huge", 1UL << 40U);
    const tav::CommandResult huge = tavd("--check-config /tmp/huge");
    EXPECT_EQ(huge.exitStatus, 3);
    EXPECT_THAT(huge.output, HasSubstr("/tmp/huge: larger than 1 MiB"));
}

TEST(Tavd, PrintsTheInventoryAndSendsNothing) {
    writeHostCommands();
    writeCommand("modprobe", "echo driver >> /tmp/device-was-tried");
    const tav::CommandResult result = tavd("--print");
    EXPECT_EQ(result.exitStatus, 0);
    const Json::Value document = tav::test::parseJson(result.output);
    EXPECT_EQ(document["HostDataCollection"]["Oem"]["HostOSInfo"]["OSName"].asString(), "TestOS");
    EXPECT_FALSE(std::filesystem::exists("/tmp/device-was-tried"));
    EXPECT_FALSE(std::filesystem::exists("/opt/orn/tav/data/ornTAVStartup.txt"));
    tav::test::writeConfiguration(R"("EnableResources":[])");
    EXPECT_EQ(tavd("--print").exitStatus, 1);
}

TEST(Tavd, TheVendorsRaidLibrary) {
    const auto server = tav::test::parseJson(readFile(TAV_SERVERS "/four-socket.json"));
    const struct {
        const char* directory;
        const char* says;
        const char* member;
        int value;
        unsigned controllers, drives, volumes;
    } rows[] = {
        {"/missing", "Failed to load library for monitoring MegaRAID devices.", "", 0, 0, 0, 0},
        {TAV_EMPTY_STORELIB, "Unable to get Entry Point function address", "", 0, 0, 0, 0},
        {TAV_STORELIB, "failed _NOT_PRESENT", "initialization", 0x802C, 0, 0, 0},
        {TAV_STORELIB, "running under Simulation Mode", "simulation", 1, 1, 6, 2},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.says);
        std::filesystem::remove_all("/var/log/tav");
        logEverything(R"("EnableResources":["StorageControllers"])");
        Json::Value changed = server;
        changed["raid"][row.member] = row.value;
        writeFile("/run/sim/server.json", changed.toStyledString());
        ::setenv("LD_LIBRARY_PATH", row.directory, 1);
        const tav::CommandResult result = tavd("--print");
        EXPECT_EQ(result.exitStatus, row.controllers > 0 ? 0 : 1);
        const Json::Value found = tav::test::parseJson(result.output)["HostDataCollection"];
        EXPECT_EQ(found["StorageControllers"].size(), row.controllers);
        EXPECT_EQ(found["Drives"].size(), row.drives);
        EXPECT_EQ(found["Volumes"].size(), row.volumes);
        EXPECT_THAT(logs(), HasSubstr(row.says));
        EXPECT_THAT(readFile("/run/sim/storelib.violations"), IsEmpty());
    }
}

TEST(Tavd, FibreChannelIsWatchedWhereWanted) {
    logEverything(R"("EnableResources":[])");
    writeFile("/sys/class/fc_host/host8/port_state", "Linkdown\n");
    writeFile("/sys/class/scsi_host/host8/serialnum", "FC1\n");
    const Json::Value document = tav::test::parseJson(tavd("--print").output);
    EXPECT_EQ(document["FibreChannelDevices"][0]["SerialNumber"], "FC1");
    EXPECT_EQ(document["FibreChannelDevices"][0]["Status"]["State"], "Linkdown");
    EXPECT_FALSE(document.isMember("HostDataCollection"));
    {
        std::filesystem::remove_all("/var/log/tav");
        Tavd service("--fibre-channel");
        service.waitForLog("Building FC Cache");
        EXPECT_THAT(service.threads(), HasSubstr("tav-fc\n"));
        const auto begin = Clock::now();
        EXPECT_EQ(service.stop(SIGTERM), 0);
        EXPECT_LT(Clock::now() - begin, 1500ms);
    }
    std::filesystem::remove_all("/var/log/tav");
    Tavd service;
    service.waitForLog("starts.");
    EXPECT_THAT(service.threads(), testing::Not(HasSubstr("tav-fc")));
}

/// Only with the option and by its name, or by that of all, in the configuration.
TEST(Tavd, NVMeIsReportedWhereWanted) {
    const std::string function = "/sys/devices/pci0000:3b/0000:3b:00.0";
    writeFile(function + "/vendor", "0x8086\n");
    writeFile(function + "/nvme/nvme0/serial", "N1\n");
    std::filesystem::create_directories("/sys/class/nvme");
    std::filesystem::create_directory_symlink("../../../0000:3b:00.0",
                                              function + "/nvme/nvme0/device");
    std::filesystem::create_directory_symlink("../../devices/pci0000:3b/0000:3b:00.0/nvme/nvme0",
                                              "/sys/class/nvme/nvme0");
    const struct {
        const char* option;
        const char* enabled;
        unsigned controllers;
    } rows[] = {{"", R"(["All"])", 0},
                {"", R"(["StorageControllers","NVMeControllers"])", 0},
                {"--generic-storage", R"(["StorageControllers"])", 0},
                {"--generic-storage", R"(["NVMeControllers","HostOSInfo"])", 0},
                {"--generic-storage", R"(["StorageControllers","nvmecontrollers"])", 1},
                {"--generic-storage", R"(["All"])", 1},
                {"--generic-storage=any", R"(["All"])", 1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.option) + ' ' + row.enabled);
        tav::test::writeConfiguration(std::string(R"("EnableResources":)") + row.enabled);
        const Json::Value document =
            tav::test::parseJson(tavd(std::string("--print ") + row.option).output);
        const Json::Value& found = document["HostDataCollection"]["StorageControllers"];
        ASSERT_EQ(found.size(), row.controllers);
        for (const Json::Value& controller : found)
            EXPECT_EQ(controller["SerialNumber"], "N1");
    }
}

TEST(Tavd, StopsAtOnceAndRunsOnlyOnce) {
    for (const int signal : {SIGTERM, SIGINT}) {
        logEverything();
        writeHostCommands();
        std::filesystem::remove_all("/var/log/tav");
        Tavd service;
        service.waitForLog("starts.");
        const tav::CommandResult second = tavd("");
        EXPECT_EQ(second.exitStatus, 4);
        EXPECT_THAT(second.output, HasSubstr("another tavd is running"));
        service.signal(SIGHUP);
        const auto begin = Clock::now();
        EXPECT_EQ(service.stop(signal), 0);
        EXPECT_LT(Clock::now() - begin, 1500ms);
        EXPECT_THAT(logs(), HasSubstr("TAV Exiting Gracefully!"));
    }
}

/// Whatever stands in the lock's place: the service runs, and says when nothing keeps a second
/// away.
TEST(Tavd, ServesWithoutItsLock) {
    const struct {
        const char* place;
        int second;
        const char* says;
    } rows[] = {{"mkfifo /run/tavd.lock", 4, ""},
                {"mkdir /run/tavd.lock", 0, "tavd.lock cannot be had (Is a directory)"},
                {"ln -s /tmp/elsewhere /run/tavd.lock", 0, "cannot be had (Too many levels"}};
    for (const auto& row : rows) {
        logEverything();
        writeHostCommands();
        std::filesystem::remove_all("/var/log/tav");
        std::filesystem::remove_all("/run/tavd.lock");
        runShell(row.place);
        Tavd service;
        service.waitForLog("starts.");
        EXPECT_EQ(runShell("timeout --preserve-status 1 " TAVD " 2>&1").exitStatus, row.second)
            << row.place;
        EXPECT_THAT(logs(), HasSubstr(row.says));
        EXPECT_EQ(service.stop(SIGTERM), 0);
        EXPECT_FALSE(std::filesystem::exists("/tmp/elsewhere"));
    }
}

TEST(Tavd, TakesItsLockAnewWhereItHasGone) {
    logEverything();
    writeHostCommands();
    Tavd service;
    service.waitForLog("starts.");
    std::filesystem::remove("/run/tavd.lock");
    service.signal(SIGHUP);  // looks at once; else each minute
    service.waitForLog("/run/tavd.lock had gone; it has been taken anew.");
    EXPECT_EQ(tavd("").exitStatus, 4);
    EXPECT_EQ(service.stop(SIGTERM), 0);
}

TEST(Tavd, MovesAFullLogAwayWhenAskedTo) {
    logEverything();
    writeHostCommands();
    Tavd service;
    service.waitForLog("starts.");
    std::filesystem::resize_file(tav::test::mainLog, 500'000'000);
    service.signal(SIGHUP);
    const std::filesystem::path backups = "/scratch/log/orn/tav/backup_log";
    while (!std::filesystem::exists(backups) || std::filesystem::is_empty(backups) ||
           std::filesystem::file_size(tav::test::mainLog) >= 500'000'000)
        std::this_thread::sleep_for(5ms);
    EXPECT_EQ(service.stop(SIGTERM), 0);
}

TEST(Tavd, StopsWhileACommandOfItsStartHangs) {
    logEverything();
    writeCommand("localcli", "echo x > /tmp/hangs; sleep 1000");
    Tavd service;
    while (!std::filesystem::exists("/tmp/hangs"))
        std::this_thread::sleep_for(5ms);
    const auto begin = Clock::now();
    EXPECT_EQ(service.stop(SIGTERM), 0);
    EXPECT_LT(Clock::now() - begin, 1500ms);
}

TEST(Tavd, ACrashLeavesItsStackBehind) {
    struct Row {
        const char *number, *name;
        int signal;
    };
    for (const Row& row : {Row{"11", "SIGSEGV", SIGSEGV}, Row{"6", "SIGABRT", SIGABRT}}) {
        std::filesystem::remove("/opt/orn/tav/log/tavd-crash.txt");
        logEverything(std::string(R"("CaptureUnhandledExceptionStack":"true",
                                     "SimulateUnhandledException":)") +
                      row.number);
        Tavd service;
        const int status = service.stop(0);
        EXPECT_TRUE(WIFSIGNALED(status));
        EXPECT_EQ(WTERMSIG(status), row.signal);
        EXPECT_THAT(readFile("/opt/orn/tav/log/tavd-crash.txt"),
                    HasSubstr("startResourceManagers"));
        EXPECT_THAT(readFile("/tmp/stderr"),
                    HasSubstr(std::string("tavd: ") + row.name + ", stack of the thread:"));
    }
    std::filesystem::remove("/opt/orn/tav/log/tavd-crash.txt");
    ASSERT_EQ(::mkfifo("/opt/orn/tav/log/tavd-crash.txt", 0600), 0);
    EXPECT_EQ(WTERMSIG(Tavd().stop(0)), SIGABRT) << "nobody who might read it is waited for";
}

}  // namespace
