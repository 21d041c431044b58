#pragma once

#include <string>

#include "tools/capture/Recording.h"

namespace tav::capture {

/// The vendor's RAID library as a device that is asked.
inline constexpr const char* raidLibrary = "storelib";

/// Asks the vendor's RAID library, where there is one, what the managers ask it, and takes its
/// records down. May hang: belongs into a lane.
void askRaidLibrary(Recorder& recorder);

/// Blanks in an answer of the library what no manager reads: the rest of its records has no
/// published layout, and nobody can tell what of it identifies the host.
void blankUnread(Answer& answer);

}  // namespace tav::capture
