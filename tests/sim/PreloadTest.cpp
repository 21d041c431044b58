/// A program that knows nothing of the simulation, the preloaded device and the controller process.
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace {

using testing::EndsWith;
using testing::HasSubstr;

std::string outputOf(const std::string& command) {
    std::string output;
    FILE* const pipe = ::popen(command.c_str(), "r");
    std::array<char, 256> piece{};
    while (std::fgets(piece.data(), piece.size(), pipe) != nullptr)
        output += piece.data();
    const int status = ::pclose(pipe);
    return output + "status " + std::to_string(WEXITSTATUS(status));
}

std::string preloaded(const std::string& arguments) {
    return outputOf("TAV_SIM_RMC=/run/sim/rmc LD_PRELOAD=" TAV_PRELOAD " " TAV_SEND_COMMAND " " +
                    arguments + " 2>&1");
}

TEST(Preload, CarriesCommandsToTheControllerAndGivesUpLikeTheDriver) {
    EXPECT_THAT(preloaded("--door-bell"), EndsWith("status 1"))
        << "without a controller, no device";
    std::string controller;
    std::thread running([&controller] {
        controller = outputOf(TAV_RMC
                              " --socket /run/sim/rmc --record /run/sim/record --timeout 50"
                              " --inject lost,command=MPEventGen --inject doorbell=ding"
                              " --until WriteInventory 2>&1");
    });
    struct stat status {};
    while (::stat("/run/sim/rmc", &status) != 0)
        std::this_thread::yield();

    EXPECT_EQ(preloaded("--door-bell"), "0064696E67\nstatus 0");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(preloaded("MPEventGen '{\"ID\":356}'"), "C3\nstatus 0");
    EXPECT_NEAR(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 4,
                1);
    EXPECT_THAT(preloaded("MPEventGen '{\"ID\":' 2"), HasSubstr("\nstatus 0"));
    EXPECT_THAT(preloaded("WriteInventory '{\"HostDataCollection\":{\"Drives\":[1,2,3]}}'"),
                EndsWith("00\nstatus 0"));
    running.join();
    EXPECT_THAT(controller, EndsWith("status 1")) << "two payloads were no JSON";
    EXPECT_THAT(controller, HasSubstr("3 drives"));

    std::ostringstream record;
    record << std::ifstream("/run/sim/record").rdbuf();
    EXPECT_THAT(record.str(),
                HasSubstr(R"({"command":"MPEventGen","frames":1,"payload":"{\"ID\":356}"})"));
    EXPECT_THAT(record.str(), HasSubstr(R"({"violation":")"));
}

}  // namespace
