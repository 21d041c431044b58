#include "storage/raid/storelib_lane.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <exception>
#include <utility>

#include <unistd.h>

#include <sys/eventfd.h>

#include "base/FileDescriptor.h"
#include "core/Log.h"
#include "core/Unanswered.h"

namespace tav::storelib {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

constexpr ModuleLog logger{"LSI_INTERF"};

/// How often whoever waits until a moment looks at the clock.
constexpr milliseconds limitStep = 20ms;

/// The pool is to start no second thread beside one that hangs.
constexpr auto unlimited = std::chrono::hours(24 * 365);

struct CommandText {
    std::uint8_t type, code;
    const char* text;
};
constexpr std::array commandTexts = {
    CommandText{0, 0, "its initialisation"},
    CommandText{0, 1, "a registration for events"},
    CommandText{0, 2, "the end of a registration for events"},
    CommandText{0, 3, "its list of controllers"},
    CommandText{0, 9, "its release"},
    CommandText{1, 0, "a controller's information"},
    CommandText{1, 4, "a controller's list of drives"},
    CommandText{1, 5, "a controller's list of enclosures"},
    CommandText{1, 11, "a controller's PCI address"},
    CommandText{1, 13, "a controller's list of volumes"},
    CommandText{2, 0, "a drive's information"},
    CommandText{3, 0, "a volume's information"},
    CommandText{3, 11, "a volume's list of drives"},
    CommandText{6, 3, "a controller's serial number"},
    CommandText{7, 0, "a controller's newest event"},
};

const char* textOf(const _SL_LIB_CMD_PARAM_T& command) {
    for (const CommandText& row : commandTexts) {
        if (row.type == command.commandType && row.code == command.commandCode) return row.text;
    }
    return "a command";
}

long long secondsOf(milliseconds time) {
    return std::chrono::duration_cast<std::chrono::seconds>(time).count();
}

}  // namespace

/// One piece of work, shared by whoever waits for it and the thread that does it.
struct LibraryLane::Run {
    explicit Run(std::function<void()> toDo)
        : work(std::move(toDo)), done(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

    std::function<void()> work;
    std::exception_ptr failure{};  ///< to be read once it is done
    const FileDescriptor done;     ///< readable then

    std::mutex lock{};  ///< guards what follows
    const char* asked = nullptr;
    std::optional<Stopwatch> since{};
    std::optional<Unanswered> reported{};  ///< that this command hangs
    bool hasHung = false;                  ///< this command or one before it

    void begin(const char* command) {
        const std::lock_guard<std::mutex> held(lock);
        asked = command;
        since.emplace();
    }

    void end() {
        std::optional<Stopwatch> begun;
        {
            const std::lock_guard<std::mutex> held(lock);
            begun.swap(since);
            if (!reported) return;
            reported.reset();
        }
        logger.warning(here(), "The RAID library answers again: it took %lld s for %s.",
                       secondsOf(begun->elapsed()), asked);
    }

    /// How much longer its command may take before it hangs.
    milliseconds left() {
        const std::lock_guard<std::mutex> held(lock);
        return since ? std::max(patience - since->elapsed(), milliseconds(0)) : patience;
    }

    void report() {
        const char* what = nullptr;
        {
            const std::lock_guard<std::mutex> held(lock);
            if (!since || reported) return;
            reported.emplace("the RAID library", asked);
            hasHung = true;
            what = asked;
        }
        logger.error(here(),
                     "The RAID library does not answer: it was asked for %s %lld s ago. What it "
                     "told before stands until it does.",
                     what, static_cast<long long>(patience.count()));
    }

    bool hadHung() {
        const std::lock_guard<std::mutex> held(lock);
        return hasHung;
    }

    void ring() const {
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = ::write(done.get(), &one, sizeof one);
    }
};

thread_local LibraryLane::Run* LibraryLane::runOfThread_ = nullptr;

LibraryLane::Asking::Asking(const _SL_LIB_CMD_PARAM_T& command) {
    if (runOfThread_ != nullptr) runOfThread_->begin(textOf(command));
}

LibraryLane::Asking::~Asking() {
    if (runOfThread_ != nullptr) runOfThread_->end();
}

LibraryLane::LibraryLane() : pool_("tav-raid", 1, unlimited) {}

std::shared_ptr<LibraryLane::Run> LibraryLane::underWay() const {
    const std::lock_guard<std::mutex> held(lock_);
    return underWay_;
}

bool LibraryLane::isHanging() const {
    const auto run = underWay();
    return run != nullptr && run->left() == 0ms;
}

bool LibraryLane::run(std::function<void()> work, std::optional<Moment> limit) {
    if (runOfThread_ != nullptr) {
        work();
        return true;
    }
    if (!limit && isHanging()) return false;
    const auto own = std::make_shared<Run>(std::move(work));
    Lane<bool> lane(pool_);
    lane.ask("the RAID library", [this, own] {
        perform(own);
        return true;
    });
    if (!wait(*own, limit)) return false;
    if (own->failure) std::rethrow_exception(own->failure);
    return true;
}

/// Lane's thread.
void LibraryLane::perform(const std::shared_ptr<Run>& run) {
    {
        const std::lock_guard<std::mutex> held(lock_);
        underWay_ = run;
    }
    runOfThread_ = run.get();
    try {
        run->work();
    } catch (...) {
        run->failure = std::current_exception();
    }
    run->work = nullptr;
    runOfThread_ = nullptr;
    {
        const std::lock_guard<std::mutex> held(lock_);
        underWay_ = nullptr;
    }
    run->ring();
    if (run->hadHung() && returned_) returned_();
}

bool LibraryLane::wait(Run& own, const std::optional<Moment>& limit) {
    while (true) {
        // What it waits for may be somebody else's work before it.
        const auto run = underWay();
        const milliseconds left = run == nullptr ? patience : run->left();
        const milliseconds step = limit ? limitStep : left;
        const Readable result = waitReadable(own.done.get(), TimeLimit(step));
        if (result == Readable::Ready) return true;
        if (result != Readable::TimedOut) return false;
        const bool hangs = run != nullptr && run->left() == 0ms;
        if (hangs) run->report();
        if (limit ? std::chrono::steady_clock::now() >= *limit : hangs) return false;
    }
}

}  // namespace tav::storelib
