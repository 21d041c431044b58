#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>

#include <sys/types.h>

#include "base/Answer.h"
#include "base/Export.h"
#include "hwlib/pci/PciAddress.h"
#include "hwlib/pci/PciNode.h"
#include "hwlib/pci/pci_ids.h"

namespace tav {

/// Access to the PCI functions of this host. It keeps the tree of the last scan and scans again
/// when it is told to, or when it is asked for a function that is not what it was then. Generations
/// of the tree are independent: what was handed out stays as it is.
///
/// May be used on any thread. A call takes the object's own lock, while it scans too.
class TAV_API PciHost {
 public:
    /// `loadNames` gives the ID database for a scan; null for none.
    explicit PciHost(std::function<PciIdDatabasePtr()> loadNames = loadPciIds);

    /// The function at an address. Absent when the kernel lists none there; refused when it does
    /// but the function cannot be read, which by itself is no reason to scan again.
    Answer<PciNodePtr> find(const PciAddress& address);

    /// The root of all functions, as they were at the last scan; scans when there was none.
    PciNodePtr tree();

    /// Scans the host.
    void refresh();

    /// How often the host has been scanned.
    unsigned scans() const;

 private:
    struct Generation {
        PciNode root;
        std::map<PciAddress, const PciNode*> functions;
        std::map<PciAddress, ino64_t> unreadable;
    };

    void scan();
    void prepare();
    PciNodePtr findCurrent(const PciAddress& address) const;

    std::function<PciIdDatabasePtr()> loadNames_;
    mutable std::mutex lock_;
    std::shared_ptr<const Generation> generation_;
    unsigned scans_ = 0;
};

/// The one that PciGetnode() and PciGetnode_str() ask. It loads the ID database with scan_hw_ids().
TAV_API PciHost& defaultPciHost();

}  // namespace tav
