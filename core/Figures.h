#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>

#include "base/Export.h"
#include "core/tavResourceManager.h"

/// What the process has done since it was started, counted where it is done, for those who show it.
/// Any thread; no locks: each number is right by itself, and those that are read together need not
/// be of one moment.
namespace tav {

/// How often something has been done, and how long that has taken.
class TAV_API Spent {
 public:
    struct Reading {
        std::uint64_t count = 0;
        std::chrono::nanoseconds took{0};  ///< all of them together
        std::time_t last = 0;              ///< when the last one ended; 0 for never
    };

    void add(std::chrono::nanoseconds took) noexcept;
    Reading read() const noexcept;

 private:
    std::atomic<std::uint64_t> count_{0};
    std::atomic<std::int64_t> nanoseconds_{0};
    std::atomic<std::int64_t> last_{0};
};

/// Adds the time of its own life.
class Timed {
 public:
    explicit Timed(Spent& spent) : spent_(spent) {}
    Timed(const Timed&) = delete;
    Timed& operator=(const Timed&) = delete;
    ~Timed() { spent_.add(std::chrono::steady_clock::now() - begun_); }

 private:
    Spent& spent_;
    const std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
};

/// A resource manager's work.
struct ManagerFigures {
    Spent builds;
    Spent polls;
};

TAV_API ManagerFigures& figuresOf(MODULE_NAME type);

}  // namespace tav
