#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include "core/tavResourceStatus.h"

/// How a resource's condition is kept: what it is, what it was at the last look, and what the RMC
/// knows of it. Whoever learns something of a resource - a build, a poll, a notification, its
/// removal, its return - tells its ledger, and nothing else moves the three.
namespace tav {

struct Condition {
    TAV_RESOURCE_STATE state = TAV_STATE_UNKNOWN;
    TAV_RESOURCE_HEALTH health = TAV_HEALTH_UNKNOWN;

    bool operator==(const Condition&) const = default;
};

/// When a look begins, on the clock that nobody sets.
using LookClock = std::chrono::steady_clock;

/// One resource through time. `Record` is what the inventory says of it; its condition - a
/// tav::Condition or another value that can be compared - is read and written by
/// `conditionOf(const Record&)` and `assign(Record&, const Condition&)`, found by the record's
/// namespace. Not locked: belongs to whoever owns the resource.
///
/// A look is as old as the moment at which it began. One that took long, such as a build, must not
/// undo what a look that began later has told meanwhile: its record is taken over, its condition is
/// not.
template <class Record>
class Ledger {
 public:
    using Condition = std::remove_cvref_t<decltype(conditionOf(std::declval<const Record&>()))>;

    /// First seen as `found`: nothing is known of it before, neither here nor at the RMC.
    explicit Ledger(Record found, LookClock::time_point begun = LookClock::now())
        : record_(std::move(found)), lookedAt_(begun) {}

    struct Change {
        Condition before;
        Condition now;
    };

    /// The one function that moves it: takes over what a look has found. Returns the change of its
    /// condition since the last look, none where there is none.
    std::optional<Change> look(Record found, LookClock::time_point begun = LookClock::now()) {
        const Condition known = now();
        if (begun < lookedAt_) assign(found, known);
        record_ = std::move(found);
        return noteLook(known, begun);
    }

    /// The same for a look that has found out the condition alone.
    std::optional<Change> look(const Condition& found,
                               LookClock::time_point begun = LookClock::now()) {
        const Condition known = now();
        if (begun >= lookedAt_ && !(known == found)) assign(record_, found);
        return noteLook(known, begun);
    }

    const Record& record() const { return record_; }
    Condition now() const { return conditionOf(record_); }
    /// At the last look but one.
    const Condition& before() const { return before_; }

    /// What the RMC knows by an event or inventory that it has acknowledged; none while it knows
    /// nothing. An event that was dropped or could not be delivered has told it nothing.
    const std::optional<Condition>& reported() const { return reported_; }
    void noteReported(const Condition& condition) { reported_ = condition; }

 private:
    std::optional<Change> noteLook(const Condition& known, LookClock::time_point begun) {
        if (begun < lookedAt_) return std::nullopt;
        lookedAt_ = begun;
        before_ = known;
        Condition found = now();
        if (before_ == found) return std::nullopt;
        return Change{before_, std::move(found)};
    }

    Record record_;
    LookClock::time_point lookedAt_;
    Condition before_{};
    std::optional<Condition> reported_;
};

/// Finds the resources of before among those of now. Each is paired once, so of several that share
/// a name each is itself, and a list never grows by looking. The surest reason comes first: every
/// pass pairs those that are left.
class LedgerMatching {
 public:
    LedgerMatching(std::size_t before, std::size_t now) : nowOf_(before), beforeOf_(now) {}

    /// Pairs those of the same identity of which `fits(before, now)` says that they belong
    /// together, in their order. Both identities are functions of an index; an empty one is none.
    template <class IdentityBefore, class IdentityNow, class Fits>
    void pair(IdentityBefore identityBefore, IdentityNow identityNow, Fits fits) {
        std::multimap<decltype(identityBefore(0)), std::size_t> alone;  // keeps the order of equals
        for (std::size_t index = 0; index < nowOf_.size(); ++index) {
            auto identity = identityBefore(index);
            if (!nowOf_[index] && !identity.empty()) alone.emplace(std::move(identity), index);
        }
        for (std::size_t now = 0; now < beforeOf_.size(); ++now) {
            if (beforeOf_[now]) continue;
            auto [candidate, end] = alone.equal_range(identityNow(now));
            while (candidate != end && !fits(candidate->second, now))
                ++candidate;
            if (candidate == end) continue;
            beforeOf_[now] = candidate->second;
            nowOf_[candidate->second] = now;
            alone.erase(candidate);
        }
    }

    /// None: it is new.
    std::optional<std::size_t> beforeOf(std::size_t now) const { return beforeOf_[now]; }
    /// None: it has gone.
    std::optional<std::size_t> nowOf(std::size_t before) const { return nowOf_[before]; }

 private:
    std::vector<std::optional<std::size_t>> nowOf_, beforeOf_;
};

}  // namespace tav
