#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include <poll.h>

#include <gtest/gtest.h>

#include "base/LaneGroup.h"
#include "base/Lanes.h"
#include "base/StopSignal.h"
#include "base/Threads.h"

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using tav::Lane;
using tav::Lanes;
using tav::TimeLimit;

/// A device that hangs until it is released, whatever anybody asks of it.
class Hang {
 public:
    std::function<int()> question(int answer) {
        return [released = released_, answer] {
            released.wait();
            return answer;
        };
    }
    void release() { release_.set_value(); }

 private:
    std::promise<void> release_;
    std::shared_future<void> released_{release_.get_future().share()};
};

template <class Answer>
std::vector<Answer> takeAll(Lanes& pool, std::vector<Lane<Answer>>& lanes, milliseconds limit) {
    std::vector<Answer> answers;
    const TimeLimit end(limit);
    do {
        for (Lane<Answer>& lane : lanes) {
            if (auto answer = lane.take()) answers.push_back(*answer);
        }
    } while (answers.size() < lanes.size() && pool.waitForAnswer(end));
    return answers;
}

TEST(Lanes, AreAskedSideBySideButNotMoreThanTheBoundAndLeaveWhenIdle) {
    Lanes pool("tav-test", 4, 10s);
    std::vector<Lane<int>> lanes(12, Lane<int>(pool));
    std::atomic<int> atWork{0};
    std::atomic<int> most{0};
    const tav::Stopwatch watch;
    for (Lane<int>& lane : lanes) {
        lane.ask("a number", [&] {
            const int now = ++atWork;
            for (int before = most; before < now && !most.compare_exchange_weak(before, now);) {
            }
            std::this_thread::sleep_for(20ms);
            --atWork;
            return 1;
        });
    }
    EXPECT_EQ(takeAll(pool, lanes, 5s).size(), 12U);
    EXPECT_EQ(most, 4);
    EXPECT_LT(watch.elapsed(), 12 * 20ms) << "not one after the other";
    const TimeLimit soon(2s);
    while (pool.threads() > 0 && soon.left() > 0ms)
        std::this_thread::sleep_for(1ms);
    EXPECT_EQ(pool.threads(), 0U);
}

TEST(Lanes, OneThatHangsHoldsUpNobodyIsNotAskedAgainAndAnswersWhenItCan) {
    Hang hang;
    Lanes pool("tav-test", 1, 30ms);
    Lane<int> sick(pool);
    Lane<int> healthy(pool);
    ASSERT_TRUE(sick.ask("its health", hang.question(7)));
    ASSERT_TRUE(healthy.ask("its health", [] { return 8; }));
    while (pool.waitForAnswer(TimeLimit(5s)) && !healthy.take()) {
    }
    EXPECT_FALSE(healthy.isBusy()) << "asked although the only thread hangs";
    EXPECT_FALSE(pool.waitForAnswer(TimeLimit(20ms)));
    EXPECT_FALSE(sick.ask("it again", [] { return 0; })) << "never a second question";
    const auto unanswered = sick.unanswered();
    ASSERT_TRUE(unanswered);
    EXPECT_EQ(unanswered->what, "its health");
    EXPECT_GE(unanswered->since, 30ms);
    hang.release();
    std::optional<int> answer;
    while (!answer && pool.waitForAnswer(TimeLimit(5s)))
        answer = sick.take();
    EXPECT_EQ(answer, 7);
    EXPECT_FALSE(sick.unanswered());
    EXPECT_TRUE(sick.ask("it again", [] { return 0; }));
}

TEST(Lanes, WhatAQuestionThrowsReachesTheAsker) {
    Lanes pool("tav-test", 1, 1s);
    Lane<int> lane(pool);
    lane.ask("trouble", []() -> int { throw std::runtime_error("trouble"); });
    ASSERT_TRUE(pool.waitForAnswer(TimeLimit(5s)));
    EXPECT_THROW(lane.take(), std::runtime_error);
    EXPECT_FALSE(lane.isBusy());
}

TEST(Lanes, AStopEndsWhatListensAndLeavesBehindWhatHangs) {
    Hang hang;
    const auto owned = std::make_shared<int>(5);
    const std::weak_ptr<int> ownedByTheQuestion = owned;
    std::atomic<bool> begun{false};
    std::atomic<bool> ended{false};
    {
        Lanes pool("tav-test", 1, 1ms);
        Lane<int> hanging(pool);
        hanging.ask("a hung disk",
                    [answer = hang.question(1), held = owned] { return answer() + *held; });
        Lane<int> listening(pool);
        Lane<int> never(pool);
        listening.ask("a command", [&] {
            begun = true;
            tav::pauseFor(1h);
            ended = true;
            return 0;
        });
        while (!begun)  // the first one hangs, so another thread is started
            pool.waitForAnswer(TimeLimit(2ms));
        const tav::Stopwatch watch;
        pool.requestStop();
        never.ask("a question that comes too late", [] { return 0; });
        EXPECT_EQ(pool.finish(TimeLimit(500ms)), 1U);
        EXPECT_LT(watch.elapsed(), 2s);
        EXPECT_TRUE(ended);
        EXPECT_TRUE(never.isBusy());
        EXPECT_FALSE(never.take());
    }
    hang.release();
    const TimeLimit soon(5s);
    while (ownedByTheQuestion.use_count() > 1 && soon.left() > 0ms)
        std::this_thread::sleep_for(1ms);
    EXPECT_EQ(ownedByTheQuestion.use_count(), 1) << "it has let go of what it owned";
}

TEST(Lanes, AGroupTakesTheAnswerOfADroppedLaneForNobodyElses) {
    Hang dropped;
    Hang awaited;
    tav::LaneGroup<int, int> group(std::make_shared<Lanes>("tav-test", 4, 10s), 10s);
    group.ask(1, "what is dropped", dropped.question(1));
    group.clear();
    group.ask(2, "what is awaited", awaited.question(2));
    dropped.release();
    std::thread releaser([&] {
        std::this_thread::sleep_for(50ms);
        awaited.release();
    });
    std::vector<int> answers;
    group.collect(
        TimeLimit(10s), [&](int, int answer) { answers.push_back(answer); }, [] {});
    releaser.join();
    EXPECT_EQ(answers, std::vector{2});
}

TEST(Lanes, ABellWaitsForAsManyAsAreExpected) {
    tav::LaneBell bell;
    const auto isRung = [&] {
        pollfd rung{bell.descriptor(), POLLIN, 0};
        return ::poll(&rung, 1, 0) == 1;
    };
    std::vector<std::size_t> answered;
    bell.expect(3);
    bell.ring(7);
    bell.ring(8);
    EXPECT_FALSE(isRung());
    bell.expect(2);
    EXPECT_TRUE(isRung()) << "they have come already";
    bell.takeAnswered(answered);
    EXPECT_EQ(answered, (std::vector<std::size_t>{7, 8}));
    EXPECT_FALSE(isRung());
    bell.ring(9);
    bell.takeAnswered(answered);
    EXPECT_EQ(answered, (std::vector<std::size_t>{9})) << "taken before it rang";
    bell.expect(1);
    EXPECT_FALSE(isRung());
    bell.ring(7);
    EXPECT_TRUE(isRung());
}

/// Not even when it is asked first and there is one place only.
TEST(Lanes, WhoHasHungIsNotWaitedForAgain) {
    constexpr auto patience = 300ms;
    Hang first;
    Hang second;
    tav::LaneGroup<int, int> group(std::make_shared<Lanes>("tav-test", 1, patience), patience);
    std::vector<int> answers;
    const auto round = [&](std::function<int()> sick, int healthy) {
        group.ask(1, "the sick one", std::move(sick), tav::Awaited::UnlessItHung);
        group.ask(
            2, "the healthy one", [healthy] { return healthy; }, tav::Awaited::UnlessItHung);
        const tav::Stopwatch watch;
        group.collect(
            TimeLimit(10s), [&](int, int answer) { answers.push_back(answer); }, [] {});
        return watch.elapsed();
    };
    const auto fetch = [&](std::size_t count) {
        for (const TimeLimit soon(10s); answers.size() < count && soon.left() > 0ms;) {
            std::this_thread::sleep_for(1ms);
            group.collect(
                TimeLimit(10s), [&](int, int answer) { answers.push_back(answer); }, [] {});
        }
    };
    EXPECT_GE(round(first.question(10), 1), patience);
    first.release();
    fetch(2);
    EXPECT_LT(round(second.question(20), 2), patience);
    EXPECT_EQ(answers, (std::vector{1, 10, 2}));
    second.release();
    fetch(4);
    round([] { return 30; }, 3);
    fetch(6);
    EXPECT_LT(round([] { return 40; }, 4), patience);
    EXPECT_EQ(answers.size(), 8U) << "whoever answers in time is waited for";
}

TEST(Lanes, AStopOfTheAskerEndsItsWait) {
    Hang hang;
    Lanes pool("tav-test", 1, 10s);
    Lane<int> lane(pool);
    lane.ask("a hung disk", hang.question(1));
    tav::StopSignal stop;
    const tav::StopScope scope(&stop);
    std::thread stopper([&] { stop.request(); });
    const tav::Stopwatch watch;
    EXPECT_FALSE(pool.waitForAnswer(TimeLimit(1h)));
    EXPECT_LT(watch.elapsed(), 10s);
    stopper.join();
    hang.release();
}

}  // namespace
