#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/wait.h>

namespace {

struct Outcome {
    int status;
    std::string output;
};

/// For use between single quotes.
std::string quoted(const std::string& text) {
    std::string result;
    for (const char c : text)
        result += c == '\'' ? "'\\''" : std::string(1, c);
    return result;
}

Outcome tavctl(const std::string& arguments) {
    const std::string command = "exec 2>&1; " TAVCTL " " + arguments;
    std::FILE* const pipe = ::popen(("bash -c '" + quoted(command) + '\'').c_str(), "r");
    Outcome outcome{-1, {}};
    std::array<char, 4096> chunk;
    while (const std::size_t size = std::fread(chunk.data(), 1, chunk.size(), pipe)) {
        outcome.output.append(chunk.data(), size);
    }
    outcome.status = WEXITSTATUS(::pclose(pipe));
    return outcome;
}

TEST(Tavctl, TellsWhereACodeLeadsTo) {
    const Outcome slot = tavctl("location 0003000106010005");
    EXPECT_EQ(slot.status, 0);
    EXPECT_EQ(slot.output,
              "long     rack1/chassis_u6/cpu0/pcie_slot3\n"
              "numeric  1/6/0/3\n"
              "prefix   pcie_slot-1/6/0/3\n"
              "short    r001i06s03\n");
    const Outcome drive = tavctl("location ff00020106ffff86");
    EXPECT_EQ(drive.status, 0);
    EXPECT_NE(drive.output.find("drive_slot2\n"), std::string::npos) << drive.output;
    EXPECT_NE(drive.output.find("short    none\n"), std::string::npos) << drive.output;
}

TEST(Tavctl, RefusesWithAReasonAndAStatus) {
    struct Case {
        const char* arguments;
        int status;
        const char* reason;
    };
    const std::vector<Case> cases{
        {"", 2, "Usage: tavctl COMMAND"},
        {"locate", 2, "no command 'locate'"},
        {"location", 2, "exactly one CODE"},
        {"location 0003000106010005 0003000106010005", 2, "exactly one CODE"},
        {"location ''", 2, "is not a location code"},
        {"location 000300010601000", 2, "is not a location code"},
        {"location 00030001060100050", 2, "is not a location code"},
        {"location 0x03000106010005", 2, "is not a location code"},
        {"location -003000106010005", 2, "is not a location code"},
        {"location ' 003000106010005'", 2, "is not a location code"},
        {"location 000300010601000G", 2, "is not a location code"},
        {"location FFFFFFFFFFFFFFFF", 1, "not known"},
        {"location FFFFFFFFFFFFFF00", 1, "cannot be expressed"},
        {"location 0011000106010005", 1, "no component has this one"},
        {"location 0003000106010005 >/dev/full", 1, "cannot write"},
    };
    for (const Case& given : cases) {
        const Outcome outcome = tavctl(given.arguments);
        EXPECT_EQ(outcome.status, given.status) << given.arguments;
        EXPECT_NE(outcome.output.find(given.reason), std::string::npos) << outcome.output;
    }
}

TEST(Tavctl, ExplainsItself) {
    for (const char* const arguments : {"--help", "--version", "location --help"}) {
        const Outcome outcome = tavctl(arguments);
        EXPECT_EQ(outcome.status, 0) << arguments;
        EXPECT_NE(outcome.output.find("tavctl"), std::string::npos);
    }
    EXPECT_NE(tavctl("location --help").output.find("r001i06s03"), std::string::npos);
}

TEST(Tavctl, NeverWaitsForAServiceThatDoesNotRun) {
    struct Case {
        const char* arguments;
        int status;
        const char* reason;
    };
    const std::vector<Case> cases{
        {"event 708", 3, "tavd does not run"},
        {"event 999", 2, "is no ID of a test event"},
        {"event 708x", 2, "is no ID of a test event"},
        {"event 538 --location x", 2, "is not a location code"},
        {"event 538 --place FFFFFFFFFFFFFFFF", 2, "exactly one ID"},
        {"event", 2, "exactly one ID"},
        {"send - </dev/null", 2, "is no JSON"},
        {"send - <<<'{\"ID\":1}'", 3, "tavd does not run"},
        {"send /none", 1, "cannot read /none"},
        {"send /dev/zero", 2, "longer than"},
        {"status", 3, "does not run"},
        {"status now", 2, "nothing to be added"},
    };
    for (const Case& each : cases) {
        const Outcome outcome = tavctl(each.arguments);
        EXPECT_EQ(outcome.status, each.status) << each.arguments;
        EXPECT_NE(outcome.output.find(each.reason), std::string::npos)
            << each.arguments << ": " << outcome.output;
    }
}

/// What stands for the service holds the request pipe open for a second, and answers nothing.
constexpr const char* silentService =
    "--version; mkfifo /run/orntav; sleep 1 <>/run/orntav >/dev/null & sleep 0.2; ";

TEST(Tavctl, NoticesAServiceThatEndsWithoutAnAnswer) {
    const Outcome outcome =
        tavctl(silentService + std::string(TAVCTL " event 708; echo $?; ls /run"));
    EXPECT_NE(outcome.output.find("has ended without an answer\n4\n"), std::string::npos)
        << outcome.output;
    EXPECT_EQ(outcome.output.find("orntavcli"), std::string::npos) << "it leaves no pipe";
}

TEST(Tavctl, RemovesItsPipeWhenItIsInterrupted) {
    const Outcome outcome = tavctl(
        silentService + std::string("timeout -s INT 0.3 " TAVCTL " event 708; echo $?; ls /run"));
    EXPECT_NE(outcome.output.find("has not answered\n"), std::string::npos) << outcome.output;
    EXPECT_EQ(outcome.output.find("orntavcli"), std::string::npos) << outcome.output;
}

}  // namespace
