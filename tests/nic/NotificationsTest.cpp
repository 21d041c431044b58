#include <atomic>
#include <chrono>
#include <cstring>
#include <span>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include "nic/LinkMessages.h"
#include "nic/NotificationSlots.h"

namespace {

using namespace std::chrono_literals;
using tav::Notification;

void append(Notification& batch, std::uint16_t type, std::uint32_t length, int index,
            unsigned flags) {
    struct {
        nlmsghdr header;
        ifinfomsg link;
    } message{};
    message.header.nlmsg_len = length;
    message.header.nlmsg_type = type;
    message.link.ifi_index = index;
    message.link.ifi_flags = flags;
    const auto bytes = std::as_bytes(std::span(&message, 1));
    batch.insert(batch.end(), bytes.begin(), bytes.end());
}

constexpr std::uint32_t wholeLink = sizeof(nlmsghdr) + sizeof(ifinfomsg);

TEST(LinkMessages, OnlyNewLinksAreDecoded) {
    Notification batch;
    append(batch, RTM_NEWLINK, wholeLink, 3, IFF_UP);
    append(batch, RTM_DELLINK, wholeLink, 4, IFF_UP);
    append(batch, RTM_NEWADDR, wholeLink, 5, IFF_UP);
    append(batch, RTM_NEWLINK, wholeLink, 6, IFF_UP | IFF_RUNNING);
    const auto messages = tav::decodeLinkMessages(batch);
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0].interfaceIndex, 3);
    EXPECT_EQ(messages[1].interfaceIndex, 6);
    EXPECT_TRUE(tav::isTransient(messages[0].flags));
    EXPECT_FALSE(tav::isTransient(messages[1].flags));
    EXPECT_FALSE(tav::isTransient(IFF_RUNNING));
}

TEST(LinkMessages, ALengthThatLiesEndsTheBatch) {
    for (const std::uint32_t lie : {0U, 15U, wholeLink * 2 + 1, 0xFFFFFFFFU}) {
        Notification batch;
        append(batch, RTM_NEWLINK, wholeLink, 1, 0);
        append(batch, RTM_NEWLINK, lie, 2, 0);
        append(batch, RTM_NEWLINK, wholeLink, 3, 0);
        EXPECT_EQ(tav::decodeLinkMessages(batch).size(), 1U) << lie;
    }
}

TEST(LinkMessages, ABatchMayBeCutAnywhere) {
    Notification batch;
    for (int index = 1; index <= 3; ++index)
        append(batch, RTM_NEWLINK, wholeLink, index, 0);
    for (std::size_t size = 0; size <= batch.size(); ++size) {
        const Notification cut(batch.begin(), batch.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(tav::decodeLinkMessages(cut).size(), size / wholeLink) << size;
    }
    Notification headerOnly;
    append(headerOnly, RTM_NEWLINK, sizeof(nlmsghdr), 7, 0);
    EXPECT_TRUE(tav::decodeLinkMessages(headerOnly).empty());
}

TEST(LinkMessages, WhatIsNoPhysicalInterface) {
    EXPECT_STREQ(tav::nonPhysicalKind("../../devices/virtual/net/veth0"), "virtual");
    EXPECT_STREQ(tav::nonPhysicalKind("../../devices/pci0000:3b/0000:3b:00.0/net/ib0"),
                 "infiniband");
    EXPECT_STREQ(tav::nonPhysicalKind("../../devices/x/net/bond0"), "bond");
    EXPECT_STREQ(tav::nonPhysicalKind("../../devices/x/net/vlan7"), "vlan");
    EXPECT_EQ(tav::nonPhysicalKind("../../devices/pci0000:3b/0000:3b:00.0/net/eth0"), nullptr);
    EXPECT_EQ(tav::nonPhysicalKind(""), nullptr);
}

/// Fills a slot.
Notification numbered(int number) {
    return Notification(tav::NotificationSlots::slotSize, static_cast<std::byte>(number));
}

TEST(NotificationSlots, TheThirteenthWaitsAndIsNotStored) {
    tav::NotificationSlots slots;
    for (int number = 0; number < 12; ++number)
        EXPECT_TRUE(slots.post(numbered(number)));
    std::atomic<bool> returned{false};
    std::thread producer([&] {
        EXPECT_FALSE(slots.post(numbered(12)));
        returned = true;
        EXPECT_TRUE(slots.post(numbered(13)));
    });
    std::this_thread::sleep_for(20ms);
    EXPECT_FALSE(returned) << "it waits for the consumer";
    auto work = slots.take();
    ASSERT_EQ(work.notifications.size(), 12U);
    for (int number = 0; number < 12; ++number)
        EXPECT_EQ(work.notifications[static_cast<std::size_t>(number)], numbered(number));
    EXPECT_TRUE(work.missed);
    producer.join();
    work = slots.take();
    ASSERT_EQ(work.notifications.size(), 1U);
    EXPECT_EQ(work.notifications[0], numbered(13));
    EXPECT_FALSE(work.missed);
}

TEST(NotificationSlots, ASlotHoldsWhatItHasRoomFor) {
    constexpr int batches = 500;  // of some 1,400 bytes, as the kernel tells of one link
    tav::NotificationSlots slots;
    for (int index = 1; index <= batches; ++index) {
        Notification batch;
        append(batch, RTM_NEWLINK, wholeLink + 1, index, 0);
        batch.resize(1398);  // not aligned
        reinterpret_cast<nlmsghdr*>(batch.data())->nlmsg_len = 1398;
        ASSERT_TRUE(slots.post(std::move(batch))) << index;
    }
    const auto work = slots.take();
    EXPECT_FALSE(work.missed);
    EXPECT_LE(work.notifications.size(), tav::NotificationSlots::slotCount);
    int expected = 1;
    for (const Notification& notification : work.notifications) {
        EXPECT_LE(notification.size(), tav::NotificationSlots::slotSize);
        for (const tav::LinkMessage& message : tav::decodeLinkMessages(notification))
            EXPECT_EQ(message.interfaceIndex, expected++);
    }
    EXPECT_EQ(expected, batches + 1);
}

TEST(NotificationSlots, AStopEndsBothWaits) {
    tav::NotificationSlots full;
    for (int number = 0; number < 12; ++number)
        full.post(numbered(number));
    std::thread producer([&] { EXPECT_FALSE(full.post(numbered(12))); });
    tav::NotificationSlots empty;
    std::thread consumer([&] { EXPECT_TRUE(empty.take().stopped); });
    std::this_thread::sleep_for(10ms);
    full.stop();
    empty.stop();
    producer.join();
    consumer.join();
}

}  // namespace
