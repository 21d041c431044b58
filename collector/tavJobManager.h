#pragma once

#include <array>
#include <thread>

#include "base/Export.h"
#include "core/tavResourceManager.h"

/// Starts and stops the resource managers. All calls come from the service's own thread; they take
/// no lock.
class TAV_API tavJobManager {
 public:
    static tavJobManager* getInstance();

    /// Starts one thread for each resource type that has a manager. False when a thread could not
    /// be created, and those started before it go on; and when they run already.
    bool startResourceManagers();

    /// Stops the managers and joins their threads. The last call of a service: its last log line
    /// marks the end.
    void stopResourceManagers();
    /// The first half of it: tells the managers, and waits for nothing.
    void requestStop();

    /// Starts and stops the server of the command-line clients.
    static void startTAVServer();
    static void stopTAVServer();

 private:
    tavJobManager() = default;

    std::array<std::thread, RESOURCE_TYPE_COUNT> threads;
    bool areManagersTold = false;  ///< to stop
};

/// Body of a resource type's thread; `type` carries a MODULE_NAME as an integer. Ends at once for a
/// type without a name or manager and for one that the configuration does not enable. Returns null.
TAV_API void* initializeResourceManager(void* type);

/// Ends the process as the configuration asks ("SimulateUnhandledException" 11: by SIGSEGV, 6: by
/// an exception that nothing catches), to test the service's crash handling. Does nothing
/// otherwise.
TAV_API void simulateUnhandledExceptions();
