#pragma once

#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "storage/model/tavInventoryBase.h"

namespace tav {

struct ResourceCondition {
    TAV_RESOURCE_STATE state;
    TAV_RESOURCE_HEALTH health;

    bool operator==(const ResourceCondition&) const = default;
};

/// Keeps what events have said of resources over discoveries that do not know of it.
///
/// A condition that an event has set stays until the discovered condition of the same resource
/// changes; what the last event has reported stays for as long as the resource is discovered. Not
/// locked: belongs to the inventory that it is about.
class CarriedConditions {
 public:
    /// Completes freshly discovered records by what is known of them. `identity` is a getter of the
    /// record's name; a record without one is new at every discovery.
    template <class Record, class Identity>
    void carry(std::vector<Record>& fresh, const std::vector<Record>& known, Identity identity) {
        std::unordered_map<std::string, const Record*> knownByName;
        for (const Record& record : known)
            knownByName.try_emplace(identity(record), &record);
        std::unordered_map<std::string, ResourceCondition> discovered;
        for (Record& record : fresh) {
            const ResourceCondition condition{record.getState(), record.getHealth()};
            const std::string name = identity(record);
            const auto before = knownByName.find(name);
            record.setEventState(condition.state);
            record.setEventHealth(condition.health);
            if (!name.empty() && before != knownByName.end()) {
                carry(record, condition, *before->second, name);
            }
            discovered.try_emplace(name, condition);
        }
        discovered_ = std::move(discovered);
    }

 private:
    void carry(tavStatusInfo& fresh, const ResourceCondition& condition, const tavStatusInfo& known,
               const std::string& name) const {
        fresh.setEventState(known.getEventState());
        fresh.setEventHealth(known.getEventHealth());
        const auto before = discovered_.find(name);
        if (before == discovered_.end() || before->second != condition) return;
        fresh.setState(known.getState());
        fresh.setHealth(known.getHealth());
    }

    std::unordered_map<std::string, ResourceCondition> discovered_;
};

}  // namespace tav
