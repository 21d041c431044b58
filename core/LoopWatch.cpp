#include "core/LoopWatch.h"

#include <algorithm>
#include <array>
#include <mutex>

#include <pthread.h>

namespace tav {
namespace {

using std::chrono::seconds;

constexpr LoopWatch::Clock::time_point never = LoopWatch::Clock::time_point::max();

struct Registry {
    std::mutex lock;
    std::vector<const LoopWatch*> loops;
};

Registry& registry() {
    static Registry* const instance = new Registry;  // loops end when the process does
    return *instance;
}

thread_local LoopWatch* loopOfThisThread = nullptr;

std::string nameOfThisThread() {
    std::array<char, 16> name{};
    ::pthread_getname_np(::pthread_self(), name.data(), name.size());
    return name.data();
}

}  // namespace

void LoopWatch::begins() {
    loopOfThisThread = this;
    works();
    const std::lock_guard<std::mutex> held(registry().lock);
    name_ = nameOfThisThread();
    std::vector<const LoopWatch*>& loops = registry().loops;
    if (std::find(loops.begin(), loops.end(), this) == loops.end()) loops.push_back(this);
}

void LoopWatch::waits(std::optional<seconds> longest) {
    // The longest waits, of years, are as good as endless, and their sums with a clock overflow.
    constexpr seconds endless = std::chrono::hours(24 * 365);
    due(longest && *longest < endless ? Clock::now() + *longest + patience_ : never);
}

void LoopWatch::works() {
    due(Clock::now() + patience_);
}

void LoopWatch::ends() {
    if (loopOfThisThread == this) loopOfThisThread = nullptr;
    const std::lock_guard<std::mutex> held(registry().lock);
    std::erase(registry().loops, this);
}

void LoopWatch::advances() {
    if (loopOfThisThread != nullptr) loopOfThisThread->works();
}

std::vector<StandingLoop> LoopWatch::standingStill(Clock::time_point now) {
    std::vector<StandingLoop> standing;
    const std::lock_guard<std::mutex> held(registry().lock);
    for (const LoopWatch* const loop : registry().loops) {
        const Clock::time_point due{Clock::duration(loop->due_.load())};
        if (due > now) continue;
        standing.push_back({loop->name_, std::chrono::duration_cast<seconds>(now - due)});
    }
    return standing;
}

}  // namespace tav
