#include "storage/storage_rounds.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace tav {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t mostAtWork = 4;
constexpr auto discoveryLimit = 30s;
constexpr auto pollLimit = 10s;
constexpr auto shutDownLimit = 1s;
constexpr auto questionsLimit = 300ms;

constexpr const char* factoryDiscovery = "The discovery of a factory's controllers";
constexpr const char* factoryPoll = "The poll of a factory";
constexpr const char* controllerDiscovery = "The discovery of a controller";
constexpr const char* controllerPoll = "The poll of a controller";
constexpr const char* shutDownOfFactory = "Shutting a factory down";

/// One more reference, for a question.
template <class Object>
std::shared_ptr<Object> share(Object& object) {
    return {shareReference(object).release(), ReleaseReference()};
}

}  // namespace

void keepUntold(const StorageGeneration::Part* known, ToldLists told,
                StorageGeneration::Part& part) {
    if (known == nullptr || (told.drives && told.volumes)) return;
    StorageInventory inventory = *part.inventory;
    if (!told.drives) inventory.drives = known->inventory->drives;
    if (!told.volumes) inventory.volumes = known->inventory->volumes;
    part.inventory = std::make_shared<const StorageInventory>(std::move(inventory));
}

StorageRounds::StorageRounds(PublishLate publishLate)
    : publishLate_(std::move(publishLate)),
      lanes_(std::make_shared<Lanes>("tav-storage-ask", mostAtWork, pollLimit)),
      group_(lanes_, discoveryLimit) {}

bool StorageRounds::ask(Key who, const char* what, std::function<Answer()> question) {
    return group_.ask(who, what, std::move(question));
}

StorageGeneration StorageRounds::discover(const StorageGeneration& before) {
    listed_.clear();
    discovered_.clear();
    before_ = &before;
    forEachFactory(factoryDiscovery, [&](ItavStorageControllerFactory& factory) {
        ask(&factory, factoryDiscovery, [&factory] {
            Answer answer{.kind = Answer::Kind::Listed, .factory = &factory};
            contain(factoryDiscovery, [&] {
                auto controllers = discoverControllers(factory);
                answer.isKnown = controllers.has_value();
                if (controllers) answer.controllers = std::move(*controllers);
            });
            return answer;
        });
    });
    collect(discoveryLimit);
    before_ = nullptr;
    return compose(before);
}

void StorageRounds::poll() {
    forEachFactory(factoryPoll, [&](ItavStorageControllerFactory& factory) {
        ask(&factory, factoryPoll, [&factory] {
            Answer answer{.kind = Answer::Kind::ListedForPoll, .factory = &factory};
            contain("The search for changed controllers", [&] { factory.poll(); });
            contain(factoryPoll, [&] {
                if (auto known = knownControllers(factory)) answer.controllers = std::move(*known);
            });
            return answer;
        });
    });
    collect(pollLimit);
}

void StorageRounds::askPoll(ItavStorageController& controller) {
    ask(&controller, controllerPoll, [shared = share(controller)] {
        contain(controllerPoll, [&] { shared->poll(); });
        return Answer{};
    });
}

void StorageRounds::askDiscovery(ItavStorageControllerFactory& factory,
                                 ItavStorageController& controller) {
    ask(&controller, controllerDiscovery, [&factory, shared = share(controller)] {
        Answer answer = discoverController(factory, *shared);
        // Also where that failed: a controller in trouble has most to report.
        contain("Enabling a controller's events", [&] { shared->enableEvents(); });
        return answer;
    });
}

StorageRounds::Answer StorageRounds::discoverController(ItavStorageControllerFactory& factory,
                                                        ItavStorageController& controller) {
    Answer answer{.kind = Answer::Kind::Discovered, .factory = &factory};
    StorageRecords records;
    contain(controllerDiscovery, [&] {
        tavStorageControllerInfo info;
        if (controller.discoverInventory(info) < 0) return;
        records.controllers.push_back(std::move(info));
        answer.told.drives = controller.discoverPhysicalDiskInventory(records.disks) >= 0;
        if (!answer.told.drives) return;
        answer.told.volumes = controller.discoverLogicalDiskInventory(records.volumes) >= 0;
    });
    answer.part = {&factory, &controller, nullptr};
    if (!records.controllers.empty()) {
        answer.part.inventory = std::make_shared<const StorageInventory>(renderStorage(records));
    }
    return answer;
}

void StorageRounds::collect(std::chrono::milliseconds limit) {
    group_.collect(
        TimeLimit(limit),
        [this](Key who, Answer answer) {
            if (silent_.erase(who) > 0) {
                storageLog.info(here(), "What had not come back for long has come back.");
            }
            take(std::move(answer));
        },
        [] {});
    noteSilent();
    group_.forgetUnless([](Key) { return false; });  // who answers may be gone tomorrow
}

void StorageRounds::take(Answer answer) {
    switch (answer.kind) {
        case Answer::Kind::Listed: {
            if (!answer.isKnown) return;
            std::vector<Key>& list = listed_[answer.factory];
            list.clear();
            for (const auto& controller : answer.controllers) {
                list.push_back(controller.get());
                askDiscovery(*answer.factory, *controller);
            }
            return;
        }
        case Answer::Kind::ListedForPoll:
            for (const auto& controller : answer.controllers)
                askPoll(*controller);
            return;
        case Answer::Kind::Discovered:
            takeDiscovered(std::move(answer));
            return;
        case Answer::Kind::Done:
            return;
    }
}

void StorageRounds::takeDiscovered(Answer answer) {
    if (!answer.part.inventory) return;
    if (before_ == nullptr) {
        if (isListed(answer.part)) publishLate_(std::move(answer.part), answer.told);
        return;
    }
    keepUntold(before_->partOf(*answer.part.controller), answer.told, answer.part);
    discovered_[answer.part.controller] = std::move(answer.part);
}

/// A factory whose list is not known has what it had.
bool StorageRounds::isListed(const StorageGeneration::Part& part) const {
    const auto list = listed_.find(part.factory);
    return list == listed_.end() || std::find(list->second.begin(), list->second.end(),
                                              part.controller) != list->second.end();
}

/// In the order of the factories and of their lists.
StorageGeneration StorageRounds::compose(const StorageGeneration& before) const {
    StorageGeneration found;
    const auto known = [&](Key controller) {
        return std::find_if(before.parts.begin(), before.parts.end(),
                            [&](const auto& part) { return part.controller == controller; });
    };
    forEachFactory("The inventory of a factory", [&](ItavStorageControllerFactory& factory) {
        const auto list = listed_.find(&factory);
        if (list == listed_.end()) {
            std::copy_if(before.parts.begin(), before.parts.end(), std::back_inserter(found.parts),
                         [&](const auto& part) { return part.factory == &factory; });
            return;
        }
        for (const Key controller : list->second) {
            if (const auto part = discovered_.find(controller); part != discovered_.end()) {
                found.parts.push_back(part->second);
            } else if (const auto stands = known(controller); stands != before.parts.end()) {
                found.parts.push_back(*stands);
            }
        }
    });
    return found;
}

void StorageRounds::noteSilent() {
    group_.forEachUnanswered([this](Key who, const auto& unanswered) {
        const bool isNew =
            !stopRequested() && silent_.try_emplace(who, "storage", unanswered.what).second;
        if (!isNew) return;
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(unanswered.since);
        storageLog.warning(here(),
                           "%s has not come back for %ld seconds. The rest goes on without it; "
                           "what was known before stands.",
                           unanswered.what.c_str(), static_cast<long>(seconds.count()));
    });
}

void StorageRounds::shutDown() {
    lanes_->finish(TimeLimit(questionsLimit));
    group_.clear();
    const auto lanes = std::make_shared<Lanes>("tav-storage-end", mostAtWork, shutDownLimit);
    LaneGroup<Key, bool> group(lanes, shutDownLimit);
    forEachFactory(shutDownOfFactory, [&](ItavStorageControllerFactory& factory) {
        group.ask(&factory, shutDownOfFactory, [&factory] {
            contain(shutDownOfFactory, [&] { factory.shutdownFactory(); });
            return true;
        });
    });
    const StopScope undisturbed(nullptr);
    group.collect(
        TimeLimit(shutDownLimit), [](Key, bool) {}, [] {});
    group.forEachUnanswered([](Key, const auto& unanswered) {
        storageLog.warning(here(), "%s has not come back and is left behind.",
                           unanswered.what.c_str());
    });
}

}  // namespace tav
