#include "base/Lanes.h"

#include <algorithm>
#include <cstdint>
#include <deque>
#include <list>
#include <mutex>
#include <thread>
#include <utility>

#include <sys/eventfd.h>

#include "base/FileDescriptor.h"
#include "base/StopSignal.h"
#include "base/Threads.h"

namespace tav {

using std::chrono::milliseconds;

namespace {

void ring(const FileDescriptor& event) {
    const std::uint64_t one = 1;
    // Fails only when the counter is full, which leaves the descriptor readable all the same.
    [[maybe_unused]] const ssize_t written = ::write(event.get(), &one, sizeof one);
}

void silence(const FileDescriptor& event) {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t size = ::read(event.get(), &count, sizeof count);
}

}  // namespace

struct LaneBell::Shared {
    FileDescriptor event{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    std::mutex lock;
    // Under the lock:
    std::vector<std::size_t> answered;
    std::size_t expected = 1;

    void ringIfExpected() const {
        if (answered.size() >= expected) tav::ring(event);
    }
};

LaneBell::LaneBell() : shared_(std::make_shared<Shared>()) {}

void LaneBell::takeAnswered(std::vector<std::size_t>& lanes) {
    lanes.clear();
    const std::lock_guard<std::mutex> held(shared_->lock);
    if (!shared_->answered.empty()) silence(shared_->event);
    lanes.swap(shared_->answered);
}

int LaneBell::descriptor() const {
    return shared_->event.get();
}

void LaneBell::ring(std::size_t lane) const {
    const std::lock_guard<std::mutex> held(shared_->lock);
    shared_->answered.push_back(lane);
    shared_->ringIfExpected();
}

void LaneBell::expect(std::size_t lanes) {
    const std::lock_guard<std::mutex> held(shared_->lock);
    shared_->expected = std::max(lanes, std::size_t{1});
    shared_->ringIfExpected();
}

LaneQuestion::LaneQuestion(std::string what, const std::optional<LaneBell>& bell, std::size_t lane)
    : what_(std::move(what)), bell_(bell), lane_(lane) {}

milliseconds LaneQuestion::underWayFor() const {
    return begun_ ? begun_->elapsed() : milliseconds(0);
}

void LaneQuestion::run() noexcept {
    try {
        ask();
    } catch (...) {
        failure_ = std::current_exception();
    }
    release();
    took_ = begun_->elapsed();
    answered_.store(true, std::memory_order_release);
}

/// Shared by the asker and the threads, so that one that hangs owns what it will touch.
struct Lanes::Pool {
    /// A thread. Detached: it frees its stack as soon as it leaves, and it may hang for ever. What
    /// counts is whether it is still in the list.
    struct Worker {
        std::shared_ptr<LaneQuestion> question{};  ///< the one at work
        std::shared_ptr<LaneQuestion> only{};      ///< what a thread apart is there for
        bool isApart = false;
    };
    using WorkerPointer = std::shared_ptr<Worker>;

    Pool(const char* threadName, std::size_t mostWorking, milliseconds patienceWithEach)
        : name(threadName),
          mostAtWork(mostWorking),
          patience(patienceWithEach),
          answered(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

    const char* const name;
    const std::size_t mostAtWork;
    const milliseconds patience;
    const FileDescriptor answered;  ///< readable when a question has been answered
    StopSignal stop;

    mutable std::mutex lock;  ///< guards what follows
    std::deque<std::shared_ptr<LaneQuestion>> waiting;
    std::list<WorkerPointer> workers;

    bool isAtWork(const Worker& worker) const {
        return !worker.isApart && (!worker.question || worker.question->underWayFor() < patience);
    }

    /// Until one of those at work hangs at the soonest, so that one that waits is asked in its
    /// stead.
    milliseconds untilRoom() const {
        constexpr milliseconds least{1};
        const std::lock_guard<std::mutex> held(lock);
        milliseconds left = patience;
        if (waiting.empty()) return left;
        for (const WorkerPointer& worker : workers) {
            if (worker->question && isAtWork(*worker)) {
                left = std::min(left, patience - worker->question->underWayFor());
            }
        }
        return std::max(left, least);
    }

    /// Starts threads for the questions that wait, as far as there is room. Under the lock.
    static void engage(const std::shared_ptr<Pool>& pool) {
        const auto atWork = static_cast<std::size_t>(
            std::count_if(pool->workers.begin(), pool->workers.end(),
                          [&](const auto& worker) { return pool->isAtWork(*worker); }));
        std::size_t wanted =
            std::min(pool->waiting.size(), pool->mostAtWork - std::min(atWork, pool->mostAtWork));
        while (wanted > 0 && start(pool, std::make_shared<Worker>()))
            --wanted;
    }

    /// Starts a thread for that question alone. Under the lock.
    static bool engageApart(const std::shared_ptr<Pool>& pool,
                            const std::shared_ptr<LaneQuestion>& question) {
        const auto worker = std::make_shared<Worker>();
        worker->only = question;
        worker->isApart = true;
        return start(pool, worker);
    }

    static bool start(const std::shared_ptr<Pool>& pool, const WorkerPointer& worker) {
        if (pool->workers.size() >= pool->mostAtWork + mostHanging) return false;
        std::thread thread;
        if (startThread(thread, pool->name, [pool, worker] { work(*pool, worker); }) != 0)
            return false;
        thread.detach();
        pool->workers.push_back(worker);
        return true;
    }

    static void work(Pool& pool, const WorkerPointer& worker) {
        const StopScope scope(&pool.stop);
        while (const auto question = pool.next(worker)) {
            question->run();
            if (const LaneBell* const bell = question->bell(); bell != nullptr) {
                bell->ring(question->lane());
            } else {
                ring(pool.answered);
            }
        }
        if (pool.stop.requested())
            ring(pool.answered);  // whoever finishes waits for threads to leave
    }

    /// What the worker is to ask next; null when it is to leave.
    std::shared_ptr<LaneQuestion> next(const WorkerPointer& worker) {
        const std::lock_guard<std::mutex> held(lock);
        worker->question = std::exchange(worker->only, nullptr);
        if (!worker->question && !worker->isApart && !waiting.empty()) {
            worker->question = std::move(waiting.front());
            waiting.pop_front();
        }
        if (!worker->question) {
            workers.remove(worker);
            return nullptr;
        }
        worker->question->noteBegin();
        return worker->question;
    }
};

Lanes::Lanes(const char* threadName, std::size_t mostAtWork, milliseconds patience)
    : pool_(std::make_shared<Pool>(threadName, mostAtWork, patience)) {}

Lanes::~Lanes() {
    requestStop();
    finish(TimeLimit(milliseconds(0)));
}

void Lanes::begin(std::shared_ptr<LaneQuestion> question, milliseconds lastTook) {
    const std::lock_guard<std::mutex> held(pool_->lock);
    if (pool_->stop.requested()) return;
    if (lastTook >= pool_->patience && Pool::engageApart(pool_, question)) return;
    pool_->waiting.push_back(std::move(question));
    Pool::engage(pool_);
}

milliseconds Lanes::underWayFor(const LaneQuestion& question) const {
    const std::lock_guard<std::mutex> held(pool_->lock);
    return question.underWayFor();
}

bool Lanes::waitForAnswer(const TimeLimit& limit) {
    if (!waitFor(pool_->answered.get(), limit)) return false;
    silence(pool_->answered);
    return true;
}

bool Lanes::waitForAnswer(const TimeLimit& limit, const LaneBell& bell) {
    return waitFor(bell.descriptor(), limit);
}

bool Lanes::waitFor(int descriptor, const TimeLimit& limit) {
    while (true) {
        const milliseconds step = std::min(limit.left(), pool_->untilRoom());
        const Readable result = waitReadable(descriptor, TimeLimit(step));
        if (result == Readable::Ready) return true;
        if (result != Readable::TimedOut) return false;
        {
            const std::lock_guard<std::mutex> held(pool_->lock);
            Pool::engage(pool_);  // some may have begun to hang while others wait
        }
        if (limit.left() == milliseconds(0)) return false;
    }
}

void Lanes::requestStop() {
    pool_->stop.request();
    const std::lock_guard<std::mutex> held(pool_->lock);
    pool_->waiting.clear();
}

std::size_t Lanes::finish(const TimeLimit& limit) {
    const StopScope undisturbed(nullptr);
    while (threads() > 0 && waitForAnswer(limit)) {
    }
    return threads();
}

std::size_t Lanes::threads() const {
    const std::lock_guard<std::mutex> held(pool_->lock);
    return pool_->workers.size();
}

}  // namespace tav
