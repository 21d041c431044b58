#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/Waiting.h"

/// Lanes for what can hang.
///
/// A sick disk does not fail, it hangs: a command comes back after its time-out, after the error
/// handler's, or never, and nothing can interrupt the thread that asked. So nobody who has other
/// work to do asks a device or a vendor's library himself. He gives each a lane, in which at most
/// one question is under way, asked on a thread of a small pool; he waits for answers until his
/// deadline, goes on without those that have not come, and takes them when they come.
///
///     Lanes pool("tav-disk", 16, 5s);              // one for all devices of a manager
///     Lane<Reading> lane(pool);                    // one for each device
///     lane.ask("its SMART log", [node] { return readLog(node); });
///     while (pool.waitForAnswer(deadline)) {
///         if (auto reading = lane.take()) use(*reading);
///     }
///
/// What a question touches it must own: the asker may be gone when it ends.
namespace tav {

/// Tells an asker which of his lanes have been answered, when he is not the only one of a pool or
/// has too many of them to look at each. Shared with the questions, which may outlive him.
class LaneBell {
 public:
    LaneBell();

    /// Puts the lanes that were answered since the last call into `lanes`, by the numbers that he
    /// gave them. What it holds before is lost, but its memory is used again.
    void takeAnswered(std::vector<std::size_t>& lanes);
    /// Readable while there are some; after expect() not before there are so many.
    int descriptor() const;
    void expect(std::size_t lanes);

    void ring(std::size_t lane) const;

 private:
    struct Shared;
    std::shared_ptr<Shared> shared_;
};

/// A question on its way, shared by its lane and the thread that asks it.
class LaneQuestion {
 public:
    LaneQuestion(std::string what, const std::optional<LaneBell>& bell, std::size_t lane);
    LaneQuestion(const LaneQuestion&) = delete;
    LaneQuestion& operator=(const LaneQuestion&) = delete;
    virtual ~LaneQuestion() = default;

    const std::string& what() const { return what_; }
    /// Only once it is answered: how long that has taken.
    std::chrono::milliseconds took() const { return took_; }
    bool isAnswered() const { return answered_.load(std::memory_order_acquire); }
    /// Since a thread took it up; 0 while it waits for one.
    std::chrono::milliseconds underWayFor() const;
    /// Throws what the question has thrown. Only once it is answered.
    void rethrow() const {
        if (failure_) std::rethrow_exception(failure_);
    }

    /// Asks. Pool's thread; never throws.
    void run() noexcept;
    void noteBegin() { begun_.emplace(); }
    /// Null: nobody has a bell for it.
    const LaneBell* bell() const { return bell_ ? &*bell_ : nullptr; }
    std::size_t lane() const { return lane_; }

 private:
    virtual void ask() = 0;
    /// What the question owns is released on the thread that used it.
    virtual void release() = 0;

    const std::string what_;
    std::optional<Stopwatch> begun_;  ///< under the pool's lock
    std::exception_ptr failure_;
    std::chrono::milliseconds took_{0};
    std::atomic<bool> answered_{false};
    const std::optional<LaneBell> bell_;
    const std::size_t lane_;
};

/// ... which brings an answer.
template <class Answer>
class AnswerableQuestion : public LaneQuestion {
 public:
    using LaneQuestion::LaneQuestion;

    /// Only once it is answered.
    std::optional<Answer> takeAnswer() { return std::exchange(answer_, std::nullopt); }

 protected:
    std::optional<Answer> answer_{};
};

/// All that is asked and answered in one piece of memory: a healthy disk is asked every few
/// seconds.
template <class Answer, class Asking>
class AskedQuestion final : public AnswerableQuestion<Answer> {
 public:
    AskedQuestion(std::string what, const std::optional<LaneBell>& bell, std::size_t lane,
                  Asking asking)
        : AnswerableQuestion<Answer>(std::move(what), bell, lane), asking_(std::move(asking)) {}

 private:
    void ask() override { this->answer_.emplace((*asking_)()); }
    void release() override { asking_.reset(); }

    std::optional<Asking> asking_;
};

/// The pool of threads behind some lanes. Threads are started when there is something to ask and
/// end when there is nothing more, so an idle pool costs nothing. A question that takes longer than
/// the pool's patience hangs: it does not count among those at work any more, so that others are
/// asked in its stead. The next question of its lane does not count from the beginning: whoever has
/// hung may hang again, and takes nobody's place.
class Lanes {
 public:
    /// Threads show as `threadName` (a literal of at most 15 characters). At most `mostAtWork`
    /// questions are at work at a time; at most `mostHanging` more threads may hang.
    Lanes(const char* threadName, std::size_t mostAtWork, std::chrono::milliseconds patience);
    Lanes(const Lanes&) = delete;
    Lanes& operator=(const Lanes&) = delete;
    ~Lanes();

    static constexpr std::size_t mostHanging = 256;

    /// Waits until a question has been answered since the last call that told so. False when the
    /// limit is over or the calling thread is asked to stop first. Without a bell: of those that
    /// have none, for the only asker of the pool.
    bool waitForAnswer(const TimeLimit& limit);
    bool waitForAnswer(const TimeLimit& limit, const LaneBell& bell);

    /// Asks the questions to end: their threads' stop signal is set, and none is begun any more.
    void requestStop();

    /// After requestStop(): waits for the threads whose questions end before the limit is over, and
    /// lets go of the others, which own all that they touch. Returns how many are left behind.
    std::size_t finish(const TimeLimit& limit);

    /// Threads there are now; hanging ones count.
    std::size_t threads() const;

 private:
    template <class Answer>
    friend class Lane;
    struct Pool;

    void begin(std::shared_ptr<LaneQuestion> question, std::chrono::milliseconds lastTook);
    std::chrono::milliseconds underWayFor(const LaneQuestion& question) const;
    bool waitFor(int descriptor, const TimeLimit& limit);

    std::shared_ptr<Pool> pool_;
};

/// One device's lane. Belongs to one thread; the pool must outlive it.
template <class Answer>
class Lane {
 public:
    explicit Lane(Lanes& pool) : pool_(&pool) {}
    /// Rings the bell with `number` for each answer.
    Lane(Lanes& pool, LaneBell bell, std::size_t number)
        : pool_(&pool), bell_(std::move(bell)), number_(number) {}

    /// Asks on another thread, unless a question is under way: false then. `what` is asked, in
    /// words; `asking()` gives the answer.
    template <class Asking>
    bool ask(std::string what, Asking asking) {
        if (question_) return false;
        question_ = std::make_shared<AskedQuestion<Answer, Asking>>(std::move(what), bell_, number_,
                                                                    std::move(asking));
        pool_->begin(question_, lastTook_);
        return true;
    }

    /// The answer, once, when it has come. Throws what the question has thrown.
    std::optional<Answer> take() {
        if (!question_ || !question_->isAnswered()) return std::nullopt;
        const auto question = std::exchange(question_, nullptr);
        lastTook_ = question->took();
        question->rethrow();
        return question->takeAnswer();
    }

    /// Whether a question has not been answered, or its answer not been taken.
    bool isBusy() const { return question_ != nullptr; }

    /// How long the answer took that was taken last; 0 before the first one.
    std::chrono::milliseconds lastTook() const { return lastTook_; }

    struct Unanswered {
        std::string what;
        std::chrono::milliseconds since;  ///< 0 while no thread has taken it up
    };
    /// What is under way, and for how long.
    std::optional<Unanswered> unanswered() const {
        if (!question_ || question_->isAnswered()) return std::nullopt;
        return Unanswered{question_->what(), pool_->underWayFor(*question_)};
    }

 private:
    Lanes* pool_;
    std::chrono::milliseconds lastTook_{0};
    std::optional<LaneBell> bell_;
    std::size_t number_ = 0;
    std::shared_ptr<AnswerableQuestion<Answer>> question_;
};

}  // namespace tav
