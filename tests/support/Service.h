#pragma once

#include <string>
#include <thread>
#include <vector>

#include <json/reader.h>
#include <json/value.h>

#include "base/Threads.h"
#include "core/resource_managers.h"
#include "rmc/tavIPMIDBService.h"
#include "rmc/tavJsonAggregator.h"
#include "tests/support/FastWaiting.h"
#include "tests/support/Files.h"

namespace tav::test {

inline Json::Value parseJson(const std::string& text) {
    Json::Value value;
    Json::Reader().parse(text, value);
    return value;
}

/// A host whose commands all answer.
inline void writeHostCommands() {
    writeCommand("localcli", "printf '   Product: Test OS\\n   Version: 1.2\\n'");
    writeCommand("esxtop",
                 "printf '\"(PDH)\",\"\\\\\\\\h\\\\Memory\\\\Machine MBytes\","
                 "\"\\\\\\\\h\\\\Memory\\\\Free MBytes\",\\n\"now\",\"4097\",\"2047\",\\n'");
    writeFile("/var/log/vmksummary.log", "2019-01-01T00:00:00Z bootstop: Host has booted\n");
}

/// Starts the enabled managers, the push thread and the door bell as a service does, and stops them
/// in the end.
class Service {
 public:
    explicit Service(int speed, bool firstInventoryAtOnce = true) {
        clockSpeed = speed;
        forEachEnabledManager([this](MODULE_NAME, tavResourceManager& manager) {
            managers_.push_back(&manager);
            startThread(threads_.emplace_back(), "tav-manager", [&manager] { manager.init(); });
        });
        if (firstInventoryAtOnce) tavJsonAggregator::getInstance()->sendInventory(true);
        tavJsonAggregator::getInstance()->sendInventory(false);
        tavIPMIDBService::starttavIPMIDBService();
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;
    ~Service() { stop(); }

    void stop() {
        if (stopped_) return;
        stopped_ = true;
        clockSpeed = 1;  // what a stop may take is real time
        tavIPMIDBService::stoptavIPMIDBService();
        tavJsonAggregator::stoptavJsonAggregator();
        for (tavResourceManager* const manager : managers_)
            manager->stopResourceManagerJob();
        for (std::thread& thread : threads_)
            joinThread(thread);
    }

 private:
    std::vector<tavResourceManager*> managers_;
    std::vector<std::thread> threads_;
    bool stopped_ = false;
};

}  // namespace tav::test
