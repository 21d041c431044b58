#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include <json/value.h>

#include "base/Waiting.h"

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
            // generation must not become its last owner; a later build frees it then.
            cache_.retired_.push_back(std::move(snapshot));
            std::erase_if(cache_.retired_,
                          [](const Snapshot& old) { return old.use_count() == 1; });
        }

     private:
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
    /// Generations that somebody was still reading when they were replaced; under the build lock.
    std::vector<Snapshot> retired_;
};

/// Replaces `records` by those of the last published generation; returns 1 when the next one is
/// being built, else 0. Any thread.
template <class Inventory>
int copyRecords(const InventoryCache<Inventory>& cache, std::vector<Json::Value>& records) {
    const auto [inventory, building] = cache.read();
    records = inventory->records;
    return building ? 1 : 0;
}

/// Whether the cache holds a built inventory, which has something in `list`: asks up to three times
/// and pauses after each no, which it reports: report(building, size, retry), where `building` is 1
/// during a build and `retry` counts from 0. Any thread; a stop ends the pauses.
template <class Inventory, class List, class Report>
bool holdsInventory(const InventoryCache<Inventory>& cache, List Inventory::*list,
                    std::chrono::seconds pause, Report report) {
    for (int retry = 0; retry < 3; ++retry) {
        const auto [inventory, building] = cache.read();
        const std::size_t size = ((*inventory).*list).size();
        if (!building && size > 0) return true;
        report(building ? 1 : 0, size, retry);
        if (pauseFor(pause) == Pause::Stopped) return false;
    }
    return false;
}

}  // namespace tav
