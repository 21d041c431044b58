/// A program that knows nothing of the simulation, the preloaded device and the controller process.
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
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
    EXPECT_THAT(
        record.str(),
        HasSubstr(
            R"({"command":"MPEventGen","frames":1,"meaning":"the operating system has booted",)"
            R"("payload":"{\"ID\":356}","time":)"));
    EXPECT_THAT(record.str(), HasSubstr(R"("unanswered":true)")) << "the answer was lost";
    EXPECT_THAT(record.str(), HasSubstr(R"({"struck":"lost,command=MPEventGen","time":)"));
    EXPECT_THAT(record.str(), HasSubstr(R"("violation":")"));
}

TEST(Preload, LetsTheClockBeSet) {
    const auto seconds = [] { return std::stoll(outputOf("LD_PRELOAD=" TAV_PRELOAD " date +%s")); };
    const long long before = seconds();
    const std::int64_t back = -7200;
    std::ofstream("/run/sim/clock", std::ios::binary)
        .write(reinterpret_cast<const char*>(&back), sizeof back);
    EXPECT_NEAR(static_cast<double>(seconds() - before), -7200, 60);
}

TEST(Preload, ServesTheDisksThatHaveFacts) {
    const auto ask = [](const std::string& command) {
        return outputOf("LD_PRELOAD=" TAV_PRELOAD " " TAV_SEND_SCSI_COMMAND " /dev/sg5 " + command +
                        " 2>&1");
    };
    const std::string serialNumber = "12 01 80 00 FC 00";
    EXPECT_EQ(ask(serialNumber), "error 2\nstatus 1");
    std::filesystem::create_directories("/run/sim/disks");
    std::ofstream("/run/sim/disks/sg5") << "protocol=SAS\nserial=S47\n";
    EXPECT_EQ(ask(serialNumber), "00800003533437\nstatus 0");
    EXPECT_EQ(ask("12 01 80 00 05 00"), "0080000353\nstatus 0") << "cut to the allocation length";
    EXPECT_EQ(ask("12 01 C0 00 FC 00"), "sense 700005000000000A00000000240000000000\nstatus 0");
    EXPECT_EQ(ask("F0 00 00 00 00 00"), "sense 700005000000000A00000000200000000000\nstatus 0");
}

}  // namespace
