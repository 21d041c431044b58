#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

#include "base/Export.h"
#include "base/StopSignal.h"
#include "core/LoopWatch.h"

/// The controller cannot call the host; it leaves a request behind a "door bell". One thread looks
/// there once per door-bell interval and asks for an inventory push when the controller wants one.
class TAV_API tavIPMIDBService {
 public:
    static tavIPMIDBService* getInstance();

    /// Start and stop the monitor thread, also again. One that already runs goes on, and the log
    /// says so. Service's thread.
    static void starttavIPMIDBService();
    static void stoptavIPMIDBService();
    /// The first half of the stop: tells the thread, and waits for nothing.
    static void requestStop();

 private:
    tavIPMIDBService() = default;

    void start();
    void stop();
    void startMonitoring();
    bool waitForCheck();
    static void checkDoorBell();

    std::mutex cmutex;  ///< guards the two flags; never held during a check
    std::condition_variable cond;
    std::thread thread;
    bool checkIPMIDevice = false;
    bool stopMoni = false;
    tav::StopSignal stopSignal;
    tav::LoopWatch watch;
};
