/// What the kernel tells of storage brings the manager's poll forward.
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "sim/server/Uevents.h"
#include "storage/SASResourceManager.h"
#include "storage/storage_uevents.h"
#include "tests/support/FakeFactory.h"
#include "tests/support/FastWaiting.h"
#include "tests/support/Service.h"

namespace {

using namespace std::chrono_literals;
using tav::test::FakeFactory;
using Clock = std::chrono::steady_clock;

TEST(StorageUevents, WhichConcernStorage) {
    struct Row {
        tav::Uevent event;
        bool concerns;
    };
    const Row rows[] = {
        {{"add", "/devices/pci0000:00/0000:00:1f.2/ata1/host0", "scsi"}, true},
        {{"change", "/devices/pci0000:00/host0/target0:0:0/0:0:0:0", "scsi"}, true},
        {{"remove", "/devices/pci0000:00/0000:00:1f.2/host0/scsi_host/host0", "scsi_host"}, true},
        {{"unbind", "/devices/pci0000:00/0000:00:1f.2", "pci"}, true},
        {{"change", "/devices/pci0000:00/0000:01:00.0/nvme/nvme0", "nvme"}, true},
        {{"add", "/devices/pci0000:00/0000:00:1f.2/host0/block/sda", "block"}, true},
        {{"add", "/devices/virtual/nvme-subsystem/nvme-subsys0/nvme0n1", "block"}, true},
        {{"change", "/devices/pci0000:00/0000:00:1f.2/host0/block/sda", "block"}, false},
        {{"remove", "/devices/virtual/block/dm-3", "block"}, false},
        {{"add", "/devices/virtual/net/veth0", "net"}, false},
        {{"change", "/devices/system/cpu/cpu1", "cpu"}, false},
        {{"add", "", "scsi_generic"}, false},  // one of a device that is told of anyway
    };
    for (const Row& row : rows)
        EXPECT_EQ(tav::concernsStorage(row.event), row.concerns) << row.event.devicePath;
}

TEST(StorageUevents, BringThePollForward) {
    tav::test::logEverything(R"("EnableResources":["StorageControllers"])");
    FakeFactory factory({{.name = "c"}});
    std::thread thread([] { SASResourceManager::getInstance()->init(); });
    const auto polls = [&](std::ptrdiff_t count, std::chrono::milliseconds patience) {
        for (const auto end = Clock::now() + patience; factory.count('P') < count;) {
            if (Clock::now() > end) return false;
            std::this_thread::sleep_for(1ms);
        }
        return true;
    };
    for (const auto end = Clock::now() + 10s; factory.count('B') == 0 && Clock::now() < end;)
        std::this_thread::sleep_for(1ms);
    std::this_thread::sleep_for(100ms);  // it has begun to wait
    tav::sim::sendUevent("change", "/devices/a/block/sda", "block");
    EXPECT_FALSE(polls(1, 700ms)) << "nothing that concerns storage";
    for (int i = 0; i < 1000; ++i)
        tav::sim::sendUevent("add", "/devices/a/host0", "scsi");
    EXPECT_TRUE(polls(1, 3s)) << "which is due after ten";
    SASResourceManager::getInstance()->stopResourceManagerJob();
    thread.join();
    EXPECT_LE(factory.count('P'), 2) << "of a thousand";
    EXPECT_EQ(factory.count('B'), 1) << "a poll, and nothing more";
}

/// A device that comes and goes every few seconds.
TEST(StorageUevents, PutNoRefreshOff) {
    tav::test::clockSpeed = 50;
    tav::test::logEverything(
        R"("EnableResources":["StorageControllers"],"CacheRefreshInSeconds":{"Global":30})");
    FakeFactory factory({{.name = "c"}});
    std::thread thread([] { SASResourceManager::getInstance()->init(); });
    for (int seconds = 0; seconds < 80; seconds += 8) {
        tav::sim::sendUevent("add", "/devices/a/host0", "scsi");
        std::this_thread::sleep_for(8000ms / tav::test::clockSpeed.load());
    }
    EXPECT_GE(factory.count('B'), 2);
    SASResourceManager::getInstance()->stopResourceManagerJob();
    thread.join();
}

}  // namespace
