#pragma once

#include <atomic>
#include <chrono>

namespace tav::test {

/// The clock that the library waits by in the tests runs this much faster than the real one.
inline std::atomic<int> clockSpeed{1};

/// While set, the clock cannot be read (EIO).
inline std::atomic<bool> clockFails{false};

/// The moment that the fast clock shows.
std::chrono::nanoseconds fastNow();

}  // namespace tav::test
