#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/RaidEventBytes.h"

namespace tav::test {

struct FakeDrive {
    std::uint16_t id;
    std::uint8_t slot;
    std::string serial;
    std::uint16_t state = 0x18;
    std::uint16_t blockSize = 512;
};

struct FakeVolume {
    std::uint8_t id;
    std::uint8_t state = 3;
    std::vector<std::uint16_t> members;
    std::uint8_t made = 0;  ///< part of its durable name
};

struct FakeController {
    std::uint32_t id;
    std::string serial;
    std::uint8_t bus;
    std::vector<FakeDrive> drives;
    std::vector<FakeVolume> volumes;
};

/// The vendor's RAID library inside the test, from its entry point on. One at a time.
class FakeRaidLibrary {
 public:
    explicit FakeRaidLibrary(std::vector<FakeController> controllers);
    FakeRaidLibrary(const FakeRaidLibrary&) = delete;
    FakeRaidLibrary& operator=(const FakeRaidLibrary&) = delete;
    ~FakeRaidLibrary();

    void change(const std::function<void(std::vector<FakeController>&)>& change);
    /// Lets the next commands of that type and code fail.
    void fail(std::uint8_t type, std::uint8_t code, std::uint32_t status, int times);

    /// Lets commands of that type and code hang until release(), or until this ends.
    void hang(std::uint8_t type, std::uint8_t code);
    void release();
    /// Waits until a command hangs.
    void waitForHanging();

    /// Calls whoever is registered, on the calling thread; false when nobody is.
    bool fire(RaidEventBytes event);

    int registrations() const { return registrations_; }
    int unregistrations() const { return unregistrations_; }
    /// The registration record, byte by byte.
    std::vector<std::uint8_t> registered() const;
    /// How long every command takes.
    void setCommandTime(std::chrono::microseconds time) { commandTime_ = time; }
    /// Spent inside the library so far.
    std::chrono::nanoseconds ownTime() const { return std::chrono::nanoseconds(ownTime_.load()); }

 private:
    using Callback = void (*)(void*);

    static std::uint32_t enter(void* command);
    void hangIfWanted(int command);
    std::uint32_t answer(const std::uint8_t* command);
    std::uint32_t answerLibrary(const std::uint8_t* command, std::uint8_t* data);
    std::uint32_t answerController(const std::uint8_t* command, std::uint8_t* data) const;
    std::uint32_t answerDrive(const std::uint8_t* command, std::uint8_t* data) const;
    std::uint32_t answerVolume(const std::uint8_t* command, std::uint8_t* data) const;
    std::uint32_t answerPassThrough(const std::uint8_t* command, std::uint8_t* data) const;
    void listControllers(std::uint8_t* data) const;
    std::uint32_t registerCallback(const std::uint8_t* command, std::uint8_t* data);
    const FakeController* controllerOf(const std::uint8_t* command) const;
    std::vector<const FakeController*> addressed(const std::uint8_t* command) const;

    std::atomic<std::chrono::microseconds> commandTime_{std::chrono::microseconds(0)};
    mutable std::mutex lock_;
    std::vector<FakeController> controllers_;
    struct Failure {
        std::uint32_t status;
        int times;
    };
    std::map<int, Failure> failures_;
    std::condition_variable hangs_;  ///< signalled when one of these two has changed
    std::optional<int> hanging_;     ///< the command that hangs
    int hangingCommands_ = 0;
    Callback callback_ = nullptr;
    std::vector<std::uint8_t> registered_;
    std::atomic<int> registrations_{0};
    std::atomic<int> unregistrations_{0};
    std::atomic<std::int64_t> ownTime_{0};
};

}  // namespace tav::test
