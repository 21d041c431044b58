#include "fc/FCPortLedgers.h"

#include <algorithm>
#include <utility>

#include "fc/FCEvents.h"

namespace tav {
namespace {

std::vector<tavFCDeviceInfo> infosOf(const std::vector<FoundFcPort>& found) {
    std::vector<tavFCDeviceInfo> infos;
    infos.reserve(found.size());
    for (const FoundFcPort& port : found)
        infos.push_back(port.info);
    return infos;
}

}  // namespace

Condition conditionOf(const FoundFcPort& port) {
    return port.known;
}

void assign(FoundFcPort& port, const Condition& condition) {
    port.known = condition;
    port.info.settavFCStatus(condition.state, condition.health);
}

std::vector<FCPortLedgers::Change> FCPortLedgers::takePorts(std::vector<FoundFcPort> found) {
    const std::vector<tavFCDeviceInfo> before = ports();
    const std::vector<tavFCDeviceInfo> now = infosOf(found);
    std::vector<Ledger<FoundFcPort>> ledgers;
    std::vector<Change> changes;
    for (FoundFcPort& port : found) {
        const tavFCDeviceInfo* const same = findPreviousFcPort(port.info, before, now);
        if (same == nullptr) {
            ledgers.emplace_back(std::move(port));
            continue;
        }
        Ledger<FoundFcPort>& ledger =
            ledgers.emplace_back(ledgers_[std::size_t(same - &before[0])]);
        if (!port.hasState) port.known = ledger.now();
        const auto change = ledger.look(std::move(port));
        if (change && change->before.health != change->now.health) {
            changes.push_back({ledger.record().info, change->before, change->now});
        }
    }
    ledgers_ = std::move(ledgers);
    return changes;
}

std::vector<tavFCDeviceInfo> FCPortLedgers::ports() const {
    std::vector<tavFCDeviceInfo> ports;
    ports.reserve(ledgers_.size());
    for (const Ledger<FoundFcPort>& ledger : ledgers_)
        ports.push_back(ledger.record().info);
    return ports;
}

std::optional<FoundFcPort> FCPortLedgers::portOfHost(int number) const {
    const auto found = std::find_if(ledgers_.begin(), ledgers_.end(), [number](const auto& ledger) {
        return ledger.record().host == number;
    });
    return found == ledgers_.end() ? std::nullopt : std::optional(found->record());
}

std::vector<int> FCPortLedgers::hosts() const {
    std::vector<int> hosts;
    for (const Ledger<FoundFcPort>& ledger : ledgers_)
        hosts.push_back(ledger.record().host);
    return hosts;
}

}  // namespace tav
