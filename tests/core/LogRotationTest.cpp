#include <algorithm>
#include <array>
#include <atomic>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "core/Logger.h"
#include "tests/support/Files.h"
#include "tests/support/SoftLimit.h"
#include "tests/support/SystemLog.h"

namespace {

namespace fs = std::filesystem;
using CPlusPlusLogging::Logger;
using tav::test::debugLog;
using tav::test::logEverything;
using tav::test::mainLog;
using tav::test::readFile;
using tav::test::writeConfiguration;
using tav::test::writeFile;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr const char* backups = "/scratch/log/orn/tav/backup_log";
constexpr off_t rotationSize = 500'000'000;
constexpr fs::perms ownersOnly = fs::perms::owner_read | fs::perms::owner_write;

void fill(const char* log) {
    ASSERT_EQ(::truncate(log, rotationSize), 0);
}

std::vector<fs::path> backupFiles() {
    if (!fs::is_directory(backups)) return {};
    std::vector<fs::path> files(fs::directory_iterator(backups), {});
    std::sort(files.begin(), files.end());
    return files;
}

std::multiset<std::string> linesOf(std::istream& file) {
    std::multiset<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.insert(line.substr(std::min(line.find('['), line.size())));
    return lines;
}

TEST(LogRotation, LosesNoLineAndMixesNone) {
    logEverything();
    Logger& logger = *Logger::getInstance();
    ASSERT_EQ(::truncate(mainLog, rotationSize - 1), 0);
    logger.isFileExceeded(mainLog);
    EXPECT_FALSE(fs::exists(backups));
    fill(mainLog);
    logger.error("first", "T", 1);

    constexpr std::size_t threads = 4;
    std::atomic<bool> rotated{false};
    std::vector<std::size_t> written(threads);
    std::vector<std::thread> writers;
    for (std::size_t thread = 0; thread < threads; ++thread) {
        writers.emplace_back([&, thread] {
            const std::string message(100 * thread, static_cast<char>('a' + thread));
            for (; !rotated || written[thread] < 1000; ++written[thread])
                logger.error(message, "T", 1);
        });
    }
    logger.isFileExceeded(mainLog);
    rotated = true;
    for (std::thread& writer : writers)
        writer.join();

    const std::vector<fs::path> files = backupFiles();
    ASSERT_EQ(files.size(), 1U);
    EXPECT_THAT(files[0].filename(), MatchesRegex("tav.log_[0-9]{8}-[0-9]{6}"));
    EXPECT_EQ(fs::read_symlink("/opt/orn/tav/log/backup_log"), backups);
    std::ifstream backup(files[0], std::ios::binary);
    backup.seekg(rotationSize);
    std::ifstream live(mainLog, std::ios::binary);
    std::multiset<std::string> lines = linesOf(backup);
    lines.merge(linesOf(live));
    EXPECT_EQ(lines.count("[ERROR]   001 T: first"), 1U);
    std::size_t total = 1;
    for (std::size_t thread = 0; thread < threads; ++thread) {
        const std::string message(100 * thread, static_cast<char>('a' + thread));
        EXPECT_EQ(lines.count("[ERROR]   001 T: " + message), written[thread]);
        total += written[thread];
    }
    EXPECT_EQ(lines.size(), total);
}

TEST(LogRotation, TwoAtOnceMakeOneBackup) {
    logEverything();
    Logger& logger = *Logger::getInstance();
    fill(mainLog);
    std::vector<std::thread> askers;
    for (int asker = 0; asker < 4; ++asker)
        askers.emplace_back([&] { logger.isFileExceeded(mainLog); });
    for (std::thread& asker : askers)
        asker.join();
    EXPECT_EQ(backupFiles().size(), 1U);
}

TEST(LogRotation, TwoWithinASecondMakeTwoBackups) {
    logEverything();
    Logger& logger = *Logger::getInstance();
    fill(mainLog);
    const std::time_t now = std::time(nullptr);
    for (std::time_t second = now; second < now + 60; ++second) {
        std::array<char, 32> name{};
        std::strftime(name.data(), name.size(), "/tav.log_%Y%m%d-%H%M%S", std::localtime(&second));
        writeFile(std::string(backups) + name.data(), "of the same second");
    }
    logger.isFileExceeded(mainLog);
    const std::vector<fs::path> files = backupFiles();
    const auto made = std::find_if(files.begin(), files.end(), [](const fs::path& file) {
        return fs::file_size(file) == rotationSize;
    });
    ASSERT_NE(made, files.end());
    EXPECT_THAT(made->filename(), MatchesRegex("tav.log_[0-9]{8}-[0-9]{6}-2"));
}

TEST(LogRotation, TrustsNothingInTheLogsDirectory) {
    const struct {
        const char* name;
        void (*plant)(const char* path);
    } rows[] = {
        {"a pipe", [](const char* path) { ::mkfifo(path, 0666); }},
        {"a link", [](const char* path) { fs::create_symlink("/tmp/victim", path); }},
        {"another name", [](const char* path) { fs::create_hard_link("/tmp/victim", path); }},
        {"an open file",
         [](const char* path) {
             writeFile(path, "");
             fs::permissions(path, fs::perms::all);
         }},
        {"a directory", [](const char* path) { fs::create_directories(path); }}};
    logEverything();
    Logger& logger = *Logger::getInstance();
    fs::permissions(mainLog, ownersOnly);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        writeFile("/tmp/victim", "precious");
        fs::permissions("/tmp/victim", fs::perms::all);
        row.plant("/var/log/tav/tav.log.new");
        fill(mainLog);
        logger.isFileExceeded(mainLog);
        logger.error("e", "T", 1);
        EXPECT_LT(fs::file_size(mainLog), 1000U);
        EXPECT_EQ(fs::symlink_status(mainLog).type(), fs::file_type::regular);
        EXPECT_EQ(fs::status(mainLog).permissions(), ownersOnly);
        EXPECT_EQ(readFile("/tmp/victim"), "precious");
        for (const fs::path& backup : backupFiles()) {
            EXPECT_EQ(fs::status(backup).permissions(), ownersOnly);
            fs::remove(backup);
        }
        fs::remove("/var/log/tav/tav.log.new");
    }
}

TEST(LogRotation, LeavesAloneWhatStandsInTheLogsPlace) {
    const struct {
        const char* name;
        void (*plant)();
    } rows[] = {{"a pipe", [] { ::mkfifo(mainLog, 0666); }},
                {"a link", [] { fs::create_symlink("/tmp/victim", mainLog); }}};
    tav::test::SystemLog systemLog;
    logEverything();
    Logger& logger = *Logger::getInstance();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        writeFile("/tmp/victim", "");
        fill("/tmp/victim");
        fs::remove(mainLog);
        row.plant();
        logger.isFileExceeded(mainLog);
        std::this_thread::sleep_for(std::chrono::milliseconds(1100));
        logger.error("e", "T", 1);
        EXPECT_THAT(backupFiles(), IsEmpty());
        EXPECT_EQ(fs::file_size("/tmp/victim"), rotationSize);
        fs::remove("/tmp/victim");
    }
    EXPECT_THAT(systemLog.records(), IsEmpty());
}

TEST(LogRotation, WithoutACopyKeepsTheLogAndLeavesNoBackup) {
    ::signal(SIGXFSZ, SIG_IGN);
    std::optional<tav::test::SoftLimit> noRoom;
    const struct {
        const char* name;
        std::function<void()> prevent;
    } rows[] = {{"no directory", [] { writeFile(backups, "not a directory"); }},
                {"no room", [&] {
                     fs::remove(backups);
                     noRoom.emplace(RLIMIT_FSIZE, rotationSize / 2);
                 }}};
    logEverything();
    Logger& logger = *Logger::getInstance();
    fill(mainLog);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        row.prevent();
        logger.isFileExceeded(mainLog);
        logger.isFileExceeded("/etc/passwd");
        EXPECT_THAT(backupFiles(), IsEmpty());
        EXPECT_EQ(fs::file_size(mainLog), rotationSize);
    }
    noRoom.reset();
    logger.error("more", "T", 1);
    EXPECT_GT(fs::file_size(mainLog), rotationSize);
}

TEST(LogRotation, KeepsTheTenNewestBackupsOfEachLog) {
    const std::string directory = std::string(backups) + "/";
    for (int number = 10; number < 22; ++number)
        writeFile(directory + "tav.log_20990101-0000" + std::to_string(number), "");
    writeFile(directory + "tav.log_20990101-000021-2", "");
    writeFile(directory + "tav.log_20990101-000021-10", "");
    const std::vector<std::string> others = {
        "debug.log_20010101-000000", "tav.log_20010101-00000",     "tav.log_2001-0101000000",
        "tav.log_20010101-000000-x", "tav.log_20010101-000000.gz", "tav.log"};
    for (const std::string& other : others)
        writeFile(directory + other, "");
    logEverything();
    Logger& logger = *Logger::getInstance();
    fill(mainLog);
    logger.isFileExceeded(mainLog);

    std::vector<std::string> kept;
    for (const fs::path& file : backupFiles()) {
        const std::string name = file.filename();
        if (std::find(others.begin(), others.end(), name) == others.end()) kept.push_back(name);
    }
    EXPECT_EQ(backupFiles().size(), others.size() + 10);
    ASSERT_EQ(kept.size(), 10U);
    EXPECT_THAT(kept[0], MatchesRegex("tav.log_20[0-8].*")) << "the one that was just made";
    EXPECT_EQ(kept[1], "tav.log_20990101-000015");
    EXPECT_EQ(kept[8], "tav.log_20990101-000021-10");
    EXPECT_EQ(kept[9], "tav.log_20990101-000021-2");
}

TEST(LogRotation, MovesALogAwayThatIsNotWrittenNow) {
    writeConfiguration(R"("TAVLogLocation":"/var/log/tav/tav.log",
                          "DebugLogLocation":"/var/log/tav/debug.log")");
    Logger& logger = *Logger::getInstance();
    logger.isFileExceeded(debugLog);
    EXPECT_FALSE(fs::exists(debugLog));
    writeFile(debugLog, "");
    fill(debugLog);
    logger.isFileExceeded(debugLog);
    EXPECT_EQ(fs::file_size(debugLog), 0U);
    EXPECT_EQ(backupFiles().size(), 1U);
}

/// As a service that was started in /var/log would find it.
TEST(LogRotation, TheSystemLogIsNoFileOfTheWorkingDirectory) {
    writeConfiguration(R"("DebugLogLocation":"SysLog")");
    fs::current_path("/tmp");
    writeFile("/tmp/SysLog", "");
    fill("SysLog");
    Logger::getInstance()->isFileExceeded("SysLog");
    EXPECT_EQ(fs::file_size("SysLog"), rotationSize);
    EXPECT_THAT(backupFiles(), IsEmpty());
}

TEST(LogRotation, BothLogsMayShareAFile) {
    writeConfiguration(R"("EnableDebugLog":"true","TAVLogLocation":"/var/log/tav/tav.log",
                          "DebugLogLocation":"/var/log/tav/tav.log")");
    Logger& logger = *Logger::getInstance();
    fill(mainLog);
    logger.isFileExceeded(mainLog);
    logger.error("e", "T", 1);
    logger.debug("d", "T", 1);
    EXPECT_THAT(readFile(mainLog), HasSubstr("T: e\n"));
    EXPECT_THAT(readFile(mainLog), HasSubstr("T: d\n"));
}

}  // namespace
