#pragma once

#include "tools/capture/Recording.h"

namespace tav::capture {

/// What is no file and no device: who the host is, and its links with their drivers.
void takeSystemNames(Recorder& recorder);
void takeLinks(Recorder& recorder);

/// The firmware's SMBIOS tables, as the kernel hands them out.
void takeFirmwareTables(Recorder& recorder);

/// The host commands that the managers run, as they run them.
void takeCommands(Recorder& recorder);

}  // namespace tav::capture
