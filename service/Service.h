#pragma once

namespace tavd {

/// Runs the service until it is asked to stop, where wanted with the Fibre Channel manager; returns
/// the process's exit status.
int serve(bool withFibreChannel);

/// Builds every enabled manager's inventory once and prints the document; sends nothing. The ports
/// of Fibre Channel, which the document sent does not hold, are printed as a section of their own.
/// Returns the process's exit status.
int printInventory();

}  // namespace tavd
