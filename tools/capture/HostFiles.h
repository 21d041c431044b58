#pragma once

#include <string>

#include "tools/capture/Recording.h"

namespace tav::capture {

/// Takes what the managers read of the kernel's files: each by the way that they go, with the links
/// and directories on it, so that the same way leads to the same file in a tree of copies.
void takeKernelFiles(Recorder& recorder);

/// The part of the PCI ID database that names this host's functions; needs the kernel's files.
void takePciNames(Recorder& recorder);

/// The configuration, the host's summary log, the service's health, and the ends of its logs.
void takeConfigurationAndLogs(Recorder& recorder);

/// The SCSI generic nodes that the kernel has for its devices, and whether each is an ATA disk.
struct ScsiNode {
    std::string name;  ///< "sg3"
    bool isAta = false;
};
std::vector<ScsiNode> scsiNodes();

}  // namespace tav::capture
