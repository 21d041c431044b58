#pragma once

#include <cstdint>

#include "base/Export.h"
#include "hwlib/pci/PciNode.h"
#include "hwlib/pci/pci_ids.h"

/// The host's PCI functions, as a tree by bridges. The names here stand for the calls of one
/// tav::PciHost that the whole process shares; hwlib/pci/PciHost.h has them for a context of one's
/// own, with reasons for what is not known.

/// Reads the attributes of the function whose sysfs directory is `dir` and attaches the entries of
/// the ID database, if that is loaded. False when the directory's name is no PCI address, or there
/// is no such directory. Configuration space is asked, for a single word, only where the
/// kernel does not tell the revision.
TAV_API bool fill_pci_node(PciNode& node, const char* dir);

/// Scans a directory of PCI functions into the tree. Starts with a new node and
/// "/sys/bus/pci/devices/", which lists all functions: each becomes a child of the one whose
/// directory it is in, whatever class that has, or else of the new node. For a node that has a
/// parent `dir` is the function's own directory. Returns how many functions were added.
TAV_API int pci_node_scan(PciNode& node, const char* dir);

/// The function at an address in the host's tree; null when there is none. The tree is scanned, and
/// the ID database loaded, when it is first asked for, and scanned anew when the asked function is
/// not the one it was at the last scan. The text forms take "0000:3b:00.1", or "0000:3b:00" for
/// function 0. May be called on any thread; takes a lock of its own while it looks or scans.
TAV_API PciNodePtr PciGetnode(const PciAddress& address);
TAV_API PciNodePtr PciGetnode_str(const char* address);

/// Vital product data of a function: the identifier string; the value of the first record with a
/// keyword of two characters; the value of the platform's own keyword "ZQ". Null when there is
/// none, or no node. The text belongs to the node, which keeps what it first read with success: who
/// wants what stands there now asks PciNode::readVpd().
TAV_API const char* PciGetVPDProductName(const PciNode* node);
TAV_API const char* PciGetVPDtag(const PciNode* node, const char* keyword);
TAV_API const char* PciGetVPDataProductName(const PciNode* node);

/// Whether the vendor made the platform's own parts: its processors and chip set, its storage
/// controllers or its network adapters.
constexpr bool is_ZQ(std::uint16_t vendor) {
    return vendor == 0x8086 || vendor == 0x1000 || vendor == 0x15B3;
}
