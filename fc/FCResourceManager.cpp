#include "fc/FCResourceManager.h"

#include <chrono>
#include <cstdint>
#include <string_view>
#include <utility>

#include "base/StopSignal.h"
#include "base/Waiting.h"
#include "core/Figures.h"
#include "core/Log.h"
#include "core/UeventListener.h"
#include "core/tavConfig.h"
#include "core/tavUtils.h"
#include "fc/FCAdapterTables.h"
#include "fc/FCEvents.h"
#include "fc/FCPortQuestions.h"
#include "fc/FCPortText.h"
#include "rmc/tavEventHandler.h"
#include "rmc/tavJsonAggregator.h"

using tav::here;

namespace {

using namespace std::chrono_literals;

constexpr tav::ModuleLog logger{"FC_RM"};

constexpr const char* moduleName = "FCHBA";
constexpr auto loopStep = 10s;
constexpr auto recent = 3s;
constexpr std::chrono::seconds defaultRefreshInterval = 30s;
constexpr auto runningRetry = 3s;

std::chrono::seconds refreshInterval() {
    const std::chrono::seconds interval(
        tavConfig::getInstance()->getrefreshInterval("FibreChannelDevices"));
    return interval < 1s ? defaultRefreshInterval : interval;
}

/// At the first deadline after a build, whatever second it falls on.
bool isPortCheckDue(std::chrono::seconds elapsed) {
    return elapsed >= loopStep && elapsed < 2 * loopStep;
}

/// A reader answers null for what it cannot read.
std::string_view textOf(const char* text) {
    return text == nullptr ? std::string_view() : std::string_view(text);
}

tavFCDeviceInfo samplePort() {
    tavFCDeviceInfo port;
    port.settavFCModel("Sample 16Gb 2P FC HBA");
    port.settavFCSerialNumber("SMPL000001");
    port.settavFCPartNumber("SMP001");
    port.settavFCFirmwareVersion("8.05.61 (d0d5)");
    port.settavFCRomVersion("3.54");
    port.settavFCWWPN("50:00:00:00:00:00:00:01");
    port.settavFCWWNN("50:00:00:00:00:00:00:02");
    return port;
}

}  // namespace

FCResourceManager::FCResourceManager() : questions_(std::make_unique<tav::FCPortQuestions>()) {}

FCResourceManager::~FCResourceManager() = default;

FCResourceManager* FCResourceManager::getInstance() {
    static FCResourceManager* const instance = new FCResourceManager;  // outlives every thread
    return instance;
}

void FCResourceManager::init() {
    logger.debug(here(), "Initializing FCRM");
    if (!getFCInventory().empty()) return;
    const tav::StopScope scope(loop_.stopSignal());
    startInventory();
}

void FCResourceManager::startInventory() {
    logger.debug(here(), "Entry startInventory");
    if (sinceBuild_ && sinceBuild_->elapsed() < recent) {
        logger.debug(here(), "Cache was recently refreshed. skipping the current refresh cycle");
        return;
    }
    const std::chrono::seconds interval = refreshInterval();
    const tav::UeventListener listener(
        tav::openUeventSocket(), "tav-fc-uevents",
        [](const tav::Uevent& event) { return event.subsystem.starts_with("fc_"); },
        [this] { loop_.requestRefresh(); });
    loop_.run(loopStep, logger, [&](const tav::LoopWake& wake) {
        const auto elapsed = wake.deadline ? sinceLastBuild() : 0s;
        if (wake.refresh || elapsed >= interval ||
            (isPortCheckDue(elapsed) && waitOnPortState(getFCInventory().size()))) {
            cacheBuild();
        }
    });
}

/// In whole seconds, as time-outs are counted. Where nothing has been built, a build is due.
std::chrono::seconds FCResourceManager::sinceLastBuild() const {
    if (!sinceBuild_) return std::chrono::seconds::max();
    return std::chrono::round<std::chrono::seconds>(sinceBuild_->elapsed());
}

void FCResourceManager::stopResourceManagerJob() {
    logger.info(here(), "Resource manager stop called.");
    requestStop();
    logger.info(here(), "Signalled for stop.");
}

void FCResourceManager::reset() {
    loop_.reset();
    readiness_.reset();
    cache_.clear();
    ports_ = {};
    sinceBuild_.reset();
    questions_ = std::make_unique<tav::FCPortQuestions>();
}

void FCResourceManager::cacheBuild() {
    logger.debug(here(), "Building FC Cache");
    const tav::Timed timed(tav::figuresOf(FIBRE_CHANNEL_DEVICES).builds);
    std::vector<tav::FCPortLedgers::Change> changes;
    {
        tav::InventoryCache<Inventory>::Build build(cache_);
        auto found = discover();
        // A stop ends the waits of the hardware library; what they left open must not be reported.
        if (tav::stopRequested()) return;
        const bool hasFibreChannel = found.has_value();
        changes = ports_.takePorts(std::move(found).value_or(std::vector<tav::FoundFcPort>()));
        build.publish({ports_.ports(), createJsonStringUsingJsonCpp(ports_.ports())});
        if (!hasFibreChannel) return;
    }
    raiseEvents(changes);
    sinceBuild_.emplace();
    if (readiness_.complete()) {
        logger.debug(here(), "FCRM requesting cache push");
        tavJsonAggregator::getInstance()->sendInventory(true);
    }
}

std::vector<Json::Value> FCResourceManager::createJsonStringUsingJsonCpp(
    const std::vector<tavFCDeviceInfo>& ports) {
    std::vector<Json::Value> records;
    records.reserve(ports.size());
    for (const tavFCDeviceInfo& port : ports)
        records.push_back(tav::renderFcInventory(port));
    return records;
}

void FCResourceManager::raiseEvents(const std::vector<tav::FCPortLedgers::Change>& changes) {
    for (const tav::FCPortLedgers::Change& change : changes) {
        if (tav::stopRequested()) return;  // a dead controller would hold up the stop at each event
        if (const auto eventId = tav::fcEventOf(change.now.state)) raiseEvent(change, *eventId);
    }
}

void FCResourceManager::raiseEvent(const tav::FCPortLedgers::Change& change, int eventId) {
    const tavFCDeviceInfo& port = change.port;
    logger.info(here(), "Port %s has changed from %s to %s.", port.gettavFCWWPN().c_str(),
                tav::displayText(change.before.state), tav::displayText(change.now.state));
    tavEventHandler().generateEvent({eventId, port.gettavFCOemPhyLoc().getFCPhysicalLocation(),
                                     moduleName, tav::isFcServiceEvent(eventId),
                                     tavUtils::getTime(), port.gettavFCPartNumber(),
                                     getVariableData(port, eventId), "TAV"});
}

void FCResourceManager::generateTestEvent(int eventId, const std::string& /*location*/) {
    const tavFCDeviceInfo sample = samplePort();
    tavEventHandler().generateEvent(
        {eventId, "NOT AVAILABLE", moduleName, tav::isFcServiceEvent(eventId), tavUtils::getTime(),
         sample.gettavFCPartNumber(), getVariableData(sample, 0), "TAV-CLI"});
}

int FCResourceManager::getInventoryJsonObject(std::vector<Json::Value>& records) {
    return tav::copyRecords(cache_, records);
}

std::vector<tavFCDeviceInfo> FCResourceManager::getFCInventory() const {
    const auto inventory = cache_.current();
    return inventory->ports;
}

bool FCResourceManager::isRunning() {
    return tav::holdsInventory(
        cache_, &Inventory::ports, runningRetry, [](int building, std::size_t size, int retry) {
            logger.warning(here(),
                           "_cacheBuildInProgress = %d,FCInventory.size() =%zu,retryCount = %d",
                           building, size, retry);
        });
}

bool FCResourceManager::isInventoryReady(int iteration) {
    const bool ready = readiness_.answer(iteration);
    logger.info(here(), "FC cache status %d", ready ? 1 : 0);
    return ready;
}

void FCResourceManager::getFcaHostCntlrModel(unsigned long key, char* modelOut, int* convergedOut) {
    const std::string_view model = tav::fcAdapterModel(static_cast<std::uint32_t>(key));
    modelOut[model.copy(modelOut, sizeof(tavFCAdapterModel::model) - 1)] = '\0';
    if (convergedOut != nullptr) *convergedOut = tav::isConvergedModel(model) ? 1 : 0;
}

std::string FCResourceManager::getFcaHostCntlrPartNumber(unsigned long key) {
    return std::string(tav::fcAdapterPartNumber(static_cast<std::uint32_t>(key)));
}

TAV_RESOURCE_STATE FCResourceManager::getState(const char* portState) {
    return tav::parsePortState(textOf(portState));
}

TAV_RESOURCE_HEALTH FCResourceManager::getHealth(TAV_RESOURCE_STATE state) {
    return tav::healthOfPort(state);
}

std::string FCResourceManager::portWWNtoString(const char* name) {
    return tav::parseWorldWideName(textOf(name)).value_or(tav::fcNotAvailable);
}

std::string FCResourceManager::getDescription(int eventId) {
    return tav::fcEventText(eventId);
}

void FCResourceManager::jsonInventory(Json::Value& record, const tavFCDeviceInfo& port) {
    record = tav::renderFcPort(port);
}

Json::Value FCResourceManager::getVariableData(const tavFCDeviceInfo& port, int eventId) {
    Json::Value data(Json::objectValue);
    jsonInventory(data["Data"], port);
    data["Type"] = "FibreChannelDevice";
    data["EventInfo"] = getDescription(eventId);
    return data;
}
