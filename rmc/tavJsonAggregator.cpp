#include "rmc/tavJsonAggregator.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/JsonText.h"
#include "base/Threads.h"
#include "base/Waiting.h"
#include "core/Log.h"
#include "core/News.h"
#include "core/resource_managers.h"
#include "core/tavConfig.h"
#include "rmc/DeliveryNotes.h"
#include "rmc/tavipmi.h"

using tav::at;
using tav::here;

namespace {

constexpr tav::ModuleLog logger{"JSON_AGGR"};

constexpr int waitingRounds = 9;

/// Where a manager's records stand in the document.
struct Section {
    int type;
    int kind;  ///< of records; 0 for managers that keep only one
    const char* name;
    bool isArray;  ///< otherwise the last record is the section
};
constexpr std::array sections = {Section{HOST_OS_INFO, 0, "Oem", false},
                                 Section{STORAGE_CONTROLLERS, 1, "StorageControllers", true},
                                 Section{STORAGE_CONTROLLERS, 2, "Drives", true},
                                 Section{STORAGE_CONTROLLERS, 3, "Volumes", true},
                                 Section{ETHERNET_DEVICES, 0, "EthernetDevices", true}};

void addSection(const Section& section, tavResourceManager& manager, Json::Value& inventory) {
    std::vector<Json::Value> records;
    if (section.kind == 0) {
        manager.getInventoryJsonObject(records);
    } else {
        manager.getInventoryJsonObject2(section.kind, records);
    }
    for (Json::Value& record : records) {
        if (section.isArray) {
            inventory[section.name].append(std::move(record));
        } else {
            inventory[section.name] = std::move(record);
        }
    }
}

std::optional<tav::Deadline> deadlineAfter(std::chrono::seconds time) {
    const auto deadline = tav::Deadline::after(time);
    if (!deadline) logger.error(at(142), "Failed to get current time! (errno: %d)", errno);
    return deadline;
}

}  // namespace

tavJsonAggregator* tavJsonAggregator::getInstance() {
    static tavJsonAggregator* const instance = new tavJsonAggregator;  // outlives every thread
    return instance;
}

void tavJsonAggregator::sendInventory(bool request) {
    if (request) {
        const std::lock_guard<std::mutex> held(cmutex);
        pushInventory = true;
        if (firstInventoryPushComplete) {
            logger.debug(at(176), "Request to send inventory");
            cond.notify_all();
        } else {
            logger.debug(at(184), "Dropping inventory send request");
        }
        return;
    }
    startPushThread();
}

void tavJsonAggregator::eventWasLost() {
    const std::lock_guard<std::mutex> held(cmutex);
    undelivered.eventWasLost();
    if (!repeats || !firstInventoryPushComplete) return;
    lossNoted = true;
    cond.notify_all();
}

void tavJsonAggregator::startPushThread() {
    if (thread.joinable()) {
        logger.warning(here(), "The push thread already runs; it is not started again.");
        return;
    }
    logger.debug(at(193), "Creating Json Aggregator thread");
    stopSignal.withdraw();
    stopAggr = false;
    const int failure = tav::startThread(thread, "tav-push", [this] {
        const tav::StopScope scope(&stopSignal);
        watch.begins();
        initializeCachePush();
    });
    if (failure != 0) logger.error(here(), "Error: Unable to create thread: %d", failure);
}

void tavJsonAggregator::stoptavJsonAggregator() {
    getInstance()->stop();
}

void tavJsonAggregator::requestStop() {
    tavJsonAggregator& aggregator = *getInstance();
    aggregator.stopSignal.request();
    aggregator.watch.ends();
    const std::lock_guard<std::mutex> held(aggregator.cmutex);
    aggregator.stopAggr = true;
    aggregator.cond.notify_all();
}

void tavJsonAggregator::stop() {
    logger.debug(here(), "Stopping tavJsonAggr");
    requestStop();
    logger.debug(here(), "Signaled for stop.");
    const int failure = tav::joinThread(thread);
    if (failure != 0) logger.error(here(), "Error: Unable to join thread: %d", failure);
}

bool tavJsonAggregator::aggrThreadSleep(std::unique_lock<std::mutex>& held,
                                        std::chrono::seconds time) {
    const auto deadline = deadlineAfter(time);
    if (!deadline) return false;
    const tav::LoopWaits waits(watch, time);
    tav::waitUntil(cond, held, *deadline);
    logger.debug(at(152), "Thread signaled");
    return true;
}

bool tavJsonAggregator::checkIfInventoryReady(std::unique_lock<std::mutex>& held) {
    logger.debug(at(241), "Entry checkIfInventoryReady");
    const long interval = tavConfig::getInstance()->getInventoryQueryInterval();
    for (int round = 0; round < waitingRounds; ++round) {
        logger.debug(at(248), "Aggregator thread sleeping for %ld sec iteration no. %d", interval,
                     round + 1);
        if (stopAggr || !aggrThreadSleep(held, std::chrono::seconds(interval)) || stopAggr)
            return false;
        bool allReady = true;
        tav::forEachEnabledManager([&](int type, tavResourceManager& manager) {
            if (manager.isInventoryReady(round)) return;
            logger.info(at(271), "RM %d not ready with inventory", type);
            allReady = false;
        });
        if (allReady) return true;
    }
    return true;
}

void tavJsonAggregator::initializeCachePush() {
    const std::chrono::minutes interval(
        tavConfig::getInstance()->getInventoryPushIntervalSettings());
    std::unique_lock<std::mutex> held(cmutex);
    if (!checkIfInventoryReady(held)) return;
    while (!stopAggr) {
        if (!pushInventory && (!waitForPush(held, interval) || stopAggr)) return;
        pushInventory = false;
        push(held);
    }
}

/// One push interval, or less when an inventory is asked for or has to be sent again. False when no
/// clock can be read.
bool tavJsonAggregator::waitForPush(std::unique_lock<std::mutex>& held,
                                    std::chrono::seconds interval) {
    const auto intervalEnd = deadlineAfter(interval);
    if (!intervalEnd) return false;
    do {
        lossNoted = false;
        const std::optional<tav::Deadline> askAgainAt = undelivered.askAgainAt();
        const bool isSooner = repeats && askAgainAt && askAgainAt->moment() < intervalEnd->moment();
        const tav::LoopWaits waits(watch, interval);
        tav::waitUntil(cond, held, isSooner ? *askAgainAt : *intervalEnd);
        logger.debug(at(152), "Thread signaled");
    } while (lossNoted && !pushInventory && !stopAggr);
    return true;
}

void tavJsonAggregator::push(std::unique_lock<std::mutex>& held) {
    undelivered.inventoryBegins();
    held.unlock();
    const Push outcome = createInventoryJsonString();
    held.lock();
    switch (outcome) {
        case Push::Acknowledged:
            return undelivered.inventoryWasAcknowledged();
        case Push::Failed:
            return undelivered.inventoryFailed();
        case Push::Empty:
            return undelivered.inventoryWasEmpty();
    }
}

Json::Value tavJsonAggregator::collectInventory() {
    Json::Value document;
    tav::forEachEnabledManager([&](int type, tavResourceManager& manager) {
        for (const Section& section : sections) {
            if (section.type != type) continue;
            addSection(section, manager, document["HostDataCollection"]);
        }
    });
    const bool empty = document.isNull() || document["HostDataCollection"].empty();
    return empty ? Json::Value() : document;
}

tavJsonAggregator::Push tavJsonAggregator::createInventoryJsonString() {
    tav::SentInventory sent;
    sent.publications = tav::publications();
    sent.collected = std::time(nullptr);
    ++begun;
    const Json::Value document = collectInventory();
    Push outcome = Push::Empty;
    if (document.isNull()) {
        logger.warning(at(404), "No inventory information found!");
    } else {
        sent.text = tav::compactJson(document);
        sent.isAcknowledged = sendJsonString(sent.text);
        outcome = sent.isAcknowledged ? Push::Acknowledged : Push::Failed;
        tav::noteInventory(std::move(sent));
    }
    if (outcome == Push::Acknowledged) acknowledged = begun.load();
    firstInventoryPushComplete = true;
    return outcome;
}

bool tavJsonAggregator::sendJsonString(const std::string& text) {
    logger.info(at(452), "*************printing final Json String*******");
    logger.infoText(at(453), text);
    if (ipmi::IPMIUtils::RMC_CLI_Cmd_Execution("WriteInventory", text) == 1) {
        logger.error(at(491), "An Error occurred in delivering inventory string to RMC!");
        return false;
    }
    logger.debug(at(494), "Success in delivering inventory string to RMC!");
    return true;
}
