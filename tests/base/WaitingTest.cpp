#include <chrono>
#include <ctime>
#include <thread>

#include <unistd.h>

#include <gtest/gtest.h>

#include "base/Waiting.h"
#include "tests/support/SetClock.h"

namespace {

using namespace std::chrono_literals;
using tav::test::wallClockAhead;
using Clock = std::chrono::steady_clock;

TEST(Waiting, DeadlinesOfAnyLength) {
    const std::time_t now = std::time(nullptr);
    EXPECT_NEAR(static_cast<double>(tav::Deadline::after(60s)->seconds()),
                static_cast<double>(now + 60), 2);
    const std::time_t tenYears = now + 10LL * 365 * 24 * 3600;
    for (const auto& wait :
         {std::chrono::seconds(std::chrono::minutes(2147483647)), std::chrono::seconds::max()}) {
        EXPECT_NEAR(static_cast<double>(tav::Deadline::after(wait)->seconds()),
                    static_cast<double>(tenYears), 2);
    }
}

TEST(Waiting, EndsByTheDeadlineOrBySignal) {
    std::mutex lock;
    std::condition_variable condition;
    std::unique_lock<std::mutex> held(lock);
    const auto begin = Clock::now();
    EXPECT_EQ(tav::waitUntil(condition, held, *tav::Deadline::after(1s)), tav::Wake::TimedOut);
    EXPECT_GE(Clock::now() - begin, 900ms);
    std::thread signaller([&] {
        const std::lock_guard<std::mutex> guard(lock);
        condition.notify_one();
    });
    EXPECT_EQ(tav::waitUntil(condition, held, *tav::Deadline::after(100000h)),
              tav::Wake::Signalled);
    held.unlock();
    signaller.join();
}

TEST(Waiting, AClockThatIsSetBackPutsNothingOff) {
    std::mutex lock;
    std::condition_variable condition;
    std::unique_lock<std::mutex> held(lock);
    wallClockAhead = 1h;
    const auto begin = Clock::now();
    const std::time_t before = tav::secondsNow();
    const auto deadline = tav::Deadline::after(1s);
    wallClockAhead = 0s;
    std::thread impatient([&] {
        std::this_thread::sleep_for(5s);
        const std::lock_guard<std::mutex> guard(lock);
        condition.notify_one();
    });
    EXPECT_EQ(tav::waitUntil(condition, held, *deadline), tav::Wake::TimedOut);
    EXPECT_LT(Clock::now() - begin, 4s);
    held.unlock();
    EXPECT_GE(tav::secondsNow(), before + 1) << "what has passed has passed";
    EXPECT_LE(tav::secondsNow(), before + 4);
    impatient.join();
}

TEST(Waiting, PausesAndLimitsLastAsLongAsTheySay) {
    const auto begin = Clock::now();
    EXPECT_EQ(tav::pauseFor(50ms), tav::Pause::Finished);
    EXPECT_GE(Clock::now() - begin, 50ms);
    EXPECT_LT(Clock::now() - begin, 5s);
    EXPECT_EQ(tav::TimeLimit(0ms).left(), 0ms);
    EXPECT_GT(tav::TimeLimit(10s).left(), 9s);
}

TEST(Waiting, TellsWhatCannotBeWaitedFor) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ::close(ends[1]);
    EXPECT_EQ(tav::waitReadable(ends[0], tav::TimeLimit(10s)), tav::Readable::Failed) << "hung up";
    ::close(ends[0]);
    EXPECT_EQ(tav::waitReadable(ends[0], tav::TimeLimit(10s)), tav::Readable::Failed) << "closed";
}

}  // namespace
