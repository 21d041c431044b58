#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/LaneGroup.h"
#include "core/Unanswered.h"
#include "storage/registered_factories.h"
#include "storage/storage_inventory.h"

/// The storage manager's rounds: every factory and every controller is asked in a lane of its own,
/// side by side, so that one that hangs holds up neither the others nor the manager.
namespace tav {

/// Which lists a controller has told to their end.
struct ToldLists {
    bool drives = false;
    bool volumes = false;
};

/// Gives a controller's part the lists of `known`, which is its part as it was or null, for those
/// that it has not told now: a list that could not be asked for is not an empty one.
void keepUntold(const StorageGeneration::Part* known, ToldLists told,
                StorageGeneration::Part& part);

/// Manager's thread only, but for requestStop().
class StorageRounds {
 public:
    /// Of an answer that comes after the discovery that asked for it.
    using PublishLate = std::function<void(StorageGeneration::Part part, ToldLists told)>;

    explicit StorageRounds(PublishLate publishLate);

    /// Discovers every controller of every registered factory and what is behind it, and lets the
    /// controllers report events. What fails, throws or does not answer in time costs its own
    /// records and no others: what `before` has of them stands. Ends early, with what there is,
    /// when the thread is asked to stop.
    StorageGeneration discover(const StorageGeneration& before);

    /// Looks for changes at every factory and controller.
    void poll();

    /// Ends the waits of those who are asked; nobody is asked any more. Any thread.
    void requestStop() { lanes_->requestStop(); }

    /// After requestStop(): shuts all factories down. Waits for nobody for long.
    void shutDown();

 private:
    /// What a question brings.
    struct Answer {
        enum class Kind { Listed, ListedForPoll, Discovered, Done };
        Kind kind = Kind::Done;
        ItavStorageControllerFactory* factory = nullptr;
        bool isKnown = false;            ///< Listed: the list is whole
        Controllers controllers{};       ///< Listed, ListedForPoll
        StorageGeneration::Part part{};  ///< Discovered
        ToldLists told{};                ///< Discovered
    };
    using Key = const void*;  ///< a factory or controller

    bool ask(Key who, const char* what, std::function<Answer()> question);
    void askDiscovery(ItavStorageControllerFactory& factory, ItavStorageController& controller);
    void askPoll(ItavStorageController& controller);
    void collect(std::chrono::milliseconds limit);
    void take(Answer answer);
    void takeDiscovered(Answer answer);
    bool isListed(const StorageGeneration::Part& part) const;
    StorageGeneration compose(const StorageGeneration& before) const;
    void noteSilent();

    static Answer discoverController(ItavStorageControllerFactory& factory,
                                     ItavStorageController& controller);

    const PublishLate publishLate_;
    const std::shared_ptr<Lanes> lanes_;
    LaneGroup<Key, Answer> group_;
    std::map<Key, Unanswered> silent_;  ///< of which it has been said

    const StorageGeneration* before_ = nullptr;  ///< not null while a discovery runs
    std::map<Key, std::vector<Key>> listed_;     ///< the controllers, as factories told them last
    std::map<Key, StorageGeneration::Part> discovered_;
};

}  // namespace tav
