#include "storage/raid/tavStoreLibInterface.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <memory>
#include <utility>

#include <dlfcn.h>

#include "base/Waiting.h"
#include "core/Log.h"

using tav::here;

namespace {

using namespace std::chrono_literals;
namespace storelib = tav::storelib;

constexpr tav::ModuleLog logger{"LSI_INTERF"};

constexpr std::uint32_t success = 0;
constexpr std::uint32_t noLibrary = 0x8001;  // the library's own "initialisation not done"

enum CommandType : std::uint8_t {
    LibraryCommand = 0,
    ControllerCommand = 1,
    DriveCommand = 2,
    VolumeCommand = 3,
    PassThroughCommand = 6,
};

enum CommandCode : std::uint8_t {
    Initialize = 0,
    ControllerList = 3,
    Release = 9,
    ControllerInfo = 0,
    DriveList = 4,
    EnclosureList = 5,
    PciInfo = 11,
    VolumeList = 13,
    DriveInfo = 0,
    VolumeInfo = 0,
    VolumeDrives = 11,
    FirmwareCommand = 3,
};

constexpr std::uint8_t controllerToHost = 2;
constexpr std::uint32_t manufacturingOpcode = 0x010E0301;
constexpr std::uint32_t safeIdOpcode = 0x01160300;
constexpr std::uint32_t safeIdSize = 41;

constexpr std::uint32_t supportedPciId = 0x005D1000;
constexpr std::uint32_t defaultBlockSize = 512;

constexpr int lockAttempts = 3;
constexpr auto lockRetry = 2s;

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

void sighdlr(int /*signal*/) {}

/// The library forks. A process that has a handler for that keeps it.
void handleChildSignals() {
    struct sigaction present {};
    if (::sigaction(SIGCHLD, nullptr, &present) != 0) return;
    const bool isDefault = (present.sa_flags & SA_SIGINFO) == 0 &&
                           (present.sa_handler == SIG_DFL || present.sa_handler == SIG_IGN);
    if (!isDefault) return;
    struct sigaction ours {};
    ours.sa_handler = sighdlr;
    ours.sa_flags = SA_RESTART;
    ::sigaction(SIGCHLD, &ours, nullptr);
}

/// A count that the library tells, but no more than its record has room for.
template <class Entry, std::size_t Size>
std::size_t countIn(const Entry (&)[Size], std::size_t told) {
    return std::min(told, Size);
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

// --- Loading and unloading -----------------------------------------------------------------------

int tavStoreLibInterface::tavStoreInit() {
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
    library_ = ::dlopen("libstorelib.so", RTLD_LAZY);
    if (library_ == nullptr) {
        doNotRetryLibLoad = true;
        initializeMRsuccessful = false;
        logger.error(here(),
                     "Failed to load library for monitoring MegaRAID devices. If you need TAV to "
                     "monitor this class of devices, then kindly remove and install storelib "
                     "package and restart tav.service.");
        logger.debug(here(), "Error occurred while loading MegaRAID lib dlerror = %s", ::dlerror());
        return false;
    }
    libMRPresent = true;
    logger.info(here(), "Library loaded for MegaRAID SAS Controller.");
    pfnProcessLibCommandMR = reinterpret_cast<EntryPoint>(::dlsym(library_, "ProcessLibCommand"));
    if (pfnProcessLibCommandMR != nullptr) return true;
    logger.error(here(), "Unable to get Entry Point function address Exiting.");
    closeLibrary();
    doNotRetryLibLoad = true;
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
    gCtrlList_.count = static_cast<std::uint16_t>(countIn(list.controllerIds, list.count));
    gTotalControllers_ = gCtrlList_.count;
}

void tavStoreLibInterface::closeLibrary() {
    if (library_ != nullptr) ::dlclose(std::exchange(library_, nullptr));
    pfnProcessLibCommandMR = nullptr;
    pfnProcessLibCommand = nullptr;
    libMRPresent = false;
    initializeMRsuccessful = false;
}

void tavStoreLibInterface::unloadDLL(int which) {
    constexpr int megaRaid = 0;
    constexpr int all = 255;
    const std::lock_guard<std::mutex> held(initLock_);
    currentIndex_ = -1;
    if (!libMRPresent || (which != megaRaid && which != all)) return;
    logger.info(here(), "UnInitializing library for MegaRAID SAS Controller.");
    if (UnInitializeLibrary() != success) {
        logger.error(here(), "ExitLib failed for MegaRAID SAS Controller");
    }
    closeLibrary();
}

void tavStoreLibInterface::unloadDLLs() {
    const std::lock_guard<std::mutex> held(initLock_);
    logger.info(here(), "UnInitializing library for MegaRAID SAS Controller.");
    if (UnInitializeLibrary() != success) {
        logger.error(here(), "ExitLib failed for MegaRAID SAS Controller!");
    }
    closeLibrary();
}

// --- Commands ------------------------------------------------------------------------------------

std::uint32_t tavStoreLibInterface::ProcessLibCommandCall(_SL_LIB_CMD_PARAM_T* command) {
    if (storelib::isMegaRaid(currentController())) {
        pfnProcessLibCommand = pfnProcessLibCommandMR.load();
    }
    const EntryPoint entryPoint = pfnProcessLibCommand;
    return entryPoint == nullptr ? noLibrary : entryPoint(command);
}

/// The whole id of the current controller; 0 when there is none.
std::uint32_t tavStoreLibInterface::currentController() {
    const int index = currentIndex_;
    const std::lock_guard<std::mutex> listHeld(listLock_);
    if (index < 0 || index >= gCtrlList_.count) return 0;
    return gCtrlList_.controllerIds[index];
}

std::uint32_t tavStoreLibInterface::InitializeLibraryMR(SL_CTRL_LIST_T* list) {
    _SL_LIB_CMD_PARAM_T command{};
    command.commandType = LibraryCommand;
    command.commandCode = Initialize;
    command.commandQualifier = 1;
    command.dataSize = sizeof *list;
    command.data = list;
    return ProcessLibCommandCall(&command);
}

std::uint32_t tavStoreLibInterface::UnInitializeLibrary() {
    _SL_LIB_CMD_PARAM_T command{};
    command.commandType = LibraryCommand;
    command.commandCode = Release;
    const std::uint32_t status = ProcessLibCommandCall(&command);
    logger.info(here(), status == success ? "UnInitializeLibrary successful"
                                          : "UnInitializeLibrary failed");
    return status;
}

std::uint32_t tavStoreLibInterface::getCtrlList(SL_CTRL_LIST_T* list) {
    _SL_LIB_CMD_PARAM_T command{};
    command.commandType = LibraryCommand;
    command.commandCode = ControllerList;
    command.dataSize = sizeof *list;
    command.data = list;
    return ProcessLibCommandCall(&command);
}

std::uint32_t tavStoreLibInterface::controllerCommand(std::uint8_t code, void* data,
                                                      std::uint32_t size) {
    _SL_LIB_CMD_PARAM_T command{};
    command.commandType = ControllerCommand;
    command.commandCode = code;
    command.controllerId = currentController();
    command.dataSize = size;
    command.data = data;
    return ProcessLibCommandCall(&command);
}

std::uint32_t tavStoreLibInterface::getCtrlInfoFunc(_MR_CTRL_INFO* record) {
    return controllerCommand(ControllerInfo, record, sizeof *record);
}

std::uint32_t tavStoreLibInterface::GetPDListFunc(_MR_PD_LIST* list, std::uint32_t size) {
    return controllerCommand(DriveList, list, size);
}

std::uint32_t tavStoreLibInterface::GetEnclListFunc(_MR_ENCL_LIST* list) {
    return controllerCommand(EnclosureList, list, sizeof *list);
}

std::string tavStoreLibInterface::getCtrlPCILoc() {
    SL_PCI_INFO_T record{};
    return controllerCommand(PciInfo, &record, sizeof record) == success
               ? storelib::pciLocationText(record)
               : "";
}

std::uint32_t tavStoreLibInterface::FirePDInfo(_MR_PD_INFO* record, std::uint16_t deviceId) {
    return PDInfo(record, deviceId);
}

std::uint32_t tavStoreLibInterface::PDInfo(_MR_PD_INFO* record, std::uint16_t deviceId) {
    _SL_LIB_CMD_PARAM_T command{};
    command.commandType = DriveCommand;
    command.commandCode = DriveInfo;
    command.controllerId = currentController();
    command.deviceId = deviceId;
    command.dataSize = sizeof *record;
    command.data = record;
    return ProcessLibCommandCall(&command);
}

std::uint32_t tavStoreLibInterface::FireLDInfo(_MR_LD_INFO* record, std::uint8_t targetId) {
    _SL_LIB_CMD_PARAM_T command{};
    command.commandType = VolumeCommand;
    command.commandCode = VolumeInfo;
    command.controllerId = currentController();
    command.targetId = targetId;
    command.dataSize = sizeof *record;
    command.data = record;
    return ProcessLibCommandCall(&command);
}

std::uint32_t tavStoreLibInterface::passThrough(std::uint32_t opcode, std::uint8_t mailbox,
                                                void* output, std::uint32_t size) {
    SL_DCMD_FRAME_T frame{};
    frame.outputSize = size;
    frame.opcode = opcode;
    frame.direction = controllerToHost;
    frame.mailbox = mailbox;
    frame.output = output;
    _SL_LIB_CMD_PARAM_T command{};
    command.commandType = PassThroughCommand;
    command.commandCode = FirmwareCommand;
    command.controllerId = currentController();
    command.dataSize = sizeof frame;
    command.data = &frame;
    return ProcessLibCommandCall(&command);
}

std::uint32_t tavStoreLibInterface::GetMFCMFG(_MR_MFC_MFG* record, std::uint8_t mailbox) {
    return passThrough(manufacturingOpcode, mailbox, record, sizeof *record);
}

std::uint32_t tavStoreLibInterface::getCtrlSafeID(char* safeId) {
    return passThrough(safeIdOpcode, 0, safeId, safeIdSize);
}

std::string tavStoreLibInterface::getCtrlFWVersion() {
    const auto record = std::make_unique<_MR_CTRL_INFO>();
    if (getCtrlInfoFunc(record.get()) != success) return {};
    return storelib::fieldText({record->packageVersion, sizeof record->packageVersion});
}

std::string tavStoreLibInterface::getControllerSerialNo() {
    if (!storelib::isMegaRaid(currentController())) return {};
    std::array<char, safeIdSize> safeId{};
    if (getCtrlSafeID(safeId.data()) != success) return {};
    _MR_MFC_MFG record{};
    if (GetMFCMFG(&record, 0) != success) return {};
    return storelib::fieldText({record.serialNumber, sizeof record.serialNumber});
}

// --- Building the cache --------------------------------------------------------------------------

void tavStoreLibInterface::cacheBuild(std::string_view scope) {
    struct Scope {
        std::string_view name;
        bool controllers, drives, volumes;
    };
    constexpr std::array scopes = {
        Scope{"All", true, true, true},          Scope{"ALL_EVENT", true, true, true},
        Scope{"CTRL_EVENT", true, false, false}, Scope{"PD_EVENT", false, true, false},
        Scope{"LD_EVENT", false, false, true},
    };
    logger.debug(here(), "tavStoreLibInterface::cacheBuild()");
    if (!initializeMRsuccessful) {
        logger.debug(here(), "MR library was not initialized hence cancelling cache build");
        return;
    }
    {
        const std::lock_guard<std::mutex> held(cache_lock);
        for (const Scope& known : scopes) {
            if (known.name != scope) continue;
            if (known.controllers) buildControllerInfo();
            if (known.drives) buildPDInfo();
            if (known.volumes) buildLDInfo();
        }
        currentIndex_ = 0;
    }
    logger.debug(here(), "tavStoreLibInterface::cacheBuild() complete");
}

/// Whoever does not get the cache's lock reads what is about to be replaced.
template <class Member>
void tavStoreLibInterface::retire(Member Generation::*member) {
    const std::lock_guard<std::mutex> held(previousLock_);
    previous_.*member = std::exchange(current_.*member, {});
}

void tavStoreLibInterface::buildControllerInfo() {
    retire(&Generation::controllers);
    SL_CTRL_LIST_T list{};
    // A list that could not be read says nothing of controllers that had been there.
    if (getCtrlList(&list) == success) {
        const std::lock_guard<std::mutex> listHeld(listLock_);
        replaceControllerList(list);
    }
    const std::vector<std::uint32_t> ids = getControllerIds();
    logger.debug(here(), "Total controllers found: %zu", ids.size());
    const auto record = std::make_unique<_MR_CTRL_INFO>();
    for (std::size_t index = 0; index < ids.size(); ++index) {
        currentIndex_ = static_cast<int>(index);
        CTRL_INFO controller;
        controller.controllerId = ids[index];
        controller.interfaceType = "SAS/SATA";
        controller.serialNumber = getControllerSerialNo();
        *record = {};
        if (getCtrlInfoFunc(record.get()) == success) {
            controller.pciId = storelib::pciIdOf(*record);
            if (controller.pciId != supportedPciId) {
                logger.info(here(),
                            "Skipping the controller as vendorID is incorrect.vendorID= \t\t\t\t  "
                            " 0x%X,chipsetID= 0x%08X",
                            unsigned{record->vendorId}, controller.pciId);
                continue;
            }
            controller.pciSubsystem =
                std::uint32_t{record->subDeviceId} << 16U | record->subVendorId;
            controller.firmwareVersion =
                storelib::fieldText({record->packageVersion, sizeof record->packageVersion});
            controller.pciLocation = getCtrlPCILoc();
        }
        current_.controllers.push_back(std::move(controller));
    }
}

void tavStoreLibInterface::buildPDInfo() {
    retire(&Generation::drives);
    const std::vector<std::uint32_t> ids = getControllerIds();
    for (std::size_t index = 0; index < ids.size(); ++index) {
        currentIndex_ = static_cast<int>(index);
        current_.drives[ids[index]] = readDrives();
    }
}

/// Of the current controller; none when its list cannot be read.
std::vector<PD_INFO> tavStoreLibInterface::readDrives() {
    const auto list = std::make_unique<_MR_PD_LIST>();
    if (GetPDListFunc(list.get(), sizeof *list) != success) return {};
    const std::size_t count = countIn(list->entries, list->count);
    logger.debug(here(), "Number of PD found %d", static_cast<int>(list->count));
    std::vector<PD_INFO> drives;
    drives.reserve(count);
    for (std::size_t index = 0; index < count; ++index) {
        const std::uint16_t deviceId = list->entries[index].deviceId;
        _MR_PD_INFO record{};
        if (FirePDInfo(&record, deviceId) != success) continue;
        if (auto drive = storelib::toDrive(record, deviceId)) drives.push_back(*std::move(drive));
    }
    return drives;
}

void tavStoreLibInterface::buildLDInfo() {
    retire(&Generation::volumes);
    const std::vector<std::uint32_t> ids = getControllerIds();
    for (std::size_t index = 0; index < ids.size(); ++index) {
        currentIndex_ = static_cast<int>(index);
        current_.volumes[ids[index]] = readVolumes(ids[index]);
    }
}

std::vector<LD_INFO> tavStoreLibInterface::readVolumes(std::uint32_t controllerId) {
    logger.debug(here(), "Entering buildLDInfo");
    const auto list = std::make_unique<_MR_LD_LIST>();
    if (controllerCommand(VolumeList, list.get(), sizeof *list) != success) {
        logger.error(here(),
                     "An Error occurred in gathering list of logical drives from storelib library");
        return {};
    }
    logger.debug(here(), "# of Logical Drives : %d", static_cast<int>(list->count));
    std::vector<LD_INFO> volumes;
    for (std::size_t index = 0; index < countIn(list->entries, list->count); ++index) {
        const std::uint8_t targetId = list->entries[index].targetId;
        _MR_LD_INFO record{};
        if (const std::uint32_t status = FireLDInfo(&record, targetId); status != success) {
            logger.warning(here(),
                           "CtrlId [%d]: FireLDInfo failed: (rval=[0x%x], targetId=[0x%x], "
                           "i=[%u], LD count=[%u])",
                           static_cast<int>(controllerId), status, unsigned{targetId},
                           static_cast<unsigned>(index), static_cast<unsigned>(list->count));
            continue;
        }
        SL_PD_IN_LD_LIST_T members{};
        readMembers(targetId, members);
        LD_INFO volume = storelib::toVolume(record, GetUserDataBlockSizeOfPdInLD(members));
        volume.memberDrives = getPDInLD(members, controllerId);
        volumes.push_back(std::move(volume));
    }
    return volumes;
}

/// The drives of a volume; none when they cannot be read.
bool tavStoreLibInterface::readMembers(std::uint8_t targetId, SL_PD_IN_LD_LIST_T& members) {
    _SL_LIB_CMD_PARAM_T command{};
    command.commandType = VolumeCommand;
    command.commandCode = VolumeDrives;
    command.controllerId = currentController();
    command.targetId = targetId;
    command.dataSize = sizeof members;
    command.data = &members;
    if (ProcessLibCommandCall(&command) == success) return true;
    members = {};
    return false;
}

std::uint32_t tavStoreLibInterface::GetUserDataBlockSizeOfPdInLD(
    const SL_PD_IN_LD_LIST_T& members) {
    if (members.count == 0) return defaultBlockSize;
    _MR_PD_INFO record{};
    if (PDInfo(&record, members.deviceIds[0]) != success || record.userDataBlockSize == 0) {
        return defaultBlockSize;
    }
    return record.userDataBlockSize;
}

std::vector<std::string> tavStoreLibInterface::getPDInLD(const SL_PD_IN_LD_LIST_T& members,
                                                         std::uint32_t controllerId) const {
    std::vector<std::string> serials;
    const auto drives = current_.drives.find(controllerId);
    if (drives == current_.drives.end()) return serials;
    for (std::size_t index = 0; index < countIn(members.deviceIds, members.count); ++index) {
        const auto drive = std::find_if(drives->second.begin(), drives->second.end(),
                                        [&](const PD_INFO& candidate) {
                                            return candidate.deviceId == members.deviceIds[index];
                                        });
        if (drive != drives->second.end()) serials.push_back(drive->serialNumber);
    }
    return serials;
}

// --- Reading the cache ---------------------------------------------------------------------------

bool tavStoreLibInterface::takeLock(std::unique_lock<std::mutex>& held) {
    for (int attempt = 0; attempt < lockAttempts; ++attempt) {
        if (held.try_lock()) return true;
        if (tav::pauseFor(lockRetry) == tav::Pause::Stopped) return false;
    }
    logger.warning(here(), "Failed to acquire lock.");
    return false;
}

template <class Copy>
auto tavStoreLibInterface::readCache(Copy copy) {
    std::unique_lock<std::mutex> held(cache_lock, std::defer_lock);
    if (takeLock(held)) return copy(std::as_const(current_));
    const std::lock_guard<std::mutex> previousHeld(previousLock_);
    return copy(std::as_const(previous_));
}

std::vector<CTRL_INFO> tavStoreLibInterface::getControllerCollection() {
    return readCache([](const Generation& generation) { return generation.controllers; });
}

CTRL_INFO tavStoreLibInterface::getControllerInventory(std::uint32_t controllerId) {
    return readCache([controllerId](const Generation& generation) {
        for (const CTRL_INFO& controller : generation.controllers) {
            if (controller.controllerId == controllerId) return controller;
        }
        return CTRL_INFO();
    });
}

std::vector<PD_INFO> tavStoreLibInterface::getPDInventoryForCtrl(std::uint32_t controllerId) {
    return readCache([controllerId](const Generation& generation) {
        const auto found = generation.drives.find(controllerId);
        return found == generation.drives.end() ? std::vector<PD_INFO>() : found->second;
    });
}

std::vector<LD_INFO> tavStoreLibInterface::getLDInventoryForCtrl(std::uint32_t controllerId) {
    return readCache([controllerId](const Generation& generation) {
        const auto found = generation.volumes.find(controllerId);
        return found == generation.volumes.end() ? std::vector<LD_INFO>() : found->second;
    });
}

int tavStoreLibInterface::getControllerID(const std::string& pciLocation) {
    for (const CTRL_INFO& controller : getControllerCollection()) {
        if (controller.pciLocation == pciLocation) return static_cast<int>(controller.controllerId);
    }
    return -1;
}

std::vector<std::uint32_t> tavStoreLibInterface::getControllerIds() {
    const std::lock_guard<std::mutex> listHeld(listLock_);
    std::vector<std::uint32_t> ids;
    for (std::size_t index = 0; index < gCtrlList_.count; ++index)
        ids.push_back(gCtrlList_.controllerIds[index] & storelib::controllerIdMask);
    return ids;
}

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
