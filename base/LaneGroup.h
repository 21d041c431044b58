#pragma once

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/Lanes.h"
#include "base/StopSignal.h"

/// The lanes of one asker, by what they lead to, and a round of questions to all of them.
namespace tav {

/// Whether a round waits for an answer: a disk whose commands time out one after the other is not
/// to cost each round the whole patience.
enum class Awaited { Always, UnlessItHung };

/// Not locked: belongs to whoever asks. `Key` is ordered.
template <class Key, class Answer>
class LaneGroup {
 public:
    /// `patience` is how long an answer is waited for; what takes longer hangs.
    LaneGroup(std::shared_ptr<Lanes> pool, std::chrono::milliseconds patience)
        : pool_(std::move(pool)), patience_(patience) {}

    /// False when the one before has not been answered. An answer that is not awaited is taken in
    /// whichever round it comes; whoever took longer than the patience the last time has hung.
    template <class Asking>
    bool ask(const Key& key, std::string what, Asking asking, Awaited awaited = Awaited::Always) {
        const auto found = lanes_.find(key);
        Entry& entry = found == lanes_.end() ? makeLane(key) : *found->second;
        if (!entry.lane.ask(std::move(what), std::move(asking))) return false;
        entry.isAwaited = awaited == Awaited::Always || entry.lane.lastTook() < patience_;
        if (entry.isAwaited) ++awaited_;
        return true;
    }

    /// Hands out answers as they come - take(key, answer), which may ask again - also late ones to
    /// questions of earlier rounds, and calls `settle` after each lot of them. Returns when all
    /// have come but those that hang, when the limit is over, or when the thread is asked to stop.
    /// What has not come then is not waited for again. Throws what a question has thrown.
    template <class Take, class Settle>
    void collect(const TimeLimit& limit, Take take, Settle settle) {
        while (true) {
            const bool hasNews = takeAnswers(take);
            if (hasNews) settle();
            if (awaited_ == 0 || stopRequested()) break;
            // Only when nothing comes any more is it worth a look at who is waited for.
            const std::chrono::milliseconds left =
                std::min(limit.left(), hasNews ? patience_ : patienceLeft());
            if (left == std::chrono::milliseconds(0)) break;
            waitForAnswers(left);
        }
        for (auto& [key, entry] : lanes_)
            entry->isAwaited = false;
        awaited_ = 0;
    }

    bool isBusy(const Key& key) const {
        const auto found = lanes_.find(key);
        return found != lanes_.end() && found->second->lane.isBusy();
    }

    /// visit(key, Unanswered) for each question that is under way.
    template <class Visit>
    void forEachUnanswered(Visit visit) const {
        for (const auto& [key, entry] : lanes_) {
            if (const auto unanswered = entry->lane.unanswered()) visit(key, *unanswered);
        }
    }

    /// Drops the lanes, unless they are busy, of which keep(key) is false.
    template <class Keep>
    void forgetUnless(Keep keep) {
        std::erase_if(lanes_, [&](const auto& lane) {
            const bool isDropped = !lane.second->lane.isBusy() && !keep(lane.first);
            if (isDropped) byNumber_[lane.second->number] = nullptr;
            return isDropped;
        });
    }

    /// Drops all lanes, and answers that nobody has taken. Questions under way end by themselves.
    void clear() {
        lanes_.clear();
        byNumber_.clear();
        awaited_ = 0;
        bell_ = LaneBell();  // the old one is still rung, with numbers that others get
    }

 private:
    using Unanswered = typename Lane<Answer>::Unanswered;

    struct Entry {
        Entry(Key laneKey, std::size_t laneNumber, Lanes& pool, const LaneBell& bell)
            : key(std::move(laneKey)), number(laneNumber), lane(pool, bell, laneNumber) {}
        Key key;
        std::size_t number;
        Lane<Answer> lane;
        bool isAwaited = false;  ///< in this round
    };

    Entry& makeLane(const Key& key) {
        const auto free = std::find(byNumber_.begin(), byNumber_.end(), nullptr);
        const auto number = static_cast<std::size_t>(free - byNumber_.begin());
        if (free == byNumber_.end()) byNumber_.push_back(nullptr);
        auto entry = std::make_unique<Entry>(key, number, *pool_, bell_);
        byNumber_[number] = entry.get();
        return *lanes_.emplace(key, std::move(entry)).first->second;
    }

    template <class Take>
    bool takeAnswers(Take& take) {
        bell_.takeAnswered(answered_);
        for (const std::size_t number : answered_) {
            Entry* const entry = number < byNumber_.size() ? byNumber_[number] : nullptr;
            if (entry == nullptr) continue;
            if (std::exchange(entry->isAwaited, false)) --awaited_;
            if (auto answer = entry->lane.take()) take(entry->key, std::move(*answer));
        }
        return !answered_.empty();
    }

    /// Healthy ones answer nearly at once: whoever waits is woken when all have, and only later by
    /// each.
    void waitForAnswers(std::chrono::milliseconds left) {
        constexpr std::chrono::milliseconds together{10};
        bell_.expect(awaited_);
        if (pool_->waitForAnswer(TimeLimit(std::min(left, together)), bell_)) return;
        bell_.expect(1);
        if (left > together) pool_->waitForAnswer(TimeLimit(left - together), bell_);
    }

    /// How long at most somebody who is awaited may still take.
    std::chrono::milliseconds patienceLeft() const {
        std::chrono::milliseconds left{0};
        for (const auto& [key, entry] : lanes_) {
            if (!entry->isAwaited) continue;
            const auto unanswered = entry->lane.unanswered();
            const auto since = unanswered ? unanswered->since : std::chrono::milliseconds(0);
            left = std::max(left, patience_ - since);
            if (left == patience_) break;
        }
        return left;
    }

    const std::shared_ptr<Lanes> pool_;
    const std::chrono::milliseconds patience_;
    LaneBell bell_;
    std::map<Key, std::unique_ptr<Entry>> lanes_;
    std::vector<Entry*> byNumber_;       ///< null: free
    std::vector<std::size_t> answered_;  ///< their numbers; kept to reuse its memory
    std::size_t awaited_ = 0;
};

}  // namespace tav
