#pragma once

#include <cstddef>
#include <map>
#include <optional>
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

/// One resource through time. `Record` is what the inventory says of it; its condition is read and
/// written by `Condition conditionOf(const Record&)` and `void assign(Record&, const Condition&)`,
/// found by the record's namespace. Not locked: belongs to whoever owns the resource.
template <class Record>
class Ledger {
 public:
    /// First seen as `found`: nothing is known of it before, neither here nor at the RMC.
    explicit Ledger(Record found) : record_(std::move(found)) {}

    struct Change {
        Condition before;
        Condition now;
    };

    /// The one function that moves it: takes over what a look has found. Returns the change of its
    /// condition since the last look, none where there is none.
    std::optional<Change> look(Record found) {
        before_ = conditionOf(record_);
        record_ = std::move(found);
        const Condition now = conditionOf(record_);
        if (before_ == now) return std::nullopt;
        return Change{before_, now};
    }

    /// The same for a look that has found out the condition alone.
    std::optional<Change> look(const Condition& found) {
        before_ = conditionOf(record_);
        assign(record_, found);
        if (before_ == found) return std::nullopt;
        return Change{before_, found};
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
    Record record_;
    Condition before_;
    std::optional<Condition> reported_;
};

/// What has become of one of the resources that were known or have been found: its place in the
/// list of before, and in the list of now.
struct LedgerMatch {
    std::optional<std::size_t> before;  ///< none: it is new
    std::optional<std::size_t> now;     ///< none: it has gone
};

/// Matches resources by their identities. Of several that share one the first is matched with the
/// first, the second with the second, so each is itself and a list never grows by looking. In the
/// order of `now`; behind them what has gone, in the order of `before`.
template <class Identity>
std::vector<LedgerMatch> matchByIdentity(const std::vector<Identity>& before,
                                         const std::vector<Identity>& now) {
    std::multimap<Identity, std::size_t> known;  // keeps the order of equal ones
    for (std::size_t index = 0; index < before.size(); ++index)
        known.emplace(before[index], index);
    std::vector<LedgerMatch> matches;
    std::vector<bool> isMatched(before.size(), false);
    for (std::size_t index = 0; index < now.size(); ++index) {
        const auto match = known.find(now[index]);
        if (match == known.end()) {
            matches.push_back({std::nullopt, index});
            continue;
        }
        matches.push_back({match->second, index});
        isMatched[match->second] = true;
        known.erase(match);
    }
    for (std::size_t index = 0; index < before.size(); ++index) {
        if (!isMatched[index]) matches.push_back({index, std::nullopt});
    }
    return matches;
}

}  // namespace tav
