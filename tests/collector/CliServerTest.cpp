#include <chrono>
#include <cstring>
#include <filesystem>
#include <optional>
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
using testing::SizeIs;
using Clock = std::chrono::steady_clock;

constexpr std::uint16_t forward = 0;

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

    /// What a client of that number is answered; none when it is not in five seconds.
    static std::optional<int> ask(const CliRequest& request) {
        const std::string path = tav::responsePipeOf(request.clientPID);
        ::mkfifo(path.c_str(), 0600);
        const FileDescriptor reader(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
        put(request);
        _TAV_MESSAGE_PACKET answer{};
        const auto end = Clock::now() + 5s;
        const int result = tavReadPipe(path.c_str(), &answer, [end] { return Clock::now() < end; });
        std::filesystem::remove(path);
        return result == 0 ? tav::parseCliResponse(answer) : std::nullopt;
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
        EXPECT_EQ(ask(TAV_TEST_EVENT_REQUEST, payload), 0) << payload;
    EXPECT_EQ(testing::internal::GetCapturedStdout().find("Invalid eventId."), 0U);
    EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(CliServer, ForwardsAnEventWithItsOwnSource) {
    EXPECT_EQ(ask(forward, R"({"ID":1,"EventTime":"x","Source":"me"})"), 0);
    ASSERT_THAT(sent(), SizeIs(1));
    EXPECT_EQ(sent()[0], parseJson(R"({"ID":1,"EventTime":"x","Source":"TAV-CLI"})"));
    EXPECT_EQ(ask(259, R"({"ID":2,"EventTime":"x"})"), 0) << "any other code";
    rmc_.intercept([](const tav::sim::IpmiRequest&) { return tav::sim::Reply::failure(0xC1); });
    EXPECT_EQ(ask(forward, R"({"ID":3,"EventTime":"x"})"), 1);
    rmc_.intercept({});
    EXPECT_EQ(ask(TAV_TEST_EVENT_REQUEST, "999"), 0) << "the failure before is forgotten";
}

TEST_F(CliServer, ForwardsNothingThatIsNoEvent) {
    const std::string deep = std::string(2000, '[') + std::string(2000, ']');
    for (const std::string& payload :
         {std::string(), std::string("{"), std::string("[1,2]"), std::string("7"),
          std::string("\"text\""), std::string("null"), std::string(R"({"ID":1})"),
          std::string("\xff\xfe"), deep, "{\"a\":" + deep.substr(0, 4000)}) {
        EXPECT_EQ(ask(forward, payload), 1) << payload.substr(0, 20);
    }
    EXPECT_THAT(sent(), IsEmpty());
    EXPECT_THAT(logs(), HasSubstr("Json packets are invalid"));
}

TEST_F(CliServer, PassesOverWhatIsNoPacketAndGoesOn) {
    for (const std::size_t size : {1U, 16U, 17U, 4095U}) {
        put(std::string(size, '\x02'));
        std::this_thread::sleep_for(5ms);
        EXPECT_EQ(ask(TAV_TEST_EVENT_REQUEST, "999"), 0) << size;
    }
    put(std::string(TAV_PACKET_SIZE, '\xff'));  // from client -1, without a NUL
    EXPECT_EQ(ask(TAV_TEST_EVENT_REQUEST, "999"), 0);
    EXPECT_THAT(logs(), HasSubstr("Ignoring a request of 4095 bytes; requests have 4096."));
    EXPECT_THAT(logs(), HasSubstr("There is no client -1 to answer to."));
}

TEST_F(CliServer, WritesToNothingButAPipe) {
    const pid_t own = ::getpid();
    const std::string path = tav::responsePipeOf(own);
    writeFile(path, "precious");
    put({TAV_TEST_EVENT_REQUEST, own, "999"});
    put({TAV_TEST_EVENT_REQUEST, 0x7FFFFFFF, "999"});
    put({TAV_TEST_EVENT_REQUEST, 1, "999"});
    EXPECT_EQ(ask({TAV_TEST_EVENT_REQUEST, own + 1, "999"}), 0) << "it goes on";
    EXPECT_EQ(tav::test::readFile(path), "precious");
    std::filesystem::remove(path);
    writeFile("/tmp/target", "precious");
    std::filesystem::create_symlink("/tmp/target", path);
    put({TAV_TEST_EVENT_REQUEST, own, "999"});
    EXPECT_EQ(ask({TAV_TEST_EVENT_REQUEST, own + 1, "999"}), 0);
    EXPECT_EQ(tav::test::readFile("/tmp/target"), "precious");
    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    put({TAV_TEST_EVENT_REQUEST, own, "999"});
    EXPECT_EQ(ask({TAV_TEST_EVENT_REQUEST, own + 1, "999"}), 0);
}

TEST_F(CliServer, DoesNotWaitForAClientThatHasDied) {
    const pid_t client = ::fork();
    if (client == 0) ::_exit(0);
    ::waitpid(client, nullptr, 0);
    ::mkfifo(tav::responsePipeOf(client).c_str(), 0600);
    clockSpeed = 1;
    put({TAV_TEST_EVENT_REQUEST, client, "999"});
    const auto before = Clock::now();
    EXPECT_EQ(ask(TAV_TEST_EVENT_REQUEST, "999"), 0);
    EXPECT_LT(Clock::now() - before, 1s);
}

TEST_F(CliServer, GivesUpAClientThatNeverListens) {
    ::mkfifo(tav::responsePipeOf(::getpid()).c_str(), 0600);
    put({TAV_TEST_EVENT_REQUEST, ::getpid(), "999"});
    EXPECT_EQ(ask({TAV_TEST_EVENT_REQUEST, ::getppid(), "999"}), 0) << "after ten fast seconds";
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

TEST(CliServerAlone, EndsWhenThePipeIsNone) {
    logEverything();
    writeFile(tavRequestPipe, "a file");
    TAVServer::initializeTAVServer();
    while (logs().find("Open of pipe /var/run/orntav failed.") == std::string::npos)
        std::this_thread::sleep_for(1ms);
    TAVServer::stopTAVServer();
    EXPECT_EQ(tav::test::readFile(tavRequestPipe), "a file");
}

TEST(CliPackets, EveryPayloadComesWhole) {
    std::vector<std::byte> bytes(TAV_PACKET_SIZE, std::byte{'x'});
    const auto full = tav::parseCliRequest(bytes);
    ASSERT_TRUE(full);
    EXPECT_EQ(full->payload, std::string(TAV_PAYLOAD_SIZE, 'x'));
    bytes.push_back(std::byte{0});
    EXPECT_FALSE(tav::parseCliRequest(bytes));
    EXPECT_FALSE(tav::parseCliRequest({}));
    const _TAV_MESSAGE_PACKET packet = tav::makeCliRequest({0x0102, 0x01020304, "ab"});
    const auto* const raw = reinterpret_cast<const unsigned char*>(&packet);
    EXPECT_THAT(std::vector<unsigned char>(raw, raw + 20),
                ElementsAre(0, 0, 0, 2, 1, 2, 0, 0, 0, 4, 3, 2, 1, 0, 0, 0, 0, 'a', 'b', 0));
    const _TAV_MESSAGE_PACKET response = tav::makeCliResponse(1);
    const auto* const answer = reinterpret_cast<const unsigned char*>(&response);
    EXPECT_EQ(answer[0], 9);
    EXPECT_EQ(answer[5], 8);
    EXPECT_EQ(answer[17], 1);
    EXPECT_FALSE(tav::parseCliResponse(packet));
}

}  // namespace
