#include "collector/tavJobManager.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <stdexcept>
#include <utility>

#include "base/Threads.h"
#include "collector/tavFactory.h"
#include "collector/tavServer.h"
#include "core/Log.h"
#include "core/tavConfig.h"

using tav::at;
using tav::here;

namespace {

constexpr tav::ModuleLog logger{"JOB_MGR"};

struct StartedType {
    MODULE_NAME type;
    const char* threadName;
};
constexpr std::array startedTypes = {StartedType{HOST_OS_INFO, "tav-host"},
                                     StartedType{STORAGE_CONTROLLERS, "tav-storage"},
                                     StartedType{ETHERNET_DEVICES, "tav-ethernet"}};

/// The type's manager, if the configuration wants it.
tavResourceManager* enabledManager(MODULE_NAME type) {
    return tavConfig::getInstance()->isResourceEnabled(type) ? tavFactory().createInstance(type)
                                                             : nullptr;
}

template <class Visit>
void forEachStartedManager(Visit visit) {
    for (const StartedType& started : startedTypes) {
        tavResourceManager* const manager = enabledManager(started.type);
        if (manager != nullptr) visit(*manager);
    }
}

void* asArgument(MODULE_NAME type) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a thread body takes its number as its argument
    return reinterpret_cast<void*>(static_cast<std::intptr_t>(type));
}

}  // namespace

tavJobManager* tavJobManager::getInstance() {
    static tavJobManager* const instance = new tavJobManager;  // outlives every thread
    return instance;
}

bool tavJobManager::startResourceManagers() {
    if (std::any_of(threads.begin(), threads.end(),
                    [](const std::thread& thread) { return thread.joinable(); })) {
        logger.error(here(), "The resource managers already run; they are not started again.");
        return false;
    }
    if (std::exchange(areManagersTold, false)) {
        forEachStartedManager([](tavResourceManager& manager) { manager.reset(); });
    }
    for (const auto& [type, threadName] : startedTypes) {
        std::thread& thread = threads.at(resourceTypeIndex(type));
        if (tav::startThread(thread, threadName, [argument = asArgument(type)] {
                initializeResourceManager(argument);
            }) != 0) {
            logger.error(at(114), "Error:unable to create thread");
            return false;
        }
        simulateUnhandledExceptions();
    }
    return true;
}

void tavJobManager::stopResourceManagers() {
    logger.info(at(149), "stopping all the RM");
    requestStop();
    forEachStartedManager([](tavResourceManager& manager) { manager.stopResourceManagerJob(); });
    for (const auto& started : startedTypes) {
        tav::joinThread(threads.at(resourceTypeIndex(started.type)));
    }
    logger.info(at(221), "TAV Exiting Gracefully!");
}

void tavJobManager::requestStop() {
    if (std::exchange(areManagersTold, true)) return;
    forEachStartedManager([](tavResourceManager& manager) { manager.requestStop(); });
}

void tavJobManager::startTAVServer() {
    TAVServer::initializeTAVServer();
}

void tavJobManager::stopTAVServer() {
    TAVServer::stopTAVServer();
}

void* initializeResourceManager(void* type) {
    const auto number = static_cast<int>(reinterpret_cast<std::intptr_t>(type));
    const auto name = TAV_MODULE_NAME_MAP.find(static_cast<MODULE_NAME>(number));
    if (name == TAV_MODULE_NAME_MAP.end()) {
        logger.warning(at(71), "Unable to find module name for Resource Manager [%d].", number);
        return nullptr;
    }
    if (!tavConfig::getInstance()->isResourceEnabled(number)) {
        logger.debug(at(78), "Resource manager %s [%d] is disabled.", name->second.c_str(), number);
        return nullptr;
    }
    logger.debug(at(82), "Creating thread for %s", name->second.c_str());
    tavResourceManager* const manager = tavFactory().createInstance(number);
    if (manager == nullptr) {
        logger.debug(here(), "There is no resource manager for %s [%d].", name->second.c_str(),
                     number);
        return nullptr;
    }
    manager->init();
    return nullptr;
}

void simulateUnhandledExceptions() {
    const long number = tavConfig::getInstance()->getUnhandledExceptionToSimulate();
    if (number == SIGSEGV) {
        logger.warning(at(40), "Simulating unhandled exception SIGSEGV. (%ld)", number);
        std::raise(SIGSEGV);
    } else if (number == SIGABRT) {
        logger.warning(at(49), "Simulating unhandled exception SIGABRT. (%ld)", number);
        throw std::invalid_argument("Simulated C++ Exception");
    }
}
