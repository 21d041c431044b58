#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <utility>

#include "core/Waiting.h"

namespace tav {

/// The inventory of a manager in two generations: while the next one is being built, readers get
/// the last one that was published. A published generation never changes, so a reader holds no lock
/// while it copies from it and waits for nobody.
template <class Inventory>
class InventoryCache {
 public:
    using Snapshot = std::shared_ptr<const Inventory>;

    /// One build: holds the build lock for its lifetime. What is not published leaves the last
    /// generation in place. Manager's thread only.
    class Build {
     public:
        explicit Build(InventoryCache& cache) : cache_(cache), held_(cache.mlock_) {
            cache_.buildInProgress_ = true;
        }
        Build(const Build&) = delete;
        Build& operator=(const Build&) = delete;
        ~Build() { cache_.buildInProgress_ = false; }

        void publish(Inventory inventory) {
            Snapshot snapshot = std::make_shared<const Inventory>(std::move(inventory));
            {
                const std::lock_guard<std::mutex> held(cache_.snapshotLock_);
                cache_.snapshot_.swap(snapshot);
            }
            // Freeing thousands of records takes long. A reader that still copies from the old
            // generation must not become its last owner.
            while (snapshot.use_count() > 1 && pauseFor(readerPatience) == Pause::Finished) {
            }
        }

     private:
        static constexpr std::chrono::milliseconds readerPatience{1};

        InventoryCache& cache_;
        std::lock_guard<std::mutex> held_;
    };

    /// The last published generation (an empty one before the first), and whether the next is being
    /// built. Any thread.
    std::pair<Snapshot, bool> read() const {
        const bool building = buildInProgress_;
        const std::lock_guard<std::mutex> held(snapshotLock_);
        return {snapshot_, building};
    }

    /// Publishes the current generation as `edit` changes a copy of it. A build that is running
    /// knows nothing of it. Any thread.
    template <class Edit>
    void change(Edit edit) {
        const std::lock_guard<std::mutex> held(snapshotLock_);
        Inventory changed = *snapshot_;
        edit(changed);
        snapshot_ = std::make_shared<const Inventory>(std::move(changed));
    }

    bool isBuildInProgress() const { return buildInProgress_; }

 private:
    std::mutex mlock_;  ///< held for the whole of a build
    std::atomic<bool> buildInProgress_{false};
    mutable std::mutex snapshotLock_;  ///< guards the pointer alone
    Snapshot snapshot_ = std::make_shared<const Inventory>();
};

}  // namespace tav
