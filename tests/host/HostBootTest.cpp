#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "host/HostBoot.h"

namespace {

TEST(HostBoot, EventsAreDueWhenNoneWereSentSinceTheBoot) {
    EXPECT_TRUE(tav::bootEventsAreDue(0, 0));
    EXPECT_TRUE(tav::bootEventsAreDue(99, 100));
    EXPECT_FALSE(tav::bootEventsAreDue(100, 100));
    EXPECT_FALSE(tav::bootEventsAreDue(101, 100));
}

TEST(HostBoot, AShutdownIsGracefulStrictlyBetweenTheBoots) {
    const struct {
        long previous, shutdown, current;
        std::optional<int> event;
    } rows[] = {{0, 0, 100, std::nullopt}, {50, 70, 100, 359},  {50, 50, 100, 360},
                {50, 100, 100, 360},       {50, 101, 100, 360}, {50, 0, 100, 360},
                {0, 70, 100, 359},         {50, 40, 100, 360}};
    for (const auto& row : rows) {
        EXPECT_EQ(tav::shutdownEvent(row.previous, row.shutdown, row.current), row.event)
            << row.previous << ' ' << row.shutdown << ' ' << row.current;
    }
}

TEST(HostBoot, HistoriesOfAnyText) {
    EXPECT_EQ(tav::parseStartupHistory("1551500000"), 1551500000);
    EXPECT_EQ(tav::parseStartupHistory(" \n12x"), 12);
    for (const char* text : {"", "x1", " ", "99999999999999999999999"}) {
        EXPECT_EQ(tav::parseStartupHistory(text), std::nullopt) << text;
    }
}

}  // namespace
