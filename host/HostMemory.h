#pragma once

#include <string_view>

namespace tav {

/// Memory of a host, in MBytes; 0 where it is not known.
struct HostMemory {
    long totalMBytes = 0;
    long freeMBytes = 0;
};

/// Reads one batch sample of the hypervisor's resource monitor: comma-separated fields in double
/// quotes, a row of counter names ("Machine MBytes", "\Memory\Free MBytes"), then a row of values.
/// What is missing or no number is 0.
HostMemory parseMemorySample(std::string_view sample);

}  // namespace tav
