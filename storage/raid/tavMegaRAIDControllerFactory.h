#pragma once

#include <atomic>
#include <mutex>
#include <vector>

#include "storage/ItavStorageControllerFactory.h"
#include "storage/raid/tavMegaRAIDController.h"

/// Finds MegaRAID controllers through the vendor library. Announces itself to the registry of
/// factories while the library is loaded.
///
/// The storage manager's thread discovers and shuts down; the library's threads ask for the list.
/// The list has a lock of its own, under which nothing else is called (docs/architecture.md).
class TAV_API tavMegaRAIDControllerFactory final : public ItavStorageControllerFactory {
 public:
    static tavMegaRAIDControllerFactory* getInstance();

    /// Rebuilds the library's cache and brings the list up to date: controllers that the library
    /// does not know any more are removed. -1 when the library cannot be used.
    int discoverControllers(std::vector<ItavStorageController*>& controllers) override;
    int getControllers(std::uint8_t familyMask,
                       std::vector<ItavStorageController*>& controllers) override;
    void shutdownFactory() override;
    /// The library reports changes by itself.
    void poll() override {}
    void deleteControllers(std::uint8_t familyMask) override;

    /// Marks every controller as not found.
    void resetControllerDetection();

    static std::atomic<bool> isLSILibLoaded;

 private:
    bool buildLibraryCache();
    void matchControllers(const std::vector<CTRL_INFO>& records);
    void matchController(const CTRL_INFO& record);
    void createController(const CTRL_INFO& record);
    std::vector<tavMegaRAIDController*> takeUndetected();
    std::vector<tavMegaRAIDController*> takeAll();

    std::mutex listLock_;
    std::vector<tavMegaRAIDController*> _controllerList;  ///< one reference each
};
