#pragma once

#include <string>

#include "base/FileDescriptor.h"
#include "storage/model/storage_conditions.h"
#include "storage/model/tavDiskInfo.h"

/// Asks one disk, through its SCSI generic node and sysfs. Any thread; a disk that does not answer
/// costs the time-out of one command, and what the kernel then does about it. `link` is the disk's
/// SCSI address ("0:0:0:0").
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

/// The kernel makes the block device of a disk that spins up, or is one of many, some time after
/// the disk itself: fills in what the discovery has not found yet.
void lookForBlockDevice(tavDiskInfo& disk);

/// What to think of a disk that tells no protocol, or none of which it is known how disks are
/// asked: that it has failed, or is unknown; or what its answers to the questions of every SCSI
/// disk say.
enum class OtherProtocols { NotJudged, JudgedByAnswers };

/// The disk's condition; its memory is brought up to date. A command that times out ends its turn.
DiskJudgement diskStatus(tavDiskInfo& disk, OtherProtocols others);

}  // namespace tav
