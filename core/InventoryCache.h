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
#include "core/News.h"

namespace tav {

/// One generation of an inventory: complete, never changed, and owned by everybody who has it.
///
/// Whoever looks into one must have it in a variable: what is borrowed from a generation that
/// nobody holds is freed as soon as the next one is published.
template <class Inventory>
class Generation {
 public:
    explicit Generation(std::shared_ptr<const Inventory> inventory)
        : inventory_(std::move(inventory)) {}

    const Inventory& operator*() const& { return *inventory_; }
    const Inventory* operator->() const& { return inventory_.get(); }
    const Inventory& operator*() const&& = delete;
    const Inventory* operator->() const&& = delete;

 private:
    std::shared_ptr<const Inventory> inventory_;
};

/// The inventory of a manager in two generations: while the next one is being built, readers get
/// the last one that was published. A reader holds no lock while it copies from a generation and
/// waits for nobody.
template <class Inventory>
class InventoryCache {
 public:
    /// What a reader gets.
    struct Reading {
        Generation<Inventory> inventory;
        bool isBuilding;  ///< the next one is being built
    };

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
            const std::lock_guard<std::mutex> held(cache_.writerLock_);
            cache_.replace(std::move(inventory));
            if (std::exchange(cache_.isFirst_, false)) noteNews();
        }

     private:
        InventoryCache& cache_;
        std::lock_guard<std::mutex> held_;
    };

    /// The last published generation (an empty one before the first), and whether the next is being
    /// built. Any thread.
    Reading read() const {
        const bool building = buildInProgress_;
        return {current(), building};
    }

    /// The last published generation. Any thread.
    Generation<Inventory> current() const {
        const std::lock_guard<std::mutex> held(snapshotLock_);
        return Generation<Inventory>(snapshot_);
    }

    /// Publishes the current generation as `edit` changes a copy of it. A build that is running
    /// knows nothing of it. Readers go on meanwhile; another change or publication waits. Any
    /// thread.
    template <class Edit>
    void change(Edit edit) {
        const std::lock_guard<std::mutex> held(writerLock_);
        Inventory changed = *snapshot_;
        edit(changed);
        replace(std::move(changed));
        noteNews();
    }

    /// Begins anew with an empty generation. Any thread.
    void clear() {
        const std::lock_guard<std::mutex> held(writerLock_);
        replace({});
        isFirst_ = true;
    }

    bool isBuildInProgress() const { return buildInProgress_; }

 private:
    using Snapshot = std::shared_ptr<const Inventory>;

    /// Under the writers' lock, which nobody but writers takes.
    void replace(Inventory inventory) {
        Snapshot snapshot = std::make_shared<const Inventory>(std::move(inventory));
        {
            const std::lock_guard<std::mutex> held(snapshotLock_);
            snapshot_.swap(snapshot);
        }
        // Freeing thousands of records takes long. A reader that still copies from the old
        // generation must not become its last owner; a later writer frees it then.
        retired_.push_back(std::move(snapshot));
        std::erase_if(retired_, [](const Snapshot& old) { return old.use_count() == 1; });
        notePublication();
    }

    std::mutex mlock_;  ///< held for the whole of a build
    std::atomic<bool> buildInProgress_{false};
    std::mutex writerLock_;            ///< held while a generation is copied and replaced
    mutable std::mutex snapshotLock_;  ///< guards the pointer alone; writers hold both to set it
    Snapshot snapshot_ = std::make_shared<const Inventory>();
    /// Generations that somebody was still reading when they were replaced; under the writers'
    /// lock.
    std::vector<Snapshot> retired_;
    bool isFirst_ = true;  ///< no build has been published yet; under the writers' lock, too
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
