#include <chrono>
#include <thread>

#include <unistd.h>

#include <gtest/gtest.h>

#include "base/StopSignal.h"
#include "base/Waiting.h"

namespace {

using namespace std::chrono_literals;

TEST(StopSignal, EndsThePausesAndWaitsOfItsThreadAndOfNoOther) {
    tav::StopSignal stop;
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    std::thread stopper([&] {
        std::this_thread::sleep_for(20ms);
        stop.request();
        EXPECT_FALSE(tav::stopRequested());
        EXPECT_EQ(tav::pauseFor(1ms), tav::Pause::Finished);
    });
    {
        const tav::StopScope scope(&stop);
        EXPECT_EQ(tav::waitReadable(ends[0], tav::TimeLimit(60s)), tav::Readable::Stopped);
        EXPECT_EQ(tav::pauseFor(60s), tav::Pause::Stopped);
        const tav::StopScope unstoppable(nullptr);
        EXPECT_EQ(tav::pauseFor(1ms), tav::Pause::Finished);
        EXPECT_EQ(tav::waitReadable(ends[0], tav::TimeLimit(1ms)), tav::Readable::TimedOut);
    }
    stopper.join();
    ASSERT_EQ(::write(ends[1], "x", 1), 1);
    const tav::StopScope scope(&stop);
    EXPECT_EQ(tav::waitReadable(ends[0], tav::TimeLimit(60s)), tav::Readable::Ready)
        << "what has arrived is worth more than a stop";
    ::close(ends[0]);
    ::close(ends[1]);
}

}  // namespace
