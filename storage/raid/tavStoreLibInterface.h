#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "base/Export.h"
#include "storage/raid/storelib_decoding.h"
#include "storage/raid/storelib_records.h"

namespace tav::storelib {
class Commands;
class LibraryLane;
struct Snapshot;
}  // namespace tav::storelib

/// The one place that talks to MegaRAID controllers: loads the vendor's storage-management library
/// at run time, and keeps a cache of the controllers, drives and volumes that it tells of. Beneath
/// it storelib_file.h loads, storelib_commands.h asks, storelib_survey.h puts the answers together
/// and storelib_cache.h keeps them.
///
/// The library may hang in any command. What asks it for more than one thing (initialisation, cache
/// builds, registrations) does so in a lane (storelib_lane.h), and the caller goes on without it
/// after ten seconds; the single commands below are made on the calling thread. Statuses are the
/// library's, 0 for success. Any thread may call. Locks (docs/architecture.md): those of the cache;
/// the lists have one of their own, under which the library is not called.
class TAV_API tavStoreLibInterface {
 public:
    using EntryPoint = std::uint32_t (*)(_SL_LIB_CMD_PARAM_T* command);

    static tavStoreLibInterface* getInstance();

    /// Loads and initialises the library at the first call; 1 when it can be used and knows a
    /// controller, 0 otherwise. A library that could not be loaded is not tried again. Once its
    /// entry point is known every further call returns 1, also when its initialisation has failed:
    /// cache builds do nothing then. 0 also while the library does not answer.
    int tavStoreInit();

    /// Rebuilds what `scope` names: "All" and "ALL_EVENT" everything, "CTRL_EVENT" the controllers,
    /// "PD_EVENT" the drives, "LD_EVENT" the volumes, any other nothing. What the library does not
    /// want to tell stands as it was. Returns without that when the library does not answer: the
    /// storage manager's inventory is invalidated when it does.
    void cacheBuild(std::string_view scope);

    /// For work of one's own with the library.
    tav::storelib::LibraryLane& lane();

    /// What the cache holds: after a build that is under way, if that does not take longer than
    /// some six seconds and the library answers.
    std::shared_ptr<const tav::storelib::Snapshot> snapshot();

    // Copies from it.
    std::vector<CTRL_INFO> getControllerCollection();
    /// An empty record for a controller that is not known.
    CTRL_INFO getControllerInventory(std::uint32_t controllerId);
    std::vector<PD_INFO> getPDInventoryForCtrl(std::uint32_t controllerId);
    std::vector<LD_INFO> getLDInventoryForCtrl(std::uint32_t controllerId);
    /// -1 for a location where no controller is.
    int getControllerID(const std::string& pciLocation);

    /// The controllers of the merged list, by their 24-bit ids.
    std::vector<std::uint32_t> getControllerIds();

    std::uint32_t ProcessLibCommandCall(_SL_LIB_CMD_PARAM_T* command);
    /// Every command, with ProcessLibCommandCall() beneath.
    const tav::storelib::Commands& commands() const;

    /// Releases and unloads the library: for 0 (MegaRAID) and 255 (all), and in any case. Nothing
    /// of it may be in use.
    void unloadDLL(int which);
    void unloadDLLs();

    // One command each; those of a controller are for the first one of the list.
    std::uint32_t InitializeLibraryMR(SL_CTRL_LIST_T* list);
    std::uint32_t UnInitializeLibrary();
    std::uint32_t getCtrlList(SL_CTRL_LIST_T* list);
    std::uint32_t getCtrlInfoFunc(_MR_CTRL_INFO* record);
    std::uint32_t GetPDListFunc(_MR_PD_LIST* list, std::uint32_t size);
    std::uint32_t GetEnclListFunc(_MR_ENCL_LIST* list);
    /// Empty on failure.
    std::string getCtrlPCILoc();
    std::uint32_t FirePDInfo(_MR_PD_INFO* record, std::uint16_t deviceId);
    std::uint32_t PDInfo(_MR_PD_INFO* record, std::uint16_t deviceId);
    std::uint32_t FireLDInfo(_MR_LD_INFO* record, std::uint8_t targetId);
    std::uint32_t GetMFCMFG(_MR_MFC_MFG* record, std::uint8_t mailbox);
    /// 41 bytes.
    std::uint32_t getCtrlSafeID(char* safeId);
    /// Empty on failure.
    std::string getCtrlFWVersion();

    /// Does nothing, as the handler of SIGCHLD.
    static void sighdlr(int signal);

    static const char* getFWStateString(std::uint16_t state);
    static std::uint32_t getHealth(std::uint16_t state);
    static const char* getLDStateString(std::uint8_t state);
    static std::uint32_t getLDHealth(std::uint8_t state);
    static const char* getRAIDLevelString(std::uint8_t primary, std::uint8_t qualifier,
                                          std::uint8_t secondary, std::uint8_t spanDepth);

    static std::atomic<EntryPoint> pfnProcessLibCommandMR;
    static std::atomic<EntryPoint> pfnProcessLibCommand;
    static std::atomic<bool> libMRPresent;
    static std::atomic<bool> initializeMRsuccessful;
    static std::atomic<bool> doNotRetryLibLoad;

 private:
    struct Parts;

    tavStoreLibInterface();
    ~tavStoreLibInterface() = delete;  // it outlives every thread

    int initialize();
    void rebuild(std::string_view scope);
    bool loadLibrary();
    bool initializeLibrary();
    void mergeControllerLists();
    void refreshControllerList();
    void replaceControllerList(const SL_CTRL_LIST_T& list);
    void releaseLibrary(const char* failure);

    std::uint32_t currentController();
    std::vector<std::uint32_t> wholeControllerIds();

    std::mutex initLock_;  ///< loading, initialising, unloading

    std::mutex listLock_;  ///< guards the three below; the library is not called under it
    SL_CTRL_LIST_T gCtrlListMR_{};
    SL_CTRL_LIST_T gCtrlList_{};
    std::uint32_t gTotalControllers_ = 0;
    std::atomic<int> currentIndex_{0};  ///< of the current controller in gCtrlList_; -1 for none

    Parts& parts_;
};
