#include "nic/NICResourceManager.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include <json/writer.h>

#include "base/ScratchFile.h"
#include "base/StopSignal.h"
#include "base/Waiting.h"
#include "core/Command.h"
#include "core/Figures.h"
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
constexpr auto refreshAfter = 29s;
constexpr auto linkPollAfter = 10s;
constexpr auto recent = 3s;
constexpr auto runningRetry = 5s;

constexpr int recoveredEvent = 680;

/// Exactly one time-out of the loop falls into these seconds after a build.
bool isLinkPollDue(std::chrono::milliseconds elapsed) {
    return elapsed >= linkPollAfter && elapsed < linkPollAfter + loopStep;
}

/// What a list command writes; none when it fails.
std::optional<std::string> runList(const char* command) {
    const tav::ScratchFile scratch(listFile);
    if (!scratch.isOpen()) {
        if (!tav::stopRequested()) {
            logger.error(here(), "Error occurred in gathering network interface information.");
        }
        return std::nullopt;
    }
    if (!tav::runShell(command).succeeded()) return std::nullopt;
    return scratch.read(listLimit);
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
    if (sinceBuild_) logger.debug(here(), "Attempting to refresh Cache.");
    if (sinceBuild_ && sinceBuild_->elapsed() < recent) {
        logger.debug(here(), "cache was recently refreshed. skipping the current refresh cycle");
        return;
    }
    loop_.run(loopStep, logger, [&](const tav::LoopWake& wake) {
        const auto elapsed = wake.deadline && sinceBuild_ ? sinceBuild_->elapsed() : 0ms;
        if (wake.refresh || elapsed > refreshAfter) {
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

void NICResourceManager::rebuild() {
    readiness_.askForPush();
    loop_.requestRefresh();
}

void NICResourceManager::reset() {
    loop_.reset();
    readiness_.reset();
    sinceBuild_.reset();
    const std::lock_guard<std::mutex> held(linksLock_);
    links_ = {};
    cache_.clear();
}

void NICResourceManager::cacheBuild() {
    logger.debug(here(), "Building NIC Cache");
    const tav::Timed timed(tav::figuresOf(ETHERNET_DEVICES).builds);
    tav::LinkNews news;
    {
        tav::InventoryCache<Inventory>::Build build(cache_);
        readiness_.begin();
        const auto begun = tav::LookClock::now();
        auto found = getInventory();
        // A stop ends the commands that were asked; what they left open must not be reported.
        if (tav::stopRequested()) return;
        if (found) {
            news = takeList(*std::move(found), begun, build);
        } else {
            readiness_.fail();
        }
        sinceBuild_.emplace();
    }
    const bool isFirst = !readiness_.isReady();
    if (!isFirst) raiseRecoveries(news.recovered);
    const bool isPushed = readiness_.complete() || news.isUntold;
    if (isPushed || isFirst) noteTold();
    if (isPushed) {
        logger.debug(here(), "NICRM requesting cache push");
        tavJsonAggregator::getInstance()->sendInventory(true);
    }
    logger.debug(here(), "Exiting CacheBuild");
}

/// Publishes what a build has found, and returns what is new.
tav::LinkNews NICResourceManager::takeList(std::vector<tav::FoundInterface> found,
                                           tav::LookClock::time_point begun,
                                           tav::InventoryCache<Inventory>::Build& build) {
    Inventory inventory;
    tav::LinkNews news;
    {
        const std::lock_guard<std::mutex> held(linksLock_);
        news = links_.takeList(std::move(found), begun);
        inventory.interfaces = links_.interfaces();
        build.publish(inventory);
    }
    logInstances(inventory);
    return news;
}

void NICResourceManager::noteTold() {
    const std::lock_guard<std::mutex> held(linksLock_);
    links_.noteTold();
}

void NICResourceManager::raiseRecoveries(const std::vector<tav::SharedInterface>& recovered) {
    for (const tav::SharedInterface& interface : recovered) {
        if (tav::stopRequested()) return;  // a dead controller would hold up the stop at each event
        const PhyAdapterInventory& adapter = interface->adapter;
        generateEvent(recoveredEvent, adapter.getPhyLocation(), false, adapter.getIntfName(),
                      adapter);
    }
}

std::optional<NICResourceManager::Rows> NICResourceManager::getInterfaceDetails() {
    const std::optional<std::string> list = runList(listCommand);
    if (!list) {
        if (!tav::stopRequested()) {
            logger.error(here(), "An error occurred while trying to fetch NIC information");
        }
        return std::nullopt;
    }
    Rows rows = tav::parseNicList(*list);
    if (rows.empty()) logger.warning(here(), "Unable to find NIC information.");
    return rows;
}

/// None when the host could not be asked: the inventory stays as it is then.
std::optional<std::vector<tav::FoundInterface>> NICResourceManager::getInventory() {
    const auto rows = getInterfaceDetails();
    if (!rows) return std::nullopt;
    if (rows->empty()) logger.warning(here(), "No NIC found!");
    std::vector<tav::FoundInterface> found;
    found.reserve(rows->size());
    NICPhysicalAdapter probe;
    for (const std::vector<std::string>& row : *rows) {
        tav::FoundInterface& interface = found.emplace_back();
        probe.discoverPhyAdapterInventory(interface.adapter, row);
        if (tav::stopRequested()) return std::nullopt;
        interface.hasDetails = probe.hasDetails();
    }
    return found;
}

void NICResourceManager::logInstances(const Inventory& inventory) {
    if (!logger.writesDebug()) return;
    const Json::StreamWriterBuilder styled;
    std::size_t number = 0;
    for (const tav::SharedInterface& interface : inventory.interfaces) {
        logger.debug(here(), "Printing Ethernet Instance %zu:    %s", ++number,
                     Json::writeString(styled, interface->record).c_str());
    }
}

bool NICResourceManager::checkLinkState() {
    logger.debug(here(), "Getting list of interfaces");
    const tav::Timed timed(tav::figuresOf(ETHERNET_DEVICES).polls);
    const std::optional<std::string> list = runList(linkCommand);
    if (!list) {
        if (!tav::stopRequested()) {
            logger.error(here(), "Error occurred in checking link state information.");
        }
        return false;
    }
    const std::vector<tav::NicLink> links = tav::parseNicLinks(*list);
    const bool changed = std::any_of(links.begin(), links.end(), [&](const tav::NicLink& link) {
        return isAnotherLink(link.name, link.status);
    });
    logger.debug(here(), changed ? "Found a status change" : "No status change");
    return changed;
}

/// Whether the inventory has the interface with another link status.
bool NICResourceManager::isAnotherLink(const std::string& name,
                                       const std::string& linkStatus) const {
    const std::lock_guard<std::mutex> held(linksLock_);
    const tav::SharedInterface known = links_.find(name);
    return known != nullptr && known->adapter.getLinkStatus() != linkStatus;
}

std::optional<tav::NicCondition> NICResourceManager::getHealthOfIntf(const char* name) const {
    const std::lock_guard<std::mutex> held(linksLock_);
    return links_.conditionOfLink(name);
}

void NICResourceManager::updateStateAndHealth(const char* name, const std::string& state,
                                              const std::string& health) {
    const std::lock_guard<std::mutex> held(linksLock_);
    const auto place = links_.takeCondition(name, {state, health});
    if (!place) return;
    cache_.change([&](Inventory& inventory) { inventory.interfaces[*place] = links_.find(name); });
}

std::vector<PhyAdapterInventory> NICResourceManager::getNICInventory() const {
    const auto inventory = cache_.current();
    std::vector<PhyAdapterInventory> adapters;
    adapters.reserve(inventory->interfaces.size());
    for (const tav::SharedInterface& interface : inventory->interfaces)
        adapters.push_back(interface->adapter);
    return adapters;
}

int NICResourceManager::getInventoryJsonObject(std::vector<Json::Value>& records) {
    const auto [inventory, building] = cache_.read();
    records.clear();
    records.reserve(inventory->interfaces.size());
    for (const tav::SharedInterface& interface : inventory->interfaces)
        records.push_back(interface->record);
    if (!building) return 0;
    logger.debug(here(), "Cache build is in progress. Returning previous copy of inventory.");
    return 1;
}

bool NICResourceManager::isRunning() {
    return tav::holdsInventory(
        cache_, &Inventory::interfaces, runningRetry,
        [](int building, std::size_t size, int retry) {
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
    tavEventHandler().generateEvent(testEvent(id, location));
}

tavEvent NICResourceManager::testEvent(int id, const std::string& location) {
    PhyAdapterInventory sample;
    sample.setNICModel("Sample Ethernet 1Gb 2-port Adapter");
    sample.setFirmVersion("3.2d 0x80000b5c 0.0.0");
    sample.setMACAddress("02:00:00:00:00:01");
    sample.setDeviceName("/sys/class/net/eth0");
    sample.setPCIDescription("PCI 0000:c3:00.0 r001i01s00");
    sample.setPhyLocation(location);
    return nicEvent(id, location, false, tav::renderNicEvent(sample, 0), "TAV-CLI");
}
