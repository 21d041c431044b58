/// How fast the clock of tavd_fast runs: TAV_CLOCK_SPEED times the real one.
#include <cstdlib>

#include "tests/support/FastWaiting.h"

namespace {

[[maybe_unused]] const int speed = [] {
    const char* const wanted = std::getenv("TAV_CLOCK_SPEED");
    if (wanted != nullptr && std::atoi(wanted) > 0) tav::test::clockSpeed = std::atoi(wanted);
    return tav::test::clockSpeed.load();
}();

}  // namespace
