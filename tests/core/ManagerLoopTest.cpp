#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "core/InventoryCache.h"
#include "core/ManagerLoop.h"
#include "tests/support/FastWaiting.h"

namespace {

using namespace std::chrono_literals;
using tav::test::clockFails;
using tav::test::clockSpeed;

TEST(ManagerLoop, TellsWhyItWokeUp) {
    tav::ManagerLoop loop;
    const tav::LoopWake first = loop.wait(60s);
    EXPECT_TRUE(first.refresh) << "a loop begins with a build";
    EXPECT_FALSE(first.deadline);

    clockSpeed = 1000;
    const std::time_t begin = tav::secondsNow();
    const tav::LoopWake timedOut = loop.wait(60s);
    EXPECT_FALSE(timedOut.refresh);
    EXPECT_FALSE(timedOut.stop);
    ASSERT_TRUE(timedOut.deadline);
    EXPECT_GE(timedOut.elapsedSince(begin), 59);

    clockSpeed = 1;
    std::thread asker([&] {
        std::this_thread::sleep_for(20ms);
        loop.requestRefresh();
    });
    const tav::LoopWake asked = loop.wait(60s);
    asker.join();
    EXPECT_TRUE(asked.refresh);
    EXPECT_EQ(asked.elapsedSince(0), 0) << "not by its deadline";

    clockFails = true;
    EXPECT_TRUE(loop.wait(60s).clockFailed);
    loop.requestStop();
    const tav::LoopWake stopped = loop.wait(60s);
    EXPECT_TRUE(stopped.stop);
    EXPECT_FALSE(stopped.clockFailed) << "there was nothing to wait for";
    EXPECT_TRUE(loop.stopSignal()->requested());
}

TEST(Readiness, TheLastRoundLeavesAWishForAPush) {
    tav::Readiness answeredBefore;
    EXPECT_FALSE(answeredBefore.answer(7));
    EXPECT_FALSE(answeredBefore.complete());
    EXPECT_TRUE(answeredBefore.answer(8));
    EXPECT_FALSE(answeredBefore.complete());

    tav::Readiness answeredAfter;
    EXPECT_FALSE(answeredAfter.answer(8));
    EXPECT_TRUE(answeredAfter.complete());
    EXPECT_FALSE(answeredAfter.complete()) << "once";
}

/// Numbers that are all alike, and that know who frees them.
struct Numbers {
    std::vector<int> all;
    std::shared_ptr<void> owner;
};

TEST(InventoryCache, ReadersNeverWaitNeverSeeHalfABuildAndNeverFreeOne) {
    tav::InventoryCache<Numbers> cache;
    EXPECT_TRUE(cache.read().first->all.empty());
    std::atomic<bool> done{false};
    std::atomic<int> freedByReaders{0};
    const auto noteFreeing = [&, builder = std::this_thread::get_id()](void*) {
        if (std::this_thread::get_id() != builder) ++freedByReaders;
    };
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 3; ++reader) {
        readers.emplace_back([&] {
            while (!done) {
                const auto [numbers, building] = cache.read();
                for (const int number : numbers->all)
                    EXPECT_EQ(number, numbers->all.front());
            }
        });
    }
    for (int generation = 1; generation <= 2000; ++generation) {
        tav::InventoryCache<Numbers>::Build build(cache);
        EXPECT_TRUE(cache.read().second);
        if (generation % 3 != 0) {
            build.publish({std::vector<int>(100, generation), {&cache, noteFreeing}});
        }
        const int seen = cache.read().first->all.front();
        EXPECT_EQ(seen, generation % 3 != 0 ? generation : generation - 1);
    }
    done = true;
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_FALSE(cache.read().second);
    EXPECT_EQ(freedByReaders, 0);
}

TEST(InventoryCache, APublicationWaitsForNobody) {
    tav::InventoryCache<int> cache;
    tav::InventoryCache<int>::Build build(cache);
    build.publish(1);
    const auto compared = cache.read().first;  // a builder that compares with the one before
    build.publish(2);
    EXPECT_EQ(*compared, 1);
    EXPECT_EQ(*cache.read().first, 2);
}

}  // namespace
