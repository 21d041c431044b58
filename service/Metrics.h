#pragma once

#include <string>

#include "service/ServiceState.h"

namespace tavd {

/// The state in Prometheus' text format, for the node exporter's textfile collector. What it says
/// of the process has names with "tav_process_" in front, since the exporter tells its own under
/// the common ones.
std::string renderMetrics(const ServiceState& state);

}  // namespace tavd
