#include "nic/LinkLedgers.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "core/Log.h"
#include "nic/NicRecords.h"
#include "nic/NicTables.h"

namespace tav {
namespace {

constexpr ModuleLog logger{"NIC_RM"};

/// An inventory may take the controller a minute. A link that comes and goes must not ask for one
/// each time.
constexpr std::chrono::minutes restOfTold{10};

constexpr const char* healthy = "OK";
constexpr const char* criticalHealth = "Critical";

SharedInterface share(PhyAdapterInventory adapter) {
    Json::Value record = renderNicInventory(adapter);
    return std::make_shared<const NicInterface>(
        NicInterface{std::move(adapter), std::move(record)});
}

bool saysSame(const SharedInterface& a, const SharedInterface& b) {
    return a == b || a->record == b->record;
}

/// Whether nothing tells them apart but what comes and goes with the link.
bool differByLinkAlone(const SharedInterface& a, const SharedInterface& b) {
    PhyAdapterInventory adapter = a->adapter;
    adapter.setState(b->adapter.getState());
    adapter.setHealth(b->adapter.getHealth());
    adapter.setLinkStatus(b->adapter.getLinkStatus());
    adapter.setSpeed(b->adapter.getSpeed());
    return adapter == b->adapter;
}

/// What could not be asked for says nothing: what was known of it stands.
void keepWhatIsKnown(const PhyAdapterInventory& known, FoundInterface& found) {
    if (found.hasDetails) return;
    found.adapter.setFirmVersion(known.getFirmVersion());
    if (!hangsOnCable(found.adapter.getLinkStatus())) return;
    found.adapter.setState(known.getState());
    found.adapter.setHealth(known.getHealth());
}

void logComparison(const std::string& name, const NicCondition& before, const NicCondition& now) {
    logger.debug(here(), "Curr Intf name %s Current health  %s Prev intrf name %s Prev health %s",
                 name.c_str(), now.health.c_str(), name.c_str(), before.health.c_str());
    if (now.health == before.health || now.health == healthy || now.health == criticalHealth)
        return;
    logger.debug(here(), "State change noticed from %s to %s", before.health.c_str(),
                 now.health.c_str());
}

}  // namespace

NicCondition conditionOf(const SharedInterface& interface) {
    return {interface->adapter.getState(), interface->adapter.getHealth()};
}

void assign(SharedInterface& interface, const NicCondition& condition) {
    PhyAdapterInventory adapter = interface->adapter;
    adapter.setState(condition.state);
    adapter.setHealth(condition.health);
    interface = share(std::move(adapter));
}

LinkNews LinkLedgers::takeList(std::vector<FoundInterface> found, LookClock::time_point begun) {
    logger.debug(here(), "Entry compare size of current inventory %d, size of prev inventory %d",
                 static_cast<int>(found.size()), static_cast<int>(links_.size()));
    Links links;
    LinkNews news;
    for (FoundInterface& interface : found) {
        const std::string name = interface.adapter.getIntfName();
        if (links.contains(name)) {
            logger.warning(here(), "The interface \"%s\" is listed twice; the first line counts.",
                           name.c_str());
            continue;
        }
        const auto known = links_.find(name);
        const bool isNew = known == links_.end();
        Link link = isNew ? Link{Ledger(share(std::move(interface.adapter)), begun), 0}
                          : lookAgain(std::move(known->second), std::move(interface), begun);
        link.place = links.size();
        noteList(link, news);
        links.emplace(name, std::move(link));
    }
    news.isUntold |= std::any_of(links_.begin(), links_.end(), [&](const auto& known) {
        return known.second.told != nullptr && !links.contains(known.first);
    });
    links_ = std::move(links);
    return news;
}

/// What a list that is complete for the link means for what is to be told of it.
void LinkLedgers::noteList(Link& link, LinkNews& news) {
    if (std::exchange(link.hasRecovered, false)) {
        news.recovered.push_back(link.ledger.record());
        link.told = link.ledger.record();
    }
    news.isUntold |= !std::exchange(link.hasChanged, false) && link.isUntold();
}

bool LinkLedgers::Link::isUntold() const {
    if (told == nullptr) return true;
    if (saysSame(told, ledger.record())) return false;
    const bool rests = sinceNewsWasTold && sinceNewsWasTold->elapsed() < restOfTold;
    return !rests || !differByLinkAlone(told, ledger.record());
}

void LinkLedgers::noteTold() {
    for (auto& [name, link] : links_) {
        const SharedInterface known = std::exchange(link.told, link.ledger.record());
        if (known != nullptr && !saysSame(known, link.told)) link.sinceNewsWasTold.emplace();
    }
}

LinkLedgers::Link LinkLedgers::lookAgain(Link link, FoundInterface found,
                                         LookClock::time_point begun) {
    const SharedInterface known = link.ledger.record();
    keepWhatIsKnown(known->adapter, found);
    const bool isAsBefore = found.adapter == known->adapter;  // and so is its record
    noteChange(link, link.ledger.look(isAsBefore ? known : share(std::move(found.adapter)), begun));
    link.hasChanged |= !saysSame(link.ledger.record(), known);
    logComparison(known->adapter.getIntfName(), conditionOf(known), link.ledger.now());
    return link;
}

void LinkLedgers::noteChange(Link& link, const Change& change) {
    if (!change || change->before.health == change->now.health) return;
    link.hasRecovered = change->now.health == healthy;
}

std::optional<std::size_t> LinkLedgers::takeCondition(const std::string& name,
                                                      const NicCondition& condition) {
    const auto link = links_.find(name);
    if (link == links_.end()) return std::nullopt;
    const Change change = link->second.ledger.look(condition);
    noteChange(link->second, change);
    link->second.hasChanged |= change.has_value();
    return change ? std::optional(link->second.place) : std::nullopt;
}

std::optional<NicCondition> LinkLedgers::conditionOfLink(const std::string& name) const {
    const auto link = links_.find(name);
    return link == links_.end() ? std::nullopt : std::optional(link->second.ledger.now());
}

SharedInterface LinkLedgers::find(const std::string& name) const {
    const auto link = links_.find(name);
    return link == links_.end() ? nullptr : link->second.ledger.record();
}

std::vector<SharedInterface> LinkLedgers::interfaces() const {
    std::vector<SharedInterface> all(links_.size());
    for (const auto& [name, link] : links_)
        all[link.place] = link.ledger.record();
    return all;
}

}  // namespace tav
