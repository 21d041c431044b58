#pragma once

#include <string>

namespace tav::sim {

/// Gives the simulated RAID library, in whichever process it is loaded, a one-line order. Throws
/// std::runtime_error when it cannot be reached or refuses.
void orderRaid(const std::string& order);

}  // namespace tav::sim
