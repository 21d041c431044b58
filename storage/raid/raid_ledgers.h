#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/Waiting.h"
#include "core/Ledger.h"
#include "storage/model/storage_conditions.h"

/// What is known of the resources of a RAID controller. Two tell of them: the vendor library, when
/// it is looked at, and the firmware's events, which also know what the library does not show.
namespace tav {

/// What an event says of a resource.
struct RaidNews {
    Condition said;
    LookClock::time_point heardAt;
    bool isShown;  ///< the library shows such a state too
};

/// One resource. Not locked: belongs to its controller.
template <class Record>
class RaidResource {
 public:
    /// First seen as `found`, which the inventory tells the RMC.
    RaidResource(Record found, LookClock::time_point askedAt)
        : ledger_(std::move(found)), told_(ledger_.now()), toldAt_(askedAt) {
        ledger_.noteReported(told_);
    }

    /// First seen because of an event. No inventory has told it yet, so an event that says why it
    /// does not work is news.
    static RaidResource foundByEvent(Record found, LookClock::time_point askedAt) {
        RaidResource resource(std::move(found), askedAt);
        resource.isOutdated_ = resource.told_.health != TAV_HEALTH_OK;
        return resource;
    }

    /// How long an event is believed that says what the library shows, but is not shown by it.
    static constexpr std::chrono::seconds believedFor{60};

    /// The library, asked at `askedAt`, tells `found` of it. What an event has said stands until
    /// the library's own word changes, or goes on denying it. Such a change has been reported by
    /// nobody, so whatever event comes next is news. Returns whether the condition is another one
    /// than before.
    bool look(Record found, LookClock::time_point askedAt) {
        const Condition told = conditionOf(found);
        hasMoved_ = told != std::exchange(told_, told);
        toldAt_ = askedAt;
        if (told == now()) unconfirmed_.reset();
        if (isDenied()) {
            unconfirmed_.reset();
            hasMoved_ = true;
        }
        if (!hasMoved_) assign(found, ledger_.now());
        const auto change = ledger_.look(std::move(found));
        if (hasMoved_ && ledger_.reported()->health != told.health) isOutdated_ = true;
        return change.has_value();
    }

    /// An event says so. Where the library, asked after the event, has just changed to a state of
    /// the same health, its word is the newer one.
    bool hear(const RaidNews& news) {
        if (hasLeftBehind(news)) return false;
        unconfirmed_.reset();
        if (news.isShown && news.said != told_) unconfirmed_.emplace(Unconfirmed{news.heardAt, {}});
        const bool isSurpassed = hasMoved_ && told_.health == news.said.health;
        return ledger_.look(isSurpassed ? told_ : news.said).has_value();
    }

    /// Whether the event repeats what the RMC was told last, but the library, asked after it, has
    /// gone on to something else, of which another event is on its way.
    bool hasLeftBehind(const RaidNews& news) const {
        return news.isShown && toldAt_ > news.heardAt && now() == told_ &&
               told_.health != news.said.health && ledger_.reported()->health == news.said.health;
    }

    /// The RMC has acknowledged an event that said so.
    void noteReported(const Condition& condition) {
        ledger_.noteReported(condition);
        isOutdated_ = ledger_.now().health != condition.health;
    }

    /// The RMC has acknowledged an inventory that says what is now.
    void noteTold() { noteReported(now()); }

    /// It has been taken out and put in: what was said of it before is said of another one.
    bool renew() {
        const Condition before = now();
        Record record = ledger_.record();
        assign(record, told_);
        *this = RaidResource(std::move(record), toldAt_);
        return before != told_;
    }

    /// Unknown when what the RMC was told last is not so any more.
    TAV_RESOURCE_HEALTH reportedHealth() const {
        return isOutdated_ ? TAV_HEALTH_UNKNOWN : ledger_.reported()->health;
    }

    Condition now() const { return ledger_.now(); }

    /// With the condition that was reported last; the present one where that is outdated.
    Record record() const {
        Record record = ledger_.record();
        const Condition reported = isOutdated_ ? now() : *ledger_.reported();
        record.setEventState(reported.state);
        record.setEventHealth(reported.health);
        return record;
    }

 private:
    /// What an event says, before the library shows it.
    struct Unconfirmed {
        LookClock::time_point heardAt;
        Stopwatch since;
    };

    bool isDenied() const {
        return unconfirmed_ && toldAt_ > unconfirmed_->heardAt &&
               unconfirmed_->since.elapsed() >= believedFor;
    }

    Ledger<Record> ledger_;
    Condition told_;                ///< the library's own word at the last look
    LookClock::time_point toldAt_;  ///< when it was asked
    bool hasMoved_ = false;         ///< the last look found it changed
    bool isOutdated_ = false;
    std::optional<Unconfirmed> unconfirmed_;
};

/// A record that the library tells, its number at the controller (device id or target id), its
/// name: empty for one that has none, and when the library was asked.
template <class Record>
struct FoundRaidResource {
    std::uint32_t number;
    std::string name;
    Record record;
    LookClock::time_point askedAt;
};

/// The drives or volumes of one controller, recognised by name, and by number where names are
/// missing or shared.
template <class Record>
class RaidResources {
 public:
    using Found = std::vector<FoundRaidResource<Record>>;

    struct Entry {
        std::uint32_t number;
        std::string name;
        RaidResource<Record> resource;
        bool isListed = true;  ///< false once the library does not list it any more
    };

    enum class Gone {
        Leave,
        Stay  ///< as long as nothing else has their number: events may still name them
    };

    /// Takes over what the library tells. Returns whether the inventory says something else now.
    bool look(Found found, Gone gone) {
        const LedgerMatching matching = match(found);
        bool hasChanged = false;
        std::vector<Entry> entries;
        entries.reserve(found.size());
        for (std::size_t now = 0; now < found.size(); ++now) {
            auto& fresh = found[now];
            if (const auto before = matching.beforeOf(now)) {
                entries.push_back(std::move(entries_[*before]));
                RaidResource<Record>& resource = entries.back().resource;
                hasChanged |= resource.look(std::move(fresh.record), fresh.askedAt);
                if (!std::exchange(entries.back().isListed, true)) hasChanged |= resource.renew();
            } else {
                entries.push_back({0, "", newcomer(std::move(fresh.record), fresh.askedAt, gone)});
                hasChanged = true;
            }
            entries.back().number = fresh.number;
            if (!fresh.name.empty()) entries.back().name = std::move(fresh.name);
        }
        for (std::size_t before = 0; before < entries_.size(); ++before) {
            if (matching.nowOf(before)) continue;
            const bool stays = gone == Gone::Stay && !isNumber(entries_[before].number, found);
            hasChanged |= !stays;
            if (!stays) continue;
            entries.push_back(std::move(entries_[before]));
            entries.back().isListed = false;
        }
        entries_ = std::move(entries);
        return hasChanged;
    }

    /// The first of which `matches` is true; null for none.
    template <class Matches>
    Entry* find(Matches matches) {
        for (Entry& entry : entries_)
            if (matches(entry)) return &entry;
        return nullptr;
    }

    void noteTold() {
        for (Entry& entry : entries_)
            entry.resource.noteTold();
    }

    std::vector<Record> records() const {
        std::vector<Record> records;
        records.reserve(entries_.size());
        for (const Entry& entry : entries_)
            records.push_back(entry.resource.record());
        return records;
    }

 private:
    /// Who lets the gone stay looks because of an event.
    static RaidResource<Record> newcomer(Record found, LookClock::time_point askedAt, Gone gone) {
        return gone == Gone::Stay ? RaidResource<Record>::foundByEvent(std::move(found), askedAt)
                                  : RaidResource<Record>(std::move(found), askedAt);
    }

    static bool isNumber(std::uint32_t number, const Found& found) {
        for (const auto& resource : found)
            if (resource.number == number) return true;
        return false;
    }

    LedgerMatching match(const Found& found) const {
        const auto nameBefore = [&](std::size_t before) { return entries_[before].name; };
        const auto nameNow = [&](std::size_t now) { return found[now].name; };
        const auto numberBefore = [&](std::size_t before) {
            return std::to_string(entries_[before].number);
        };
        const auto numberNow = [&](std::size_t now) { return std::to_string(found[now].number); };
        LedgerMatching matching(entries_.size(), found.size());
        matching.pair(nameBefore, nameNow, [&](std::size_t before, std::size_t now) {
            return entries_[before].number == found[now].number;
        });
        matching.pair(nameBefore, nameNow, [](std::size_t, std::size_t) { return true; });
        matching.pair(numberBefore, numberNow, [&](std::size_t before, std::size_t now) {
            return entries_[before].name.empty() || found[now].name.empty();
        });
        return matching;
    }

    std::vector<Entry> entries_;
};

}  // namespace tav
