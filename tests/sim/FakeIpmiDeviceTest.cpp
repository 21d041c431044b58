#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <linux/ipmi.h>
#include <sys/ioctl.h>

#include "base/FileDescriptor.h"
#include "sim/device/FakeIpmiDevice.h"

namespace {

using namespace std::chrono_literals;
using tav::FileDescriptor;
using tav::sim::FakeIpmiDevice;
using tav::sim::IpmiRequest;
using tav::sim::Reply;
using Bytes = std::vector<std::uint8_t>;

FileDescriptor openIpmi() {
    return FileDescriptor(::open("/dev/ipmi0", O_RDWR | O_CLOEXEC));
}

struct Sending {
    ipmi_system_interface_addr address{IPMI_SYSTEM_INTERFACE_ADDR_TYPE, IPMI_BMC_CHANNEL, 0};
    unsigned addressLength = sizeof(ipmi_system_interface_addr);
    std::uint8_t netFn = 0x3A;
    std::uint8_t command = 0x80;
    Bytes data;
    long msgid = 1;
};

/// 0 or the error number.
int send(const FileDescriptor& device, Sending given) {
    ipmi_req request{};
    request.addr = reinterpret_cast<unsigned char*>(&given.address);
    request.addr_len = given.addressLength;
    request.msgid = given.msgid;
    request.msg.netfn = given.netFn;
    request.msg.cmd = given.command;
    request.msg.data = given.data.data();
    request.msg.data_len = static_cast<unsigned short>(given.data.size());
    return ::ioctl(device.get(), IPMICTL_SEND_COMMAND, &request) == 0 ? 0 : errno;
}

struct Received {
    int error = 0;
    long msgid = 0;
    unsigned netFn = 0;
    unsigned command = 0;
    Bytes data;
};

Received receive(const FileDescriptor& device, std::size_t room = 272, unsigned addressRoom = 32) {
    ipmi_addr address{};
    Received got;
    got.data.resize(room);
    ipmi_recv message{};
    message.addr = reinterpret_cast<unsigned char*>(&address);
    message.addr_len = addressRoom;
    message.msg.data = got.data.data();
    message.msg.data_len = static_cast<unsigned short>(room);
    const int result = ::ioctl(device.get(), IPMICTL_RECEIVE_MSG_TRUNC, &message);
    got.error = result == 0 ? 0 : errno;
    got.msgid = message.msgid;
    got.netFn = message.msg.netfn;
    got.command = message.msg.cmd;
    got.data.resize(result == 0 || got.error == EMSGSIZE ? message.msg.data_len : 0);
    return got;
}

bool readable(const FileDescriptor& device, std::chrono::milliseconds wait = 0ms) {
    pollfd watched{device.get(), POLLIN, 0};
    return ::poll(&watched, 1, static_cast<int>(wait.count())) == 1 &&
           (watched.revents & POLLIN) != 0;
}

TEST(FakeIpmiDevice, CarriesRequestAndAnswerAndIsReadableExactlyWhileAnAnswerWaits) {
    FakeIpmiDevice fake([](const IpmiRequest& request) { return Reply::answer(request.data); });
    const FileDescriptor device = openIpmi();
    ASSERT_TRUE(device.isOpen());
    EXPECT_EQ(receive(device).error, EAGAIN);
    EXPECT_FALSE(readable(device));
    Sending sending;
    sending.data = {1, 2, 3};
    sending.msgid = 77;
    ASSERT_EQ(send(device, sending), 0);
    sending.msgid = 78;
    ASSERT_EQ(send(device, sending), 0);
    for (const long expected : {77L, 78L}) {
        ASSERT_TRUE(readable(device));
        const Received got = receive(device);
        EXPECT_EQ(got.error, 0);
        EXPECT_EQ(got.msgid, expected);
        EXPECT_EQ(got.netFn, 0x3Bu);
        EXPECT_EQ(got.command, 0x80u);
        EXPECT_EQ(got.data, (Bytes{0, 1, 2, 3}));
    }
    EXPECT_FALSE(readable(device));
    EXPECT_EQ(fake.requests().at(1).data, (Bytes{1, 2, 3}));
}

TEST(FakeIpmiDevice, RefusesWhatTheKernelRefuses) {
    FakeIpmiDevice fake;
    const FileDescriptor device = openIpmi();
    const auto with = [](auto change) {
        Sending sending;
        change(sending);
        return sending;
    };
    EXPECT_EQ(send(device, with([](Sending& s) { s.netFn = 0x3B; })), EINVAL);
    EXPECT_EQ(send(device, with([](Sending& s) { s.address.channel = 0; })), EINVAL);
    EXPECT_EQ(send(device, with([](Sending& s) { s.address.lun = 4; })), EINVAL);
    EXPECT_EQ(send(device, with([](Sending& s) { s.addressLength = 7; })), EINVAL);
    EXPECT_EQ(send(device, with([](Sending& s) { s.data.resize(271); })), EMSGSIZE);
    EXPECT_TRUE(fake.requests().empty());
    for (int sent = 0; sent < 100; ++sent)
        ASSERT_EQ(send(device, {}), 0);
    EXPECT_EQ(send(device, {}), EBUSY);

    std::vector<FileDescriptor> more;
    for (int opened = 1; opened < 30; ++opened)
        more.push_back(openIpmi());
    EXPECT_TRUE(more.back().isOpen());
    EXPECT_FALSE(openIpmi().isOpen());
    EXPECT_EQ(errno, EBUSY);
    EXPECT_EQ(fake.stillOpen(), 30u);
    more.clear();
    EXPECT_EQ(fake.stillOpen(), 1u);
}

TEST(FakeIpmiDevice, TruncatesAndKeepsMessagesAsTheKernelDoes) {
    FakeIpmiDevice fake([](const IpmiRequest&) { return Reply::answer({1, 2, 3, 4}); });
    const FileDescriptor device = openIpmi();
    ASSERT_EQ(send(device, {}), 0);
    EXPECT_EQ(receive(device, 272, 7).error, EINVAL);
    EXPECT_TRUE(readable(device)) << "the message stays queued";
    const Received cut = receive(device, 3);
    EXPECT_EQ(cut.error, EMSGSIZE);
    EXPECT_EQ(cut.data, (Bytes{0, 1, 2}));
    EXPECT_FALSE(readable(device));
}

TEST(FakeIpmiDevice, GivesUpOnASilentControllerAndDropsItsLateAnswer) {
    FakeIpmiDevice fake([](const IpmiRequest&) { return Reply::answer({9}).after(150ms); });
    fake.setPatience(50ms);
    const FileDescriptor device = openIpmi();
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(send(device, {}), 0);
    ASSERT_TRUE(readable(device, 5s));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 50ms);
    EXPECT_EQ(receive(device).data, Bytes{0xC3});
    EXPECT_FALSE(readable(device, 250ms));
}

TEST(FakeIpmiDevice, PlaysTheFaultsThatATestAsksFor) {
    FakeIpmiDevice fake;
    const FileDescriptor device = openIpmi();
    fake.setHandler([](const IpmiRequest&) { return Reply::refused(EIO); });
    EXPECT_EQ(send(device, {}), EIO);
    fake.setHandler([](const IpmiRequest&) { return Reply::unreceivable(EFAULT); });
    ASSERT_EQ(send(device, {}), 0);
    EXPECT_TRUE(readable(device));
    EXPECT_EQ(receive(device).error, EFAULT);
    EXPECT_FALSE(readable(device));
    fake.setHandler([](const IpmiRequest&) {
        return Reply::answer({1}).asAnswerToAnother().then(Reply::answer({2}).after(30ms));
    });
    ASSERT_EQ(send(device, {}), 0);
    EXPECT_NE(receive(device).msgid, 1);
    ASSERT_TRUE(readable(device, 5s));
    EXPECT_EQ(receive(device).msgid, 1);
}

TEST(FakeIpmiDevice, ComesGoesAndLeavesEverythingElseToTheKernel) {
    EXPECT_FALSE(openIpmi().isOpen());
    FileDescriptor kept;
    {
        FakeIpmiDevice fake;
        fake.setPresent(false);
        EXPECT_FALSE(openIpmi().isOpen());
        EXPECT_EQ(errno, ENOENT);
        fake.setPresent(true);
        kept = openIpmi();
        EXPECT_TRUE(kept.isOpen());
        EXPECT_EQ(fake.opens(), 1u);
        EXPECT_EQ(fake.refusedOpens(), 1u);
    }
    EXPECT_EQ(send(kept, {}), 0) << "a descriptor outlives the device node";
    EXPECT_FALSE(openIpmi().isOpen());

    const FileDescriptor file(::open("/tmp/file", O_RDWR | O_CREAT | O_CLOEXEC, 0640));
    ASSERT_TRUE(file.isOpen());
    ASSERT_EQ(::write(file.get(), "four", 4), 4);
    ASSERT_EQ(::lseek(file.get(), 0, SEEK_SET), 0);
    int unread = 0;
    EXPECT_EQ(::ioctl(file.get(), FIONREAD, &unread), 0);
    EXPECT_EQ(unread, 4);
}

TEST(FakeIpmiDevice, ServesManyThreadsAndDescriptorsAtOnce) {
    FakeIpmiDevice fake([](const IpmiRequest& request) {
        return request.msgid % 3 == 0 ? Reply::answer(request.data).after(1ms)
                                      : Reply::answer(request.data);
    });
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (std::uint8_t thread = 0; thread < 8; ++thread) {
        threads.emplace_back([&wrong, thread] {
            for (long round = 0; round < 50; ++round) {
                const FileDescriptor device = openIpmi();
                Sending sending;
                sending.data = {thread};
                sending.msgid = round;
                if (send(device, sending) != 0 || !readable(device, 10s)) ++wrong;
                const Received got = receive(device);
                if (got.msgid != round || got.data != Bytes{0, thread}) ++wrong;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(fake.opens(), 400u);
    EXPECT_EQ(fake.stillOpen(), 0u);
}

}  // namespace
