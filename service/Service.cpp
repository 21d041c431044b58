#include "service/Service.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <iostream>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <json/writer.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "base/FileDescriptor.h"
#include "base/StopSignal.h"
#include "base/Threads.h"
#include "collector/tavJobManager.h"
#include "collector/tavServer.h"
#include "core/Log.h"
#include "core/Logger.h"
#include "core/resource_managers.h"
#include "core/tavConfig.h"
#include "core/tavUtils.h"
#include "fc/FCResourceManager.h"
#include "nic/NICEventMonitor.h"
#include "rmc/StateFiles.h"
#include "rmc/tavIPMIDBService.h"
#include "rmc/tavJsonAggregator.h"
#include "service/CrashCapture.h"
#include "service/Locations.h"
#include "service/ServiceManager.h"
#include "service/StateKeeper.h"

namespace tavd {
namespace {

using CPlusPlusLogging::Logger;

constexpr tav::ModuleLog logger{"TAVD"};

/// A log that reached its limit right after a look cannot fill a disk until the next one.
constexpr std::chrono::seconds lookAtLogsEvery{60};
constexpr std::array ownDirectories = {"/opt/orn/tav/data/", "/opt/orn/tav/log/"};

/// What signals asked for.
tav::StopSignal& stopRequest() {
    static tav::StopSignal* const instance =
        new tav::StopSignal;  // one may come until the very end
    return *instance;
}

std::atomic<int> stopSignalNumber{0};

void onStopSignal(int signal) {
    stopSignalNumber = signal;
    stopRequest().request();
}
void onHangUp(int /*signal*/) {}  // it ends a wait; nothing more is asked for

/// SIGHUP stays blocked but while the service waits, so that its wait is sure to notice it.
sigset_t handleSignals() {
    stopRequest();
    struct sigaction action {};
    action.sa_flags = SA_RESTART;
    action.sa_handler = onStopSignal;
    ::sigaction(SIGTERM, &action, nullptr);
    ::sigaction(SIGINT, &action, nullptr);
    action.sa_handler = onHangUp;
    ::sigaction(SIGHUP, &action, nullptr);
    action.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &action, nullptr);

    sigset_t hangUp;
    sigset_t whileWaiting;
    ::sigemptyset(&hangUp);
    ::sigaddset(&hangUp, SIGHUP);
    ::pthread_sigmask(SIG_BLOCK, &hangUp, &whileWaiting);
    ::sigdelset(&whileWaiting, SIGHUP);
    return whileWaiting;
}

void lookAtLogs() {
    const tavConfig& config = *tavConfig::getInstance();
    Logger::getInstance()->isFileExceeded(config.getTAVLogFileLocation());
    Logger::getInstance()->isFileExceeded(config.getTAVDebugLogFileLocation());
}

/// What is looked at now and again: how large the logs are, the lock, and whether all loops move.
timespec nextLook(const ServiceManager& manager) {
    using std::chrono::milliseconds;
    const milliseconds wait =
        std::min<milliseconds>(lookAtLogsEvery, manager.lookEvery().value_or(lookAtLogsEvery));
    return {wait.count() / 1000, wait.count() % 1000 * 1000000};
}

/// Takes what keeps a second service away; it is ours as long as the descriptor lives. 0, or why it
/// cannot be had: EWOULDBLOCK when another service has it.
int takeLock(tav::FileDescriptor& lock) {
    constexpr int flags = O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    lock.reset(::open(tav::serviceLock, flags, 0600));
    const bool isOurs = lock.isOpen() && ::flock(lock.get(), LOCK_EX | LOCK_NB) == 0;
    return isOurs ? 0 : errno;
}

/// Whoever has removed or replaced its file lets a second service start.
void keepLock(tav::FileDescriptor& lock) {
    struct stat held {};
    struct stat there {};
    const bool isInPlace = ::fstat(lock.get(), &held) == 0 &&
                           ::lstat(tav::serviceLock, &there) == 0 && held.st_dev == there.st_dev &&
                           held.st_ino == there.st_ino;
    if (isInPlace) return;
    tav::FileDescriptor anew;
    const int error = takeLock(anew);
    if (error == 0) {
        lock = std::move(anew);
        logger.warning(tav::here(), "%s had gone; it has been taken anew.", tav::serviceLock);
    } else if (error == EWOULDBLOCK) {
        logger.error(tav::here(), "Another tavd holds %s: both report.", tav::serviceLock);
    }
}

/// SIGHUP ends the wait, so that the logs and the lock are looked at right away then.
void waitForStop(const sigset_t& whileWaiting, ServiceManager& manager, tav::FileDescriptor& lock) {
    pollfd stop{stopRequest().descriptor(), POLLIN, 0};
    while (!stopRequest().requested()) {
        manager.lookAtLoops();
        const timespec wait = nextLook(manager);
        ::ppoll(&stop, 1, &wait, &whileWaiting);
        lookAtLogs();
        keepLock(lock);
    }
}

void makeOwnDirectories() {
    for (const char* directory : ownDirectories) {
        if (CPlusPlusLogging::createDirectoryPath(directory) != 0) {
            std::cerr << "tavd: cannot create " << directory << '\n';
        }
    }
}

/// The Fibre Channel manager on a thread of its own; the job manager runs all others.
class FibreChannel {
 public:
    bool start() {
        const int failure =
            tav::startThread(thread_, "tav-fc", [] { FCResourceManager::getInstance()->init(); });
        if (failure == 0) return true;
        logger.error(tav::here(), "The Fibre Channel manager cannot be started (errno: %d)",
                     failure);
        return false;
    }
    void requestStop() {
        if (thread_.joinable()) FCResourceManager::getInstance()->stopResourceManagerJob();
    }
    void join() { tav::joinThread(thread_); }

 private:
    std::thread thread_;
};

/// The push is asked for before its thread starts: only then does the first inventory leave right
/// after the managers are ready, instead of one push interval later.
bool startEverything(Locations& locations) {
    locations.start();
    if (!tavJobManager::getInstance()->startResourceManagers()) return false;
    tavJobManager::startTAVServer();
    tavJsonAggregator& aggregator = *tavJsonAggregator::getInstance();
    aggregator.repeatUntilAcknowledged();
    aggregator.sendInventory(true);
    aggregator.sendInventory(false);
    tavIPMIDBService::starttavIPMIDBService();
    if (tavConfig::getInstance()->isResourceEnabled(ETHERNET_DEVICES)) {
        NICEventMonitor::startMonitoring();
    }
    return true;
}

/// All parts are told before any is waited for: together they take as long as the slowest.
void tellEverythingToStop() {
    TAVServer::requestStop();
    if (tavConfig::getInstance()->isResourceEnabled(ETHERNET_DEVICES)) {
        NICEventMonitor::requestStop();
    }
    tavIPMIDBService::requestStop();
    tavJsonAggregator::requestStop();
    tavJobManager::getInstance()->requestStop();
}

void stopEverything() {
    tavJobManager::stopTAVServer();
    if (tavConfig::getInstance()->isResourceEnabled(ETHERNET_DEVICES)) {
        NICEventMonitor::stopMonitoring();
    }
    tavIPMIDBService::stoptavIPMIDBService();
    tavJsonAggregator::stoptavJsonAggregator();
    tavJobManager::getInstance()->stopResourceManagers();
}

void addFibreChannel(Json::Value& document) {
    FCResourceManager* const manager = FCResourceManager::getInstance();
    manager->cacheBuild();
    std::vector<Json::Value> ports;
    manager->getInventoryJsonObject(ports);
    for (Json::Value& port : ports)
        document["FibreChannelDevices"].append(std::move(port));
}

}  // namespace

int serve(bool withFibreChannel, const std::string& metricsFile) {
    if (::geteuid() != 0) {
        std::cerr << "tavd: only root may use the IPMI device and the disks; run it as root\n";
        return 5;
    }
    ::umask(0077);  // who may read the request pipe takes requests away
    const sigset_t whileWaiting = handleSignals();
    ServiceManager manager;
    const tav::StopScope scope(&stopRequest());
    tav::FileDescriptor lock;
    const int lockError = takeLock(lock);
    if (lockError == EWOULDBLOCK) {
        std::cerr << "tavd: another tavd is running (it holds " << tav::serviceLock << ")\n";
        return 4;
    }
    makeOwnDirectories();
    if (tavConfig::getInstance()->isUnhandledExceptionStackCaptureEnabled()) captureCrashes();
    Logger::getInstance()->always("tavd " TAV_VERSION " starts.", "TAVD", __LINE__);
    if (lockError != 0) {
        logger.warning(tav::here(), "%s cannot be had (%s): nothing keeps a second tavd away.",
                       tav::serviceLock, std::strerror(lockError));
    }
    if (tavConfig::getInstance()->isDefaultSettingsApplied()) {
        logger.warning(tav::here(),
                       "There is no usable configuration file; the built-in defaults apply.");
    }
    StateKeeper state(metricsFile, withFibreChannel);
    state.start();
    FibreChannel fibreChannel;
    Locations locations(withFibreChannel);
    const bool started = startEverything(locations) && (!withFibreChannel || fibreChannel.start());
    if (started) {
        manager.serves();
        waitForStop(whileWaiting, manager, lock);
        manager.ends();
    }
    locations.requestStop();
    fibreChannel.requestStop();
    tellEverythingToStop();
    locations.stop();
    fibreChannel.join();
    stopEverything();
    state.stop();
    // What cannot die yet, in the kernel, does not keep a successor waiting.
    lock.reset();
    return started ? 0 : 1;
}

int printInventory() {
    handleSignals();
    const tav::StopScope scope(&stopRequest());
    tavUtils().initGeoIDMap();
    tav::forEachEnabledManager(
        [](MODULE_NAME /*type*/, tavResourceManager& manager) { manager.cacheBuild(); });
    Json::Value document = tavJsonAggregator::collectInventory();
    addFibreChannel(document);
    // What a stop has cut short is no inventory.
    if (stopRequest().requested()) return 128 + stopSignalNumber;
    if (document.isNull()) {
        std::cerr << "tavd: there is no inventory; is any resource enabled?\n";
        return 1;
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    std::cout << Json::writeString(builder, document) << '\n';
    return 0;
}

}  // namespace tavd
