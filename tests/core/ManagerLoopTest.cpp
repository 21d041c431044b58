#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include <poll.h>

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
    for (const auto request : {&tav::ManagerLoop::requestRefresh, &tav::ManagerLoop::requestLook}) {
        std::thread asker([&] {
            std::this_thread::sleep_for(20ms);
            (loop.*request)();
        });
        const tav::LoopWake asked = loop.wait(20s);
        asker.join();
        EXPECT_EQ(asked.refresh, request == &tav::ManagerLoop::requestRefresh);
        EXPECT_EQ(asked.look, request == &tav::ManagerLoop::requestLook);
        EXPECT_EQ(asked.elapsedSince(0), 0) << "not by its deadline";
    }

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

TEST(Readiness, ABuildThatFoundNothingLeavesThePushToTheNextOne) {
    tav::Readiness readiness;
    readiness.askForPush();
    for (int build = 0; build < 3; ++build) {
        readiness.begin();
        readiness.fail();
        EXPECT_FALSE(readiness.complete());
    }
    readiness.begin();
    EXPECT_TRUE(readiness.complete());
    readiness.begin();
    EXPECT_FALSE(readiness.complete());
}

/// Numbers that are all alike, and that know who frees them.
struct Numbers {
    std::vector<int> all;
    std::shared_ptr<void> owner;
};

TEST(InventoryCache, ReadersNeverWaitNeverSeeHalfABuildAndNeverFreeOne) {
    tav::InventoryCache<Numbers> cache;
    const auto before = cache.current();
    EXPECT_TRUE(before->all.empty());
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
        EXPECT_TRUE(cache.read().isBuilding);
        if (generation % 3 != 0) {
            build.publish({std::vector<int>(100, generation), {&cache, noteFreeing}});
        }
        const auto published = cache.current();
        const int seen = published->all.front();
        EXPECT_EQ(seen, generation % 3 != 0 ? generation : generation - 1);
    }
    done = true;
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_FALSE(cache.read().isBuilding);
    EXPECT_EQ(freedByReaders, 0);
}

TEST(InventoryCache, APublicationWaitsForNobody) {
    tav::InventoryCache<int> cache;
    tav::InventoryCache<int>::Build build(cache);
    build.publish(1);
    const auto compared = cache.current();  // a builder that compares with the one before
    build.publish(2);
    EXPECT_EQ(*compared, 1);
    const auto now = cache.current();
    EXPECT_EQ(*now, 2);
}

TEST(InventoryCache, TheFirstPublicationOfEachStartIsNews) {
    const auto isNews = [](auto publish) {
        tav::newsTaken();
        publish();
        pollfd news{tav::newsDescriptor(), POLLIN, 0};
        return ::poll(&news, 1, 0) == 1;
    };
    tav::InventoryCache<int> cache;
    const auto publish = [&] { tav::InventoryCache<int>::Build(cache).publish(1); };
    for (const char* start : {"the first", "another"}) {
        EXPECT_TRUE(isNews(publish)) << start;
        EXPECT_FALSE(isNews(publish)) << start;
        cache.clear();
    }
}

TEST(InventoryCache, WhatNobodyReadsIsFreed) {
    tav::InventoryCache<std::shared_ptr<int>> cache;
    tav::InventoryCache<std::shared_ptr<int>>::Build build(cache);
    std::array<std::weak_ptr<int>, 2> published;
    for (std::weak_ptr<int>& each : published) {
        auto value = std::make_shared<int>(1);
        each = value;
        build.publish(std::move(value));
    }
    EXPECT_TRUE(published[0].expired());
    {
        const auto reading = cache.current();
        build.publish(nullptr);
        EXPECT_FALSE(published[1].expired());
    }
    EXPECT_FALSE(published[1].expired()) << "not by the reader";
    build.publish(nullptr);
    EXPECT_TRUE(published[1].expired());
}

template <class Type>
concept CanBeLookedInto = requires(Type&& inventory) {
    *std::forward<Type>(inventory);
};
template <class Type>
concept CanBeWritten = requires(Type inventory) {
    *inventory = 1;
};
static_assert(CanBeLookedInto<const tav::Generation<int>&>);
static_assert(!CanBeLookedInto<tav::Generation<int>>, "freed before it is looked at");
static_assert(!CanBeWritten<tav::Generation<int>>);

TEST(InventoryCache, AChangeIsCopiedWhileReadersGoOn) {
    tav::InventoryCache<std::vector<int>> cache;
    const auto before = cache.current();
    cache.change([&cache](std::vector<int>& copy) {
        copy.push_back(1);
        const auto meanwhile = cache.current();  // a lock that readers take would hang here
        EXPECT_TRUE(meanwhile->empty());
    });
    EXPECT_TRUE(before->empty());
    const auto after = cache.current();
    EXPECT_EQ(*after, std::vector{1});
}

}  // namespace
