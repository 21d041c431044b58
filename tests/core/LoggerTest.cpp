#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "core/Log.h"
#include "core/Logger.h"
#include "tests/support/Files.h"
#include "tests/support/SoftLimit.h"
#include "tests/support/SystemLog.h"

namespace {

namespace fs = std::filesystem;
using CPlusPlusLogging::createDirectoryPath;
using CPlusPlusLogging::createSymbolicLink;
using CPlusPlusLogging::Logger;
using tav::test::debugLog;
using tav::test::logEverything;
using tav::test::mainLog;
using tav::test::readFile;
using tav::test::writeConfiguration;
using tav::test::writeFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

std::string afterTime(const std::string& log) {
    return std::regex_replace(log, std::regex("(^|\n)[A-Z][a-z]{2} [0-9]+ [0-9:]{8} "), "$1");
}

void writeOneOfEach(Logger& logger) {
    logger.error("e", "JOB_MGR", 7);
    logger.warning("w", "JOB_MGR", 82);
    logger.info("i", "JOB_MGR", 123);
    logger.debug("d", "JOB_MGR", 4567);
    logger.always("a", "JOB_MGR", 1);
}

TEST(Logger, LinesInFiles) {
    logEverything();
    writeOneOfEach(*Logger::getInstance());
    EXPECT_THAT(readFile(mainLog),
                MatchesRegex("([A-Z][a-z]{2} [0-9]{1,2} [0-9:]{8} [^\n]+\n){4}"));
    EXPECT_EQ(afterTime(readFile(mainLog)),
              "[ERROR]   007 JOB_MGR: e\n"
              "[WARNING] 082 JOB_MGR: w\n"
              "[INFO]    123 JOB_MGR: i\n"
              "[INFO] 001 JOB_MGR: a\n");
    EXPECT_EQ(afterTime(readFile(debugLog)), "[DEBUG] 4567 JOB_MGR: d\n");
    EXPECT_EQ(fs::read_symlink("/opt/orn/tav/log/tav.log"), mainLog);
    EXPECT_EQ(fs::read_symlink("/opt/orn/tav/log/debug.log"), debugLog);
}

TEST(Logger, LevelsDecideWhatIsWrittenAndFormatted) {
    logEverything();
    Logger& logger = *Logger::getInstance();
    const struct {
        int level;
        const char* letters;
    } rows[] = {{2, "ewi"}, {3, "ew"}, {4, "e"}, {6, ""}, {7, ""}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.level);
        logger.updateLogLevel(static_cast<CPlusPlusLogging::LOG_LEVEL>(row.level));
        const std::size_t before = readFile(mainLog).size();
        writeOneOfEach(logger);
        const std::string written = readFile(mainLog).substr(before);
        std::string letters;
        for (const char letter : std::string("ewi")) {
            if (written.find(std::string(": ") + letter) != std::string::npos) letters += letter;
        }
        EXPECT_EQ(letters, row.letters);
        EXPECT_THAT(written, HasSubstr(": a\n"));
    }
    constexpr tav::ModuleLog module{"T"};
    logger.updateLogLevel(CPlusPlusLogging::LEVEL_INFO);
    module.info(tav::at(5), "%s|", std::string(10'000, 'x').c_str());
    const std::string log = readFile(mainLog);
    EXPECT_EQ(std::count(log.begin(), log.end(), 'x'), 4095);
}

TEST(Logger, AMessageIsOneLineWhateverItIsMadeOf) {
    const struct {
        std::string message;
        const char* written;
    } rows[] = {
        {"forged\nNov 1 00:00:00 [ERROR]", "forged\\nNov 1 00:00:00 [ERROR]\n"},
        {"back\r\b\t", "back\\r\\x08\\t\n"},
        {"\x1B[2J\x7F", "\\x1B[2J\\x7F\n"},
        {std::string("a\0b", 3), "a\\x00b\n"},
        {"\xC2\x9B"
         "2J",
         "\\xC2\\x9B2J\n"},
        {"\x9B"
         "2J \xC3",
         "\\x9B2J \\xC3\n"},
        {"\xE2\x80\xAE\xE2\x80\xA8\xE2\x81\xA6", "\\xE2\\x80\\xAE\\xE2\\x80\\xA8\\xE2\\x81\\xA6\n"},
        {"\xD8\x9C\xE2\x80\x8F\xEF\xBB\xBF\xF3\xA0\x81\x81",
         "\\xD8\\x9C\\xE2\\x80\\x8F\\xEF\\xBB\\xBF\\xF3\\xA0\\x81\\x81\n"},
        {"\xC2\xA0 \xC3\xA4 \xE2\x82\xAC \xE2\x80\xAF",
         "\xC2\xA0 \xC3\xA4 \xE2\x82\xAC \xE2\x80\xAF\n"},
        // The ends of each range of UTF-8, and what lies just beyond them.
        {"\xDF\xBF \xE0\xA0\x80 \xE1\x80\x80 \xEC\xBF\xBF \xED\x9F\xBF \xEE\x80\x80 "
         "\xF0\x90\x80\x80 \xF1\x80\x80\x80 \xF3\x80\x80\x80 \xF4\x8F\xBF\xBD",
         "\xDF\xBF \xE0\xA0\x80 \xE1\x80\x80 \xEC\xBF\xBF \xED\x9F\xBF \xEE\x80\x80 "
         "\xF0\x90\x80\x80 \xF1\x80\x80\x80 \xF3\x80\x80\x80 \xF4\x8F\xBF\xBD\n"},
        {"\xC1\xBF \xE0\x9F\xBF \xED\xA0\x80 \xF0\x8F\xBF\xBF \xF4\x90\x80\x80 \xF5\x80",
         "\\xC1\\xBF \\xE0\\x9F\\xBF \\xED\\xA0\\x80 \\xF0\\x8F\\xBF\\xBF "
         "\\xF4\\x90\\x80\\x80 \\xF5\\x80\n"},
        {"eth0 IP Address 10.1.2.3\n", "eth0 IP Address 10.1.2.3\n\n"},
        {"", "\n"}};
    logEverything();
    std::size_t before = 0;
    for (const auto& row : rows) {
        Logger::getInstance()->error(row.message, "T", 1);
        const std::string log = readFile(mainLog);
        EXPECT_EQ(afterTime(log.substr(before)), std::string("[ERROR]   001 T: ") + row.written);
        before = log.size();
    }
    for (std::size_t place = 0; place < 20; ++place) {
        for (const char odd : {'\0', '\x1F', '\x7F', '\x80', '\xFF'}) {
            std::string message(20, '~');
            message[place] = odd;
            before = readFile(mainLog).size();
            Logger::getInstance()->error(message, "T", 1);
            const std::string line = readFile(mainLog).substr(before);
            EXPECT_EQ(line.find("\\x"), line.find(": ") + 2 + place) << line;
        }
    }
    Logger::getInstance()->debugLines("dump:\n    a\r\n\n", "T", 1);
    EXPECT_EQ(afterTime(readFile(debugLog)), "[DEBUG] 001 T: dump:\n    a\\r\n\n\n");
}

TEST(Logger, LevelWords) {
    const struct {
        const char* word;
        bool info, warnings;
    } rows[] = {{"Warning", false, true}, {"INFO", true, true}, {"Error", false, false}};
    for (const auto& row : rows) {
        const std::string configuration = std::string("\"LoggingLevel\":\"") + row.word + "\"";
        EXPECT_EXIT(
            {
                writeConfiguration(configuration);
                const Logger& logger = *Logger::getInstance();
                std::exit((logger.writesInfo() ? 2 : 0) + (logger.writesWarnings() ? 1 : 0));
            },
            testing::ExitedWithCode((row.info ? 2 : 0) + (row.warnings ? 1 : 0)), "");
    }
}

TEST(Logger, RecordsInTheSystemLog) {
    tav::test::SystemLog systemLog;
    writeConfiguration(R"("LoggingLevel":"Info","EnableDebugLog":"true",
                          "TAVLogLocation":"SysLog","DebugLogLocation":"SYSLOG")");
    writeOneOfEach(*Logger::getInstance());
    Logger::getInstance()->error("100%s", "T", 1);
    EXPECT_THAT(
        systemLog.records(),
        ElementsAre("<11>tav: [ERROR]   007 JOB_MGR: e", "<12>tav: [WARNING] 082 JOB_MGR: w",
                    "<14>tav: [INFO]    123 JOB_MGR: i", "<15>tav: [DEBUG] 4567 JOB_MGR: d",
                    "<14>tav: [INFO] 001 JOB_MGR: a", "<11>tav: [ERROR]   001 T: 100%s"));
    EXPECT_FALSE(fs::exists("/var/log/tav"));
    EXPECT_TRUE(fs::is_empty("/opt/orn/tav/log"));
}

TEST(Logger, ASystemLogThatHangsHoldsUpNobodyAndIsToldWhatItHasMissed) {
    tav::test::SystemLog systemLog;
    writeConfiguration(R"("LoggingLevel":"Info")");
    Logger& logger = *Logger::getInstance();
    const auto begin = std::chrono::steady_clock::now();
    for (int line = 0; line < 5000; ++line)
        logger.error("e", "T", line);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20))
        << "a hundredth of the tenths that every line would wait";
    const std::size_t taken = systemLog.records().size();
    EXPECT_LT(taken, 5000U);
    logger.error("later", "T", 1);
    logger.error(std::string(1U << 20U, 'x'), "T", 2);
    logger.error(std::string(100000, 'y'), "T", 3);
    const std::vector<std::string> records = systemLog.records();
    ASSERT_EQ(records.size(), taken + 4);
    EXPECT_EQ(records[taken], "<12>tav: " + std::to_string(5000 - taken) +
                                  " records are missing here: the system log did not take them.");
    EXPECT_EQ(records[taken + 1], "<11>tav: [ERROR]   001 T: later");
    EXPECT_THAT(records[taken + 2], testing::StartsWith("<11>tav: [ERROR]   002 T: xxx"));
    EXPECT_EQ(records[taken + 3], "<11>tav: [ERROR]   003 T: " + std::string(100000, 'y'));
}

TEST(Logger, OpensNoDebugLogThatIsNotWritten) {
    writeConfiguration(R"("TAVLogLocation":"/var/log/tav/tav.log",
                          "DebugLogLocation":"/var/log/tav/debug.log")");
    writeOneOfEach(*Logger::getInstance());
    EXPECT_TRUE(fs::exists(mainLog));
    EXPECT_FALSE(fs::exists(debugLog));
}

TEST(Logger, EndsTheProcessWithoutItsDirectories) {
    writeFile("/var/log/file", "");
    tav::test::SystemLog systemLog;
    EXPECT_EXIT(
        {
            writeConfiguration(R"("TAVLogLocation":"/var/log/file/x/tav.log")");
            Logger::loggerInit();
        },
        testing::ExitedWithCode(246), "");
    EXPECT_EXIT(
        {
            writeConfiguration(R"("TAVLogLocation":"/var/log/tav.log",
                                  "DebugLogLocation":"/var/log/file/x/debug.log")");
            Logger::loggerInit();
        },
        testing::ExitedWithCode(245), "");
    EXPECT_THAT(systemLog.records(),
                ElementsAre("<11>tav: Failed to create directory path for TAV log file "
                            "[/var/log/file/x/tav.log]: 20 - Not a directory",
                            "<11>tav: Failed to create directory path for TAV debug log file "
                            "[/var/log/file/x/debug.log]: 20 - Not a directory"));
}

TEST(Logger, GoesOnWithoutAFileThatCannotBeOpened) {
    tav::test::SystemLog systemLog;
    fs::create_directories("/var/log/tav/tav.log");
    logEverything();
    writeOneOfEach(*Logger::getInstance());
    EXPECT_THAT(systemLog.records(),
                ElementsAre("<11>tav: Error opening TAV log file [/var/log/tav/tav.log]: 21 - Is a "
                            "directory"));
    EXPECT_THAT(readFile(debugLog), HasSubstr(": d\n"));
}

TEST(Logger, ALineThatTheDiskHasNoRoomForSpoilsNoOther) {
    ::signal(SIGXFSZ, SIG_IGN);
    logEverything();
    Logger& logger = *Logger::getInstance();
    logger.error("before", "T", 1);
    const rlim_t held = fs::file_size(mainLog);
    {
        const tav::test::SoftLimit roomForNothing(RLIMIT_FSIZE, held);
        logger.error("no room", "T", 1);
    }
    {
        const tav::test::SoftLimit roomForAPiece(RLIMIT_FSIZE, held + 4);
        logger.error("no room", "T", 1);
        logger.error("no room", "T", 1);
    }
    logger.error("after", "T", 1);
    const std::string log = readFile(mainLog);
    EXPECT_EQ(afterTime(log.substr(0, held)), "[ERROR]   001 T: before\n");
    EXPECT_EQ(log.at(held + 4), '\n') << "what found room is closed";
    EXPECT_EQ(afterTime(log.substr(held + 5)), "[ERROR]   001 T: after\n");
}

TEST(Logger, BeginsAtTheLeftBehindWhatAnEarlierProcessLeft) {
    writeFile(mainLog, "half a li");
    logEverything();
    Logger::getInstance()->error("e", "T", 1);
    EXPECT_EQ(afterTime(readFile(mainLog)), "half a li\n[ERROR]   001 T: e\n");
}

TEST(Logger, WritesToNoPipe) {
    tav::test::SystemLog systemLog;
    fs::create_directories("/var/log/tav");
    ASSERT_EQ(::mkfifo(mainLog, 0600), 0);
    ASSERT_EQ(::mkfifo(debugLog, 0600), 0);
    const int reader = ::open(debugLog, O_RDONLY | O_NONBLOCK);
    logEverything();
    writeOneOfEach(*Logger::getInstance());
    char byte = 0;
    EXPECT_LE(::read(reader, &byte, 1), 0);
    EXPECT_THAT(
        systemLog.records(),
        ElementsAre("<11>tav: Error opening TAV log file [/var/log/tav/tav.log]: 22 - "
                    "Invalid argument",
                    "<11>tav: Error opening the TAV debug log file[/var/log/tav/debug.log]: "
                    "22 - Invalid argument"));
}

TEST(Logger, TakesNoPlaceThatOthersPrintTo) {
    logEverything();
    EXPECT_EXIT(
        {
            ::close(STDERR_FILENO);
            Logger::getInstance()->error("e", "T", 1);
            std::fputs("printed by others", stderr);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ(afterTime(readFile(mainLog)), "[ERROR]   001 T: e\n");
}

TEST(Logger, ComesBackWhenItsDirectoryIsRemoved) {
    tav::test::SystemLog systemLog;
    logEverything();
    Logger::getInstance()->error("before", "T", 1);
    fs::remove_all("/var/log/tav");
    while (!fs::exists(mainLog)) {
        Logger::getInstance()->error("after", "T", 1);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_THAT(readFile(mainLog), HasSubstr("after"));
    EXPECT_THAT(systemLog.records(),
                testing::Contains(HasSubstr("[/var/log/tav/tav.log] had been")));
}

TEST(Logger, CreatesParentDirectoriesOnly) {
    EXPECT_EQ(createDirectoryPath("/tmp/a/b/c"), 0);
    EXPECT_TRUE(fs::is_directory("/tmp/a/b"));
    EXPECT_FALSE(fs::exists("/tmp/a/b/c"));
    EXPECT_EQ(fs::status("/tmp/a").permissions(), fs::perms::owner_all);
    EXPECT_EQ(createDirectoryPath("/tmp/a/b/c"), 0);
    EXPECT_EQ(createDirectoryPath("plain"), 0);
    EXPECT_EQ(createDirectoryPath(""), 0);
    writeFile("/tmp/file", "");
    EXPECT_EQ(createDirectoryPath("/tmp/file/b/c"), -1);
    EXPECT_EQ(errno, ENOTDIR);
}

TEST(Logger, SymbolicLinksReplaceWhatIsThereButNeverTheirTarget) {
    tav::test::SystemLog systemLog;
    writeFile("/tmp/log/live", "content");
    writeFile("/tmp/links/live", "stale");
    EXPECT_EQ(createSymbolicLink("/tmp/log/live", "/tmp/links"), 0);
    EXPECT_EQ(fs::read_symlink("/tmp/links/live"), "/tmp/log/live");
    EXPECT_EQ(createSymbolicLink("/tmp/missing", "/tmp/links"), 0);
    EXPECT_FALSE(fs::exists("/tmp/links/missing"));
    for (const char* spelling : {"/tmp/log/live", "/tmp//log/./live"}) {
        EXPECT_EQ(createSymbolicLink(spelling, "/tmp/log"), -1) << spelling;
    }
    EXPECT_EQ(readFile("/tmp/log/live"), "content");
    fs::create_directories("/tmp/busy/live/inside");
    EXPECT_EQ(createSymbolicLink("/tmp/log/live", "/tmp/busy"), -1);
    EXPECT_EQ(createSymbolicLink("/tmp/log/live", "/tmp/nowhere"), -1);
    EXPECT_THAT(systemLog.records(),
                ElementsAre(HasSubstr("<12>tav: Target path(/tmp/log/live) matches"),
                            HasSubstr("<12>tav: Target path(/tmp//log/./live) matches"),
                            "<12>tav: remove(/tmp/busy/live) completed with errno [39]",
                            "<12>tav: symlink(/tmp/log/live, /tmp/nowhere/live) completed with "
                            "errno [2]"));
}

}  // namespace
