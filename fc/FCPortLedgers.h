#pragma once

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

    /// Whether the state of a port is not the one that the inventory shows, by asking
    /// stateOfHost(N) for the first `limit` ports until one is.
    template <class StateOfHost>
    bool hasChanged(std::size_t limit, StateOfHost stateOfHost) const {
        for (std::size_t index = 0; index < ledgers_.size() && index < limit; ++index) {
            const FoundFcPort& port = ledgers_[index].record();
            if (stateOfHost(port.host) != port.info.gettavFCStatus().getFCDeviceState())
                return true;
        }
        return false;
    }

 private:
    std::vector<Ledger<FoundFcPort>> ledgers_;
};

}  // namespace tav
