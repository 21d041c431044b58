#pragma once

#include <cstdint>

#include "core/ProcessStatus.h"

namespace tavd {

/// What the process uses itself.
struct OwnUse {
    tav::ProcessStatus process;
    std::uint64_t descriptors = 0;
    std::uint64_t mostDescriptors = 0;
};

/// Zeroes for what cannot be read.
OwnUse ownUse();

}  // namespace tavd
