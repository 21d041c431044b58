#include "storage/raid/tavMegaRAIDControllerFactory.h"

#include <algorithm>
#include <new>
#include <utility>

#include "core/Log.h"
#include "storage/raid/tavSASLSIEvent.h"

using tav::here;

namespace {

constexpr tav::ModuleLog logger{"LSI_FACTORY"};

constexpr int libraryUsable = 1;

const tavRegistryManager<ItavStorageControllerFactory*> registration(
    tavMegaRAIDControllerFactory::getInstance());

}  // namespace

std::atomic<bool> tavMegaRAIDControllerFactory::isLSILibLoaded{false};

tavMegaRAIDControllerFactory* tavMegaRAIDControllerFactory::getInstance() {
    static auto* const instance = new tavMegaRAIDControllerFactory;  // outlives every thread
    return instance;
}

int tavMegaRAIDControllerFactory::discoverControllers(
    std::vector<ItavStorageController*>& controllers) {
    logger.debug(here(), "tavMegaRAIDControllerFactory::discoverControllers");
    resetControllerDetection();
    logger.info(here(), "Discovering LSI MR controllers instances list");
    if (!buildLibraryCache()) {
        logger.error(here(), "Issue occurred in discovering LSI MR inventory.");
        return -1;
    }
    matchControllers(tavStoreLibInterface::getInstance()->getControllerCollection());
    // Not under the lock: the removal of the last one waits for callbacks, which ask for the list.
    for (tavMegaRAIDController* const controller : takeUndetected())
        controller->processDeviceRemoval();
    return getControllers(TAV_FAMILY_MEGARAID, controllers);
}

bool tavMegaRAIDControllerFactory::buildLibraryCache() {
    tavStoreLibInterface& library = *tavStoreLibInterface::getInstance();
    if (!isLSILibLoaded) isLSILibLoaded = library.tavStoreInit() == libraryUsable;
    if (!isLSILibLoaded) return false;
    library.cacheBuild("All");
    return true;
}

void tavMegaRAIDControllerFactory::matchControllers(const std::vector<CTRL_INFO>& records) {
    const std::lock_guard<std::mutex> held(listLock_);
    if (_controllerList.empty()) logger.info(here(), "First inventory build");
    for (const CTRL_INFO& record : records)
        matchController(record);
    logger.debug(here(), "size of _controllerList is %zu", _controllerList.size());
}

void tavMegaRAIDControllerFactory::matchController(const CTRL_INFO& record) {
    const auto known = std::find_if(
        _controllerList.begin(), _controllerList.end(),
        [&](const tavMegaRAIDController* controller) { return controller->isRecord(record); });
    if (known == _controllerList.end()) {
        createController(record);
        return;
    }
    logger.debug(here(), "Controller instance exists in inventory.");
    (*known)->setControllerID(record.controllerId);
    (*known)->setDeviceDetected(true);
}

void tavMegaRAIDControllerFactory::createController(const CTRL_INFO& record) {
    logger.info(here(), "discoverControllers ID = %d SN = %s",
                static_cast<int>(record.controllerId), record.serialNumber.c_str());
    auto* const controller = new (std::nothrow) tavMegaRAIDController(record);
    if (controller != nullptr) _controllerList.push_back(controller);
}

void tavMegaRAIDControllerFactory::resetControllerDetection() {
    const std::lock_guard<std::mutex> held(listLock_);
    for (tavMegaRAIDController* const controller : _controllerList)
        controller->setDeviceDetected(false);
}

std::vector<tavMegaRAIDController*> tavMegaRAIDControllerFactory::takeUndetected() {
    const std::lock_guard<std::mutex> held(listLock_);
    const auto undetected = std::stable_partition(
        _controllerList.begin(), _controllerList.end(),
        [](const tavMegaRAIDController* controller) { return controller->getDeviceDetected(); });
    std::vector<tavMegaRAIDController*> taken(undetected, _controllerList.end());
    _controllerList.erase(undetected, _controllerList.end());
    return taken;
}

std::vector<tavMegaRAIDController*> tavMegaRAIDControllerFactory::takeAll() {
    const std::lock_guard<std::mutex> held(listLock_);
    return std::exchange(_controllerList, {});
}

int tavMegaRAIDControllerFactory::getControllers(std::uint8_t familyMask,
                                                 std::vector<ItavStorageController*>& controllers) {
    controllers.clear();
    if ((familyMask & TAV_FAMILY_MEGARAID) == 0) return 0;
    const std::lock_guard<std::mutex> held(listLock_);
    for (tavMegaRAIDController* const controller : _controllerList)
        controllers.push_back(tav::shareReference<ItavStorageController>(*controller).release());
    return 0;
}

void tavMegaRAIDControllerFactory::shutdownFactory() {
    logger.info(here(), "Initiating shutdown sequence.");
    // The events that are under way still find their controllers.
    tavSASLSIEvent::epRemoveLock.stopAndWait();
    for (tavMegaRAIDController* const controller : takeAll()) {
        controller->disableEvents();
        controller->processDeviceRemoval();
    }
}

void tavMegaRAIDControllerFactory::deleteControllers(std::uint8_t familyMask) {
    if ((familyMask & TAV_FAMILY_MEGARAID) == 0) return;
    for (tavMegaRAIDController* const controller : takeAll())
        controller->processDeviceRemoval();
}
