#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "base/FileDescriptor.h"
#include "collector/tavServer.h"
#include "rmc/tavMsgInfra.h"
#include "tests/support/Rmc.h"
#include "tests/support/Service.h"

namespace {

using namespace std::chrono_literals;
using tav::CliRequest;
using tav::FileDescriptor;
using tav::test::clockSpeed;
using tav::test::logEverything;
using tav::test::logs;
using tav::test::openDescriptors;
using tav::test::parseJson;
using tav::test::Rmc;
using tav::test::writeFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using Clock = std::chrono::steady_clock;

constexpr std::uint16_t forward = 0;

/// A client that listens to its pipe for as long as the object lives.
class Client {
 public:
    explicit Client(std::int32_t number) : path_(tav::responsePipeOf(number)) {
        ::mkfifo(path_.c_str(), 0600);
        reader_.reset(::open(path_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client() { std::filesystem::remove(path_); }

 private:
    std::string path_;
    FileDescriptor reader_;
};

/// The server beside a controller, after the first inventory has been sent.
class CliServer : public testing::Test {
 protected:
    void SetUp() override {
        logEverything(R"("EnableResources": ["HostOSInfo"])");
        tav::test::writeHostCommands();
        service_.emplace(500);
        ASSERT_TRUE(rmc_.waitForCommands(2));
        start();
    }
    void TearDown() override { stopWithinASecond(); }

    static void start() {
        TAVServer::initializeTAVServer();
        while (!std::filesystem::exists(tavRequestPipe))
            std::this_thread::sleep_for(1ms);
        std::this_thread::sleep_for(5ms);
    }

    void stopWithinASecond() {
        if (stopped_) return;
        stopped_ = true;
        const auto before = Clock::now();
        TAVServer::stopTAVServer();
        EXPECT_LT(Clock::now() - before, 1s);
    }

    /// Leaves bytes on the request pipe.
    static void put(const std::string& bytes) {
        const FileDescriptor pipe(::open(tavRequestPipe, O_WRONLY | O_NONBLOCK | O_CLOEXEC));
        ASSERT_EQ(::write(pipe.get(), bytes.data(), bytes.size()),
                  static_cast<ssize_t>(bytes.size()));
    }
    static void put(const CliRequest& request) {
        const _TAV_MESSAGE_PACKET packet = tav::makeCliRequest(request);
        put(std::string(reinterpret_cast<const char*>(&packet), sizeof packet));
    }

    /// The answer that stands for "none in five seconds".
    static constexpr tav::CliReason noAnswer{-1};

    static tav::CliReason answerTo(std::int32_t client) {
        _TAV_MESSAGE_PACKET answer{};
        const auto end = Clock::now() + 5s;
        const std::string path = tav::responsePipeOf(client);
        if (tavReadPipe(path.c_str(), &answer, [end] { return Clock::now() < end; }) != 0) {
            return noAnswer;
        }
        const bool isRefused = tav::reasonOf(answer) != tav::CliReason::None;
        EXPECT_EQ(tav::parseCliResponse(answer), isRefused ? 1 : 0);
        return tav::reasonOf(answer);
    }

    /// Why a client of that number is refused.
    static tav::CliReason reasonFor(const CliRequest& request) {
        const Client client(request.clientPID);
        put(request);
        return answerTo(request.clientPID);
    }
    static tav::CliReason reasonFor(std::uint16_t code, const std::string& payload) {
        return reasonFor({code, ::getpid(), payload});
    }

    /// The code that a client of that number is answered; none when it is not.
    static std::optional<int> ask(const CliRequest& request) {
        const tav::CliReason reason = reasonFor(request);
        if (reason == noAnswer) return std::nullopt;
        return reason == tav::CliReason::None ? 0 : 1;
    }
    static std::optional<int> ask(std::uint16_t code, const std::string& payload) {
        return ask({code, ::getpid(), payload});
    }

    std::vector<Json::Value> sent() const {
        std::vector<Json::Value> events;
        for (const auto& command : rmc_.commands()) {
            const Json::Value event = parseJson(command.payload);
            if (command.name == "MPEventGen" && event["ID"].asInt() != 356) events.push_back(event);
        }
        return events;
    }

    Rmc rmc_;
    std::optional<tav::test::Service> service_;
    bool stopped_ = false;
};

TEST_F(CliServer, RaisesTheSystemsTestEvent) {
    EXPECT_EQ(ask(TAV_TEST_EVENT_REQUEST, "708"), 0);
    ASSERT_THAT(sent(), SizeIs(1));
    const Json::Value event = sent()[0];
    EXPECT_EQ(event["ID"].asInt(), 708);
    EXPECT_EQ(event["Source"].asString(), "TAV-CLI");
    EXPECT_EQ(event["VariableData"],
              parseJson(R"({"EnabledResourceType": ["HostOSInfo"], "Type": "Test Event",
                            "OperationalResourceType": ["HostOSInfo"],
                            "EventInfo": "TAV Test Event"})"));
}

TEST_F(CliServer, RoutesTestEventsToTheirManagers) {
    EXPECT_EQ(ask(TAV_TEST_EVENT_REQUEST, "680 0003000101010005"), 0);
    EXPECT_EQ(ask(TAV_TEST_EVENT_REQUEST, "678"), 0);
    EXPECT_EQ(ask(TAV_TEST_EVENT_REQUEST, "434"), 0);
    ASSERT_THAT(sent(), SizeIs(3));
    EXPECT_EQ(sent()[0]["PhysicalLocation"].asString(), "0003000101010005");
    EXPECT_EQ(sent()[1]["PhysicalLocation"].asString(), "FFFFFFFFFFFFFFFF");
    EXPECT_EQ(sent()[2]["ID"].asInt(), 434);
}

TEST_F(CliServer, AnswersEvenWhatNobodyRaises) {
    testing::internal::CaptureStdout();
    for (const char* payload : {"999", "384", "", "x", "-708", "99999999999999999999", " 708"})
        EXPECT_EQ(reasonFor(TAV_TEST_EVENT_REQUEST, payload), tav::CliReason::NoSuchEvent)
            << payload;
    EXPECT_EQ(testing::internal::GetCapturedStdout().find("Invalid eventId."), 0U);
    EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(CliServer, ForwardsAnEventWithItsOwnSource) {
    EXPECT_EQ(ask(forward, R"({"ID":1,"EventTime":"x","Source":"me"})"), 0);
    ASSERT_THAT(sent(), SizeIs(1));
    EXPECT_EQ(sent()[0], parseJson(R"({"ID":1,"EventTime":"x","Source":"TAV-CLI"})"));
    EXPECT_EQ(ask(259, R"({"ID":-20.5e+1,"EventTime":"// \" # /*"})"), 0) << "any other code";
    rmc_.intercept([](const tav::sim::IpmiRequest&) { return tav::sim::Reply::failure(0xC1); });
    EXPECT_EQ(reasonFor(forward, R"({"ID":3,"EventTime":"x"})"), tav::CliReason::NotDelivered);
    EXPECT_EQ(reasonFor(TAV_TEST_EVENT_REQUEST, "434"), tav::CliReason::NotDelivered);
    rmc_.intercept({});
    EXPECT_EQ(ask(TAV_TEST_EVENT_REQUEST, "434"), 0) << "the failures before are forgotten";
    EXPECT_THAT(logs(), Not(HasSubstr("has not taken its answer.")));
}

TEST_F(CliServer, ForwardsOneLineOfWellFormedTextAndLosesNothing) {
    EXPECT_EQ(ask(forward, "{\n \"ID\": 1,\n \"T\xfeT\": \"a\xff\xe4z\\u0000\\ndone\"}\n"), 0);
    ASSERT_THAT(sent(), SizeIs(1));
    EXPECT_EQ(sent()[0]["T\xEF\xBF\xBDT"].asString(),
              std::string("a\xEF\xBF\xBD\xEF\xBF\xBDz\0\ndone", 14));
    const std::string payload = rmc_.commands().back().payload;
    for (const char c : payload)
        EXPECT_TRUE(c >= ' ' && c <= '~') << payload;
}

TEST_F(CliServer, ForwardsNothingThatIsNoEvent) {
    const std::string deep = std::string(2000, '[') + std::string(2000, ']');
    for (const std::string& payload : {std::string(),
                                       std::string("{"),
                                       std::string("[1,2]"),
                                       std::string("7"),
                                       std::string("\"text\""),
                                       std::string("null"),
                                       std::string(R"({"ID":1})"),
                                       std::string("\xff\xfe"),
                                       deep,
                                       "{\"a\":" + deep.substr(0, 4000),
                                       std::string(R"({"ID":1,"a":2} // x)"),
                                       std::string(R"({"ID":1,/**/"a":2})"),
                                       std::string(R"(#x
{"ID":1,"a":2})"),
                                       std::string(R"({"ID":1,"a":2}{"ID":2,"a":2})"),
                                       std::string(R"({"ID":1,"a":2}])"),
                                       std::string(R"({"ID":1,"a":2,})"),
                                       std::string(R"({"ID":1,"ID":2,"a":3})"),
                                       std::string(R"({'ID':1,"a":2})"),
                                       std::string(R"({"ID":NaN,"a":2})"),
                                       std::string(R"({"ID":01,"a":2})"),
                                       std::string(R"({"ID":1.,"a":2})"),
                                       std::string(R"({"ID":1,"a":.5})"),
                                       std::string(R"({"ID":1,"a":+5})"),
                                       std::string(R"({"ID":1,"a":1e})"),
                                       std::string("{\"ID\":1,\"a\":\"\n\"}")}) {
        EXPECT_EQ(reasonFor(forward, payload), tav::CliReason::NoEvent) << payload.substr(0, 20);
    }
    EXPECT_THAT(sent(), IsEmpty());
    EXPECT_THAT(logs(), HasSubstr("Json packets are invalid"));
}

TEST_F(CliServer, PassesOverWhatIsNoPacketAndGoesOn) {
    for (const std::size_t size : {1U, 16U, 17U, 4095U}) {
        put(std::string(size, '\x02'));
        std::this_thread::sleep_for(5ms);
        EXPECT_EQ(ask(TAV_TEST_EVENT_REQUEST, "434"), 0) << size;
    }
    put(std::string(TAV_PACKET_SIZE, '\xff'));  // from client -1, without a NUL
    EXPECT_EQ(ask(TAV_TEST_EVENT_REQUEST, "434"), 0);
    EXPECT_THAT(logs(), HasSubstr("Ignoring a request of 4095 bytes; requests have 4096."));
    EXPECT_THAT(logs(), HasSubstr("There is no client -1 to answer to."));
}

TEST_F(CliServer, WhatIsNoPacketCostsNothingThatWaitsBehindIt) {
    std::atomic<bool> isBusy{false};
    rmc_.intercept([&](const tav::sim::IpmiRequest&) -> std::optional<tav::sim::Reply> {
        if (!isBusy.exchange(true)) std::this_thread::sleep_for(300ms);
        return std::nullopt;
    });
    const Client first(1001);
    const Client second(1002);
    const Client third(1003);
    put({TAV_TEST_EVENT_REQUEST, 1001, "434"});
    while (!isBusy)
        std::this_thread::sleep_for(1ms);
    put(std::string(17, '\0'));
    put(std::string(100, 'x'));
    put({TAV_TEST_EVENT_REQUEST, 1002, "435"});
    put(std::string(4000, '\0'));
    put({TAV_TEST_EVENT_REQUEST, 1003, "999"});
    put(std::string(5, '\0'));
    EXPECT_EQ(answerTo(1001), tav::CliReason::None);
    EXPECT_EQ(answerTo(1002), tav::CliReason::None);
    EXPECT_EQ(answerTo(1003), tav::CliReason::NoSuchEvent);
    EXPECT_EQ(ask(TAV_TEST_EVENT_REQUEST, "434"), 0);
}

TEST_F(CliServer, AHundredClientsAtOnceGetTheirOwnAnswers) {
    constexpr std::int32_t firstClient = 2000;
    constexpr int clients = 100;
    std::vector<std::unique_ptr<Client>> listening;
    for (int i = 0; i < clients; ++i)
        listening.push_back(std::make_unique<Client>(firstClient + i));
    ::mkfifo(tav::responsePipeOf(::getppid()).c_str(), 0600);  // never listens
    clockSpeed = 1;
    std::vector<std::thread> threads;
    for (int i = 0; i < clients; ++i) {
        threads.emplace_back([i] {
            const FileDescriptor pipe(::open(tavRequestPipe, O_WRONLY | O_CLOEXEC));
            const std::string fragment(static_cast<std::size_t>(i) + 1, '\x01');
            const auto deaf = tav::makeCliRequest({TAV_TEST_EVENT_REQUEST, ::getppid(), "999"});
            if (i % 5 == 0) (void)!::write(pipe.get(), fragment.data(), fragment.size());
            if (i % 20 == 0) (void)!::write(pipe.get(), &deaf, sizeof deaf);
            const auto request = tav::makeCliRequest(
                i % 2 == 0 ? CliRequest{TAV_TEST_EVENT_REQUEST, firstClient + i, "999"}
                           : CliRequest{forward, firstClient + i, "{}"});
            EXPECT_EQ(::write(pipe.get(), &request, sizeof request), 4096);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (int i = 0; i < clients; ++i) {
        EXPECT_EQ(answerTo(firstClient + i),
                  i % 2 == 0 ? tav::CliReason::NoSuchEvent : tav::CliReason::NoEvent)
            << i;
    }
}

TEST_F(CliServer, AClientMayListenLateAndHoldsUpNobody) {
    clockSpeed = 1;
    const std::string path = tav::responsePipeOf(::getpid());
    ::mkfifo(path.c_str(), 0600);
    put({TAV_TEST_EVENT_REQUEST, ::getpid(), "434"});
    EXPECT_EQ(ask({TAV_TEST_EVENT_REQUEST, ::getppid(), "999"}), 1);
    EXPECT_EQ(answerTo(::getpid()), tav::CliReason::None);
}

TEST_F(CliServer, MakesItsPipeAnewWhateverHasBecomeOfIt) {
    const auto isAPipeAgain = [] {
        for (int i = 0; i < 5000 && !std::filesystem::is_fifo(tavRequestPipe); ++i)
            std::this_thread::sleep_for(1ms);
        return std::filesystem::is_fifo(tavRequestPipe);
    };
    const auto mode = [] {
        return static_cast<unsigned>(std::filesystem::status(tavRequestPipe).permissions());
    };
    ::umask(0077);
    std::filesystem::remove(tavRequestPipe);
    ASSERT_TRUE(isAPipeAgain());
    EXPECT_EQ(ask(TAV_TEST_EVENT_REQUEST, "434"), 0);
    std::filesystem::remove(tavRequestPipe);
    writeFile(tavRequestPipe, "precious");
    ASSERT_TRUE(isAPipeAgain());
    EXPECT_EQ(ask(TAV_TEST_EVENT_REQUEST, "434"), 0);
    EXPECT_EQ(tav::test::readFile("/var/run/orntav.not-a-pipe"), "precious");
    std::filesystem::remove(tavRequestPipe);
    std::filesystem::create_directory(tavRequestPipe);
    ASSERT_TRUE(isAPipeAgain()) << "also where something has been moved away before";
    EXPECT_EQ(tav::test::readFile("/var/run/orntav.not-a-pipe"), "precious");
    EXPECT_TRUE(std::filesystem::is_directory("/var/run/orntav.not-a-pipe-2"));
    std::filesystem::rename(tavRequestPipe, "/var/run/moved");
    ASSERT_EQ(::mkfifo(tavRequestPipe, 0600), 0);
    std::this_thread::sleep_for(100ms);  // more than ten fast seconds
    EXPECT_EQ(ask(TAV_TEST_EVENT_REQUEST, "434"), 0);
    EXPECT_FALSE(std::filesystem::exists("/var/run/orntav.not-a-pipe-3")) << "this is one";
    std::filesystem::remove(tavRequestPipe);
    ASSERT_EQ(::mkfifo(tavRequestPipe, 0600), 0);
    ASSERT_EQ(::chmod(tavRequestPipe, 0644), 0);
    for (int i = 0; i < 5000 && mode() != 0600U; ++i)
        std::this_thread::sleep_for(1ms);
    EXPECT_EQ(mode(), 0600U) << "who may read it would take requests away";
    EXPECT_EQ(ask(TAV_TEST_EVENT_REQUEST, "434"), 0);
}

TEST_F(CliServer, MakesItsPipeAnewWhoeverWritesIntoTheOldOne) {
    const tav::FileDescriptor old = tav::openPipe(tavRequestPipe, O_RDWR);
    std::filesystem::remove(tavRequestPipe);
    const auto end = Clock::now() + 5s;
    while (!std::filesystem::exists(tavRequestPipe) && Clock::now() < end) {
        ASSERT_EQ(::write(old.get(), "x", 1), 1);
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_EQ(ask(TAV_TEST_EVENT_REQUEST, "434"), 0);
}

TEST_F(CliServer, MakesItsPipeAnewBetweenTwoRequests) {
    rmc_.intercept([](const auto&) {
        std::this_thread::sleep_for(20ms);  // ten fast seconds
        return std::optional<tav::sim::Reply>();
    });
    const Client client(::getpid());
    constexpr std::size_t waiting = 5;
    for (std::size_t i = 0; i < waiting; ++i)
        put({TAV_TEST_EVENT_REQUEST, ::getpid(), "434"});
    std::filesystem::remove(tavRequestPipe);
    while (!std::filesystem::exists(tavRequestPipe))
        std::this_thread::sleep_for(1ms);
    EXPECT_LT(sent().size(), waiting);
    while (sent().size() < waiting)
        std::this_thread::sleep_for(1ms);
}

TEST_F(CliServer, AnOperatorWhoDoesNotReadHoldsUpNobody) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_NONBLOCK), 0);
    while (::write(ends[1], "x", 1) == 1) {
    }
    ASSERT_EQ(::fcntl(ends[1], F_SETFL, 0), 0);
    const FileDescriptor output(::dup(STDOUT_FILENO));
    ::dup2(ends[1], STDOUT_FILENO);
    const auto answer = ask(TAV_TEST_EVENT_REQUEST, "999");
    ::close(ends[0]);
    ::dup2(output.get(), STDOUT_FILENO);
    EXPECT_EQ(answer, 1);
}

TEST_F(CliServer, AClientsTextForgesNoLogLine) {
    ask(forward, "{\n[ERROR] forged \x1b[2J\xc2\x9b");
    ask(TAV_TEST_EVENT_REQUEST, "708\n[ERROR] forged");
    EXPECT_THAT(logs(), Not(HasSubstr("\n[ERROR] forged")));
    EXPECT_THAT(logs(), Not(HasSubstr("\x1b")));
    EXPECT_THAT(logs(), HasSubstr("\\n[ERROR] forged \\x1B[2J\\xC2\\x9B"));
}

TEST_F(CliServer, StartsAgainAfterAStopAndNotTwice) {
    TAVServer::initializeTAVServer();
    EXPECT_THAT(logs(), HasSubstr("The TAV Server already runs; it is not started again."));
    for (int round = 0; round < 3; ++round) {
        TAVServer::stopTAVServer();
        EXPECT_FALSE(std::filesystem::exists(tavRequestPipe));
        start();
        EXPECT_EQ(ask(TAV_TEST_EVENT_REQUEST, "434"), 0) << round;
    }
}

TEST_F(CliServer, WritesToNothingButAPipe) {
    const pid_t own = ::getpid();
    const std::string path = tav::responsePipeOf(own);
    writeFile(path, "precious");
    put({TAV_TEST_EVENT_REQUEST, own, "999"});
    put({TAV_TEST_EVENT_REQUEST, 0x7FFFFFFF, "999"});
    put({TAV_TEST_EVENT_REQUEST, 1, "999"});
    EXPECT_EQ(ask({TAV_TEST_EVENT_REQUEST, own + 1, "434"}), 0) << "it goes on";
    EXPECT_EQ(tav::test::readFile(path), "precious");
    std::filesystem::remove(path);
    writeFile("/tmp/target", "precious");
    std::filesystem::create_symlink("/tmp/target", path);
    put({TAV_TEST_EVENT_REQUEST, own, "999"});
    EXPECT_EQ(ask({TAV_TEST_EVENT_REQUEST, own + 1, "434"}), 0);
    EXPECT_EQ(tav::test::readFile("/tmp/target"), "precious");
    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    put({TAV_TEST_EVENT_REQUEST, own, "999"});
    EXPECT_EQ(ask({TAV_TEST_EVENT_REQUEST, own + 1, "434"}), 0);
}

TEST_F(CliServer, DoesNotWaitForAClientThatHasDied) {
    const pid_t client = ::fork();
    if (client == 0) ::_exit(0);
    ::waitpid(client, nullptr, 0);
    ::mkfifo(tav::responsePipeOf(client).c_str(), 0600);
    clockSpeed = 1;
    put({TAV_TEST_EVENT_REQUEST, client, "999"});
    const auto before = Clock::now();
    EXPECT_EQ(ask(TAV_TEST_EVENT_REQUEST, "999"), 1);
    EXPECT_LT(Clock::now() - before, 1s);
    EXPECT_THAT(logs(), HasSubstr("Client " + std::to_string(client) + " has not taken its"));
}

TEST_F(CliServer, GivesUpAClientThatNeverListens) {
    ::mkfifo(tav::responsePipeOf(::getpid()).c_str(), 0600);
    put({TAV_TEST_EVENT_REQUEST, ::getpid(), "999"});
    for (int i = 0; i < 5000 && logs().find("has not taken its answer.") == std::string::npos; ++i)
        std::this_thread::sleep_for(1ms);  // ten fast seconds
    EXPECT_THAT(logs(), HasSubstr("has not taken its answer."));
}

TEST_F(CliServer, AStopEndsTheWaitForAClient) {
    clockSpeed = 1;
    ::mkfifo(tav::responsePipeOf(::getpid()).c_str(), 0600);
    put({TAV_TEST_EVENT_REQUEST, ::getpid(), "999"});
    std::this_thread::sleep_for(50ms);
    stopWithinASecond();
    EXPECT_FALSE(std::filesystem::exists(tavRequestPipe));
}

TEST_F(CliServer, AStopEndsTheWaitForASilentController) {
    rmc_.intercept([](const tav::sim::IpmiRequest&) { return tav::sim::Reply::never(); });
    put({forward, ::getpid(), R"({"ID":1,"EventTime":"x"})"});
    std::this_thread::sleep_for(20ms);
    stopWithinASecond();
}

TEST_F(CliServer, LeavesAnotherOnesPipeAlone) {
    clockSpeed = 1;
    std::filesystem::rename(tavRequestPipe, "/var/run/moved");
    ASSERT_EQ(::mkfifo(tavRequestPipe, 0600), 0);
    stopWithinASecond();
    EXPECT_TRUE(std::filesystem::exists(tavRequestPipe));
}

TEST(CliServerAlone, StopsBeforeItHasStartedAndLeaksNothing) {
    logEverything();
    const std::size_t before = openDescriptors();
    TAVServer::initializeTAVServer();
    TAVServer::stopTAVServer();
    EXPECT_LE(openDescriptors(), before + 4) << "the logs and the stop signal";
    EXPECT_FALSE(std::filesystem::exists(tavRequestPipe));
}

TEST(CliServerAlone, TellsThatAnEventWasDropped) {
    logEverything();
    TAVServer::initializeTAVServer();
    while (!std::filesystem::exists(tavRequestPipe))
        std::this_thread::sleep_for(1ms);
    const Client client(::getpid());
    const auto request = tav::makeCliRequest({TAV_TEST_EVENT_REQUEST, ::getpid(), "680"});
    // NOLINTNEXTLINE: the two-argument forms take what clients of old pass
    char path[] = "/var/run/orntav";
    EXPECT_EQ(tavWritePipe(path, &request), 0);
    _TAV_MESSAGE_PACKET answer{};
    EXPECT_EQ(tavReadPipe(tav::responsePipeOf(::getpid()).c_str(), &answer), 0);
    EXPECT_EQ(tav::parseCliResponse(answer), 1);
    EXPECT_EQ(tav::reasonOf(answer), tav::CliReason::Dropped);
    TAVServer::stopTAVServer();
    EXPECT_EQ(tavWritePipe(path, &request), -1) << "nobody is there any more";
}

TEST(CliServerAlone, ServesWhateverStoodInThePipesPlace) {
    clockSpeed = 1000;
    logEverything();
    writeFile(tavRequestPipe, "precious");
    for (int i = 1; i <= 100; ++i)  // so that there is no place to put it
        writeFile("/var/run/orntav.not-a-pipe" + (i == 1 ? "" : '-' + std::to_string(i)), "");
    TAVServer::initializeTAVServer();
    while (logs().find("Open of pipe /var/run/orntav failed.") == std::string::npos)
        std::this_thread::sleep_for(1ms);
    EXPECT_EQ(tav::test::readFile(tavRequestPipe), "precious");
    std::filesystem::remove("/var/run/orntav.not-a-pipe-7");
    for (int i = 0; i < 5000 && !std::filesystem::is_fifo(tavRequestPipe); ++i)
        std::this_thread::sleep_for(1ms);
    EXPECT_EQ(tav::test::readFile("/var/run/orntav.not-a-pipe-7"), "precious");
    const Client client(::getpid());
    const auto request = tav::makeCliRequest({TAV_TEST_EVENT_REQUEST, ::getpid(), "999"});
    EXPECT_EQ(tavWritePipe(tavRequestPipe, &request), 0);
    _TAV_MESSAGE_PACKET answer{};
    EXPECT_EQ(tavReadPipe(tav::responsePipeOf(::getpid()).c_str(), &answer), 0);
    EXPECT_EQ(tav::reasonOf(answer), tav::CliReason::NoSuchEvent);
    TAVServer::stopTAVServer();
}

TEST(CliPackets, EveryPayloadComesWhole) {
    std::vector<std::byte> bytes(TAV_PACKET_SIZE, std::byte{'x'});
    const auto full = tav::parseCliRequest(bytes);
    ASSERT_TRUE(full);
    EXPECT_EQ(full->payload, std::string(TAV_PAYLOAD_SIZE, 'x'));
    bytes.push_back(std::byte{0});
    EXPECT_FALSE(tav::parseCliRequest(bytes));
    EXPECT_FALSE(tav::parseCliRequest({}));
    const std::string longest(4078, 'y');
    const _TAV_MESSAGE_PACKET wholePacket = tav::makeCliRequest({0, 1, longest});
    EXPECT_EQ(tav::parseCliRequest(std::as_bytes(std::span(&wholePacket, 1)))->payload, longest);
    const _TAV_MESSAGE_PACKET packet = tav::makeCliRequest({0x0102, 0x01020304, "ab"});
    const auto* const raw = reinterpret_cast<const unsigned char*>(&packet);
    EXPECT_THAT(std::vector<unsigned char>(raw, raw + 20),
                ElementsAre(0, 0, 0, 2, 1, 2, 0, 0, 0, 4, 3, 2, 1, 0, 0, 0, 0, 'a', 'b', 0));
    const _TAV_MESSAGE_PACKET response = tav::makeCliResponse(tav::CliReason::NoEvent);
    const auto* const answer = reinterpret_cast<const unsigned char*>(&response);
    EXPECT_EQ(answer[0], 9);
    EXPECT_EQ(answer[5], 8);
    EXPECT_EQ(answer[17], 1);
    EXPECT_EQ(answer[21], 4);
    EXPECT_FALSE(tav::parseCliResponse(packet));
}

}  // namespace
