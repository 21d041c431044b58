#include "storage/SASResourceManager.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <memory>
#include <utility>

#include "base/StopSignal.h"
#include "base/Waiting.h"
#include "core/Figures.h"
#include "core/UeventListener.h"
#include "core/tavConfig.h"
#include "core/tavUtils.h"
#include "rmc/tavJsonAggregator.h"
#include "storage/model/sample_records.h"
#include "storage/model/storage_utils.h"
#include "storage/registered_factories.h"
#include "storage/storage_rounds.h"
#include "storage/storage_uevents.h"

using tav::here;

namespace {

using namespace std::chrono_literals;

constexpr auto& logger = tav::storageLog;

constexpr long pollInterval = 10;
constexpr std::chrono::seconds shortestStep = 1s;
constexpr auto runningRetry = 5s;
constexpr auto clockRetry = 1s;

constexpr const char* eventModule = "SASHBA";
constexpr const char* noPartNumber = "NotAvailable";

long refreshInterval() {
    return tavConfig::getInstance()->getrefreshInterval(
        TAV_MODULE_NAME_MAP.at(STORAGE_CONTROLLERS));
}

/// Whether the loop woke by its deadline or for a look, and at least `interval` seconds have passed
/// since then: looks that are asked for again and again put nothing off, and neither does a clock
/// that was set back.
bool isDue(const tav::LoopWake& wake, std::time_t since, long interval) {
    if (!wake.deadline && !wake.look) return false;
    const std::time_t elapsed = wake.deadline.value_or(tav::secondsNow()) - since;
    return elapsed >= interval || elapsed < 0;
}

using Objects = std::vector<Json::Value>;
constexpr std::array<Objects tav::StorageInventory::*, 4> objectsByKind = {
    &tav::StorageInventory::controllers, &tav::StorageInventory::controllers,
    &tav::StorageInventory::drives, &tav::StorageInventory::volumes};

void copyKind(const tav::StorageGeneration& generation, int kind, Objects& objects) {
    objects.clear();
    if (kind < 0 || static_cast<std::size_t>(kind) >= objectsByKind.size()) {
        logger.warning(here(), "Unsupported inventory type");
        return;
    }
    for (const tav::StorageGeneration::Part& part : generation.parts) {
        const Objects& own = (*part.inventory).*objectsByKind.at(static_cast<std::size_t>(kind));
        objects.insert(objects.end(), own.begin(), own.end());
    }
}

tavEvent eventAbout(const tavInventoryBase& record, int eventID, const std::string& location,
                    bool serviceEvent, const char* source) {
    return {eventID,
            location,
            eventModule,
            serviceEvent,
            tavUtils::getTime(),
            noPartNumber,
            record.getVariableData(),
            source};
}

/// Whether events tell all that has changed: not of a controller that is new, nor of a drive whose
/// firmware is another one.
bool saysSame(const tav::StorageGeneration& one, const tav::StorageGeneration& other) {
    return one.parts.size() == other.parts.size() &&
           std::all_of(one.parts.begin(), one.parts.end(), [&](const auto& part) {
               const auto* const counterpart = other.partOf(*part.controller);
               return counterpart != nullptr &&
                      saysSameButForConditions(*part.inventory, *counterpart->inventory);
           });
}

bool isSomeControllerWithoutEvents() {
    bool found = false;
    tav::forEachFactory("Asking for a factory's controllers", [&](auto& factory) {
        const auto controllers = tav::knownControllers(factory);
        if (!controllers) return;
        tav::forEachController("Asking a controller for its events", *controllers,
                               [&](auto& controller) { found |= !controller.isEventsEnabled(); });
    });
    return found;
}

}  // namespace

SASResourceManager::SASResourceManager() : rounds_(makeRounds()) {}

SASResourceManager::~SASResourceManager() = default;

std::unique_ptr<tav::StorageRounds> SASResourceManager::makeRounds() {
    return std::make_unique<tav::StorageRounds>(
        [this](tav::StorageGeneration::Part part, tav::ToldLists told) {
            publishLate(std::move(part), told);
        });
}

SASResourceManager* SASResourceManager::getInstance() {
    static SASResourceManager* const instance = new SASResourceManager;  // outlives every thread
    return instance;
}

void SASResourceManager::init() {
    logger.debug(here(), "Entered init");
    if (!beginLoop()) return;
    startInventory();
    endLoop();
}

void SASResourceManager::startInventory() {
    logger.debug(here(), "reached startInventory");
    const tav::StopScope scope(loop_.stopSignal());
    const long refresh = refreshInterval();
    logger.debug(here(), "SAS refresh interval: %ld", refresh);
    logger.debug(here(), "SAS poll interval: %ld", pollInterval);
    const std::chrono::seconds step(compute_gcd(refresh, pollInterval));
    const tav::UeventListener listener(tav::openUeventSocket(), "tav-uevents", tav::concernsStorage,
                                       [this] { loop_.requestLook(); });
    auto wait = step;
    while (true) {
        const tav::LoopWake wake = loop_.wait(wait);
        const std::time_t now = tav::secondsNow();
        const tav::Stopwatch round;
        if (wake.stop) break;
        if (wake.clockFailed) {
            logger.error(here(), "Failed to get current time! (errno: %d)", errno);
            tav::pauseFor(clockRetry);
            continue;
        }
        const bool builds = wake.refresh || isDue(wake, lastRefreshTime_, refresh);
        if (builds) {
            cacheBuild();
            lastRefreshTime_ = now;
        }
        // A build that has begun after the kernel's news has seen what they were about.
        if ((wake.look && !builds) || isDue(wake, lastPollTime_, pollInterval)) {
            pollDevices();
            lastPollTime_ = now;
        }
        // What a round has waited for those that hang is no time in which nobody looks.
        const auto taken = std::chrono::floor<std::chrono::seconds>(round.elapsed());
        wait = std::max(step - taken, shortestStep);
    }
    processResourceManagerStop();
}

void SASResourceManager::stopResourceManagerJob() {
    logger.info(here(), "Resource manager stop called.");
    requestStop();
    logger.info(here(), "Signalled for stop.");
    waitForLoopEnd();
    logger.info(here(), "Wait for resource manager stop completed with %d.", 0);
}

void SASResourceManager::requestStop() {
    loop_.requestStop();
    rounds_->requestStop();
}

void SASResourceManager::rebuild() {
    sendInventorytToRMCOnCacheBuild();
    invalidateInventoryCache();
}

void SASResourceManager::reset() {
    loop_.reset();
    rounds_ = makeRounds();
    readiness_.reset();
    cache_.clear();
    lastRefreshTime_ = 0;
    lastPollTime_ = 0;
    const std::lock_guard<std::mutex> held(loopStateLock_);
    inited_ = false;
}

void SASResourceManager::processResourceManagerStop() {
    logger.info(here(), "Resource manager stop in progress.");
    rounds_->shutDown();
}

/// False when a loop has been begun before: one thread at most, once until a reset.
bool SASResourceManager::beginLoop() {
    const std::lock_guard<std::mutex> held(loopStateLock_);
    if (std::exchange(inited_, true)) return false;
    loopRuns_ = true;
    return true;
}

void SASResourceManager::endLoop() {
    const std::lock_guard<std::mutex> held(loopStateLock_);
    loopRuns_ = false;
    loopEnded_.notify_all();
}

void SASResourceManager::waitForLoopEnd() {
    std::unique_lock<std::mutex> held(loopStateLock_);
    loopEnded_.wait(held, [this] { return !loopRuns_; });
}

void SASResourceManager::cacheBuild() {
    logger.debug(here(), "Building storage cache.");
    const tav::Timed timed(tav::figuresOf(STORAGE_CONTROLLERS).builds);
    readiness_.begin();
    bool isUntold = false;
    {
        tav::InventoryCache<tav::StorageGeneration>::Build build(cache_);
        const auto toldBy = takeToldBy();
        const auto known = cache_.current();
        tav::StorageGeneration inventory = rounds_->discover(*known);
        // A stop cuts discoveries short; what they left out must not be reported as gone.
        if (tav::stopRequested()) return;
        isUntold = readiness_.isReady() && !saysSame(*known, inventory);
        build.publish(std::move(inventory));
        if (toldBy) *toldBy = tavJsonAggregator::getInstance()->begunInventories() + 1;
    }
    if (!readiness_.complete() && !isUntold) return;
    logger.debug(here(), "SASRM requesting cache push");
    tavJsonAggregator::getInstance()->sendInventory(true);
}

void SASResourceManager::pollDevices() {
    logger.debug(here(), "Polling devices.");
    const tav::Timed timed(tav::figuresOf(STORAGE_CONTROLLERS).polls);
    rounds_->poll();
}

int SASResourceManager::getInventoryJsonObject(std::vector<Json::Value>& /*records*/) {
    return 0;
}

int SASResourceManager::getInventoryJsonObject2(int kind, std::vector<Json::Value>& records) {
    const auto [generation, building] = cache_.read();
    if (building) {
        logger.debug(here(), "Cache build is in progress. Returning previously saved inventory.");
    }
    copyKind(*generation, kind, records);
    if (building) return 1;
    logger.debug(here(), "returning Inventory size: %zu", records.size());
    return 0;
}

void SASResourceManager::fetchPrevInventoryOfType(int kind,
                                                  std::vector<Json::Value>& records) const {
    const auto inventory = cache_.current();
    copyKind(*inventory, kind, records);
}

bool SASResourceManager::isRunning() {
    const bool built = tav::holdsInventory(
        cache_, &tav::StorageGeneration::parts, runningRetry,
        [](int building, std::size_t size, int retry) {
            logger.warning(
                here(),
                "_cacheBuildInProgress = %d,ControllerInventory.size() = %zu,retryCount = %d",
                building, size, retry);
        });
    if (built && isSomeControllerWithoutEvents()) {
        logger.warning(here(),
                       "LSI Events are disabled.Hence Storage Controllers is"
                       "                                       partially functional.");
    }
    return built;
}

bool SASResourceManager::isInventoryReady(int iteration) {
    const bool ready = readiness_.answer(iteration);
    logger.info(here(), "SAS RM cache status %d", ready ? 1 : 0);
    return ready;
}

void SASResourceManager::updateInventory(const ItavStorageController& controller,
                                         const tav::StorageRecords& records) {
    auto inventory = std::make_shared<const tav::StorageInventory>(tav::renderStorage(records));
    getInstance()->cache_.change([&](tav::StorageGeneration& generation) {
        for (tav::StorageGeneration::Part& part : generation.parts) {
            if (part.controller == &controller) part.inventory = inventory;
        }
    });
}

/// Of a controller that the build has not waited for.
void SASResourceManager::publishLate(tav::StorageGeneration::Part part, tav::ToldLists told) {
    bool isUntold = false;
    cache_.change([&](tav::StorageGeneration& generation) {
        const auto known =
            std::find_if(generation.parts.begin(), generation.parts.end(),
                         [&](const auto& old) { return old.controller == part.controller; });
        if (known != generation.parts.end()) tav::keepUntold(&*known, told, part);
        isUntold = known == generation.parts.end() ||
                   !saysSameButForConditions(*known->inventory, *part.inventory);
        if (known == generation.parts.end()) {
            generation.parts.push_back(part);
        } else {
            known->inventory = part.inventory;
        }
    });
    if (isUntold) tavJsonAggregator::getInstance()->sendInventory(true);
}

SASResourceManager::ToldBy SASResourceManager::toldByNextBuild() {
    SASResourceManager& manager = *getInstance();
    const std::lock_guard<std::mutex> held(manager.toldByLock_);
    auto& next = manager.toldByNextBuild_;
    if (next == nullptr) next = std::make_shared<std::atomic<std::uint64_t>>(0);
    return next;
}

std::shared_ptr<std::atomic<std::uint64_t>> SASResourceManager::takeToldBy() {
    const std::lock_guard<std::mutex> held(toldByLock_);
    return std::exchange(toldByNextBuild_, nullptr);
}

void SASResourceManager::invalidateInventoryCache() {
    logger.debug(here(), "Invalidating inventory cache.");
    getInstance()->loop_.requestRefresh();
    logger.debug(here(), "Inventory cache invalidated.");
}

void SASResourceManager::sendInventorytToRMCOnCacheBuild() {
    logger.debug(here(), "Signalling for inventory push to RMC on cache build.");
    getInstance()->readiness_.askForPush();
    logger.debug(here(), "Signalled inventory push.");
}

tav::EventOutcome SASResourceManager::generateEvent(int eventID, const std::string& location,
                                                    bool serviceEvent,
                                                    const tavInventoryBase& record) {
    return tavEventHandler().deliverEvent(
        eventAbout(record, eventID, location, serviceEvent, "TAV"));
}

tav::EventOutcome SASResourceManager::generateEvent(int eventID, bool serviceEvent,
                                                    const tavInventoryBase& record) {
    return tavEventHandler().deliverEvent(
        {eventID, eventModule, serviceEvent, tavUtils::getTime(), record.getVariableData(), "TAV"});
}

void SASResourceManager::generateTestEvent(int eventID, const std::string& location,
                                           bool serviceEvent) {
    const auto event = testEvent(eventID, location, serviceEvent);
    if (event) {
        tavEventHandler().generateEvent(*event);
    } else {
        logger.warning(here(), "There is no test event %d of storage.", eventID);
    }
}

std::optional<tavEvent> SASResourceManager::testEvent(int eventID, const std::string& location,
                                                      bool serviceEvent) {
    const auto record = tav::sampleRecord(eventID, location);
    if (record == nullptr) return std::nullopt;
    return eventAbout(*record, eventID, location, serviceEvent, "TAV-CLI");
}
