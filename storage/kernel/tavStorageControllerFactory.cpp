#include "storage/kernel/tavStorageControllerFactory.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <utility>

#include <fcntl.h>

#include "base/DirectoryListing.h"
#include "core/Log.h"
#include "core/tavUtils.h"
#include "hwlib/sysfs/sysfs_readers.h"
#include "storage/SASResourceManager.h"
#include "storage/kernel/controller_lanes.h"
#include "storage/kernel/tavLewisburgSATARAIDController.h"
#include "storage/kernel/tavStorageController.h"
#include "storage/scsi/scsi_scan.h"

using tav::here;

namespace {

constexpr tav::ModuleLog logger{"STOR_FACT"};

using Lock = std::lock_guard<std::recursive_mutex>;

constexpr const char* scsiHosts = "/sys/class/scsi_host";
constexpr const char* scsiDevices = "/sys/class/scsi_device";

using Claim = bool (*)(std::uint32_t chipsetID, std::uint32_t boardID,
                       const std::string& pciLocation, ItavStorageController*& out);
/// In the order in which they are asked.
constexpr std::array<Claim, 2> claims = {tavLewisburgSATARAIDController::claimDevice,
                                         tavStorageController::claimDevice};

/// All controllers of this factory are of that class.
tavStorageController& generic(ItavStorageController& controller) {
    return static_cast<tavStorageController&>(controller);
}

bool hasFamily(ItavStorageController& controller, std::uint8_t mask) {
    return (generic(controller).getFamilyFlags() & mask) != 0;
}

bool isLater(const timespec& a, const timespec& b) {
    return a.tv_sec != b.tv_sec || a.tv_nsec != b.tv_nsec;
}

/// The names in a directory, in their order; nothing when it cannot be read.
std::optional<std::vector<std::string>> namesIn(const char* directory) {
    const tav::FileDescriptor opened(::open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened.isOpen()) return std::nullopt;
    std::vector<std::string> names;
    tav::forEachEntry(opened,
                      [&](const tav::DirectoryEntry& entry) { names.emplace_back(entry.name); });
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

/// Whether the directory is another one than at the last look, which it replaces. One that cannot
/// be read says nothing.
bool tavStorageControllerFactory::hasChanged(const char* directory, const char* name,
                                             DirectoryLook& last) {
    struct stat now {};
    if (const int result = ::lstat(directory, &now); result != 0) {
        logger.debug(here(), "lstat(%s) completed with %d (%d).", name, result, errno);
        return false;
    }
    const struct stat before = std::exchange(last.times, now);
    const bool hasOtherTimes =
        (before.st_mtim.tv_sec != 0 && isLater(now.st_mtim, before.st_mtim)) ||
        (before.st_ctim.tv_sec != 0 && isLater(now.st_ctim, before.st_ctim));
    auto names = namesIn(directory);
    if (!names) return hasOtherTimes;
    const bool hasOtherNames = last.names && *last.names != *names;
    last.names = std::move(names);
    return hasOtherTimes || hasOtherNames;
}

/// A SCSI host and the PCI function that it belongs to.
class tavStorageControllerFactory::Host {
 public:
    explicit Host(const std::string& name) : port(std::string(scsiHosts) + '/' + name) {}

    /// False when the host has no PCI identity or location.
    bool identify(const std::string& name) {
        const std::optional<std::string> device = identityDirectory();
        if (!device) {
            logger.debug(here(), "Unable to access PCI card information for %s.", name.c_str());
            return false;
        }
        chipsetID = combine(*device, "device", "vendor");
        boardID = combine(*device, "subsystem_device", "subsystem_vendor");
        const std::string target = tav::linkTargetOf(port).value_or("");
        logger.debug(here(), "Scsi Link %s -- buffer %s", port.c_str(), target.c_str());
        pciLocation = tav::nearestPciLocation(target);
        if (!pciLocation.empty()) return true;
        logger.debug(here(), "Skipping host port [%s 0x%x 0x%x] due to absence of PCI location.",
                     port.c_str(), chipsetID, boardID);
        return false;
    }

    std::string port;
    std::uint32_t chipsetID = 0;
    std::uint32_t boardID = 0;
    std::string pciLocation;

    /// Of the PCI class of mass storage controllers.
    bool isStorage() const {
        constexpr std::uint32_t massStorage = 0x01;
        const std::optional<std::string> device = identityDirectory();
        return device && get_sysfs_lhex((*device + "class").c_str()) >> 16U == massStorage;
    }

 private:
    /// Where the identity of the host's PCI function stands: one or two directories up. A device in
    /// between, such as a virtio one, has a vendor of its own, but no class.
    std::optional<std::string> identityDirectory() const {
        std::optional<std::string> found;
        for (const char* const up : {"/device/../", "/device/../../"}) {
            if (!has(port + up + "vendor")) continue;
            if (has(port + up + "class")) return port + up;
            if (!found) found = port + up;
        }
        return found;
    }

    static bool has(const std::string& attribute) {
        return bool(tav::OwnedText(get_sysfs_str(attribute.c_str())));
    }

    static std::uint32_t combine(const std::string& directory, const char* device,
                                 const char* vendor) {
        const std::uint32_t high = get_sysfs_shex((directory + device).c_str());
        const std::uint32_t low = get_sysfs_shex((directory + vendor).c_str());
        return high << 16U | low;
    }
};

tavStorageControllerFactory* tavStorageControllerFactory::getInstance() {
    static auto* const instance = new tavStorageControllerFactory;  // outlives every thread
    return instance;
}

int tavStorageControllerFactory::discoverControllers(
    std::vector<ItavStorageController*>& controllers) {
    // What comes from now on is seen by the next poll.
    lastHosts_.names = namesIn(scsiHosts);
    lastDevices_.names = namesIn(scsiDevices);
    std::vector<std::string> names;
    tavUtils().dirList(scsiHosts, names);
    tav::scanScsiDevices();
    std::vector<ItavStorageController*> abandoned;
    {
        const Lock held(lock_);
        for (ItavStorageController* const controller : controllers_)
            generic(*controller).clearPortList();
        for (const std::string& name : names) {
            Host host(name);
            logger.debug(here(), "Processing %s", name.c_str());
            if (host.identify(name)) discoverHost(host);
        }
        abandoned = takeAbandoned();
    }
    for (ItavStorageController* const controller : abandoned)
        controller->processDeviceRemoval();  // drops the reference that was taken
    return getControllers(TAV_FAMILY_ANY, controllers);
}

void tavStorageControllerFactory::discoverHost(const Host& host) {
    ItavStorageController* const known =
        FindExistingController(host.chipsetID, host.boardID, host.pciLocation, 0);
    if (known == nullptr || known->isRemoved()) {
        claimHost(host, known);
        return;
    }
    logger.debug(here(), "Found port %s on controller @ %s.", host.port.c_str(),
                 host.pciLocation.c_str());
    generic(*known).addPort(host.port);
}

/// `predecessor`, where there is one, has been removed before, and comes back with this host.
void tavStorageControllerFactory::claimHost(const Host& host, ItavStorageController* predecessor) {
    logger.debug(here(), "Claim processing for %s [0x%x 0x%x] @ %s", host.port.c_str(),
                 host.chipsetID, host.boardID, host.pciLocation.c_str());
    ItavStorageController* controller = nullptr;
    const auto isClaimed = [&](Claim claim) {
        return claim(host.chipsetID, host.boardID, host.pciLocation, controller);
    };
    const bool claimed =
        std::any_of(claims.begin(), claims.end(), isClaimed) ||
        (claimsAny_ && host.isStorage() && isClaimed(tavStorageController::claimAnyDevice));
    if (!claimed) {
        logger.debug(here(),
                     "Skipping port %s [0x%X, 0x%X %s] - Claim status: [%d]; Device object: [%p]",
                     host.port.c_str(), host.chipsetID, host.boardID, host.pciLocation.c_str(), 0,
                     static_cast<const void*>(controller));
        return;
    }
    logger.info(here(), "%s [0x%X, 0x%X %s] managed by device object: [%p]", host.port.c_str(),
                host.chipsetID, host.boardID, host.pciLocation.c_str(),
                static_cast<const void*>(controller));
    if (predecessor != nullptr) {
        controller->processDeviceAddition(predecessor);
        DeleteRemovedController(host.pciLocation);
    }
    generic(*controller).addPort(host.port);
    controllers_.push_back(controller);
}

/// Those whose hosts are gone, with one reference each. They stay in the list with what was last
/// known of them, until they come back as new ones.
std::vector<ItavStorageController*> tavStorageControllerFactory::takeAbandoned() {
    std::vector<ItavStorageController*> abandoned;
    for (ItavStorageController* const controller : controllers_) {
        if (controller->isRemoved() || generic(*controller).getPortListSize() > 0) continue;
        controller->addReference();
        abandoned.push_back(controller);
    }
    return abandoned;
}

int tavStorageControllerFactory::getControllers(std::uint8_t familyMask,
                                                std::vector<ItavStorageController*>& controllers) {
    controllers.clear();
    const Lock held(lock_);
    for (ItavStorageController* const controller : controllers_) {
        if (!hasFamily(*controller, familyMask)) continue;
        controllers.push_back(tav::shareReference(*controller).release());
    }
    return 0;
}

ItavStorageController* tavStorageControllerFactory::FindExistingController(
    std::uint32_t chipsetID, std::uint32_t boardID, const std::string& pciLocation,
    std::uint32_t extra) {
    const Lock held(lock_);
    const auto found = std::find_if(controllers_.begin(), controllers_.end(), [&](auto* candidate) {
        return candidate->isMatchingController(chipsetID, boardID, pciLocation, extra);
    });
    return found == controllers_.end() ? nullptr : *found;
}

void tavStorageControllerFactory::DeleteRemovedController(const std::string& pciLocation) {
    const Lock held(lock_);
    const auto found = std::find_if(controllers_.begin(), controllers_.end(), [&](auto* candidate) {
        return candidate->isRemoved() && generic(*candidate).getPciLocation() == pciLocation;
    });
    if (found == controllers_.end()) return;
    ItavStorageController* const controller = *found;
    controllers_.erase(found);
    controller->releaseReference();
}

void tavStorageControllerFactory::shutdownFactory() {
    logger.info(here(), "Initiating shutdown sequence.");
    std::vector<ItavStorageController*> taken;
    {
        const Lock held(lock_);
        taken.swap(controllers_);
    }
    for (ItavStorageController* const controller : taken) {
        if (controller->isRemoved()) {
            controller->releaseReference();
        } else {
            controller->disableEvents();
            controller->processDeviceRemoval();
        }
    }
    tav::closeDeviceLanes(tav::TimeLimit(std::chrono::milliseconds(500)));
}

void tavStorageControllerFactory::poll() {
    const bool hostsChanged = hasChanged(scsiHosts, "scsi_host", lastHosts_);
    const bool devicesChanged = hasChanged(scsiDevices, "scsi_device", lastDevices_);
    if (!hostsChanged && !devicesChanged) return;
    logger.info(here(), "Detected change in SCSI hosts/devices.");
    SASResourceManager::invalidateInventoryCache();
}

void tavStorageControllerFactory::deleteControllers(std::uint8_t familyMask) {
    const Lock held(lock_);
    const auto kept = std::stable_partition(
        controllers_.begin(), controllers_.end(),
        [familyMask](auto* controller) { return !hasFamily(*controller, familyMask); });
    for (auto dropped = kept; dropped != controllers_.end(); ++dropped)
        (*dropped)->releaseReference();
    controllers_.erase(kept, controllers_.end());
}

void tav::registerGenericStorageFactory(GenericStorage controllers) {
    if (controllers == GenericStorage::AnyController) {
        tavStorageControllerFactory::getInstance()->claimAnyController();
    }
    const tavRegistryManager<ItavStorageControllerFactory*> registration(
        tavStorageControllerFactory::getInstance());
}
