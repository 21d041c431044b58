#include "sim/server/RaidOrders.h"

#include <stdexcept>

#include "sim/server/OrderClient.h"

namespace tav::sim {

void orderRaid(const std::string& order) {
    const OrderAnswer answer = giveOrder(raidOrders, order);
    if (!answer.isReached) {
        throw std::runtime_error(std::string("no RAID library at ") + raidOrders);
    }
    if (!answer.line) throw std::runtime_error("the RAID library does not answer");
    if (!answer.line->starts_with("ok")) {
        throw std::runtime_error("the RAID library refuses: " + *answer.line);
    }
}

}  // namespace tav::sim
