#pragma once

#include <algorithm>
#include <atomic>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "storage/ItavStorageControllerFactory.h"

namespace tav::test {

/// How a controller behaves. The functions run inside the call they are named after and may block,
/// throw or look around.
struct ControllerScript {
    std::string name;
    int inventoryResult = 0;
    int disksResult = 0;
    int disks = 1;
    bool reportsEvents = true;
    std::function<std::string()> revision = [] { return ""; };  ///< of its disks
    std::function<void()> discovered = [] {};
    std::function<void()> polled = [] {};
};

class FakeController final : public ItavStorageController {
 public:
    explicit FakeController(ControllerScript script) : script_(std::move(script)) { ++alive; }

    int discoverInventory(tavStorageControllerInfo& info) override {
        script_.discovered();
        info.setSerialNumber(script_.name);
        return script_.inventoryResult;
    }
    int discoverPhysicalDiskInventory(std::vector<tavDiskInfo>& disks) override {
        for (int i = 0; i < script_.disks; ++i) {
            tavDiskInfo& disk = disks.emplace_back();
            disk.setSerialNumber(script_.name + "-" + std::to_string(i));
            disk.setRevision(script_.revision());
        }
        return script_.disksResult;
    }
    int discoverLogicalDiskInventory(std::vector<tavLogicalDiskInfo>& volumes) override {
        volumes.emplace_back().setDurableName(script_.name);
        return 0;
    }
    bool isMatchingController(std::uint32_t, std::uint32_t, const std::string&,
                              std::uint32_t) override {
        return false;
    }
    bool enableEvents() override {
        ++enabled;
        return true;
    }
    bool isEventsEnabled() override { return script_.reportsEvents; }
    void disableEvents() override {}
    void poll() override {
        script_.polled();
        ++polls;
    }
    void processDeviceRemoval() override {
        setRemoved();
        releaseReference();
    }
    void processDeviceAddition(ItavStorageController*) override {}

    std::atomic<int> enabled{0};
    std::atomic<int> polls{0};
    static inline std::atomic<int> alive{0};

 private:
    ~FakeController() override { --alive; }

    const ControllerScript script_;
};

/// A factory with controllers as the test wants them. Registers itself.
class FakeFactory final : public ItavStorageControllerFactory {
 public:
    explicit FakeFactory(std::vector<ControllerScript> scripts = {}) : registration_(this) {
        for (ControllerScript& script : scripts)
            controllers_.push_back(new FakeController(std::move(script)));
    }

    FakeFactory(const FakeFactory&) = delete;
    FakeFactory& operator=(const FakeFactory&) = delete;
    /// The registry does not forget: whoever asks it afterwards must not be running any more. What
    /// a stop has left behind inside it is waited for.
    ~FakeFactory() {
        while (visitors_ > 0)
            std::this_thread::yield();
        removeAll();
    }

    int discoverControllers(std::vector<ItavStorageController*>& controllers) override {
        const Visit visit(visitors_);
        note('B');
        discovered();
        hand(controllers);
        if (throwsWithReferences) throw std::runtime_error("half way through");
        return discoverResult;
    }
    int getControllers(std::uint8_t familyMask,
                       std::vector<ItavStorageController*>& controllers) override {
        if (familyMask == TAV_FAMILY_ANY) hand(controllers);
        return 0;
    }
    void shutdownFactory() override {
        note('S');
        removeAll();
    }
    void poll() override {
        const Visit visit(visitors_);
        note('P');
        polled();
    }
    void deleteControllers(std::uint8_t) override {}

    /// A letter for each call: B discoverControllers, P poll, S shutdownFactory.
    std::string journal() const {
        const std::lock_guard<std::mutex> held(lock_);
        return journal_;
    }
    std::ptrdiff_t count(char call) const {
        const std::string calls = journal();
        return std::count(calls.begin(), calls.end(), call);
    }
    FakeController& controller(std::size_t index) { return *controllers_[index]; }

    std::function<void()> discovered = [] {};
    std::function<void()> polled = [] {};
    int discoverResult = 0;
    bool throwsWithReferences = false;

 private:
    /// A call that is under way.
    class Visit {
     public:
        explicit Visit(std::atomic<int>& visitors) : visitors_(visitors) { ++visitors_; }
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;
        ~Visit() { --visitors_; }

     private:
        std::atomic<int>& visitors_;
    };

    void note(char call) {
        const std::lock_guard<std::mutex> held(lock_);
        journal_ += call;
    }
    void removeAll() {
        const std::lock_guard<std::mutex> held(lock_);
        for (FakeController* const controller : controllers_)
            controller->processDeviceRemoval();
        controllers_.clear();
    }
    void hand(std::vector<ItavStorageController*>& receiver) {
        const std::lock_guard<std::mutex> held(lock_);
        for (FakeController* const controller : controllers_) {
            controller->addReference();
            receiver.push_back(controller);
        }
    }

    std::atomic<int> visitors_{0};
    mutable std::mutex lock_;
    std::vector<FakeController*> controllers_;
    std::string journal_;
    tavRegistryManager<ItavStorageControllerFactory*> registration_;
};

}  // namespace tav::test
