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

/// Fills in what the disk is: not where it sits, nor its condition. False for what is no physical
/// disk of the controller's.
bool describeDisk(const std::string& link, int node, tavDiskInfo& disk);

/// The disk's condition. `isReplaced` is set when another disk has taken its place.
DiskJudgement diskStatus(const tavDiskInfo& disk, bool& isReplaced);

/// Why a disk is gone whose place another one has taken.
std::string serialChangeReason(const std::string& current, const std::string& known);

}  // namespace tav
