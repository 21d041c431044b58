#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/StopSignal.h"
#include "rmc/DeliveryRecord.h"
#include "rmc/tavipmi.h"
#include "sim/device/DeviceTable.h"
#include "sim/device/FakeIpmiDevice.h"
#include "tests/support/FastWaiting.h"
#include "tests/support/Files.h"
#include "tests/support/Rmc.h"

namespace {

using namespace std::chrono_literals;
using ipmi::IPMIUtils;
using tav::sim::FakeIpmiDevice;
using tav::sim::IpmiRequest;
using tav::sim::Reply;
using tav::test::clockSpeed;
using tav::test::logEverything;
using tav::test::logs;
using tav::test::Rmc;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

Reply status(std::uint8_t transfer, std::uint16_t token = 0x1234, std::uint8_t exit = 0) {
    return Reply::answer(
        {transfer, static_cast<std::uint8_t>(token), static_cast<std::uint8_t>(token >> 8U), exit});
}

int send(const std::string& payload) {
    return IPMIUtils::RMC_CLI_Cmd_Execution("MPEventGen", payload);
}

std::string textAt(const IpmiRequest& request, std::size_t offset, std::size_t size) {
    return std::string(request.data.begin() + static_cast<std::ptrdiff_t>(offset),
                       request.data.begin() + static_cast<std::ptrdiff_t>(offset + size));
}

TEST(Transport, CutsAPayloadIntoFrames) {
    const FakeIpmiDevice device([](const IpmiRequest&) { return status(1, 0xBEEF); });
    IPMIUtils channel;
    clockSpeed = 1000;
    std::string payload;
    for (int i = 0; i < 100; ++i)
        payload += static_cast<char>('A' + i % 26);
    unsigned char transferStatus = 0;
    unsigned char exitStatus = 0;
    EXPECT_EQ(channel.RMC_CLI_Exec("WriteInventory", payload, &transferStatus, &exitStatus), 1);

    const std::vector<IpmiRequest> frames = device.requests();
    ASSERT_EQ(frames.size(), 3U);
    for (const IpmiRequest& frame : frames) {
        EXPECT_EQ(frame.netFn, 0x3A);
        EXPECT_EQ(frame.command, 0x80);
        EXPECT_EQ(frame.lun, 0);
        ASSERT_EQ(frame.data.size(), 60U);
    }
    const std::string name = "WriteInventory";
    EXPECT_EQ(textAt(frames[0], 0, 3), std::string("\0\0\x14", 3));
    EXPECT_EQ(textAt(frames[0], 3, 20), name + std::string(20 - name.size(), '\0'));
    EXPECT_EQ(textAt(frames[0], 23, 4), std::string("\x65\0\0\0", 4)) << "100 bytes and the NUL";
    EXPECT_EQ(textAt(frames[0], 27, 33), payload.substr(0, 33));
    EXPECT_EQ(textAt(frames[1], 0, 3), std::string("\xEF\xBE\0", 3));
    EXPECT_EQ(textAt(frames[1], 3, 57), payload.substr(33, 57));
    EXPECT_EQ(textAt(frames[2], 0, 3), std::string("\xEF\xBE\0", 3));
    EXPECT_EQ(textAt(frames[2], 3, 57), payload.substr(90) + std::string(47, '\0'));
    EXPECT_EQ(device.stillOpen(), 1U);
}

TEST(Transport, TakesAsManyFramesAsThePayloadNeeds) {
    clockSpeed = 1000;
    const struct {
        std::size_t size;  // of the text, without its NUL
        unsigned frames;
    } rows[] = {{2, 1},  {32, 1}, {33, 2},  {56, 2},  {57, 2},
                {89, 2}, {90, 3}, {146, 3}, {147, 4}, {5000, 89}};
    Rmc rmc;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.size);
        const std::string payload =
            row.size == 2 ? "{}" : "{\"a\":\"" + std::string(row.size - 8, 'x') + "\"}";
        ASSERT_EQ(payload.size(), row.size);
        EXPECT_EQ(send(payload), 0);
        ASSERT_FALSE(rmc.commands().empty());
        EXPECT_EQ(rmc.commands().back().payload, payload);
        EXPECT_EQ(rmc.commands().back().frames, row.frames);
    }
    EXPECT_THAT(rmc.violations(), IsEmpty());
    EXPECT_EQ(rmc.device().stillOpen(), 0U);
}

TEST(Transport, StatusesOfTheController) {
    logEverything();
    clockSpeed = 1000;
    const struct {
        std::size_t frame;  // whose answer carries the status, from 0; the payload takes three
        std::uint8_t status;
        int result;
        std::size_t frames;
        const char* message;
    } rows[] = {{0, 0, 0, 3, ""},
                {0, 1, 0, 3, ""},
                {1, 2, 0, 3, ""},
                {2, 1, 1, 3,
                 "487 IPMI: Transfer Status is 0x1[Input data is not complete] and Cmd Exit Status "
                 "is 0x9\n"},
                {2, 2, 1, 3, "505 IPMI: RMC Cli Command Execution failed\n"},
                {0, 3, 1, 1,
                 "490 IPMI: Transfer Status is 0x3[Error in index] and Cmd Exit Status is 0x9\n"},
                {1, 4, 1, 2,
                 "493 IPMI: Transfer Status is 0x4[Cli entries full] and Cmd Exit Status is 0x9\n"},
                {1, 5, 1, 2,
                 "496 IPMI: Transfer Status is 0x5[Provided command not supported] and Cmd Exit "
                 "Status is 0x9\n"},
                {2, 6, 1, 3,
                 "499 IPMI: Transfer Status is 0x6[Memory could not be allocated] and Cmd Exit "
                 "Status is 0x9\n"},
                {0, 7, 1, 1, "505 IPMI: RMC Cli Command Execution failed\n"},
                {0, 8, 1, 1,
                 "502 IPMI: Transfer Status is 0x8[Request command length exceeded] and Cmd Exit "
                 "Status is 0x9. Payload size:100\n"},
                {1, 0xFF, 1, 2, "505 IPMI: RMC Cli Command Execution failed\n"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message()
                     << "status " << int(row.status) << " after frame " << row.frame);
        std::size_t count = 0;
        const FakeIpmiDevice device([&](const IpmiRequest&) {
            return count++ == row.frame ? status(row.status, 7, 9) : status(0, 7, 9);
        });
        const std::size_t before = tav::test::readFile(tav::test::mainLog).size();
        EXPECT_EQ(send(std::string(100, 'x')), row.result);
        EXPECT_EQ(count, row.frames);
        const std::string logged = tav::test::readFile(tav::test::mainLog).substr(before);
        EXPECT_THAT(logged, testing::EndsWith(row.message));
        EXPECT_EQ(logged.empty(), *row.message == '\0');
        EXPECT_EQ(device.stillOpen(), 0U);
    }
}

TEST(Transport, ExchangesThatFail) {
    logEverything();
    clockSpeed = 100;
    const struct {
        const char* name;
        Reply reply;
        const char* debugMessage;
    } rows[] = {
        {"refused", Reply::refused(EIO), "118 IPMI: Request ioctl failure with error code : 5"},
        {"not receivable", Reply::unreceivable(EIO), "155 IPMI: Response ioctl failure"},
        {"the driver gave up", Reply::failure(0xC3), ""},
        {"refused by the controller", Reply::answer({0, 0, 0, 0}, 0xC7), ""},
        {"short", Reply::answer({0, 0, 0}), ""},
        {"empty", Reply::answer({}), ""},
        {"never", Reply::never(), ""},
        {"only an answer to another request", status(0).asAnswerToAnother(), ""}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::size_t count = 0;
        const FakeIpmiDevice device(
            [&](const IpmiRequest&) { return ++count == 2 ? row.reply : status(0); });
        EXPECT_EQ(send(std::string(100, 'x')), 1);
        EXPECT_EQ(count, 2U) << "nothing more after the failure";
        EXPECT_THAT(logs(), HasSubstr(row.debugMessage));
        EXPECT_EQ(device.stillOpen(), 0U);
    }
    EXPECT_THAT(logs(), HasSubstr("477 IPMI: Error occurred while executing RMC_CLI_Exec"));
}

TEST(Transport, AnswersThatAreOddButGood) {
    clockSpeed = 1000;
    const struct {
        const char* name;
        std::function<Reply()> reply;
    } rows[] = {{"late", [] { return status(0).after(30ms); }},
                {"after one to another request",
                 [] { return status(8).asAnswerToAnother().then(status(0)); }},
                {"after an event that nobody asked for",
                 [] { return status(8).asEvent().then(status(0)); }},
                {"received again after an interruption",
                 [] { return Reply::unreceivable(EINTR).then(status(0)); }},
                {"sent again after an interruption",
                 [first = true]() mutable {
                     return std::exchange(first, false) ? Reply::refused(EINTR) : status(0);
                 }},
                {"longer than asked for",
                 [] {
                     return Reply::answer({0, 7, 0, 0, 1, 2, 3});
                 }},
                {"longer than the driver's interface allows",
                 [] { return Reply::answer(std::vector<std::uint8_t>(300, 0)); }}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        clockSpeed = 1;
        const FakeIpmiDevice device([&](const IpmiRequest&) { return row.reply(); });
        EXPECT_EQ(send("{}"), 0);
    }
}

TEST(Transport, LastStatusDecidesTheMessageOfAFailedExchange) {
    logEverything();
    clockSpeed = 1000;
    for (const std::uint8_t last : std::initializer_list<std::uint8_t>{1, 2}) {
        std::size_t count = 0;
        const FakeIpmiDevice device([&](const IpmiRequest&) {
            return ++count == 1 ? status(last, 7, 5) : Reply::refused(EIO);
        });
        IPMIUtils channel;
        unsigned char transferStatus = 0xEE;
        unsigned char exitStatus = 0xEE;
        EXPECT_EQ(channel.RMC_CLI_Exec("X", std::string(100, 'x'), &transferStatus, &exitStatus),
                  0);
        EXPECT_EQ(transferStatus, last);
        EXPECT_EQ(exitStatus, 5);
    }
}

TEST(Transport, InvalidArgumentsAreFailures) {
    logEverything();
    const FakeIpmiDevice device([](const IpmiRequest&) { return status(0); });
    unsigned char byte = 0xEE;
    IPMIUtils channel;
    EXPECT_EQ(channel.RMC_CLI_Exec("X", "x", nullptr, &byte), 0);
    EXPECT_EQ(channel.RMC_CLI_Exec("X", "x", &byte, nullptr), 0);
    EXPECT_EQ(IPMIUtils::RMC_CLI_Cmd_Execution("", "x"), 1);
    EXPECT_EQ(IPMIUtils::RMC_CLI_Cmd_Execution("X", ""), 1);
    EXPECT_EQ(IPMIUtils::RMC_CLI_Cmd_Execution("TwentyCharactersLong", "x"), 1);
    sendToRMC(nullptr);
    EXPECT_THAT(device.requests(), IsEmpty());
    EXPECT_THAT(logs(), HasSubstr("211 IPMI: Provided command / arguments is not valid"));
    EXPECT_THAT(logs(), HasSubstr("198 TAV_SERVER: FAILURE in logging event to RMC"));
}

TEST(Transport, LoadsTheDriverOnceAndTriesOnceMore) {
    clockSpeed = 100;
    for (const char* name : {"modprobe", "mknod"}) {
        tav::test::writeCommand(name, "echo ${0##*/} \"$@\" >> /tmp/driver-commands");
    }
    Rmc rmc;
    rmc.device().setPresent(false);
    EXPECT_EQ(send("{}"), 1);
    EXPECT_EQ(rmc.device().refusedOpens(), 2U);
    EXPECT_THAT(tav::test::readFile("/tmp/driver-commands"),
                testing::MatchesRegex("modprobe ipmi_msghandler\nmodprobe ipmi_si\n"
                                      "modprobe ipmi_devintf\nmodprobe ipmi_watchdog\n"
                                      "modprobe ipmi_ssif\nmknod -m 0600 /dev/ipmi0 c .*0\n"));
    std::thread appearing([&] {
        while (rmc.device().refusedOpens() < 3)
            std::this_thread::sleep_for(1ms);
        rmc.device().setPresent(true);
    });
    EXPECT_EQ(send("{}"), 0);
    appearing.join();
    EXPECT_THAT(rmc.names(), ElementsAre("MPEventGen"));
}

TEST(Transport, AStopDoesNotBreakATransferThatMoves) {
    Rmc rmc;
    tav::StopSignal stop;
    const tav::StopScope scope(&stop);
    clockSpeed = 100;
    rmc.intercept([&](const IpmiRequest&) -> std::optional<Reply> {
        stop.request();
        return std::nullopt;
    });
    EXPECT_EQ(send("{\"a\":\"" + std::string(5000, 'x') + "\"}"), 0);
    EXPECT_THAT(rmc.violations(), IsEmpty());
}

TEST(Transport, AStopGivesASlowTransferHalfAMinuteAndBeginsNoOther) {
    logEverything(R"("LoggingLevel": "Error")");
    clockSpeed = 10;
    tav::StopSignal stop;
    const tav::StopScope scope(&stop);
    std::size_t frames = 0;
    const FakeIpmiDevice device([&](const IpmiRequest&) {
        if (++frames == 3) stop.request();
        return status(0).after(10ms);  // a tenth of a second of the fast clock
    });
    EXPECT_EQ(send(std::string(57 * 1000, 'x')), 1);
    EXPECT_GT(frames, 20U);
    EXPECT_LT(frames, 400U);
    EXPECT_THAT(logs(), HasSubstr("too slow to be finished when the service stopped"));
    const std::size_t before = frames;
    EXPECT_EQ(send("{}"), 1);
    EXPECT_FALSE(IPMIUtils().checkIPMIDBRequest());
    EXPECT_EQ(frames, before);
}

TEST(Transport, WhoWaitsForTheChannelGoesWithAStop) {
    tav::StopSignal stop;
    const std::lock_guard<std::mutex> transfer(IPMIUtils::mlock);
    std::thread waiter([&] {
        const tav::StopScope scope(&stop);
        EXPECT_EQ(send("{}"), 1);
    });
    std::this_thread::sleep_for(50ms);
    const auto begin = std::chrono::steady_clock::now();
    stop.request();
    waiter.join();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s);
}

TEST(Transport, WhatFailsIsToldOnceAndSaysWhy) {
    logEverything(R"("LoggingLevel": "Error")");
    clockSpeed = 100;
    tav::test::writeCommand("modprobe", "true");
    const struct {
        Reply reply;
        const char* why;
    } rows[] = {
        {Reply::refused(EIO), "has not taken request 3Ah/80h: Input/output error (errno: 5)"},
        {Reply::unreceivable(EIO), "has not handed out an answer: Input/output error (errno: 5)"},
        {Reply::answer({0, 0, 0, 0}, 0xC7), "refuses commands (completion code C7h)"},
        {Reply::answer({0, 0, 0}), "answer has 3 bytes instead of 4"},
        {Reply::never(), "The controller has not answered in time"}};
    const auto told = [](const std::string& what) {
        const std::string text = logs();
        int times = 0;
        for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
            ++times;
        return times;
    };
    for (const auto& row : rows) {
        const FakeIpmiDevice device([&](const IpmiRequest&) { return row.reply; });
        send("{}");
        send("{}");
        EXPECT_EQ(told(row.why), 1) << row.why;
        const tav::Delivery events = tav::deliveryRecord().events;
        EXPECT_THAT(events.why, HasSubstr(row.why));
        EXPECT_GT(events.failed, 0);
    }
    {
        Rmc rmc;
        rmc.device().setPresent(false);
        send("{}");
        send("{}");
        EXPECT_EQ(told("/dev/ipmi0 cannot be opened: No such file or directory (errno: 2)"), 1);
    }
    EXPECT_EQ(tav::deliveryRecord().events.acknowledged, 0);
    EXPECT_EQ(tav::deliveryRecord().events.failures, 12U);
    using tav::RmcStep;
    const auto& failures = tav::rmcFigures().failures;
    for (const RmcStep step : {RmcStep::Send, RmcStep::Receive, RmcStep::Refusal, RmcStep::Answer,
                               RmcStep::Silence, RmcStep::Open})
        EXPECT_EQ(failures.at(static_cast<std::size_t>(step)), 2U)
            << tav::rmcStepNames.at(static_cast<std::size_t>(step));
    EXPECT_EQ(tav::rmcFigures().frames, 0U);
    Rmc rmc;
    EXPECT_EQ(send(std::string(100, 'x')), 0);
    EXPECT_EQ(tav::rmcFigures().frames, 3U);
    EXPECT_EQ(tav::deliveryRecord().events.failures, 0U);
    EXPECT_GT(tav::deliveryRecord().events.acknowledged, 0);
}

TEST(Transport, AStopEndsTheWaitForASilentController) {
    const FakeIpmiDevice device;
    tav::StopSignal stop;
    std::thread stopper([&] {
        while (device.requests().empty())
            std::this_thread::sleep_for(1ms);
        stop.request();
    });
    const auto begin = std::chrono::steady_clock::now();
    {
        const tav::StopScope scope(&stop);
        EXPECT_EQ(send("{}"), 1);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s) << "of the usual thirty";
    stopper.join();
}

/// Opens for nobody until it is let go.
class HangingDevice : public tav::sim::Device {
 public:
    std::shared_ptr<tav::sim::OpenDevice> open(tav::FileDescriptor /*end*/, int& error) override {
        ++opened;
        while (hangs)
            std::this_thread::sleep_for(1ms);
        error = ENODEV;
        return nullptr;
    }
    std::atomic<bool> hangs{true};
    std::atomic<int> opened{0};
};

TEST(Transport, ADriverThatHangsIsNotWaitedForAndNotOpenedAgain) {
    logEverything();
    const auto device = std::make_shared<HangingDevice>();
    tav::sim::installDevice("/dev/ipmi0", device);
    tav::StopSignal stop;
    std::thread stopper([&] {
        while (device->opened == 0)
            std::this_thread::sleep_for(1ms);
        stop.request();
    });
    const auto begin = std::chrono::steady_clock::now();
    {
        const tav::StopScope scope(&stop);
        EXPECT_EQ(send("{}"), 1);
        EXPECT_FALSE(IPMIUtils().checkIPMIDBRequest());
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s);
    stopper.join();
    EXPECT_THAT(logs(), HasSubstr("MPEventGen was not sent, because the service stops."));
    EXPECT_THAT(logs(), Not(HasSubstr("[ERROR]")));
    EXPECT_EQ(send("{}"), 1);
    EXPECT_EQ(device->opened, 1);
    EXPECT_THAT(logs(), HasSubstr("/dev/ipmi0 cannot be opened: Connection timed out"));
    device->hangs = false;
    tav::sim::removeDevice("/dev/ipmi0");
    Rmc rmc;
    while (send("{}") != 0)
        std::this_thread::sleep_for(1ms);
}

TEST(Transport, EveryRequestHasAMessageIdOfItsOwn) {
    clockSpeed = 1000;
    const FakeIpmiDevice device([](const IpmiRequest&) { return status(0); });
    send(std::string(100, 'x'));
    send("{}");
    std::set<long> ids;
    for (const IpmiRequest& request : device.requests())
        ids.insert(request.msgid);
    EXPECT_EQ(ids.size(), device.requests().size());
}

TEST(Transport, TheControllerHasItsPauseAfterEachTransfer) {
    Rmc rmc;
    const auto begin = std::chrono::steady_clock::now();
    std::thread other([] { EXPECT_EQ(send("{}"), 0); });
    EXPECT_EQ(send("{}"), 0);
    other.join();
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 1s) << "half a second behind each";
}

TEST(Transport, TheDoorBellWaitsForATransfer) {
    clockSpeed = 1000;
    Rmc rmc;
    std::unique_lock<std::mutex> transfer(IPMIUtils::mlock);
    std::thread bell([] { IPMIUtils().checkIPMIDBRequest(); });
    std::this_thread::sleep_for(100ms);
    EXPECT_THAT(rmc.device().requests(), IsEmpty());
    transfer.unlock();
    bell.join();
    EXPECT_EQ(rmc.device().requests().size(), 1U);
}

TEST(Transport, ANameThatIsTooLongKeepsItsNul) {
    const tav::RmcFrame frame = tav::firstRmcFrame("ANameOfTwentyFourLetters", 1, "");
    EXPECT_EQ(std::string(frame.begin() + 3, frame.begin() + 23),
              std::string("ANameOfTwentyFourLe\0", 20));
}

TEST(Transport, DoorBell) {
    logEverything();
    clockSpeed = 100;
    std::string full(254, 'x');
    full.replace(240, 14, "WriteInventory");
    const struct {
        const char* name;
        Reply reply;
        bool asksForInventory;
    } rows[] = {
        {"a request",
         Reply::answer({'W', 'r', 'i', 't', 'e', 'I', 'n', 'v', 'e', 'n', 't', 'o', 'r', 'y', 0}),
         true},
        {"no room for a NUL", Reply::answer({full.begin(), full.end()}), true},
        {"beyond a NUL",
         Reply::answer({0, 'W', 'r', 'i', 't', 'e', 'I', 'n', 'v', 'e', 'n', 't', 'o', 'r', 'y'}),
         false},
        {"another text", Reply::answer({'W', 'r', 'i', 't', 'e'}), false},
        {"nothing", Reply::answer({}), false},
        {"gave up", Reply::failure(0xC3), false},
        {"refused", Reply::refused(EIO), false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const FakeIpmiDevice device([&](const IpmiRequest& request) {
            EXPECT_EQ(request.netFn, 0x3A);
            EXPECT_EQ(request.command, 0x81);
            EXPECT_TRUE(request.data.empty());
            return row.reply;
        });
        EXPECT_EQ(IPMIUtils().checkIPMIDBRequest(), row.asksForInventory);
    }
    EXPECT_THAT(logs(), HasSubstr("428 IPMI: Return buffer from door bell: xxx"));
    EXPECT_THAT(logs(), HasSubstr("439 IPMI: An error occurred in checking RMC request via IPMI"));
}

TEST(Transport, StandardRequests) {
    FakeIpmiDevice device([](const IpmiRequest& request) {
        if (request.netFn == 0x06 && request.command == 0x01) {
            return Reply::answer({0x20, 0x81, 1, 2, 0x51, 0xBF, 0x57, 1, 0, 0x34, 0x12});
        }
        if (request.netFn == 0x06 && request.command == 0x36)
            return Reply::answer({1, 64, 63, 5, 3});
        if (request.netFn == 0x34 && request.command == 0x08) return Reply::answer({0xFF, 0, 0, 0});
        return Reply::failure(0xC1);
    });
    ipmi::_GET_DEVICE_ID id{};
    EXPECT_TRUE(ipmi::GetDeviceIdInfo(id));
    EXPECT_EQ(id.deviceId, 0x20);
    EXPECT_EQ(id.productId, 0x1234);
    EXPECT_EQ(id.auxiliaryFirmwareRevision[3], 0);
    ipmi::_GET_BMC_CAPABILITIES capabilities{};
    EXPECT_TRUE(ipmi::GetCapabilities(capabilities));
    EXPECT_EQ(capabilities.recommendedRetries, 3);
    EXPECT_TRUE(ipmi::GetPartitionId(0));
    device.setHandler([](const IpmiRequest&) { return Reply::answer({1}); });
    EXPECT_TRUE(ipmi::GetPartitionId(0)) << "the first byte alone decides";
    device.setHandler([](const IpmiRequest&) { return Reply::answer({0xFE, 1, 1}); });
    EXPECT_FALSE(ipmi::GetDeviceIdInfo(id));
    EXPECT_FALSE(ipmi::GetCapabilities(capabilities));
    EXPECT_FALSE(ipmi::GetPartitionId(0));
    device.setHandler([](const IpmiRequest& request) { return Reply::answer({request.lun}); });
    unsigned char none = 0;
    unsigned char size = 1;
    unsigned char lun = 0;
    EXPECT_TRUE(ipmi::IPMIUtils().execute(0x06, 0x01, 2, nullptr, none, &lun, size));
    EXPECT_EQ(lun, 2);
}

}  // namespace
