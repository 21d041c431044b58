#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <sys/types.h>

#include "base/Export.h"
#include "hwlib/pci/PciAddress.h"
#include "hwlib/pci/pci_ids.h"
#include "hwlib/pci/pci_vpd.h"

/// The host's PCI functions, as a tree by bridges. A value that cannot be read stands at its
/// failure value (all bits set) and costs no other value.
///
/// A node of a tree that is being scanned belongs to the scanning thread. From then on it does not
/// change; any thread may read it.
class TAV_API PciNode {
 public:
    PciNode() = default;
    PciNode(const PciNode&) = delete;
    PciNode& operator=(const PciNode&) = delete;

    PciAddress address;
    std::uint16_t vendor = 0xFFFF;
    std::uint16_t device = 0xFFFF;
    std::uint16_t subsystemVendor = 0xFFFF;
    std::uint16_t subsystemDevice = 0xFFFF;
    std::uint32_t classCode = 0xFFFFFFFF;  ///< 24 bits: base class, subclass, interface
    std::uint8_t revision = 0xFF;

    /// Entries of the ID database, null where it has none. The subsystem's entry is the device's
    /// when a function without a subsystem of its own repeats vendor and device there.
    PciIdEntryPtr vendorEntry;
    PciIdEntryPtr deviceEntry;
    PciIdEntryPtr subsystemVendorEntry;
    PciIdEntryPtr subsystemEntry;
    PciIdEntryPtr classEntry;

    PciNode* parent = nullptr;  ///< the root of the tree is a node that stands for no function
    std::vector<std::unique_ptr<PciNode>> children;  ///< in the order of their addresses

    /// What follows is read when it is first asked for, by whichever thread that is: reading it is
    /// slow, most of it being in the function itself, and few functions are ever asked. A function
    /// that has been replaced since has none of it.

    /// -1 when it is not told.
    std::int32_t interruptLine() const;

    struct Capabilities {
        std::uint32_t set = 0;       ///< as pci_get_caps() tells them
        std::uint8_t linkWidth = 2;  ///< as pci_get_lnkwidth() tells it
    };
    const Capabilities& capabilities() const;

    /// The vital product data.
    struct Vpd {
        bool hasName = false;
        std::string name;
        PciVpdList keywords;
    };
    const Vpd& vpd() const;

    /// Whether the function is still the one that the node was filled from. One that was removed
    /// and added again is another, be it of the same model.
    bool isCurrent() const;

 private:
    friend bool fill_pci_node(PciNode& node, const char* dir);
    friend int pci_node_scan(PciNode& node, const char* dir);

    struct Place;
    bool fill(const Place& place);

    std::string directory_;
    ino64_t directoryId_ = 0;
    bool mayHaveChildren_ = false;
    mutable std::once_flag interruptLineOnce_;
    mutable std::int32_t interruptLine_ = -1;
    mutable std::once_flag capabilitiesOnce_;
    mutable Capabilities capabilities_;
    mutable std::once_flag vpdOnce_;
    mutable Vpd vpd_;
};

/// Stays valid, with the tree it stands in, when the host's tree is scanned anew.
using PciNodePtr = std::shared_ptr<const PciNode>;

/// Reads the attributes of the function whose sysfs directory is `dir` and attaches the entries of
/// the ID database, if that is loaded. False when the directory's name is no PCI address, or the
/// directory cannot be opened. Configuration space is asked, for single words, only where the
/// kernel does not tell the revision or the class.
TAV_API bool fill_pci_node(PciNode& node, const char* dir);

/// Scans a directory of PCI functions into the tree: the children of `node` are the functions in
/// `dir`, their children those in the bridges' own directories, and so on. Starts with a new node
/// and "/sys/bus/pci/devices/", which lists all functions: those behind a bridge are left to the
/// bridge. Returns how many functions were added.
TAV_API int pci_node_scan(PciNode& node, const char* dir);

/// The function at an address in the host's tree; null when there is none. The tree is scanned, and
/// the ID database loaded, when it is first asked for, and scanned anew when the asked function is
/// not the one it was at the last scan. The text forms take "0000:3b:00.1", or "0000:3b:00" for
/// function 0. May be called on any thread; takes a lock of its own while it looks or scans.
TAV_API PciNodePtr PciGetnode(const PciAddress& address);
TAV_API PciNodePtr PciGetnode_str(const char* address);

/// Vital product data of a function: the identifier string; the value of the first record with a
/// keyword of two characters; the value of the platform's own keyword "ZQ". Null when there is
/// none, or no node. The text belongs to the node.
TAV_API const char* PciGetVPDProductName(const PciNode* node);
TAV_API const char* PciGetVPDtag(const PciNode* node, const char* keyword);
TAV_API const char* PciGetVPDataProductName(const PciNode* node);

/// Whether the vendor made the platform's own parts: its processors and chip set, its storage
/// controllers or its network adapters.
constexpr bool is_ZQ(std::uint16_t vendor) {
    return vendor == 0x8086 || vendor == 0x1000 || vendor == 0x15B3;
}
