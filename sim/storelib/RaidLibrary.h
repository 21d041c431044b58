#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include <json/value.h>

#include "sim/storelib/Notifier.h"
#include "sim/storelib/OrderSocket.h"
#include "sim/storelib/Records.h"

namespace tav::sim {

/// What a command block says; the block's layout is in the source.
struct RaidRequest {
    std::uint8_t type, code, qualifier;
    std::uint32_t controller;
    std::uint16_t device;
    std::uint8_t target;
    std::uint32_t argument;
    const std::uint8_t* argumentPointer;
    std::uint32_t size;
    std::uint8_t* data;
};

/// A vendor's RAID library on the "raid" section of the server's description. Answers commands from
/// any thread; looks closely at each, and writes what breaks the library's rules, a line each, into
/// a file of violations.
class RaidLibrary {
 public:
    /// Returns the status.
    std::uint32_t process(const std::uint8_t* block);

    /// Does an order and returns "ok", or why not. The orders:
    ///
    ///     drive|volume CONTROLLER ID member=value...    changes it; gone=yes: it is not listed
    ///     controller CONTROLLER member=value...         the same
    ///     event CONTROLLER member=value... [times=N]    tells of an event: see eventDetail()
    ///     fail TYPE CODE STATUS [COUNT]                 fails so many commands; without a count,
    ///                                                   all; status 0 takes it back
    ///     slow MILLISECONDS                             takes so long for each command
    ///     hang TYPE CODE                                that command does not return
    ///     resume                                        it does, and no other hangs
    ///     struck                                        tells which failures have struck how often
    ///
    /// Members "failures" and "slow" of the description's section hold from the first command.
    std::string order(const std::string& line);

 private:
    using Answer = std::uint32_t (RaidLibrary::*)(const RaidRequest& request);
    struct Command;
    struct Failure {
        std::uint32_t status;
        std::int64_t times;
    };
    struct Registration {
        std::uint32_t locales;
        int leastClass;
    };
    static const Command commands[];
    static const Command* commandOf(int type, int code);

    std::uint32_t answer(const Command& command, const RaidRequest& request);
    void hangWhileOrdered(const RaidRequest& request);
    bool takeFailure(const RaidRequest& request, std::uint32_t& status);

    std::uint32_t initialize(const RaidRequest& request);
    std::uint32_t release(const RaidRequest& request);
    std::uint32_t registerEvents(const RaidRequest& request);
    std::uint32_t unregisterEvents(const RaidRequest& request);
    std::uint32_t listControllers(const RaidRequest& request);
    template <RaidRecord (*make)(const Json::Value& controller)>
    std::uint32_t tellController(const RaidRequest& request);
    template <RaidRecord (*make)(const Json::Value& drive)>
    std::uint32_t tellDrive(const RaidRequest& request);
    template <RaidRecord (*make)(const Json::Value& volume)>
    std::uint32_t tellVolume(const RaidRequest& request);
    std::uint32_t passThrough(const RaidRequest& request);
    std::uint32_t tellSequence(const RaidRequest& request);

    const Json::Value& controller(std::int64_t id) const;
    std::uint32_t give(const RaidRecord& record, std::uint8_t* output, std::uint32_t size);
    std::uint32_t violation(const std::string& what);

    std::string change(const std::string& line);
    std::string fire(std::istream& words);
    std::string fail(std::istream& words);
    std::string slow(std::istream& words);
    std::string hang(std::istream& words);
    std::string resume();
    std::string struck();
    void readDescription();
    void takeFirstFailures();
    bool isWanted(const Json::Value& event, std::int64_t controllerId) const;

    std::mutex lock_;  ///< of everything below
    Json::Value raid_;
    bool initialized_ = false;
    std::uint32_t sequence_ = 1000;
    std::uint32_t registrations_ = 0;
    std::map<std::int64_t, Registration> registered_;  ///< by the controller's id
    std::map<std::pair<int, int>, Failure> failures_;  ///< by the command's type and code
    std::map<std::pair<int, int>, int> struck_;        ///< how often, by the same
    std::set<std::pair<int, int>> hanging_;            ///< by the same
    std::condition_variable resumed_;
    std::int64_t slowness_ = 0;  ///< milliseconds
    bool described_ = false;

    std::mutex lifetime_;  ///< taken before lock_, by initialization, registration and release
    std::unique_ptr<Notifier> notifier_;
    std::unique_ptr<OrderSocket> orders_;
};

}  // namespace tav::sim
