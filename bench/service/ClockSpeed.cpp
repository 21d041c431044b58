/// How fast the clock of tavd_fast runs: TAV_CLOCK_SPEED times the real one, until SIGUSR1 makes it
/// an ordinary one again.
#include <csignal>
#include <cstdlib>

#include "tests/support/FastWaiting.h"

namespace {

[[maybe_unused]] const int speed = [] {
    const char* const wanted = std::getenv("TAV_CLOCK_SPEED");
    if (wanted != nullptr && std::atoi(wanted) > 0) tav::test::clockSpeed = std::atoi(wanted);
    std::signal(SIGUSR1, [](int) { tav::test::clockSpeed = 1; });
    return tav::test::clockSpeed.load();
}();

}  // namespace
