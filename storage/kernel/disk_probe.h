#pragma once

#include <string>

#include "base/FileDescriptor.h"
#include "storage/model/storage_conditions.h"
#include "storage/model/tavDiskInfo.h"

/// Asks one disk, through its SCSI generic node and sysfs. Any thread; a disk that does not answer
/// costs at most the time-out of one command. `link` is the disk's SCSI address ("0:0:0:0").
namespace tav {

/// The SCSI generic node of a disk, open or not.
struct GenericNode {
    std::string path;     ///< "/dev/sg3"; empty when the kernel has none for the disk
    FileDescriptor file;  ///< not open: `error` tells why
    int error = 0;
};
GenericNode openGenericNode(const std::string& link);

/// Fills in what the disk is: not where it sits, nor its condition. `known` is what is known of the
/// disk at this address, null for nothing: what cannot be asked now stays as it was, unless it is
/// another disk. False for what is no physical disk of the controller's.
bool describeDisk(const std::string& link, int node, const tavDiskInfo* known, tavDiskInfo& disk);

/// The disk's condition; its memory is brought up to date. A command that times out ends its turn.
DiskJudgement diskStatus(tavDiskInfo& disk);

}  // namespace tav
