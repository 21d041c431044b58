#pragma once

#include <functional>
#include <string>

#include "storage/model/storage_conditions.h"
#include "storage/model/tavDiskInfo.h"
#include "storage/model/tavStorageControllerInfo.h"
#include "storage/nvme/nvme_sysfs.h"

/// Asks one NVMe controller, and one of its namespaces as a drive, through the controller's
/// character device and sysfs. Any thread; a controller that does not answer costs what the kernel
/// lets it. `controller` is its name ("nvme0").
namespace tav {

/// Fills in model, serial number, firmware and protocol; what cannot be asked stands as the kernel
/// tells it, else as it was.
void describeNvmeController(const std::string& controller, tavStorageControllerInfo& found);

/// Fills in what the drive is: not where it sits, nor its condition. `known` is what is known of
/// the namespace, null for nothing: what cannot be asked now stays as it was, unless it is another
/// drive.
void describeNvmeDrive(const std::string& controller, const nvme::ListedNamespace& listed,
                       const tavDiskInfo* known, tavDiskInfo& disk);

/// The drive's condition, for one command at most; its memory is brought up to date.
/// `isLongInReset` says whether the controller has been in reset for so long that it counts.
DiskJudgement nvmeDriveStatus(const std::string& controller,
                              const std::function<bool()>& isLongInReset, tavDiskInfo& disk);

}  // namespace tav
