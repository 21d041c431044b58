#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <utility>

#include "base/Lanes.h"
#include "base/StopSignal.h"
#include "base/Waiting.h"
#include "core/Log.h"

namespace tav {

/// Asks one thing now and again for what may hang in the kernel, such as a driver, or what waits
/// for a lock that a driver holds. It is asked in a lane of its own, and whoever asks goes on
/// without an answer when it does not come in time or he is asked to stop. While a question hangs
/// no other is begun; the log says so once, and again when it is over.
template <class Answer>
class TimelyQuestion {
 public:
    /// In real time, also where the library's clock is a faster one: it is the machine's.
    static constexpr std::chrono::seconds patience{2};

    /// Its thread shows as `threadName`; `what` is asked, in words that begin a sentence. Both are
    /// literals.
    TimelyQuestion(const char* threadName, const char* what)
        : what_(what), pool_(threadName, 1, patience), lane_(pool_) {}

    /// Any thread; they take turns. What the question touches it must own.
    std::optional<Answer> ask(std::function<Answer()> question) {
        while (!lock_.try_lock()) {
            if (pauseFor(turnRetry) == Pause::Stopped) return std::nullopt;
        }
        const std::lock_guard<std::mutex> held(lock_, std::adopt_lock);
        if (lane_.take()) tellOfItsEnd();  // to somebody who has not waited for it
        if (!lane_.ask(what_, std::move(question))) return std::nullopt;
        const auto end = std::chrono::steady_clock::now() + patience;
        while (!stopRequested() && std::chrono::steady_clock::now() < end) {
            if (!pool_.waitForAnswer(TimeLimit(patience))) continue;
            if (auto answer = lane_.take()) return answer;
        }
        if (!stopRequested()) tellThatItHangs();
        return std::nullopt;
    }

 private:
    void tellThatItHangs() {
        isTold_ = true;
        logger.warning(here(), "%s has not been answered for %lld s; what was known before stands.",
                       what_, static_cast<long long>(patience.count()));
    }
    void tellOfItsEnd() {
        if (std::exchange(isTold_, false)) logger.warning(here(), "%s is answered again.", what_);
    }

    static constexpr ModuleLog logger{"TAV_UTILS"};
    static constexpr std::chrono::milliseconds turnRetry{5};

    const char* const what_;
    std::mutex lock_;  ///< guards what follows
    Lanes pool_;
    Lane<Answer> lane_;
    bool isTold_ = false;
};

}  // namespace tav
