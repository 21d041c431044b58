/// The simulated RAID library, asked byte by byte as a program that knows nothing of its source.
#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <dlfcn.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/server/RaidOrders.h"
#include "sim/server/ServerTree.h"
#include "tests/support/Files.h"
#include "tests/support/Service.h"

namespace {

using namespace tav::sim;
using tav::test::readFile;
using tav::test::writeFile;
using testing::IsEmpty;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t notInitialized = 0x8001;
constexpr std::uint32_t failed = 0x8002;
constexpr std::uint32_t invalidController = 0x800A;

template <class Value>
Value at(const Bytes& bytes, std::size_t offset) {
    Value value{};
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

template <class Value>
void put(Bytes& bytes, std::size_t offset, Value value) {
    std::memcpy(bytes.data() + offset, &value, sizeof value);
}

std::string textAt(const Bytes& bytes, std::size_t offset, std::size_t size) {
    return {bytes.begin() + static_cast<std::ptrdiff_t>(offset),
            bytes.begin() + static_cast<std::ptrdiff_t>(offset + size)};
}

Bytes command(std::uint8_t type, std::uint8_t code) {
    Bytes block(32 + sizeof(void*));
    block[0] = type;
    block[1] = code;
    return block;
}

class StorelibTest : public testing::Test {
 protected:
    StorelibTest() {
        writeFile(serverDescription, readFile(TAV_SERVERS "/four-socket.json"));
        void* const library = ::dlopen(TAV_STORELIB, RTLD_NOW);
        entry_ = reinterpret_cast<decltype(entry_)>(::dlsym(library, "ProcessLibCommand"));
    }
    ~StorelibTest() override { send(command(0, 9)); }

    std::uint32_t send(const Bytes& block) const { return entry_(block.data()); }

    /// Sends a command with a buffer, which takes what comes back.
    std::uint32_t ask(Bytes block, std::size_t size) {
        answer_.assign(size, 0);
        put(block, 28, static_cast<std::uint32_t>(size));
        put(block, 32, answer_.data());
        return send(block);
    }
    void initialize() {
        Bytes block = command(0, 0);
        block[2] = 1;
        ASSERT_EQ(ask(block, 260), 0U);
    }
    std::uint32_t askDrive(std::uint16_t id) {
        Bytes block = command(2, 0);
        put(block, 8, id);
        return ask(block, 512);
    }
    std::uint32_t registerCallback(void (*callback)(void*)) {
        Bytes input(772 + sizeof(void*));
        input[0] = 1;
        put<std::uint16_t>(input, 8, 0xFFFF);
        put(input, 772, callback);
        Bytes block = command(0, 1);
        put(block, 16, input.data());
        return ask(block, 264);
    }
    std::uint32_t unregister() const {
        Bytes block = command(0, 2);
        put(block, 16, at<std::uint32_t>(answer_, 260));
        return send(block);
    }

    std::uint32_t (*entry_)(const void*) = nullptr;
    Bytes answer_;
};

TEST_F(StorelibTest, TellsOfWhatTheServerHas) {
    EXPECT_EQ(ask(command(0, 3), 260), notInitialized);
    initialize();
    EXPECT_EQ(at<std::uint16_t>(answer_, 0), 1);
    ASSERT_EQ(ask(command(1, 0), 2384), 0U);
    EXPECT_EQ(at<std::uint32_t>(answer_, 0), 0x005D1000U);
    EXPECT_STREQ(textAt(answer_, 1600, 96).c_str(), "24.21.0-0151");
    ASSERT_EQ(ask(command(1, 11), 112), 0U);
    EXPECT_EQ(at<std::uint32_t>(answer_, 0), 0x65U);
    ASSERT_EQ(ask(command(1, 4), 6152), 0U);
    EXPECT_EQ(at<std::uint32_t>(answer_, 4), 6U);
    EXPECT_EQ(at<std::uint16_t>(answer_, 8 + 24), 9) << "the second drive";
    ASSERT_EQ(askDrive(9), 0U);
    EXPECT_EQ(textAt(answer_, 40, 9), "WFK00002 ");
    EXPECT_EQ(at<std::uint16_t>(answer_, 184), 0x18);
    EXPECT_EQ(answer_[189], 0x20) << "SAS";
    ASSERT_EQ(ask(command(1, 13), 4104), 0U);
    EXPECT_EQ(at<std::uint32_t>(answer_, 0), 2U);
    Bytes block = command(3, 11);
    block[10] = 1;
    ASSERT_EQ(ask(block, 516), 0U);
    EXPECT_EQ(at<std::uint32_t>(answer_, 0), 3U);
    EXPECT_EQ(at<std::uint16_t>(answer_, 8), 12);
    EXPECT_THAT(readFile(raidViolations), IsEmpty());
}

TEST_F(StorelibTest, WritesDownWhatBreaksItsRules) {
    initialize();
    Bytes stray = command(1, 0);
    stray[13] = 1;
    EXPECT_EQ(ask(stray, 2384), failed);
    EXPECT_EQ(ask(command(1, 0), 2383), failed);
    EXPECT_EQ(askDrive(77), failed);
    EXPECT_EQ(ask(command(4, 4), 4), failed);
    Bytes frame(28 + sizeof(void*));
    put<std::uint32_t>(frame, 4, 0x01020304);
    frame[12] = 2;
    Bytes passThrough = command(6, 3);
    put(passThrough, 28, static_cast<std::uint32_t>(frame.size()));
    put(passThrough, 32, frame.data());
    EXPECT_EQ(send(passThrough), failed);
    Bytes other = command(1, 0);
    put<std::uint32_t>(other, 4, 5);
    EXPECT_EQ(ask(other, 2384), invalidController) << "no violation: controllers come and go";
    EXPECT_EQ(readFile(raidViolations),
              "command 1/0: byte 13 is not 0\n"
              "command 1/0: a buffer of 2383 bytes\n"
              "drive 77 is none\n"
              "command 4/4 is none\n"
              "opcode 0x1020304 is none\n");
}

TEST_F(StorelibTest, TakesOrders) {
    initialize();
    orderRaid("drive 0 9 state=0x11 serial=OTHER");
    ASSERT_EQ(askDrive(9), 0U);
    EXPECT_EQ(answer_[184], 0x11);
    EXPECT_EQ(textAt(answer_, 40, 6), "OTHER ");
    orderRaid("fail 2 0 0x8009 1");
    EXPECT_EQ(askDrive(9), 0x8009U);
    EXPECT_EQ(askDrive(9), 0U) << "once";
    for (const char* order : {"drive 0 99 state=1", "nonsense", "event 0 code=1", "fail 2",
                              "fail 3 1 0x8009", "hang 3 1"})
        EXPECT_THROW(orderRaid(order), std::runtime_error) << order;
    ASSERT_EQ(send(command(0, 9)), 0U);
    EXPECT_THROW(orderRaid("slow 1"), std::runtime_error) << "released";
}

TEST_F(StorelibTest, FailsItsFirstCommands) {
    Json::Value server = tav::test::parseJson(readFile(serverDescription));
    Json::Value& failure = server["raid"]["failures"].append({});
    failure["type"] = failure["code"] = 0;
    failure["status"] = 0x8009;
    failure["times"] = 2;
    writeFile(serverDescription, server.toStyledString());
    Bytes block = command(0, 0);
    block[2] = 1;
    EXPECT_EQ(ask(block, 260), 0x8009U);
    EXPECT_EQ(ask(block, 260), 0x8009U);
    EXPECT_EQ(ask(block, 260), 0U);
    EXPECT_NO_THROW(orderRaid("struck"));
}

TEST_F(StorelibTest, PartsComeAndGo) {
    initialize();
    orderRaid("drive 0 9 gone=yes");
    orderRaid("volume 0 0 gone=yes");
    ASSERT_EQ(ask(command(1, 4), 6152), 0U);
    EXPECT_EQ(at<std::uint32_t>(answer_, 4), 5U);
    EXPECT_EQ(at<std::uint16_t>(answer_, 8 + 24), 10) << "the second one now";
    EXPECT_EQ(askDrive(9), 0x800CU);
    EXPECT_THAT(readFile(raidViolations), IsEmpty()) << "who asks cannot know it yet";
    orderRaid("drive 0 9 gone=no");
    EXPECT_EQ(askDrive(9), 0U);
}

TEST_F(StorelibTest, HangsUntilToldToGoOn) {
    initialize();
    orderRaid("hang 2 0");
    std::atomic<bool> answered{false};
    std::thread asking([&] {
        Bytes block = command(2, 0);
        block[8] = 9;
        Bytes buffer(512);
        put(block, 28, std::uint32_t{512});
        put(block, 32, buffer.data());
        EXPECT_EQ(send(block), 0U);
        answered = true;
    });
    ASSERT_EQ(ask(command(1, 4), 6152), 0U) << "others do not hang";
    EXPECT_FALSE(answered);
    orderRaid("resume");
    asking.join();
}

std::atomic<int> told{0};
std::atomic<bool> mayReturn{true};
Bytes lastEvent;

void takeEvent(void* event) {
    const auto* const bytes = static_cast<const std::uint8_t*>(event);
    lastEvent.assign(bytes, bytes + 260);
    ++told;
    told.notify_all();
    mayReturn.wait(false);
}

TEST_F(StorelibTest, TellsOfEventsUntilTheRegistrationEnds) {
    initialize();
    ASSERT_EQ(registerCallback(takeEvent), 0U);
    mayReturn = false;
    orderRaid("event 0 code=0x72 class=0 locale=2 type=15 drive=9 new=0x11 text=\"PD 09 failed\"");
    told.wait(0);
    EXPECT_EQ(at<std::uint32_t>(lastEvent, 12), 0x72U);
    EXPECT_EQ(at<std::uint32_t>(lastEvent, 36), 0x01FC0009U) << "device id, enclosure, slot";
    EXPECT_EQ(at<std::uint32_t>(lastEvent, 44), 0x11U) << "new state";
    EXPECT_STREQ(textAt(lastEvent, 132, 128).c_str(), "PD 09 failed");
    orderRaid("event 0 code=0x72 class=0 locale=2 type=1 times=5");
    EXPECT_THROW(orderRaid("event 0 code=1 class=-1 locale=2"), std::runtime_error) << "progress";

    std::atomic<bool> ended{false};
    std::thread ending([&] {
        EXPECT_EQ(unregister(), 0U);
        ended = true;
    });
    while (true) {  // until the registration is known to be going
        try {
            orderRaid("event 0 code=0x72 class=0 locale=2");
        } catch (const std::runtime_error&) {
            break;
        }
    }
    EXPECT_FALSE(ended) << "a callback is running";
    mayReturn = true;
    mayReturn.notify_all();
    ending.join();
    EXPECT_EQ(told, 1) << "the rest is dropped";
}

}  // namespace
