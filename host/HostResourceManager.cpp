#include "host/HostResourceManager.h"

#include <chrono>
#include <optional>
#include <string>
#include <utility>

#include <fcntl.h>

#include "base/Files.h"
#include "base/ScratchFile.h"
#include "base/StopSignal.h"
#include "base/Waiting.h"
#include "core/Command.h"
#include "core/Figures.h"
#include "core/Log.h"
#include "core/tavConfig.h"
#include "core/tavUtils.h"
#include "host/HostBoot.h"
#include "host/HostMemory.h"
#include "rmc/tavEventHandler.h"
#include "rmc/tavJsonAggregator.h"

using tav::here;

namespace {

using namespace std::chrono_literals;

constexpr tav::ModuleLog logger{"HOST_RM"};

constexpr const char* startupHistoryFile = "/opt/orn/tav/data/ornTAVStartup.txt";
constexpr const char* memoryFile = "/opt/orn/tav/data/tav-mem.txt";
constexpr const char* memoryCommand =
    "esxtop -c /opt/orn/tav/data/esxtopconf -b -n 1 >> /opt/orn/tav/data/tav-mem.txt";
constexpr std::size_t memorySampleLimit = 64U << 20U;
constexpr std::size_t startupHistoryLimit = 4096;

constexpr auto bootSettleTime = 10s;
constexpr auto loopStep = 60s;
constexpr std::time_t refreshAfterSeconds = 59;
constexpr auto runningRetry = 3s;
constexpr long mbytesPerGiB = 1024;

constexpr int osBootEvent = 356;
constexpr int gracefulShutdownEvent = 359;

/// Events of the host carry no location and no part number.
tavEvent hostEvent(int eventId, const char* source) {
    return {eventId, "NotApplicable", "Host", false, tavUtils::getTime(), "Not-Available", source};
}

}  // namespace

HostResourceManager* HostResourceManager::getInstance() {
    static HostResourceManager* const instance = new HostResourceManager;  // outlives every thread
    return instance;
}

void HostResourceManager::init() {
    logger.debug(here(), "Entry init()");
    if (!getHostInventory().empty()) {
        logger.debug(here(), "TAV thread for host already active. Cannot spawn another one.");
        return;
    }
    const tav::StopScope scope(loop_.stopSignal());
    genOSBootLogic();
    startInventory();
}

void HostResourceManager::startInventory() {
    logger.debug(here(), "Entry startInventory");
    if (lastRefreshTime_ != 0) logger.debug(here(), "Attempting to refresh Cache.");
    if (tav::isRecent(lastRefreshTime_)) {
        logger.debug(here(), "cache was recently refreshed. skipping the current refresh cycle");
        return;
    }
    loop_.run(loopStep, logger, [&](const tav::LoopWake& wake) {
        if (wake.refresh || wake.elapsedSince(lastRefreshTime_) > refreshAfterSeconds) {
            cacheBuild();
        }
    });
}

void HostResourceManager::stopResourceManagerJob() {
    logger.info(here(), "Resource manager stop called.");
    requestStop();
    logger.info(here(), "Signalled for stop.");
}

void HostResourceManager::reset() {
    loop_.reset();
    readiness_.reset();
    cache_.clear();
    lastRefreshTime_ = 0;
}

void HostResourceManager::cacheBuild() {
    logger.debug(here(), "Starting Host resource manager cache build.");
    const tav::Timed timed(tav::figuresOf(HOST_OS_INFO).builds);
    {
        tav::InventoryCache<Inventory>::Build build(cache_);
        const auto known = cache_.current();
        tavHostOSInfo host =
            populateHostInfo(known->hosts.empty() ? tavHostOSInfo() : known->hosts.front());
        // A stop ends the commands that were asked; what they left open must not be reported.
        if (tav::stopRequested()) return;
        Json::Value record = tav::renderHostInventory(host, populateCollectionInfo());
        build.publish({{std::move(host)}, {std::move(record)}});
        lastRefreshTime_ = tav::secondsNow();
    }
    if (readiness_.complete()) {
        logger.debug(here(), "hostRM Requesting cache push");
        tavJsonAggregator::getInstance()->sendInventory(true);
    }
    logger.debug(here(), "Exiting CacheBuild");
}

tavHostOSInfo HostResourceManager::populateHostInfo(tavHostOSInfo known) {
    logger.debug(here(), " Populating host information.");
    tavUtils utils;
    int osType = 0;
    utils.getOSType(&osType);
    tavHostOSInfo host = std::move(known);
    host.setHostName(utils.readHostName());
    host.setOSName(utils.readHostOSName());
    host.setOSVersion(utils.readHostOSVersion());
    host.setOSDescription(utils.readHostOSDescription());
    host.setOSType(osType);
    host.setIPv4Addresses(utils.updateAndFetchIPAddresses());
    getTotalPhysicalMemory(host);
    return host;
}

tavCollectionInfo HostResourceManager::populateCollectionInfo() {
    tavCollectionInfo collection;
    collection.setCollectionType("RemoteSupport");
    collection.setCollectionFrequencyMin(
        tavConfig::getInstance()->getInventoryPushIntervalSettings());
    collection.setLastCollection(tavUtils::getDateTime());
    return collection;
}

/// A sample that tells nothing leaves standing what was known before.
void HostResourceManager::getTotalPhysicalMemory(tavHostOSInfo& host) {
    const tav::ScratchFile scratch(memoryFile);
    if (!scratch.isOpen()) {
        logger.error(here(), "Unable to fetch physical memory information.\n");
        return;
    }
    // A sample is taken as far as it goes, whatever the command says of itself.
    tav::runShell(memoryCommand);
    const tav::HostMemory memory = tav::parseMemorySample(scratch.read(memorySampleLimit));
    if (memory.totalMBytes == 0) {
        logger.debug(here(), "The memory sample tells no size.");
        return;
    }
    const long totalGiB = memory.totalMBytes / mbytesPerGiB;  // whole GiB are reported
    const long freeGiB = memory.freeMBytes / mbytesPerGiB;
    host.setOSMemorySummary(static_cast<double>(totalGiB), static_cast<double>(freeGiB));
}

int HostResourceManager::getInventoryJsonObject(std::vector<Json::Value>& records) {
    const int building = tav::copyRecords(cache_, records);
    if (building != 0) {
        logger.debug(here(), "Cache build is in progress. Returning previous copy of inventory.");
    }
    return building;
}

std::vector<tavHostOSInfo> HostResourceManager::getHostInventory() const {
    const auto inventory = cache_.current();
    return inventory->hosts;
}

bool HostResourceManager::isRunning() {
    return tav::holdsInventory(
        cache_, &Inventory::records, runningRetry, [](int building, std::size_t size, int retry) {
            logger.warning(here(),
                           "_cacheBuildInProgress = %d,HostInventory.size() =%zu,retryCount =%d",
                           building, size, retry);
        });
}

bool HostResourceManager::isInventoryReady(int iteration) {
    const bool ready = readiness_.answer(iteration);
    logger.info(here(), "Host cache ready %d", ready ? 1 : 0);
    return ready;
}

void HostResourceManager::generateTestEvent(int eventId) {
    tavEventHandler().generateEvent(testEvent(eventId));
}

tavEvent HostResourceManager::testEvent(int eventId) {
    return hostEvent(eventId, "TAV-CLI");
}

void HostResourceManager::genOSBootLogic() {
    if (tav::pauseFor(bootSettleTime) == tav::Pause::Stopped) return;
    long booted = 0;
    long bootedBefore = 0;
    if (tavUtils().fetchSystemBootTime(booted, bootedBefore) != 0) {
        logger.warning(here(), "Error occurred in fetching OS boot time");
        return;
    }
    long sent = 0;
    readStartupValue(sent);
    if (!tav::bootEventsAreDue(sent, booted)) {
        logger.debug(here(), "TAV restarted in current boot. Refrain from sending OS boot events");
        return;
    }
    logger.debug(here(), "Sending OS boot events");
    sendOSBootEvent();
}

namespace {

/// The event for the last shutdown, where the host's summary log tells of it.
std::optional<tavEvent> lastShutdownEvent() {
    tavUtils utils;
    long booted = 0;
    long bootedBefore = 0;
    long shutdown = 0;
    if (utils.fetchSystemBootTime(booted, bootedBefore) != 0 ||
        utils.fetchSystemShutdownTime(shutdown) != 0) {
        logger.debug(here(), "System shutdown history not available.");
        return std::nullopt;
    }
    const std::optional<int> eventId = tav::shutdownEvent(bootedBefore, shutdown, booted);
    if (!eventId) {
        logger.debug(here(),
                     "previous boot and shutdown time are 0. Hence not generating shutdown event.");
        return std::nullopt;
    }
    logger.debug(here(), *eventId == gracefulShutdownEvent ? "Last shutdown was graceful."
                                                           : "Last shutdown was critical.");
    return hostEvent(*eventId, "TAV");
}

}  // namespace

void HostResourceManager::sendOSBootEvent() {
    const tavEvent bootEvent = hostEvent(osBootEvent, "TAV");
    tavEventHandler handler;
    const auto shutdownEvent = lastShutdownEvent();
    // A stop may have cut the search for it short; the next start finds and tells both.
    if (tav::stopRequested()) return;
    if (shutdownEvent) handler.generateEvent(*shutdownEvent);
    handler.generateEvent(bootEvent);
    updateStartupFile();
}

bool HostResourceManager::readStartupValue(long& sent) {
    const tav::FileDescriptor file = tav::openRegularFile(startupHistoryFile);
    if (!file.isOpen()) {
        logger.debug(here(), "File does not exist");
        return false;
    }
    std::string text;
    tav::readUpTo(file.get(), startupHistoryLimit, text);
    const std::optional<long> seconds = tav::parseStartupHistory(text);
    if (!seconds) {
        logger.warning(here(), "Unable to determine event timestamp for OS boot events.");
        return false;
    }
    sent = *seconds;
    return true;
}

void HostResourceManager::updateStartupFile() {
    constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    const tav::FileDescriptor file(::open(startupHistoryFile, flags, 0644));
    const std::string text = std::to_string(std::time(nullptr));
    if (!file.isOpen() || !tav::writeAll(file.get(), text.data(), text.size())) {
        logger.warning(here(),
                       "Unable to record event history! OS boot events will be re-sent upon "
                       "restart of TAV.");
    }
}
