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
#include "storage/kernel/controller_list.h"
#include "storage/kernel/tavLewisburgSATARAIDController.h"
#include "storage/kernel/tavStorageController.h"
#include "storage/scsi/scsi_scan.h"

using tav::here;

namespace {

constexpr tav::ModuleLog logger{"STOR_FACT"};

constexpr const char* scsiHosts = "/sys/class/scsi_host";
constexpr const char* scsiDevices = "/sys/class/scsi_device";

using Claim = bool (*)(std::uint32_t chipsetID, std::uint32_t boardID,
                       const std::string& pciLocation, ItavStorageController*& out);
/// In the order in which they are asked.
constexpr std::array<Claim, 2> claims = {tavLewisburgSATARAIDController::claimDevice,
                                         tavStorageController::claimDevice};

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
        function.chipsetID = combine(*device, "device", "vendor");
        function.boardID = combine(*device, "subsystem_device", "subsystem_vendor");
        const std::string target = tav::linkTargetOf(port).value_or("");
        logger.debug(here(), "Scsi Link %s -- buffer %s", port.c_str(), target.c_str());
        function.location = tav::nearestPciLocation(target);
        if (!function.location.empty()) return true;
        logger.debug(here(), "Skipping host port [%s 0x%x 0x%x] due to absence of PCI location.",
                     port.c_str(), function.chipsetID, function.boardID);
        return false;
    }

    std::string port;
    tav::ControllerFunction function;

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

tavStorageControllerFactory::tavStorageControllerFactory()
    : controllers_(std::make_unique<tav::ControllerList>()) {}
tavStorageControllerFactory::~tavStorageControllerFactory() = default;

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
    controllers_->update([&] {
        for (const std::string& name : names) {
            Host host(name);
            logger.debug(here(), "Processing %s", name.c_str());
            if (!host.identify(name)) continue;
            controllers_->addPort(host.function, host.port,
                                  [&](const tav::ControllerFunction&) { return claim(host); });
        }
    });
    return getControllers(TAV_FAMILY_ANY, controllers);
}

/// By the first family that takes it.
tavStorageController* tavStorageControllerFactory::claim(const Host& host) const {
    const tav::ControllerFunction& function = host.function;
    ItavStorageController* controller = nullptr;
    const auto isClaimed = [&](Claim family) {
        return family(function.chipsetID, function.boardID, function.location, controller);
    };
    const bool claimed =
        std::any_of(claims.begin(), claims.end(), isClaimed) ||
        (claimsAny_ && host.isStorage() && isClaimed(tavStorageController::claimAnyDevice));
    // All controllers of these families are of that class.
    return claimed ? static_cast<tavStorageController*>(controller) : nullptr;
}

int tavStorageControllerFactory::getControllers(std::uint8_t familyMask,
                                                std::vector<ItavStorageController*>& controllers) {
    controllers_->get(familyMask, controllers);
    return 0;
}

ItavStorageController* tavStorageControllerFactory::FindExistingController(
    std::uint32_t chipsetID, std::uint32_t boardID, const std::string& pciLocation,
    std::uint32_t extra) {
    return controllers_->find({chipsetID, boardID, pciLocation}, extra);
}

void tavStorageControllerFactory::DeleteRemovedController(const std::string& pciLocation) {
    controllers_->dropRemoved(pciLocation);
}

void tavStorageControllerFactory::shutdownFactory() {
    logger.info(here(), "Initiating shutdown sequence.");
    controllers_->shutDown();
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
    controllers_->drop(familyMask);
}

void tav::registerGenericStorageFactory(GenericStorage controllers) {
    if (controllers == GenericStorage::AnyController) {
        tavStorageControllerFactory::getInstance()->claimAnyController();
    }
    const tavRegistryManager<ItavStorageControllerFactory*> registration(
        tavStorageControllerFactory::getInstance());
}
