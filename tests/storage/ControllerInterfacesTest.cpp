#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "storage/ItavStorageController.h"
#include "storage/ItavStorageControllerFactory.h"

namespace {

class CountedController final : public ItavStorageController {
 public:
    explicit CountedController(std::atomic<int>& destroyed) : destroyed_(destroyed) {}

    int discoverInventory(tavStorageControllerInfo&) override { return 0; }
    int discoverPhysicalDiskInventory(std::vector<tavDiskInfo>&) override { return 0; }
    int discoverLogicalDiskInventory(std::vector<tavLogicalDiskInfo>&) override { return 0; }
    bool isMatchingController(std::uint32_t, std::uint32_t, const std::string&,
                              std::uint32_t) override {
        return false;
    }
    bool enableEvents() override { return !isRemoved(); }
    bool isEventsEnabled() override { return true; }
    void disableEvents() override {}
    void poll() override { ++polls; }
    void processDeviceRemoval() override {
        setRemoved();
        releaseReference();
    }
    void processDeviceAddition(ItavStorageController*) override {}

    // Not atomic: the thread sanitizer sees it if the destructor runs before other users are done.
    int polls = 0;

 private:
    ~CountedController() override { destroyed_ += 1 + polls; }

    std::atomic<int>& destroyed_;
};

TEST(RemoveLock, TheLastReferenceDestroys) {
    std::atomic<int> destroyed{0};
    auto* const controller = new CountedController(destroyed);
    tav::Reference<ItavStorageController> user =
        tav::shareReference<ItavStorageController>(*controller);
    EXPECT_FALSE(controller->isRemoved());
    EXPECT_TRUE(user->enableEvents());
    controller->processDeviceRemoval();
    EXPECT_EQ(destroyed, 0) << "still in use";
    EXPECT_TRUE(user->isRemoved());
    EXPECT_FALSE(user->enableEvents());
    user.reset();
    EXPECT_EQ(destroyed, 1);
}

TEST(RemoveLock, ManyThreadsShareOneController) {
    constexpr int threads = 8;
    constexpr int rounds = 2000;
    std::atomic<int> destroyed{0};
    auto* const controller = new CountedController(destroyed);
    std::vector<std::thread> users;
    for (int i = 0; i < threads; ++i) {
        controller->addReference();
        users.emplace_back([controller, i] {
            const tav::Reference<CountedController> own(controller);
            for (int round = 0; round < rounds; ++round) {
                const auto further = tav::shareReference(*own);
                if (further->isRemoved()) break;
            }
            if (i == 0) ++own->polls;
        });
    }
    controller->processDeviceRemoval();
    for (std::thread& user : users)
        user.join();
    EXPECT_EQ(destroyed, 2) << "destroyed once, after the poll";
}

class NoFactory final : public ItavStorageControllerFactory {
 public:
    int discoverControllers(std::vector<ItavStorageController*>&) override { return 0; }
    int getControllers(std::uint8_t, std::vector<ItavStorageController*>&) override { return 0; }
    void shutdownFactory() override {}
    void poll() override {}
    void deleteControllers(std::uint8_t) override {}
};

TEST(Registry, KeepsEachFactoryOnceInTheOrderOfRegistration) {
    using Registry = tavRegistryManager<ItavStorageControllerFactory*>;
    const auto before = Registry::getEntries();
    NoFactory first, second;
    const Registry once(&first), other(&second), again(&first);
    auto expected = before;
    expected.insert(expected.end(), {&first, &second});
    EXPECT_EQ(Registry::getEntries(), expected);
}

}  // namespace
