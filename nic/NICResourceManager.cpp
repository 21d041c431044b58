#include "nic/NICResourceManager.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include <json/writer.h>

#include "base/ScratchFile.h"
#include "base/StopSignal.h"
#include "base/Waiting.h"
#include "core/Command.h"
#include "core/Log.h"
#include "core/tavUtils.h"
#include "nic/NICPhysicalAdapter.h"
#include "nic/NicRecords.h"
#include "nic/NicTables.h"
#include "rmc/tavEventHandler.h"
#include "rmc/tavJsonAggregator.h"

using tav::here;

namespace {

using namespace std::chrono_literals;

constexpr tav::ModuleLog logger{"NIC_RM"};

constexpr const char* listFile = "/opt/orn/tav/data/tav_niclist.txt";
constexpr const char* listCommand =
    "localcli network nic list >> /opt/orn/tav/data/tav_niclist.txt";
constexpr const char* linkCommand =
    "localcli network nic list | /usr/bin/awk '{print$1, $5}' >> "
    "/opt/orn/tav/data/tav_niclist.txt";
constexpr std::size_t listLimit = 16U << 20U;

constexpr auto loopStep = 10s;
constexpr std::time_t refreshAfterSeconds = 29;
constexpr std::time_t linkPollAfterSeconds = 10;
constexpr auto runningRetry = 5s;

constexpr int recoveredEvent = 680;
constexpr const char* healthy = "OK";
constexpr const char* criticalHealth = "Critical";

/// Exactly one time-out of the loop falls into these seconds after a build, however the clock's
/// whole seconds lie.
bool isLinkPollDue(std::time_t elapsed) {
    return elapsed >= linkPollAfterSeconds && elapsed < linkPollAfterSeconds + loopStep.count();
}

/// What a list command writes; none when it fails.
std::optional<std::string> runList(const char* command) {
    const tav::ScratchFile scratch(listFile);
    if (!scratch.isOpen()) {
        logger.error(here(), "Error occurred in gathering network interface information.");
        return std::nullopt;
    }
    if (!tav::runShell(command).succeeded()) return std::nullopt;
    return scratch.read(listLimit);
}

template <class Adapters>
auto findAdapter(Adapters& adapters, const std::string& name) {
    return std::find_if(adapters.begin(), adapters.end(),
                        [&](const auto& adapter) { return adapter.getIntfName() == name; });
}

tavEvent nicEvent(int id, const std::string& location, bool serviceEvent, Json::Value details,
                  const char* source) {
    return {id,
            location,
            "NICEVENT",
            serviceEvent,
            tavUtils::getTime(),
            "Not Available",
            std::move(details),
            source};
}

}  // namespace

NICResourceManager* NICResourceManager::getInstance() {
    static NICResourceManager* const instance = new NICResourceManager;  // outlives every thread
    return instance;
}

void NICResourceManager::init() {
    logger.debug(here(), "Initializing NICRM");
    const tav::StopScope scope(loop_.stopSignal());
    startInventory();
}

void NICResourceManager::startInventory() {
    logger.debug(here(), "Entry startInventory");
    if (lastRefreshTime_ != 0) logger.debug(here(), "Attempting to refresh Cache.");
    if (tav::isRecent(lastRefreshTime_)) {
        logger.debug(here(), "cache was recently refreshed. skipping the current refresh cycle");
        return;
    }
    loop_.run(loopStep, logger, [&](const tav::LoopWake& wake) {
        const std::time_t elapsed = wake.elapsedSince(lastRefreshTime_);
        if (wake.refresh || elapsed > refreshAfterSeconds) {
            logger.debug(here(), "Refreshing Ethernet cache");
            cacheBuild();
        } else if (isLinkPollDue(elapsed)) {
            logger.debug(here(), "Polling for interface link state change.");
            if (checkLinkState()) cacheBuild();
        }
    });
}

void NICResourceManager::stopResourceManagerJob() {
    loop_.requestStop();
}

void NICResourceManager::cacheBuild() {
    logger.debug(here(), "Building NIC Cache");
    std::vector<PhyAdapterInventory> recovered;
    {
        tav::InventoryCache<Inventory>::Build build(cache_);
        {
            const std::lock_guard<std::mutex> held(changesLock_);
            building_ = true;
            changesDuringBuild_.clear();
        }
        std::optional<Inventory> inventory = getInventory();
        // A stop ends the commands that were asked; what they left open must not be reported.
        if (tav::stopRequested()) return;
        if (inventory) recovered = publish(build, std::move(*inventory));
        lastRefreshTime_ = tav::secondsNow();
    }
    if (readiness_.isReady()) {
        for (const PhyAdapterInventory& adapter : recovered) {
            generateEvent(recoveredEvent, adapter.getPhyLocation(), false, adapter.getIntfName(),
                          adapter);
        }
    }
    if (readiness_.complete()) {
        logger.debug(here(), "NICRM requesting cache push");
        tavJsonAggregator::getInstance()->sendInventory(true);
    }
    logger.debug(here(), "Exiting CacheBuild");
}

/// Publishes what a build has found, and returns the interfaces whose health has returned.
std::vector<PhyAdapterInventory> NICResourceManager::publish(
    tav::InventoryCache<Inventory>::Build& build, Inventory inventory) {
    const std::lock_guard<std::mutex> held(changesLock_);
    building_ = false;
    for (const Change& change : changesDuringBuild_)
        apply(change, inventory);
    const std::size_t previous = cache_.read().first->adapters.size();
    std::vector<PhyAdapterInventory> recovered = compareStatus(inventory, previous);
    build.publish(std::move(inventory));
    return recovered;
}

std::vector<PhyAdapterInventory> NICResourceManager::compareStatus(const Inventory& current,
                                                                   std::size_t previous) {
    logger.debug(here(), "Entry compare size of current inventory %d, size of prev inventory %d",
                 static_cast<int>(current.adapters.size()), static_cast<int>(previous));
    std::vector<PhyAdapterInventory> recovered;
    std::map<std::string, std::string> compared;
    for (const PhyAdapterInventory& adapter : current.adapters) {
        const std::string& name = adapter.getIntfName();
        const std::string& health = adapter.getHealth();
        compared[name] = health;
        const auto before = comparedHealth_.find(name);
        if (before == comparedHealth_.end()) continue;
        logger.debug(here(),
                     "Curr Intf name %s Current health  %s Prev intrf name %s Prev health %s",
                     name.c_str(), health.c_str(), name.c_str(), before->second.c_str());
        if (health == before->second || health == criticalHealth) continue;
        if (health == healthy) {
            recovered.push_back(adapter);
        } else {
            logger.debug(here(), "State change noticed from %s to %s", before->second.c_str(),
                         health.c_str());
        }
    }
    comparedHealth_ = std::move(compared);
    return recovered;
}

std::optional<std::vector<std::vector<std::string>>> NICResourceManager::getInterfaceDetails() {
    const std::optional<std::string> list = runList(listCommand);
    if (!list) {
        logger.error(here(), "An error occurred while trying to fetch NIC information");
        return std::nullopt;
    }
    std::vector<std::vector<std::string>> rows = tav::parseNicList(*list);
    if (rows.empty()) logger.warning(here(), "Unable to find NIC information.");
    return rows;
}

/// None when the host could not be asked: the inventory stays as it is then.
std::optional<NICResourceManager::Inventory> NICResourceManager::getInventory() {
    const auto rows = getInterfaceDetails();
    if (!rows) return std::nullopt;
    if (rows->empty()) logger.warning(here(), "No NIC found!");
    Inventory inventory;
    NICPhysicalAdapter probe;
    for (const std::vector<std::string>& row : *rows) {
        if (tav::stopRequested()) break;
        probe.discoverPhyAdapterInventory(inventory.adapters.emplace_back(), row);
    }
    createJsonStringUsingJsonCpp(inventory);
    return inventory;
}

void NICResourceManager::createJsonStringUsingJsonCpp(Inventory& inventory) {
    const Json::StreamWriterBuilder styled;
    for (const PhyAdapterInventory& adapter : inventory.adapters) {
        const Json::Value& record =
            inventory.records.emplace_back(tav::renderNicInventory(adapter));
        if (!logger.writesDebug()) continue;
        logger.debug(here(), "Printing Ethernet Instance %zu:    %s", inventory.records.size(),
                     Json::writeString(styled, record).c_str());
    }
}

bool NICResourceManager::checkLinkState() {
    logger.debug(here(), "Getting list of interfaces");
    const std::optional<std::string> list = runList(linkCommand);
    if (!list) {
        logger.error(here(), "Error occurred in checking link state information.");
        return false;
    }
    const std::vector<PhyAdapterInventory>& cached = cache_.read().first->adapters;
    const std::vector<tav::NicLink> links = tav::parseNicLinks(*list);
    const bool changed = std::any_of(links.begin(), links.end(), [&](const tav::NicLink& link) {
        const auto known = findAdapter(cached, link.name);
        return known != cached.end() && known->getLinkStatus() != link.status;
    });
    logger.debug(here(), changed ? "Found a status change" : "No status change");
    return changed;
}

std::optional<tav::NicCondition> NICResourceManager::getHealthOfIntf(const char* name) const {
    const auto inventory = cache_.read().first;
    const auto known = findAdapter(inventory->adapters, name);
    if (known == inventory->adapters.end()) return std::nullopt;
    return tav::NicCondition{known->getState(), known->getHealth()};
}

void NICResourceManager::apply(const Change& change, Inventory& inventory) {
    const auto known = findAdapter(inventory.adapters, change.name);
    if (known == inventory.adapters.end()) return;
    known->setState(change.condition.state);
    known->setHealth(change.condition.health);
    const auto index = static_cast<std::size_t>(known - inventory.adapters.begin());
    inventory.records[index] = tav::renderNicInventory(*known);
}

void NICResourceManager::updateStateAndHealth(const char* name, const std::string& state,
                                              const std::string& health) {
    const Change change{name, {state, health}};
    const std::lock_guard<std::mutex> held(changesLock_);
    if (building_) changesDuringBuild_.push_back(change);
    const auto compared = comparedHealth_.find(change.name);
    if (compared != comparedHealth_.end() && health != healthy) compared->second = health;
    cache_.change([&change](Inventory& inventory) { apply(change, inventory); });
}

std::vector<PhyAdapterInventory> NICResourceManager::getNICInventory() const {
    return cache_.read().first->adapters;
}

int NICResourceManager::getInventoryJsonObject(std::vector<Json::Value>& records) {
    const int building = tav::copyRecords(cache_, records);
    if (building != 0) {
        logger.debug(here(), "Cache build is in progress. Returning previous copy of inventory.");
    }
    return building;
}

bool NICResourceManager::isRunning() {
    return tav::holdsInventory(
        cache_, &Inventory::records, runningRetry, [](int building, std::size_t size, int retry) {
            logger.warning(here(),
                           "_cacheBuildInProgress = %d,NICInventory.size() =%zu, retryCount = %d",
                           building, size, retry);
        });
}

bool NICResourceManager::isInventoryReady(int iteration) {
    const bool ready = readiness_.answer(iteration);
    logger.info(here(), "NIC resource status %d", ready ? 1 : 0);
    return ready;
}

void NICResourceManager::generateEvent(int id, const std::string& location, bool critical,
                                       const std::string& name, const PhyAdapterInventory& record) {
    logger.debug(here(), "Raising event %d for %s", id, name.c_str());
    tavEventHandler().generateEvent(
        nicEvent(id, location, critical, tav::renderNicEvent(record, id), "TAV"));
}

void NICResourceManager::generateTestEvent(int id, const std::string& location) {
    PhyAdapterInventory sample;
    sample.setNICModel("Sample Ethernet 1Gb 2-port Adapter");
    sample.setFirmVersion("3.2d 0x80000b5c 0.0.0");
    sample.setMACAddress("02:00:00:00:00:01");
    sample.setDeviceName("/sys/class/net/eth0");
    sample.setPCIDescription("PCI 0000:c3:00.0 r001i01s00");
    sample.setPhyLocation(location);
    tavEventHandler().generateEvent(
        nicEvent(id, location, false, tav::renderNicEvent(sample, 0), "TAV-CLI"));
}
