#pragma once

#include <mutex>
#include <thread>

#include <sys/stat.h>

#include "base/Export.h"
#include "base/FileDescriptor.h"
#include "base/StopSignal.h"
#include "core/LoopWatch.h"

/// Body of the server's thread; the argument is not used. Returns null.
TAV_API void* startTestEventServer(void* unused);

/// Serves the command-line clients of this host, one request after the other on a thread of its
/// own: raises the test events that they ask for, and forwards the events that they bring along.
/// Started and stopped from the service's own thread (through tavJobManager).
class TAV_API TAVServer {
 public:
    static void initializeTAVServer();
    static void stopTAVServer();

 private:
    friend void* startTestEventServer(void* unused);

    static TAVServer& instance();

    void serve();
    bool openPipes();
    void closePipes();
    void serveUntilStopped();
    void serveRequest();
    bool askToStop();

    std::mutex pipesLock_;  ///< guards the opening and closing of the three, and the flag
    tav::FileDescriptor requests_, stopReadEnd_, serStopPipeFd_;
    bool stopRequested_ = false;
    struct stat requestPipe_ {};  ///< of the request pipe that was opened

    tav::StopSignal stopSignal_;
    tav::LoopWatch watch_;
    std::thread thread_;
};

/// Raises the test event that a payload "ID" or "ID LOCATION" asks for. An ID that nobody raises is
/// told on the standard output.
TAV_API void sendTestEventWithEventId(const char* payload);

/// Raises the system's own test event: which managers are enabled, and which of them work. Waits
/// for managers that are just building.
TAV_API void generateTestEvent(int id);

/// Who raises an event: 1 the system, 2 the host's manager, 3 the network's, 5 the storage's, -1
/// nobody.
TAV_API int getEventType(int id);

/// Answers a client. Waits at most ten seconds for it to listen, and no longer than it lives.
TAV_API void sendResponseToClient(int clientPID, int code);

/// Whether the text is JSON.
TAV_API bool jsonValidate(const char* text);
