#pragma once

#include <optional>
#include <string>

#include "hwlib/pci/pci.h"

namespace tav::test {

/// The addresses of the functions below `root`, a line each, indented by depth.
std::string outlineOf(const PciNode& root, int depth = 0);

/// Slot, class, vendor, device, subsystem, revision and physical slot of every function in the
/// machine-readable form of lspci, in the order of the addresses; by our tree, and by lspci itself
/// (absent when it is not installed).
std::string listingOf(const PciNode& root);
std::optional<std::string> listingOfTool();

}  // namespace tav::test
