#include "storage/storage_uevents.h"

#include <algorithm>
#include <array>

namespace tav {
namespace {

constexpr std::array<std::string_view, 4> storageSubsystems = {"scsi", "scsi_host", "nvme", "pci"};

bool isBlockDeviceThatCameOrWent(const Uevent& event) {
    return event.subsystem == "block" && event.action != "change" &&
           !event.devicePath.starts_with("/devices/virtual/block/");
}

}  // namespace

bool concernsStorage(const Uevent& event) {
    return isBlockDeviceThatCameOrWent(event) ||
           std::find(storageSubsystems.begin(), storageSubsystems.end(), event.subsystem) !=
               storageSubsystems.end();
}

}  // namespace tav
