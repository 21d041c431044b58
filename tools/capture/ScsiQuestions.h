#pragma once

#include <string>

#include "tools/capture/HostFiles.h"
#include "tools/capture/Recording.h"

namespace tav::capture {

/// Asks a disk what the storage manager asks one of its kind, in its words, and takes down what
/// comes back. May hang in the device for as long as that does: belongs into a lane.
void askScsiDisk(Recorder& recorder, const ScsiNode& node);

}  // namespace tav::capture
