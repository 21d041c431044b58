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

Outcome tavctl(const std::string& arguments) {
    std::FILE* const pipe = ::popen((TAVCTL " 2>&1 " + arguments).c_str(), "r");
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

}  // namespace
