#include "storage/kernel/tavNVMeControllerFactory.h"

#include <chrono>
#include <utility>

#include "base/Waiting.h"
#include "core/Log.h"
#include "hwlib/sysfs/sysfs_readers.h"
#include "storage/SASResourceManager.h"
#include "storage/kernel/controller_lanes.h"
#include "storage/kernel/controller_list.h"
#include "storage/kernel/tavNVMeController.h"
#include "storage/nvme/nvme_sysfs.h"

using tav::here;

namespace {

constexpr tav::ModuleLog logger{"STOR_FACT"};

/// The names of all controllers, each with those of its namespaces.
std::vector<std::string> listEverything() {
    std::vector<std::string> names;
    for (std::string& controller : tav::nvme::listControllers()) {
        for (tav::nvme::ListedNamespace& listed : tav::nvme::listNamespaces(controller))
            names.push_back(controller + '/' + std::move(listed.name));
        names.push_back(std::move(controller));
    }
    return names;
}

/// No location: it is not on PCI.
tav::ControllerFunction functionOf(const std::string& controller) {
    const std::string device = tav::nvme::controllerDirectory(controller) + "/device/";
    const auto combine = [&](const char* high, const char* low) {
        return std::uint32_t{get_sysfs_shex((device + high).c_str())} << 16U |
               get_sysfs_shex((device + low).c_str());
    };
    return {combine("device", "vendor"), combine("subsystem_device", "subsystem_vendor"),
            tav::nvme::pciFunctionOf(controller)};
}

}  // namespace

tavNVMeControllerFactory::tavNVMeControllerFactory()
    : controllers_(std::make_unique<tav::ControllerList>()) {}
tavNVMeControllerFactory::~tavNVMeControllerFactory() = default;

tavNVMeControllerFactory* tavNVMeControllerFactory::getInstance() {
    static auto* const instance = new tavNVMeControllerFactory;  // outlives every thread
    return instance;
}

int tavNVMeControllerFactory::discoverControllers(
    std::vector<ItavStorageController*>& controllers) {
    lastListed_ = listEverything();  // what comes from now on is seen by the next poll
    controllers_->update([this] {
        for (const std::string& name : tav::nvme::listControllers()) {
            const tav::ControllerFunction function = functionOf(name);
            if (function.location.empty()) {
                logger.debug(here(), "Skipping %s, which is not on PCI.", name.c_str());
                continue;
            }
            controllers_->addPort(function, tav::nvme::controllerDirectory(name),
                                  tavNVMeController::claim);
        }
    });
    return getControllers(TAV_FAMILY_ANY, controllers);
}

int tavNVMeControllerFactory::getControllers(std::uint8_t familyMask,
                                             std::vector<ItavStorageController*>& controllers) {
    controllers_->get(familyMask, controllers);
    return 0;
}

void tavNVMeControllerFactory::shutdownFactory() {
    logger.info(here(), "Initiating shutdown sequence of NVMe controllers.");
    controllers_->shutDown();
    tav::closeDeviceLanes(tav::TimeLimit(std::chrono::milliseconds(500)));
}

void tavNVMeControllerFactory::poll() {
    std::vector<std::string> listed = listEverything();
    if (listed == lastListed_) return;
    lastListed_ = std::move(listed);
    logger.info(here(), "Detected change in NVMe controllers/namespaces.");
    SASResourceManager::invalidateInventoryCache();
}

void tavNVMeControllerFactory::deleteControllers(std::uint8_t familyMask) {
    controllers_->drop(familyMask);
}

void tav::registerNVMeFactory() {
    const tavRegistryManager<ItavStorageControllerFactory*> registration(
        tavNVMeControllerFactory::getInstance());
}
