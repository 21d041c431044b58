#pragma once

namespace tavd {

/// Runs the service until it is asked to stop; returns the process's exit status.
int serve();

/// Builds every enabled manager's inventory once and prints the document; sends nothing. Returns
/// the process's exit status.
int printInventory();

}  // namespace tavd
