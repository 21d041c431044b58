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
#include "tests/support/Service.h"

namespace {

using tav::test::logEverything;
using tav::test::logs;
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

TEST(JobManager, EveryLoopIsWatchedUntilItIsStopped) {
    logEverything();
    tav::test::writeHostCommands();
    tav::test::clockSpeed = 1000;
    const std::set<std::string> all{"tav-cli",       "tav-doorbell", "tav-ethernet",
                                    "tav-fc",        "tav-host",     "tav-link-apply",
                                    "tav-link-recv", "tav-push",     "tav-storage"};
    std::thread fibreChannel;
    tav::startThread(fibreChannel, "tav-fc", [] { FCResourceManager::getInstance()->init(); });
    tavJobManager::getInstance()->startResourceManagers();
    tavJobManager::startTAVServer();
    tavJsonAggregator::getInstance()->sendInventory(false);
    tavIPMIDBService::starttavIPMIDBService();
    NICEventMonitor::startMonitoring();
    while (watchedLoops() != all)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));

    tavJobManager::stopTAVServer();
    NICEventMonitor::stopMonitoring();
    tavIPMIDBService::stoptavIPMIDBService();
    tavJsonAggregator::stoptavJsonAggregator();
    FCResourceManager::getInstance()->stopResourceManagerJob();
    tav::joinThread(fibreChannel);
    tavJobManager::getInstance()->stopResourceManagers();
    EXPECT_THAT(watchedLoops(), testing::IsEmpty());
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
