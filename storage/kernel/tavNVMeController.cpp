#include "storage/kernel/tavNVMeController.h"

#include <algorithm>
#include <new>
#include <utility>

#include "base/printed.h"
#include "core/Log.h"
#include "storage/kernel/controller_list.h"
#include "storage/kernel/nvme_probe.h"
#include "storage/model/storage_location.h"
#include "storage/nvme/nvme_sysfs.h"

namespace {

constexpr tav::ModuleLog logger{"STOR_NVME"};

using Lock = std::lock_guard<std::recursive_mutex>;

/// The last part of a path.
std::string lastOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

}  // namespace

tavNVMeController::tavNVMeController(std::uint32_t chipsetID, std::uint32_t boardID,
                                     std::string pciLocation)
    : tavStorageController(chipsetID, boardID, std::move(pciLocation), TAV_FAMILY_NVME) {}

tavStorageController* tavNVMeController::claim(const tav::ControllerFunction& function) {
    auto* const controller = new (std::nothrow)
        tavNVMeController(function.chipsetID, function.boardID, function.location);
    ItavStorageController* claimed = nullptr;
    return tavStorageController::claim(controller, logger, claimed) ? controller : nullptr;
}

bool tavNVMeController::isMatchingController(std::uint32_t /*chipsetID*/, std::uint32_t /*boardID*/,
                                             const std::string& pciLocation,
                                             std::uint32_t /*extra*/) {
    return getPciLocation() == pciLocation;
}

void tavNVMeController::addPort(const std::string& port) {
    const Lock held(lock_);
    tavStorageController::addPort(port);
    name_ = lastOf(port);
}

std::string tavNVMeController::name() const {
    const Lock held(lock_);
    return name_;
}

bool tavNVMeController::isLongInReset() const {
    const tavStorageControllerInfo known = getInventory();
    return known.getControllerPortListSize() > 0 &&
           known.getControllerPort(0).getState() == TAV_STATE_RECOVERY;
}

// --- The controller ------------------------------------------------------------------------------

void tavNVMeController::describeController(tavStorageControllerInfo& found) {
    tav::describeNvmeController(name(), found);
}

std::optional<std::string> tavNVMeController::portState(const std::string& port) const {
    return tav::nvme::hostState(tav::nvme::stateOf(lastOf(port)));
}

std::string tavNVMeController::controllerEventInfo(const tav::ControllerTransition& /*transition*/,
                                                   TAV_RESOURCE_STATE now) const {
    return tav::nvme::controllerEventInfo(now);
}

// --- Its drives ----------------------------------------------------------------------------------

/// Shared ones belong to the first controller that reaches them.
std::vector<tav::DiskAddress> tavNVMeController::listDisks() const {
    const std::string own = name();
    std::vector<tav::DiskAddress> disks;
    for (const tav::nvme::ListedNamespace& listed : tav::nvme::listNamespaces(own)) {
        const std::vector<std::string> reaching = tav::nvme::controllersOf(own, listed.name);
        // Nobody reaches one that has gone since it was listed.
        if (!reaching.empty() && reaching.front() == own) disks.push_back({.link = listed.name});
    }
    return disks;
}

std::optional<tavDiskInfo> tavNVMeController::examineDisk(const tav::DiskAddress& address,
                                                          const std::optional<tavDiskInfo>& known) {
    const std::string own = name();
    const std::vector<tav::nvme::ListedNamespace> namespaces = tav::nvme::listNamespaces(own);
    const auto listed =
        std::find_if(namespaces.begin(), namespaces.end(),
                     [&](const auto& candidate) { return candidate.name == address.link; });
    if (listed == namespaces.end()) {
        if (!known) return std::nullopt;
        tavDiskInfo unlisted = *known;
        discoverPhysicalDiskStatus(unlisted);
        return unlisted;
    }
    tavDiskInfo disk;
    tav::describeNvmeDrive(own, *listed, known ? &*known : nullptr, disk);
    disk.setPhysicalLocation(diskLocation(disk));
    discoverPhysicalDiskStatus(disk);
    return disk;
}

void tavNVMeController::discoverPhysicalDiskStatus(tavDiskInfo& disk) {
    const tav::DiskJudgement judgement = tav::nvmeDriveStatus(
        name(), [this] { return isLongInReset(); }, disk);
    assign(disk, judgement.condition);
    disk.setEventInfoString(judgement.eventInfo);
}

std::string tavNVMeController::diskLocation(const tavDiskInfo& /*disk*/) const {
    return tav::controllerLocation(getPciLocation());
}

std::string tavNVMeController::diskPlace(const tavDiskInfo& disk) const {
    return std::to_string(disk.getNamespace());
}

std::string tavNVMeController::vanishedReason(const tavDiskInfo& disk) const {
    return tav::printed("Namespace %u of NVMe controller %s is gone.",
                        static_cast<unsigned>(disk.getNamespace()), name().c_str());
}

bool tavNVMeController::isReachedOtherwise(const tavDiskInfo& disk) const {
    const std::string own = name();
    const std::vector<std::string> reaching = tav::nvme::controllersOf(own, disk.getOSSCSILink());
    return std::any_of(reaching.begin(), reaching.end(),
                       [&](const std::string& other) { return other != own; });
}

std::string tavNVMeController::removedReason(const tavDiskInfo& /*disk*/) const {
    return tav::printed("The NVMe controller %s has been removed.", name().c_str());
}

std::string tavNVMeController::addressText(const std::string& link) const {
    return "NVMe namespace: " + link;
}
