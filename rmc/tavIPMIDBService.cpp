#include "rmc/tavIPMIDBService.h"

#include <cerrno>
#include <chrono>

#include "base/Threads.h"
#include "base/Waiting.h"
#include "core/Log.h"
#include "core/tavConfig.h"
#include "rmc/tavJsonAggregator.h"
#include "rmc/tavipmi.h"

using tav::at;
using tav::here;

namespace {
constexpr tav::ModuleLog logger{"IPMI_DB"};
}

tavIPMIDBService* tavIPMIDBService::getInstance() {
    static tavIPMIDBService* const instance = new tavIPMIDBService;  // outlives every thread
    return instance;
}

void tavIPMIDBService::starttavIPMIDBService() {
    getInstance()->start();
}

void tavIPMIDBService::stoptavIPMIDBService() {
    getInstance()->stop();
}

void tavIPMIDBService::start() {
    if (thread.joinable()) {
        logger.warning(here(), "The door-bell monitor already runs; it is not started again.");
        return;
    }
    stopSignal.withdraw();
    stopMoni = false;
    checkIPMIDevice = false;
    const int failure = tav::startThread(thread, "tav-doorbell", [this] {
        const tav::StopScope scope(&stopSignal);
        watch.begins();
        startMonitoring();
    });
    if (failure != 0) logger.error(at(165), "Error: Unable to create thread: %d", failure);
}

void tavIPMIDBService::requestStop() {
    tavIPMIDBService& service = *getInstance();
    service.stopSignal.request();
    service.watch.ends();
    const std::lock_guard<std::mutex> held(service.cmutex);
    service.stopMoni = true;
    service.cond.notify_all();
}

void tavIPMIDBService::stop() {
    logger.debug(at(26), "Stopping tavIPMIDBService");
    requestStop();
    logger.debug(at(43), "Signaled for stop.");
    const int failure = tav::joinThread(thread);
    if (failure != 0) logger.error(at(50), "Error: Unable to join thread: %d", failure);
}

void tavIPMIDBService::startMonitoring() {
    while (waitForCheck()) {
        checkDoorBell();
    }
}

/// Waits until a check is due; false when the monitor is to end.
bool tavIPMIDBService::waitForCheck() {
    const std::chrono::minutes interval(tavConfig::getInstance()->getDoorBellSleepInterval());
    std::unique_lock<std::mutex> held(cmutex);
    while (!stopMoni && !checkIPMIDevice) {
        const auto deadline = tav::Deadline::after(interval);
        if (!deadline) {
            logger.error(at(122), "Failed to get current time! (error no: %d)", errno);
            return false;
        }
        const tav::LoopWaits waits(watch, interval);
        tav::waitUntil(cond, held, *deadline);
        logger.debug(at(132), "DB service thread up.");
        checkIPMIDevice = !stopMoni;
    }
    checkIPMIDevice = false;
    return !stopMoni;
}

void tavIPMIDBService::checkDoorBell() {
    ipmi::IPMIUtils channel;
    if (channel.checkIPMIDBRequest()) tavJsonAggregator::getInstance()->sendInventory(true);
}
