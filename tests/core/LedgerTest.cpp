#include <chrono>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/Ledger.h"

namespace {

using tav::Condition;

constexpr Condition works{TAV_STATE_RUNNING, TAV_HEALTH_OK};
constexpr Condition failed{TAV_STATE_FAILED, TAV_HEALTH_CRITICAL};

struct Resource {
    std::string serial;
    Condition condition;
};
Condition conditionOf(const Resource& resource) {
    return resource.condition;
}
void assign(Resource& resource, const Condition& condition) {
    resource.condition = condition;
}

TEST(Ledger, EveryLookTellsTheChangeSinceTheLastOneOnce) {
    tav::Ledger<Resource> ledger(Resource{"A", works});
    EXPECT_FALSE(ledger.look(Resource{"B", works})) << "another record in the same condition";
    EXPECT_EQ(ledger.record().serial, "B");
    const auto change = ledger.look(failed);
    ASSERT_TRUE(change);
    EXPECT_EQ(change->before, works);
    EXPECT_EQ(change->now, failed);
    EXPECT_EQ(ledger.record().serial, "B") << "a look at the condition leaves the rest";
    EXPECT_FALSE(ledger.reported()) << "nobody has told the RMC";
    ledger.noteReported(failed);
    EXPECT_FALSE(ledger.look(failed));
    EXPECT_EQ(ledger.before(), failed);
    EXPECT_TRUE(ledger.look(Resource{"B", works}));
    EXPECT_EQ(ledger.reported(), failed);
}

/// A build reads for seconds; what a notification tells in between is newer than what it has read.
TEST(Ledger, ALookThatBeganEarlierDoesNotUndoALaterOne) {
    const auto begun = tav::LookClock::now();
    tav::Ledger<Resource> ledger(Resource{"A", works}, begun);
    const auto later = begun + std::chrono::seconds(1);
    EXPECT_TRUE(ledger.look(failed, later));
    EXPECT_FALSE(ledger.look(Resource{"B", works}, begun));
    EXPECT_EQ(ledger.record().serial, "B") << "the rest of it is news";
    EXPECT_EQ(ledger.now(), failed);
    EXPECT_FALSE(ledger.look(works, begun));
    EXPECT_EQ(ledger.now(), failed);
    EXPECT_EQ(ledger.before(), works);
    EXPECT_TRUE(ledger.look(works, later));
}

TEST(LedgerMatching, ResourcesThatShareAnIdentityAreEachThemselves) {
    const std::vector<std::string> before = {"x", "gone", "x", "y", ""};
    const std::vector<std::string> now = {"new", "x", "y", "x", "x", ""};
    tav::LedgerMatching matching(before.size(), now.size());
    const auto told = [&] {
        std::string text;
        for (std::size_t index = 0; index < now.size(); ++index) {
            const auto match = matching.beforeOf(index);
            text += match ? std::to_string(*match) : "-";
            EXPECT_TRUE(!match || matching.nowOf(*match) == index);
        }
        return text;
    };
    const auto pair = [&](auto fits) {
        matching.pair([&](std::size_t i) { return before[i]; },
                      [&](std::size_t i) { return now[i]; }, fits);
    };
    pair([](std::size_t, std::size_t index) { return index == 4; });
    EXPECT_EQ(told(), "----0-") << "the surest first";
    pair([](std::size_t, std::size_t) { return true; });
    EXPECT_EQ(told(), "-23-0-");
    EXPECT_FALSE(matching.nowOf(1));
    EXPECT_FALSE(matching.nowOf(4)) << "what has no identity is found by nothing";
}

}  // namespace
