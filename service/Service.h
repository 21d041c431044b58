#pragma once

#include <string>

namespace tavd {

/// Runs the service until it is asked to stop, where wanted with the Fibre Channel manager and with
/// a file of metrics (empty: without); returns the process's exit status.
int serve(bool withFibreChannel, const std::string& metricsFile);

/// Builds every enabled manager's inventory once and prints the document; sends nothing. The ports
/// of Fibre Channel, which the document sent does not hold, are printed as a section of their own.
/// Returns the process's exit status.
int printInventory();

}  // namespace tavd
