#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include <json/value.h>

#include "base/Export.h"
#include "base/StopSignal.h"
#include "core/LoopWatch.h"

/// Joins the inventories of all enabled managers into one document and sends it to the management
/// controller as "WriteInventory". One push thread does the sending: it waits until every manager
/// is ready, then pushes whenever that is requested, and otherwise once per push interval.
class TAV_API tavJsonAggregator {
 public:
    static tavJsonAggregator* getInstance();

    /// `request` true: asks for a push; any thread. A request made before the first push wakes
    /// nobody but stays pending. `request` false: starts the push thread; once, from the service's
    /// thread.
    void sendInventory(bool request);

    /// Stops and joins the push thread. Service's thread.
    static void stoptavJsonAggregator();

    /// Whether the first push has been attempted. Any thread.
    bool isInventorySent() const { return firstInventoryPushComplete; }

    /// The document of the managers' inventories as they are now: "HostDataCollection", or null
    /// when there is nothing to tell. Any thread.
    static Json::Value collectInventory();

 private:
    tavJsonAggregator() = default;

    void startPushThread();
    void stop();
    void initializeCachePush();
    bool checkIfInventoryReady(std::unique_lock<std::mutex>& held);
    bool aggrThreadSleep(std::unique_lock<std::mutex>& held, std::chrono::seconds time);
    void createInventoryJsonString();
    static void sendJsonString(const Json::Value& document);

    std::mutex cmutex;  ///< guards the two flags; never held while managers are asked or anything
                        ///< is sent
    std::condition_variable cond;
    std::thread thread;
    bool pushInventory = false;
    bool stopAggr = false;
    std::atomic<bool> firstInventoryPushComplete{false};
    tav::StopSignal stopSignal;
    tav::LoopWatch watch;
};
