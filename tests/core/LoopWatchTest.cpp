#include <chrono>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/Threads.h"
#include "core/Command.h"
#include "core/LoopWatch.h"
#include "core/ManagerLoop.h"

namespace {

using namespace std::chrono_literals;
using tav::LoopWatch;

/// The names of the loops that stand still after that time.
std::string standingAfter(std::chrono::seconds time) {
    std::string names;
    for (const tav::StandingLoop& loop : LoopWatch::standingStill(LoopWatch::Clock::now() + time))
        names += loop.name + '\n';
    return names;
}

/// What `body` does on a thread named "tav-loop".
void onALoopsThread(const std::function<void()>& body) {
    std::thread thread;
    ASSERT_EQ(tav::startThread(thread, "tav-loop", body), 0);
    tav::joinThread(thread);
}

TEST(LoopWatch, KnowsWhoHasStoodStillForLongerThanItsPatience) {
    LoopWatch watch(100s);
    onALoopsThread([&] { watch.begins(); });
    const struct {
        const char* what;
        std::function<void()> happens;
        std::chrono::seconds movesFor, standsAfter;
    } rows[] = {{"works", [&] { watch.works(); }, 99s, 101s},
                {"waits", [&] { watch.waits(1000s); }, 1099s, 1101s},
                {"works again", [&] { watch.works(); }, 99s, 101s}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        row.happens();
        EXPECT_EQ(standingAfter(row.movesFor), "");
        EXPECT_EQ(standingAfter(row.standsAfter), "tav-loop\n");
    }
    {
        const tav::LoopWaits waits(watch);
        EXPECT_EQ(standingAfter(24h * 365 * 100), "") << "it waits for something to come";
    }
    EXPECT_EQ(standingAfter(101s), "tav-loop\n");
    watch.ends();
    watch.works();
    EXPECT_EQ(standingAfter(101s), "") << "it was asked to stop";
}

TEST(LoopWatch, AFinishedCommandIsAStepForward) {
    LoopWatch watch(1s);
    onALoopsThread([&] {
        watch.begins();
        std::this_thread::sleep_for(1100ms);
        EXPECT_EQ(standingAfter(0s), "tav-loop\n");
        tav::runShell("true");
        EXPECT_EQ(standingAfter(0s), "");
    });
}

TEST(LoopWatch, AManagersLoopIsWatchedFromItsFirstWaitToItsStop) {
    tav::ManagerLoop loop;
    onALoopsThread([&] {
        loop.wait(60s);
        EXPECT_EQ(standingAfter(LoopWatch::usualPatience + 1s), "tav-loop\n") << "it builds";
    });
    EXPECT_EQ(standingAfter(LoopWatch::usualPatience + 1s), "tav-loop\n") << "it ended unasked";
    loop.requestStop();
    EXPECT_EQ(standingAfter(LoopWatch::usualPatience + 1s), "");
}

}  // namespace
