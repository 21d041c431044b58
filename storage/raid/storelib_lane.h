#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "base/Lanes.h"
#include "storage/raid/storelib_records.h"

namespace tav::storelib {

/// The lane of the vendor library, which may hang in any of its commands: whoever wants something
/// of it has that done here, on a thread of the lane, one piece of work after the other, and goes
/// on without it when a command does not come back. The log says so once, with what was asked, and
/// again when the library answers. While it hangs nothing else is begun.
///
/// Any thread. Its own lock is held for nothing but what it keeps.
class LibraryLane {
 public:
    LibraryLane();
    LibraryLane(const LibraryLane&) = delete;
    LibraryLane& operator=(const LibraryLane&) = delete;

    using Moment = std::chrono::steady_clock::time_point;

    /// A command that takes longer hangs.
    static constexpr std::chrono::seconds patience{10};

    /// Does the work and waits for its end; throws what the work throws. False when the calling
    /// thread goes on without it: a command hangs, or the thread is asked to stop; where there is a
    /// limit, when that is over. The work is then done when the library answers, so it owns what it
    /// touches. Work within work is done at once.
    bool run(std::function<void()> work, std::optional<Moment> limit = std::nullopt);

    /// Whether a command hangs.
    bool isHanging() const;

    /// Held around a command: it is from then on what the library is being asked.
    class Asking {
     public:
        explicit Asking(const _SL_LIB_CMD_PARAM_T& command);
        Asking(const Asking&) = delete;
        Asking& operator=(const Asking&) = delete;
        ~Asking();
    };

    /// Called on the lane's thread after work in which a command had hung.
    void onReturn(std::function<void()> returned) { returned_ = std::move(returned); }

 private:
    struct Run;

    void perform(const std::shared_ptr<Run>& run);
    std::shared_ptr<Run> underWay() const;
    bool wait(Run& own, const std::optional<Moment>& limit);

    static thread_local Run* runOfThread_;  ///< the work that the calling thread does

    Lanes pool_;
    std::function<void()> returned_;
    mutable std::mutex lock_;
    std::shared_ptr<Run> underWay_;  ///< under lock_; null when nothing is
};

}  // namespace tav::storelib
