#pragma once

#include <cstdint>

#include "tools/capture/Recording.h"

namespace tav::capture {

/// The recording with stand-ins for serial numbers, world wide names, host names and addresses, in
/// texts, in what devices answered and in the names of files alike. What no manager reads and
/// nobody can take apart is blanked. `seed` makes the stand-ins, and has to be secret.
Recording scrubbed(Recording recording, std::uint64_t seed);

}  // namespace tav::capture
