#pragma once

#include <string>

#include "sim/rmc/FrameChecker.h"

namespace tav::sim {

/// What a finished command says, for a person: a few lines, each ending with a line feed. Text from
/// the payload appears without control characters.
std::string summaryOf(const Command& command);

}  // namespace tav::sim
