#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <json/value.h>

#include "base/Export.h"
#include "base/Waiting.h"
#include "core/Ledger.h"
#include "nic/PhyAdapterInventory.h"

namespace tav {

/// Display strings of an interface's state and health.
struct NicCondition {
    std::string state;
    std::string health;

    bool operator==(const NicCondition&) const = default;
};

/// An interface as readers get it. Shared by its ledger and the generations of the inventory, so it
/// is never changed, only replaced.
struct NicInterface {
    PhyAdapterInventory adapter;
    Json::Value record;
};
using SharedInterface = std::shared_ptr<const NicInterface>;

TAV_API NicCondition conditionOf(const SharedInterface& interface);
TAV_API void assign(SharedInterface& interface, const NicCondition& condition);

/// What a build has found of an interface.
struct FoundInterface {
    PhyAdapterInventory adapter;
    /// Whether the host could be asked for the interface's details. If not, the firmware version
    /// and a condition that hangs on the cable say nothing.
    bool hasDetails = true;
};

/// What a list has brought.
struct LinkNews {
    /// Those whose health has returned to OK since the list before, by builds and notifications
    /// together. The event about it tells what they are.
    std::vector<SharedInterface> recovered;
    /// Something has not been told that no event tells: an interface has gone, or one is what it is
    /// since the list before at least, and that is new to the RMC.
    bool isUntold = false;
};

/// The ledgers of all interfaces, by name. The one place where a link's condition is kept: builds
/// and notifications tell it here. Not locked: belongs to the manager, which locks it.
class TAV_API LinkLedgers {
 public:
    /// Takes over what a build has found whose look at the host began then. What the list has not
    /// is forgotten; a name that it has twice counts once.
    LinkNews takeList(std::vector<FoundInterface> found, LookClock::time_point begun);

    /// An inventory is about to tell the RMC everything. A link of which that tells another thing
    /// than was told of it is not untold again for ten minutes, however often it comes and goes.
    void noteTold();

    /// Takes over the condition of one interface. Returns its place in the list when that has
    /// changed it; none for an interface that is not in the list. Costs the same however many there
    /// are, but for the search of its name.
    std::optional<std::size_t> takeCondition(const std::string& name,
                                             const NicCondition& condition);

    /// None for an interface that is not in the list.
    std::optional<NicCondition> conditionOfLink(const std::string& name) const;
    SharedInterface find(const std::string& name) const;

    /// All interfaces, in the order of the list.
    std::vector<SharedInterface> interfaces() const;
    std::size_t size() const { return links_.size(); }

 private:
    struct Link {
        Ledger<SharedInterface> ledger;
        std::size_t place;
        bool hasRecovered = false;  ///< since the last list
        bool hasChanged = true;     ///< its record, since the last list
        SharedInterface told{};     ///< to the RMC, by an inventory or an event; none of a new one
        std::optional<Stopwatch> sinceNewsWasTold{};

        bool isUntold() const;
    };
    using Links = std::map<std::string, Link>;
    using Change = std::optional<Ledger<SharedInterface>::Change>;

    static Link lookAgain(Link link, FoundInterface found, LookClock::time_point begun);
    static void noteChange(Link& link, const Change& change);
    static void noteList(Link& link, LinkNews& news);

    Links links_;
};

}  // namespace tav
