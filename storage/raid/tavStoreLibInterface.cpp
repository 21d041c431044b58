#include "storage/raid/tavStoreLibInterface.h"

#include <algorithm>
#include <array>
#include <csignal>

#include "core/Log.h"
#include "storage/SASResourceManager.h"
#include "storage/raid/storelib_cache.h"
#include "storage/raid/storelib_commands.h"
#include "storage/raid/storelib_file.h"
#include "storage/raid/storelib_lane.h"

using tav::here;

namespace {

namespace storelib = tav::storelib;
using storelib::success;

constexpr tav::ModuleLog logger{"LSI_INTERF"};

struct StatusText {
    std::uint32_t status;
    const char* text;
};
constexpr std::array initializationStatuses = {
    StatusText{0, "InitializeLibraryMR successful"},
    StatusText{0x8002, "InitializeLibraryMR failed _FAILED"},
    StatusText{0x801E, "InitializeLibraryMR failed:LIBSYSFS_NOT_PRESENT"},
    StatusText{0x802B, "User Access level incorrect, administrator privilege required"},
    StatusText{0x802C, "InitializeLibraryMR failed _NOT_PRESENT"},
};

/// What a scope rebuilds.
struct Scope {
    std::string_view name;
    bool controllers, drives, volumes;
};
constexpr std::array scopes = {
    Scope{"All", true, true, true},          Scope{"ALL_EVENT", true, true, true},
    Scope{"CTRL_EVENT", true, false, false}, Scope{"PD_EVENT", false, true, false},
    Scope{"LD_EVENT", false, false, true},
};

/// The library forks. A process that has a handler for that keeps it.
void handleChildSignals() {
    struct sigaction present {};
    if (::sigaction(SIGCHLD, nullptr, &present) != 0) return;
    const bool isDefault = (present.sa_flags & SA_SIGINFO) == 0 &&
                           (present.sa_handler == SIG_DFL || present.sa_handler == SIG_IGN);
    if (!isDefault) return;
    struct sigaction ours {};
    ours.sa_handler = tavStoreLibInterface::sighdlr;
    ours.sa_flags = SA_RESTART;
    ::sigaction(SIGCHLD, &ours, nullptr);
}

}  // namespace

std::atomic<tavStoreLibInterface::EntryPoint> tavStoreLibInterface::pfnProcessLibCommandMR{nullptr};
std::atomic<tavStoreLibInterface::EntryPoint> tavStoreLibInterface::pfnProcessLibCommand{nullptr};
std::atomic<bool> tavStoreLibInterface::libMRPresent{false};
std::atomic<bool> tavStoreLibInterface::initializeMRsuccessful{false};
std::atomic<bool> tavStoreLibInterface::doNotRetryLibLoad{false};

tavStoreLibInterface* tavStoreLibInterface::getInstance() {
    static auto* const objInstance = new tavStoreLibInterface;  // outlives every thread
    return objInstance;
}

struct tavStoreLibInterface::Parts {
    storelib::LibraryFile file{};  ///< under initLock_
    const storelib::Commands commands;
    storelib::Cache cache{};
    storelib::LibraryLane lane{};
};

tavStoreLibInterface::tavStoreLibInterface()
    : parts_(*new Parts{.commands = storelib::Commands([this](_SL_LIB_CMD_PARAM_T* command) {
                            return ProcessLibCommandCall(command);
                        })}) {
    parts_.lane.onReturn(SASResourceManager::invalidateInventoryCache);
}

storelib::LibraryLane& tavStoreLibInterface::lane() {
    return parts_.lane;
}

const storelib::Commands& tavStoreLibInterface::commands() const {
    return parts_.commands;
}

void tavStoreLibInterface::sighdlr(int /*signal*/) {}

// --- Loading and unloading -----------------------------------------------------------------------

int tavStoreLibInterface::tavStoreInit() {
    if (pfnProcessLibCommandMR != nullptr) return 1;
    const auto usable = std::make_shared<int>(0);
    const bool isDone = parts_.lane.run([this, usable] { *usable = initialize(); });
    return isDone ? *usable : 0;
}

int tavStoreLibInterface::initialize() {
    const std::lock_guard<std::mutex> held(initLock_);
    if (pfnProcessLibCommandMR != nullptr) return 1;
    if (!doNotRetryLibLoad && (!loadLibrary() || !initializeLibrary())) return 0;
    if (!initializeMRsuccessful) return 0;
    mergeControllerLists();
    const std::lock_guard<std::mutex> listHeld(listLock_);
    if (gTotalControllers_ > 0) return 1;
    logger.warning(here(), "No LSI MR controllers found");
    return 0;
}

bool tavStoreLibInterface::loadLibrary() {
    {
        const std::lock_guard<std::mutex> listHeld(listLock_);
        gCtrlListMR_ = {};
        gCtrlList_ = {};
    }
    pfnProcessLibCommandMR = parts_.file.open();
    libMRPresent = parts_.file.isOpen();
    if (pfnProcessLibCommandMR != nullptr) return true;
    doNotRetryLibLoad = true;
    initializeMRsuccessful = false;
    return false;
}

bool tavStoreLibInterface::initializeLibrary() {
    pfnProcessLibCommand = pfnProcessLibCommandMR.load();
    handleChildSignals();
    logger.info(here(), "Initializing library for MegaRAID SAS Controller...");
    SL_CTRL_LIST_T list{};
    const std::uint32_t status = InitializeLibraryMR(&list);
    initializeMRsuccessful = status == success;
    const auto* const text =
        std::find_if(initializationStatuses.begin(), initializationStatuses.end(),
                     [status](const StatusText& row) { return row.status == status; });
    if (text != initializationStatuses.end()) logger.info(here(), "%s", text->text);
    if (status != success) {
        logger.error(here(), "InitLib failed for MegaRAID SAS Controller!!");
        return false;
    }
    if (list.isSimulation == 1) {
        logger.warning(here(), "MegaRAID SAS Controller is running under Simulation Mode.");
    }
    const std::lock_guard<std::mutex> listHeld(listLock_);
    gCtrlListMR_ = list;
    return true;
}

void tavStoreLibInterface::mergeControllerLists() {
    const std::lock_guard<std::mutex> listHeld(listLock_);
    replaceControllerList(gCtrlListMR_);
}

/// Under the list's lock.
void tavStoreLibInterface::replaceControllerList(const SL_CTRL_LIST_T& list) {
    gCtrlList_ = list;
    gCtrlList_.count =
        static_cast<std::uint16_t>(storelib::countIn(list.controllerIds, list.count));
    gTotalControllers_ = gCtrlList_.count;
}

void tavStoreLibInterface::unloadDLL(int which) {
    constexpr int megaRaid = 0;
    constexpr int all = 255;
    const std::lock_guard<std::mutex> held(initLock_);
    currentIndex_ = -1;
    if (!libMRPresent || (which != megaRaid && which != all)) return;
    releaseLibrary("ExitLib failed for MegaRAID SAS Controller");
}

void tavStoreLibInterface::unloadDLLs() {
    const std::lock_guard<std::mutex> held(initLock_);
    releaseLibrary("ExitLib failed for MegaRAID SAS Controller!");
}

void tavStoreLibInterface::releaseLibrary(const char* failure) {
    logger.info(here(), "UnInitializing library for MegaRAID SAS Controller.");
    if (UnInitializeLibrary() != success) logger.error(here(), "%s", failure);
    parts_.file.close();
    pfnProcessLibCommandMR = nullptr;
    pfnProcessLibCommand = nullptr;
    libMRPresent = false;
    initializeMRsuccessful = false;
}

// --- Commands ------------------------------------------------------------------------------------

std::uint32_t tavStoreLibInterface::ProcessLibCommandCall(_SL_LIB_CMD_PARAM_T* command) {
    if (storelib::isMegaRaid(currentController())) {
        pfnProcessLibCommand = pfnProcessLibCommandMR.load();
    }
    const storelib::LibraryLane::Asking asking(*command);
    const EntryPoint entryPoint = pfnProcessLibCommand;
    return entryPoint == nullptr ? storelib::notInitialized : entryPoint(command);
}

/// The whole id of the current controller; 0 when there is none.
std::uint32_t tavStoreLibInterface::currentController() {
    const int index = currentIndex_;
    const std::lock_guard<std::mutex> listHeld(listLock_);
    if (index < 0 || index >= gCtrlList_.count) return 0;
    return gCtrlList_.controllerIds[index];
}

std::vector<std::uint32_t> tavStoreLibInterface::wholeControllerIds() {
    const std::lock_guard<std::mutex> listHeld(listLock_);
    std::vector<std::uint32_t> ids;
    for (std::size_t index = 0; index < gCtrlList_.count; ++index)
        ids.push_back(gCtrlList_.controllerIds[index]);
    return ids;
}

std::vector<std::uint32_t> tavStoreLibInterface::getControllerIds() {
    std::vector<std::uint32_t> ids = wholeControllerIds();
    for (std::uint32_t& id : ids)
        id &= storelib::controllerIdMask;
    return ids;
}

std::uint32_t tavStoreLibInterface::InitializeLibraryMR(SL_CTRL_LIST_T* list) {
    return parts_.commands.initialize(*list);
}

std::uint32_t tavStoreLibInterface::UnInitializeLibrary() {
    const std::uint32_t status = parts_.commands.release();
    logger.info(here(), status == success ? "UnInitializeLibrary successful"
                                          : "UnInitializeLibrary failed");
    return status;
}

std::uint32_t tavStoreLibInterface::getCtrlList(SL_CTRL_LIST_T* list) {
    return parts_.commands.controllerList(*list);
}

std::uint32_t tavStoreLibInterface::getCtrlInfoFunc(_MR_CTRL_INFO* record) {
    return parts_.commands.controllerInfo(currentController(), *record);
}

std::uint32_t tavStoreLibInterface::GetPDListFunc(_MR_PD_LIST* list, std::uint32_t size) {
    return parts_.commands.driveList(currentController(), *list, size);
}

std::uint32_t tavStoreLibInterface::GetEnclListFunc(_MR_ENCL_LIST* list) {
    return parts_.commands.enclosureList(currentController(), *list);
}

std::string tavStoreLibInterface::getCtrlPCILoc() {
    SL_PCI_INFO_T record{};
    return parts_.commands.pciInfo(currentController(), record) == success
               ? storelib::pciLocationText(record)
               : "";
}

std::uint32_t tavStoreLibInterface::FirePDInfo(_MR_PD_INFO* record, std::uint16_t deviceId) {
    return PDInfo(record, deviceId);
}

std::uint32_t tavStoreLibInterface::PDInfo(_MR_PD_INFO* record, std::uint16_t deviceId) {
    return parts_.commands.driveInfo(currentController(), deviceId, *record);
}

std::uint32_t tavStoreLibInterface::FireLDInfo(_MR_LD_INFO* record, std::uint8_t targetId) {
    return parts_.commands.volumeInfo(currentController(), targetId, *record);
}

std::uint32_t tavStoreLibInterface::GetMFCMFG(_MR_MFC_MFG* record, std::uint8_t mailbox) {
    return parts_.commands.manufacturingRecord(currentController(), mailbox, *record);
}

std::uint32_t tavStoreLibInterface::getCtrlSafeID(char* safeId) {
    return parts_.commands.safeId(currentController(), safeId);
}

std::string tavStoreLibInterface::getCtrlFWVersion() {
    const auto record = std::make_unique<_MR_CTRL_INFO>();
    if (getCtrlInfoFunc(record.get()) != success) return {};
    return storelib::fieldText({record->packageVersion, sizeof record->packageVersion});
}

// --- The cache -----------------------------------------------------------------------------------

void tavStoreLibInterface::cacheBuild(std::string_view scope) {
    logger.debug(here(), "tavStoreLibInterface::cacheBuild()");
    if (!initializeMRsuccessful) {
        logger.debug(here(), "MR library was not initialized hence cancelling cache build");
        return;
    }
    parts_.lane.run([this, scope = std::string(scope)] { rebuild(scope); });
    logger.debug(here(), "tavStoreLibInterface::cacheBuild() complete");
}

/// In the lane.
void tavStoreLibInterface::rebuild(std::string_view scope) {
    const auto* const wanted = std::find_if(
        scopes.begin(), scopes.end(), [&](const Scope& known) { return known.name == scope; });
    if (wanted == scopes.end()) return;
    parts_.cache.rebuild([&](const storelib::Snapshot& known, storelib::Snapshot& next) {
        if (wanted->controllers) refreshControllerList();
        const storelib::Survey survey(parts_.commands, wholeControllerIds(), known);
        if (wanted->controllers) survey.readControllers(next);
        if (wanted->drives) survey.readDrives(next);
        if (wanted->volumes) survey.readVolumes(next);
    });
}

/// A list that cannot be read says nothing of the controllers: those of the last one stand.
void tavStoreLibInterface::refreshControllerList() {
    SL_CTRL_LIST_T list{};
    if (const std::uint32_t status = parts_.commands.controllerList(list); status != success) {
        logger.warning(here(),
                       "The RAID controllers could not be asked for (rval=[0x%x]); the known ones "
                       "stand.",
                       status);
        return;
    }
    const std::lock_guard<std::mutex> listHeld(listLock_);
    replaceControllerList(list);
}

std::shared_ptr<const storelib::Snapshot> tavStoreLibInterface::snapshot() {
    return parts_.lane.isHanging() ? parts_.cache.published() : parts_.cache.read();
}

std::vector<CTRL_INFO> tavStoreLibInterface::getControllerCollection() {
    return snapshot()->controllers;
}

CTRL_INFO tavStoreLibInterface::getControllerInventory(std::uint32_t controllerId) {
    const auto held = snapshot();
    const CTRL_INFO* const controller = held->controller(controllerId);
    return controller == nullptr ? CTRL_INFO() : *controller;
}

std::vector<PD_INFO> tavStoreLibInterface::getPDInventoryForCtrl(std::uint32_t controllerId) {
    return snapshot()->drivesOf(controllerId);
}

std::vector<LD_INFO> tavStoreLibInterface::getLDInventoryForCtrl(std::uint32_t controllerId) {
    return snapshot()->volumesOf(controllerId);
}

int tavStoreLibInterface::getControllerID(const std::string& pciLocation) {
    const auto held = snapshot();
    for (const CTRL_INFO& controller : held->controllers)
        if (controller.pciLocation == pciLocation) return static_cast<int>(controller.controllerId);
    return -1;
}

// --- What the library's numbers mean -------------------------------------------------------------

const char* tavStoreLibInterface::getFWStateString(std::uint16_t state) {
    return storelib::driveState(state).text;
}
std::uint32_t tavStoreLibInterface::getHealth(std::uint16_t state) {
    return storelib::driveState(state).health;
}
const char* tavStoreLibInterface::getLDStateString(std::uint8_t state) {
    return storelib::volumeState(state).text;
}
std::uint32_t tavStoreLibInterface::getLDHealth(std::uint8_t state) {
    return storelib::volumeState(state).health;
}
const char* tavStoreLibInterface::getRAIDLevelString(std::uint8_t primary, std::uint8_t qualifier,
                                                     std::uint8_t secondary,
                                                     std::uint8_t spanDepth) {
    return storelib::raidLevelText(primary, qualifier, secondary, spanDepth);
}
