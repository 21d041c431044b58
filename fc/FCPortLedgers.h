#pragma once

#include <optional>
#include <vector>

#include "base/Export.h"
#include "core/Ledger.h"
#include "fc/FCRecords.h"

namespace tav {

/// A port as a look has found it, and as its ledger keeps it.
struct FoundFcPort {
    int host = 0;          ///< N of its host's name "hostN"
    tavFCDeviceInfo info;  ///< as the inventory shows it
    /// Whether its state could be read. If not, the inventory shows it as unknown, but nothing has
    /// been said of it.
    bool hasState = true;
    /// What has last been said of it.
    Condition known{info.gettavFCStatus().getFCDeviceState(),
                    info.gettavFCStatus().getFCDeviceHealth()};
};
TAV_API Condition conditionOf(const FoundFcPort& port);
TAV_API void assign(FoundFcPort& port, const Condition& condition);

/// The ledgers of all ports, in the order of their hosts' names. The one place where a port's
/// condition is kept. Manager's thread.
class TAV_API FCPortLedgers {
 public:
    struct Change {
        tavFCDeviceInfo port;
        Condition before;
        Condition now;
    };

    /// Takes over what a build has found: a port that is not among it is forgotten, and new when it
    /// comes back. Returns those whose health has changed since it was last known.
    std::vector<Change> takePorts(std::vector<FoundFcPort> found);

    /// What the inventory shows.
    std::vector<tavFCDeviceInfo> ports() const;

    /// The port of the host "hostN"; absent when there is none.
    std::optional<FoundFcPort> portOfHost(int number) const;
    /// N of each port, in the same order.
    std::vector<int> hosts() const;

 private:
    std::vector<Ledger<FoundFcPort>> ledgers_;
};

}  // namespace tav
