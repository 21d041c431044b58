#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <json/value.h>
#include <sys/stat.h>

#include "base/Export.h"
#include "base/FileDescriptor.h"
#include "base/StopSignal.h"
#include "base/Waiting.h"
#include "core/LoopWatch.h"
#include "rmc/tavMsgInfra.h"

/// Body of the server's thread; the argument is not used. Returns null.
TAV_API void* startTestEventServer(void* unused);

/// Serves the command-line clients of this host, one request after the other on a thread of its
/// own: raises the test events that they ask for, and forwards the events that they bring along. A
/// client that does not take its answer at once does not hold up the others; it has ten seconds.
/// The request pipe is made anew when it has gone or another one stands in its place.
/// Started and stopped from the service's own thread (through tavJobManager).
class TAV_API TAVServer {
 public:
    /// A server that already runs goes on, and the log says so.
    static void initializeTAVServer();
    static void stopTAVServer();
    /// The first half of the stop: tells the thread, and waits for nothing.
    static void requestStop();

 private:
    friend void* startTestEventServer(void* unused);

    static TAVServer& instance();

    void serve();
    bool openPipes();
    void closePipes();
    bool openRequestPipe();
    void keepRequestPipe();
    bool isRequestPipeInPlace() const;
    void serveUntilStopped();
    std::chrono::milliseconds longestWait(const tav::TimeLimit& untilCheck) const;
    bool readRequests();
    void takeRequests();
    void serveNextRequest();
    void answer(std::int32_t clientPID, tav::CliReason reason);
    void deliverAnswers();
    bool askToStop();

    /// An answer that its client has not taken yet.
    struct Answer {
        std::int32_t clientPID;
        _TAV_MESSAGE_PACKET packet;
        tav::TimeLimit limit;
    };

    std::mutex pipesLock_;  ///< guards the opening and closing of the stop pipe, and the flag
    tav::FileDescriptor requests_, stopReadEnd_, serStopPipeFd_;
    bool stopRequested_ = false;
    struct stat requestPipe_ {};           ///< of the request pipe that was opened
    std::vector<std::byte> read_;          ///< from the request pipe and not looked at yet
    std::deque<tav::CliRequest> waiting_;  ///< oldest first
    std::vector<Answer> answers_;          ///< oldest first
    bool isPipeMissed_ = false;            ///< which has been logged

    tav::StopSignal stopSignal_;
    tav::LoopWatch watch_;
    std::thread thread_;
};

/// Raises the test event that a payload "ID" or "ID LOCATION" asks for. An ID that nobody raises is
/// told on the standard output, unless that would have to be waited for.
TAV_API void sendTestEventWithEventId(const char* payload);

/// Raises the system's own test event: which managers are enabled, and which of them work. Waits
/// for managers that are just building.
TAV_API void generateTestEvent(int id);

/// Who raises an event: 1 the system, 2 the host's manager, 3 the network's, 5 the storage's, -1
/// nobody.
TAV_API int getEventType(int id);

/// Answers a client. Waits at most ten seconds for it to listen, and no longer than it lives.
TAV_API void sendResponseToClient(int clientPID, int code);

/// Whether the text is JSON, strictly, and nothing else.
TAV_API bool jsonValidate(const char* text);
