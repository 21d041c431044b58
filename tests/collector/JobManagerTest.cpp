#include <chrono>
#include <csignal>
#include <cstdlib>
#include <set>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "collector/tavFactory.h"
#include "collector/tavJobManager.h"
#include "core/LoopWatch.h"
#include "fc/FCResourceManager.h"
#include "nic/NICEventMonitor.h"
#include "rmc/tavIPMIDBService.h"
#include "rmc/tavJsonAggregator.h"
#include "sim/server/ServerTree.h"
#include "storage/kernel/tavStorageControllerFactory.h"
#include "tests/support/Rmc.h"
#include "tests/support/Service.h"

namespace {

using tav::test::logEverything;
using tav::test::logs;
using tav::test::parseJson;
using testing::HasSubstr;

TEST(JobManager, StartsOneThreadPerTypeAndEndsThoseThatAreDisabled) {
    logEverything(R"("EnableResources":["StorageControllers"])");
    EXPECT_TRUE(tavJobManager::getInstance()->startResourceManagers());
    tavJobManager::getInstance()->stopResourceManagers();
    initializeResourceManager(nullptr);
    for (const char* message :
         {"078 JOB_MGR: Resource manager HostOSInfo [1] is disabled.",
          "078 JOB_MGR: Resource manager EthernetDevices [3] is disabled.",
          "078 JOB_MGR: Resource manager FibreChannelDevices [0] is disabled.",
          "082 JOB_MGR: Creating thread for StorageControllers", "149 JOB_MGR: stopping all the RM",
          "221 JOB_MGR: TAV Exiting Gracefully!"}) {
        EXPECT_THAT(logs(), HasSubstr(message));
    }
    void* const unknownType = reinterpret_cast<void*>(6);
    EXPECT_EQ(initializeResourceManager(unknownType), nullptr);
    EXPECT_THAT(logs(),
                HasSubstr("071 JOB_MGR: Unable to find module name for Resource Manager [6]."));
    for (const int type : {-1, 0, 4, 5, 6})
        EXPECT_EQ(tavFactory().createInstance(type), nullptr);
}

std::set<std::string> watchedLoops() {
    std::set<std::string> names;
    for (const tav::StandingLoop& loop :
         tav::LoopWatch::standingStill(tav::LoopWatch::Clock::time_point::max()))
        names.insert(loop.name);
    return names;
}

/// All entry points, in the order of a service that watches Fibre Channel too.
class Everything {
 public:
    void start() {
        tav::startThread(fibreChannel_, "tav-fc", [] { FCResourceManager::getInstance()->init(); });
        tavJobManager::getInstance()->startResourceManagers();
        tavJobManager::startTAVServer();
        tavJsonAggregator::getInstance()->sendInventory(true);
        tavJsonAggregator::getInstance()->sendInventory(false);
        tavIPMIDBService::starttavIPMIDBService();
        NICEventMonitor::startMonitoring();
    }
    void stop() {
        tavJobManager::stopTAVServer();
        NICEventMonitor::stopMonitoring();
        tavIPMIDBService::stoptavIPMIDBService();
        tavJsonAggregator::stoptavJsonAggregator();
        FCResourceManager::getInstance()->stopResourceManagerJob();
        tav::joinThread(fibreChannel_);
        tavJobManager::getInstance()->stopResourceManagers();
    }

 private:
    std::thread fibreChannel_;
};

TEST(JobManager, EveryLoopIsWatchedUntilItIsStopped) {
    logEverything();
    tav::test::writeHostCommands();
    tav::test::clockSpeed = 1000;
    const std::set<std::string> all{"tav-cli",     "tav-doorbell",   "tav-ethernet",  "tav-fc",
                                    "tav-host",    "tav-link-apply", "tav-link-recv", "tav-push",
                                    "tav-storage", "tav-uevents",    "tav-fc-uevents"};
    Everything everything;
    everything.start();
    while (watchedLoops() != all)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    everything.stop();
    EXPECT_THAT(watchedLoops(), testing::IsEmpty());
}

/// A server with one of each: controller, disk, interface, Fibre Channel port; with names that end
/// in that number.
void buildSmallServer(const std::string& number) {
    Json::Value server = parseJson(R"({
        "functions": [
            {"address": "0000:00:17.0", "class": "0x010400", "vendor": "0x8086", "device": "0x2826",
             "subVendor": "0x1590", "subDevice": "0x00d7", "driver": "ahci"},
            {"address": "0000:86:00.0", "class": "0x0c0400", "vendor": "0x10df", "device": "0xe300",
             "subVendor": "0x10df", "subDevice": "0xe310", "driver": "lpfc"}],
        "scsiHosts": [{"host": 0, "function": "0000:00:17.0", "ata": 1, "state": "running"}],
        "disks": [{"name": "sg0", "block": "sda", "address": "0:0:0:0", "protocol": "SATA",
            "media": "SSD", "rotation": 1, "model": "INTEL SSDSC2BB480G7", "revision": "N2010121",
            "capacity": 937703088, "temperature": 30, "maximumTemperature": 70, "wear": 3,
            "errors": 0}],
        "fibreChannel": [{"host": 8, "function": "0000:86:00.0", "portState": "Online",
            "wwnn": "0x200000109b000001", "wwpn": "0x100000109b000001", "firmware": "14.0",
            "rom": "14.0"}]})");
    server["disks"][0]["serial"] = "Disk" + number;
    server["fibreChannel"][0]["serial"] = "Port" + number;
    tav::sim::changeServer(server, tav::sim::Tree("/"));
    tav::test::writeCommand("localcli",
                            "case \"$*\" in 'network nic list') echo h; echo -; "
                            "echo vmnic" +
                                number + " x igbn Up Up 1000 Full 0 0 I;; esac");
    tav::test::writeCommand(
        "esxtop",
        "printf '\"(PDH)\",\"\\\\\\\\h\\\\Memory\\\\Machine MBytes\"\\n\"now\",\"'$((1024 * " +
            number + "))'\"\\n'");
}

std::string portSerial() {
    const auto ports = FCResourceManager::getInstance()->getFCInventory();
    return ports.empty() ? "" : ports.front().gettavFCSerialNumber();
}

TEST(JobManager, EverythingStartsAgainAfterAStopAsItDidTheFirstTime) {
    logEverything();
    tav::registerGenericStorageFactory();
    tav::test::Rmc rmc;
    Everything everything;
    std::size_t before = 0;
    NICEventMonitor::requestStop();  // told for nothing: the next start forgets it
    for (const std::string start : {"1", "2", "3"}) {
        buildSmallServer(start);
        tav::test::clockSpeed = 100;
        everything.start();
        EXPECT_FALSE(tavJobManager::getInstance()->startResourceManagers());
        const auto isWhole = [&] {
            const tav::sim::Command command = rmc.commands()[before++];
            return command.name == "WriteInventory" &&
                   testing::Matches(testing::AllOf(HasSubstr("SerialNumber\":\"Disk" + start),
                                                   HasSubstr("DeviceName\":\"vmnic" + start),
                                                   HasSubstr("TotalSystemMemoryGiB\":" + start)))(
                       command.payload);
        };
        bool hasWhole = false;
        while (!hasWhole && rmc.waitForCommands(before + 1))
            hasWhole = isWhole();
        EXPECT_TRUE(hasWhole) << start;
        for (int wait = 0; wait < 1000 && portSerial() != "Port" + start; ++wait)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        EXPECT_EQ(portSerial(), "Port" + start);
        tav::test::clockSpeed = 1;
        everything.stop();
        EXPECT_THAT(watchedLoops(), testing::IsEmpty());
        FCResourceManager::getInstance()->reset();
    }
    EXPECT_THAT(logs(), HasSubstr("already run; they are not started again."));
}

TEST(JobManager, SimulatedFaultsEndTheProcess) {
    const auto start = [](const char* number) noexcept {  // nothing catches
        logEverything(std::string(R"("SimulateUnhandledException":)") + number);
        tavJobManager::getInstance()->startResourceManagers();
        tavJobManager::getInstance()->stopResourceManagers();
        std::exit(0);
    };
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        start("11"), [](int status) { return WIFSIGNALED(status) || WEXITSTATUS(status) != 0; },
        "");
    EXPECT_THAT(logs(), HasSubstr("040 JOB_MGR: Simulating unhandled exception SIGSEGV. (11)"));
    EXPECT_EXIT(start("6"), testing::KilledBySignal(SIGABRT), "Simulated C\\+\\+ Exception");
    EXPECT_THAT(logs(), HasSubstr("049 JOB_MGR: Simulating unhandled exception SIGABRT. (6)"));
    EXPECT_EXIT(start("5"), testing::ExitedWithCode(0), "");
}

}  // namespace
