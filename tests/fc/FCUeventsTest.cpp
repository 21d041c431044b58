/// What the kernel tells of Fibre Channel brings the manager's next build forward.
#include <chrono>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "fc/FCResourceManager.h"
#include "sim/server/Uevents.h"
#include "tests/support/Service.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// Whether the manager has begun that many builds in time.
bool soonBuilds(std::size_t count, std::chrono::milliseconds patience) {
    constexpr const char* line = "Building FC Cache";
    for (const auto end = Clock::now() + patience; Clock::now() < end;) {
        const std::string log = tav::test::logs();
        std::size_t found = 0;
        for (std::size_t at = 0; (at = log.find(line, at)) != std::string::npos; ++at)
            ++found;
        if (found >= count) return true;
        std::this_thread::sleep_for(5ms);
    }
    return false;
}

TEST(FCUevents, BringTheNextBuildForward) {
    tav::test::logEverything(R"("CacheRefreshInSeconds":{"Global":3600})");
    tav::test::writeFile("/sys/class/fc_host/host8/port_state", "Online\n");
    std::thread thread([] { FCResourceManager::getInstance()->init(); });
    EXPECT_TRUE(soonBuilds(1, 10s));
    tav::sim::sendUevent("add", "/devices/a/host9", "scsi");
    EXPECT_FALSE(soonBuilds(2, 700ms)) << "nothing of Fibre Channel";
    tav::sim::sendUevent("add", "/devices/a/host9/fc_host/host9", "fc_host");
    EXPECT_TRUE(soonBuilds(2, 3s)) << "which is due in an hour";
    FCResourceManager::getInstance()->stopResourceManagerJob();
    thread.join();
}

}  // namespace
