#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "base/Answer.h"
#include "base/Export.h"
#include "hwlib/pci/PciAddress.h"
#include "hwlib/pci/PciIdDatabase.h"
#include "hwlib/pci/PciIdentity.h"
#include "hwlib/pci/pci_vpd.h"

namespace tav {
class PciAttributes;
class PciScan;
}  // namespace tav

/// One PCI function in a tree by bridges: what it is, as it was when it was scanned, and ways to
/// read what may change.
///
/// A node of a tree that is being scanned belongs to the scanning thread. From then on it does not
/// change; any thread may read it.
class TAV_API PciNode : public tav::PciIdentity {
 public:
    PciNode() = default;
    PciNode(const PciNode&) = delete;
    PciNode& operator=(const PciNode&) = delete;

    PciAddress address;

    /// Entries of the ID database, null where it has none. The subsystem's entry is the device's
    /// when a function without a subsystem of its own repeats vendor and device there.
    PciIdEntryPtr vendorEntry;
    PciIdEntryPtr deviceEntry;
    PciIdEntryPtr subsystemVendorEntry;
    PciIdEntryPtr subsystemEntry;
    PciIdEntryPtr classEntry;

    PciNode* parent = nullptr;  ///< the root of the tree is a node that stands for no function
    std::vector<std::unique_ptr<PciNode>> children;  ///< in the order of their addresses

    /// These read anew whenever they are called, and nothing of it is kept: an update of the
    /// function's firmware changes what they tell. A function that has been replaced since the scan
    /// is absent. The latter two ask the function itself, which is slow.
    tav::Answer<std::int32_t> readInterruptLine() const;
    tav::Answer<tav::PciCapabilities> readCapabilities() const;
    tav::Answer<tav::PciVpd> readVpd() const;

    /// The vital product data as it was first read with success; null before that.
    const tav::PciVpd* keptVpd() const;

    /// Whether the function is still the one that the node was filled from. One that was removed
    /// and added again is another, be it of the same model.
    bool isCurrent() const;

 private:
    friend class tav::PciScan;

    /// Fills the node from the function directory `path` with the number `id` (see
    /// tav::placeId()), read through `attributes`; the names come from `names`, if there are
    /// any. False when the function has vanished or has no address.
    bool fill(const tav::PciAttributes& attributes, std::string path, ino64_t id,
              tav::PciIdDatabase* names);
    void attachNames(tav::PciIdDatabase& names);
    template <class Read>
    auto whileCurrent(Read read) const;

    std::string directory_;
    ino64_t id_ = 0;
    mutable std::mutex vpdLock_;
    mutable std::optional<tav::PciVpd> vpd_;
};

/// Stays valid, with the tree it stands in, when the host's tree is scanned anew.
using PciNodePtr = std::shared_ptr<const PciNode>;
