#pragma once

#include <functional>
#include <memory>
#include <mutex>

#include "base/Export.h"
#include "storage/raid/storelib_survey.h"

namespace tav::storelib {

/// The last complete generation of what the library tells. Any thread.
///
/// Locks: the build lock is held for the whole of a build, in which the library is asked; the lock
/// of the generation for the exchange of a pointer. Generations are never changed: a build makes
/// the next one from a copy, and whoever holds one keeps it for as long as he wants.
class TAV_API Cache {
 public:
    using Generation = std::shared_ptr<const Snapshot>;

    /// `build` receives a copy of the last generation and leaves the next one in it. One at a time.
    void rebuild(const std::function<void(const Snapshot& known, Snapshot& next)>& build);

    /// Waits some six seconds for a build that is under way, and takes the generation before it
    /// when that has not been enough.
    Generation read();

    /// The last complete generation, at once.
    Generation published() const;

 private:
    bool takeLock(std::unique_lock<std::mutex>& held);

    std::mutex buildLock_;
    mutable std::mutex generationLock_;
    Generation generation_ = std::make_shared<const Snapshot>();  ///< under generationLock_
};

}  // namespace tav::storelib
