/// On messages of the kernel's own; the devices are made up.
#include <atomic>
#include <chrono>
#include <optional>
#include <string_view>
#include <thread>

#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <sys/socket.h>

#include "core/Logger.h"
#include "core/UeventListener.h"
#include "sim/server/Uevents.h"
#include "tests/support/Files.h"
#include "tests/support/SoftLimit.h"

namespace {

using namespace std::chrono_literals;
using tav::sim::sendUevent;
using Clock = std::chrono::steady_clock;

bool isOurs(const tav::Uevent& event) {
    return event.subsystem == "ours";
}

void tell(const char* subsystem, int times = 1) {
    for (int i = 0; i < times; ++i)
        sendUevent("add", "/devices/made-up", subsystem);
}

/// Counts how often it has been told.
struct Owner {
    tav::UeventListener listen(tav::FileDescriptor socket) {
        return {std::move(socket), "test-uevents", isOurs, [this] { ++told; }};
    }
    bool isTold(int times, std::chrono::milliseconds patience = 20s) const {
        for (const auto end = Clock::now() + patience; told < times;) {
            if (Clock::now() > end) return false;
            std::this_thread::sleep_for(1ms);
        }
        return true;
    }

    std::atomic<int> told{0};
};

TEST(UeventListener, TellsOnceWhatConcernsItsOwner) {
    tav::FileDescriptor socket = tav::openUeventSocket();
    ASSERT_TRUE(socket.isOpen());
    Owner owner;
    tell("others'", 50);
    const auto listener = owner.listen(std::move(socket));
    EXPECT_FALSE(owner.isTold(1, 300ms)) << "of others' devices";
    tell("ours");
    EXPECT_TRUE(owner.isTold(1));
    tell("ours", 3);
    EXPECT_TRUE(owner.isTold(2));
    EXPECT_FALSE(owner.isTold(3, 1500ms)) << "of three that came together";
}

TEST(UeventListener, AThousandAreOne) {
    tav::FileDescriptor socket = tav::openUeventSocket();
    tell("ours", 1000);  // more than the socket has room for
    Owner owner;
    const auto listener = owner.listen(std::move(socket));
    EXPECT_TRUE(owner.isTold(1));
    EXPECT_FALSE(owner.isTold(2, 1500ms));
    tell("ours");
    EXPECT_TRUE(owner.isTold(2)) << "it goes on after an overrun";
}

TEST(UeventListener, WhatTheKernelHadNoRoomForMayHaveBeenOurs) {
    tav::FileDescriptor socket = tav::openUeventSocket();
    tell("others'", 1000);
    Owner owner;
    const auto listener = owner.listen(std::move(socket));
    EXPECT_TRUE(owner.isTold(1));
}

TEST(UeventListener, AStormIsToldEverMoreSeldom) {
    Owner owner;
    std::atomic<bool> isOver{false};
    std::thread storm;
    {
        const auto listener = owner.listen(tav::openUeventSocket());
        storm = std::thread([&] {
            while (!isOver) {
                tell("ours");
                std::this_thread::sleep_for(20ms);
            }
        });
        std::this_thread::sleep_for(5s);
        // At 0.5, 2 and 4.5 s, and the next one 4.5 s later.
        EXPECT_GE(owner.told, 2);
        EXPECT_LE(owner.told, 3);
    }  // its end comes in the middle of it
    isOver = true;
    storm.join();
}

TEST(UeventListener, BelievesTheKernelAlone) {
    tav::FileDescriptor socket = tav::openUeventSocket();
    sockaddr_nl address{};
    socklen_t size = sizeof address;
    ASSERT_EQ(::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
    constexpr std::string_view text("add@/d\0ACTION=add\0SUBSYSTEM=ours\0", 33);
    const tav::FileDescriptor program(::socket(AF_NETLINK, SOCK_DGRAM, NETLINK_KOBJECT_UEVENT));
    address.nl_groups = 0;
    ASSERT_EQ(::sendto(program.get(), text.data(), text.size(), 0,
                       reinterpret_cast<const sockaddr*>(&address), size),
              static_cast<ssize_t>(text.size()));
    Owner owner;
    const auto listener = owner.listen(std::move(socket));
    EXPECT_FALSE(owner.isTold(1, 500ms));
}

TEST(UeventListener, WithoutASocketThereIsNothingToHear) {
    tav::test::logEverything();
    CPlusPlusLogging::Logger::loggerInit();
    Owner owner;
    std::optional<tav::test::SoftLimit> noDescriptors(std::in_place, RLIMIT_NOFILE, 3);
    tav::FileDescriptor socket = tav::openUeventSocket();
    noDescriptors.reset();
    EXPECT_FALSE(socket.isOpen());
    const auto listener = owner.listen(std::move(socket));
    EXPECT_NE(tav::test::logs().find("cannot be had: Too many open files."), std::string::npos);
}

}  // namespace
