#include "rmc/Undelivered.h"

#include <algorithm>

namespace tav {
namespace {
using namespace std::chrono_literals;
constexpr std::chrono::minutes firstPause = 1min;
constexpr std::chrono::minutes longestPause = 10min;
}  // namespace

void Undelivered::askAgain() {
    askAgainAt_ = Deadline::after(pause_);
    pause_ = std::min(2 * pause_, longestPause);
}

void Undelivered::eventWasLost() {
    if (!askAgainAt_) askAgain();
}

void Undelivered::inventoryBegins() {
    wasBehind_ = askAgainAt_.has_value();
    askAgainAt_.reset();
}

void Undelivered::inventoryWasAcknowledged() {
    pause_ = firstPause;
}

void Undelivered::inventoryFailed() {
    askAgain();
}

void Undelivered::inventoryWasEmpty() {
    if (wasBehind_) askAgain();
}

}  // namespace tav
