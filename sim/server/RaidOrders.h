#pragma once

#include <string>

namespace tav::sim {

/// Where the simulated RAID library takes orders, and where it writes what it has been given
/// against its rules, a line each.
inline constexpr const char* raidOrders = "/run/sim/storelib";
inline constexpr const char* raidViolations = "/run/sim/storelib.violations";

/// Gives the simulated RAID library, in whichever process it is loaded, a one-line order. Throws
/// std::runtime_error when it cannot be reached or refuses.
void orderRaid(const std::string& order);

}  // namespace tav::sim
