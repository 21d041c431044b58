#pragma once

#include <map>
#include <string>

#include <sys/types.h>

#include "hwlib/pci/PciNode.h"

namespace tav {

/// One scan of PCI functions into a tree. Belongs to the scanning thread.
class PciScan {
 public:
    /// `names` may be null.
    explicit PciScan(PciIdDatabase* names) : names_(names) {}

    /// Fills the node from the function directory `path`.
    bool fill(PciNode& node, const std::string& path);

    /// Adds the functions in the directory `path` below `node`: below a root (a node without a
    /// parent) those of the kernel's list of all functions, each under its bridge; else those that
    /// stand in the bridge's own directory. Returns how many.
    int addBelow(PciNode& node, std::string path);

    /// The listed functions that could not be read, by what their link was.
    const std::map<PciAddress, ino64_t>& unreadable() const { return unreadable_; }

 private:
    int addListed(PciNode& root, const std::string& path);
    int addOwn(PciNode& bridge, const std::string& path);

    PciIdDatabase* names_;
    std::map<PciAddress, ino64_t> unreadable_;
};

}  // namespace tav
