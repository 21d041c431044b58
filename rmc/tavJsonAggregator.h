#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include <json/value.h>

#include "base/Export.h"
#include "base/StopSignal.h"
#include "core/LoopWatch.h"
#include "rmc/Undelivered.h"

/// Joins the inventories of all enabled managers into one document and sends it to the management
/// controller as "WriteInventory". One push thread does the sending: it waits until every manager
/// is ready, then pushes whenever that is requested, and otherwise once per push interval.
class TAV_API tavJsonAggregator {
 public:
    static tavJsonAggregator* getInstance();

    /// `request` true: asks for a push; any thread. A request made before the first push wakes
    /// nobody but stays pending. `request` false: starts the push thread, from the service's
    /// thread; one that already runs goes on, and the log says so.
    void sendInventory(bool request);

    /// Stops and joins the push thread, which can be started again then. Service's thread.
    static void stoptavJsonAggregator();
    /// The first half of it: tells the thread, and waits for nothing.
    static void requestStop();

    /// From now on an inventory is also sent when the controller's picture of the host is behind,
    /// that is, when an event or an inventory has not reached it: one, two, four, eight and then
    /// every ten minutes later, until one is acknowledged. Before the push thread is started.
    void repeatUntilAcknowledged() { repeats = true; }

    /// An event has not reached the controller. Any thread.
    void eventWasLost();

    // Inventories that are pushed have numbers, 1, 2, 3 and so on. What a manager has published is
    // in the next one that begins: once acknowledgedInventories() is greater than
    // begunInventories() was then, the controller knows that state or a later one.

    /// The number of the last inventory whose collection has begun; 0 before the first. Any thread.
    std::uint64_t begunInventories() const { return begun; }
    /// The number of the last inventory that the controller has acknowledged; 0 before the first.
    /// Never gets smaller. Any thread.
    std::uint64_t acknowledgedInventories() const { return acknowledged; }

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
    bool waitForPush(std::unique_lock<std::mutex>& held, std::chrono::seconds interval);
    void push(std::unique_lock<std::mutex>& held);
    enum class Push { Acknowledged, Failed, Empty };
    Push createInventoryJsonString();
    static bool sendJsonString(const std::string& text);

    /// Guards the flags and what is undelivered; held while managers are asked whether they are
    /// ready, and never while they are asked for their inventories or anything is sent.
    std::mutex cmutex;
    std::condition_variable cond;
    std::thread thread;
    bool pushInventory = false;
    bool stopAggr = false;
    bool lossNoted = false;
    tav::Undelivered undelivered;
    std::atomic<bool> repeats{false};
    std::atomic<std::uint64_t> begun{0};
    std::atomic<std::uint64_t> acknowledged{0};
    std::atomic<bool> firstInventoryPushComplete{false};
    tav::StopSignal stopSignal;
    tav::LoopWatch watch;
};
