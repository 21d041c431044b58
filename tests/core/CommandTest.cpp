#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include "base/ScratchFile.h"
#include "base/StopSignal.h"
#include "core/Command.h"
#include "tests/support/Files.h"

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using tav::runShell;
using tav::test::openDescriptors;
using tav::test::readFile;
using tav::test::writeFile;
using Clock = std::chrono::steady_clock;

constexpr const char* path = "/tmp/scratch";

std::atomic<bool> killsNothing{false};

}  // namespace

extern "C" int kill(pid_t process, int signal) noexcept {
    return killsNothing ? 0 : static_cast<int>(::syscall(SYS_kill, process, signal));
}

namespace {

TEST(Command, TellsHowACommandEndedAndWhatItPrinted) {
    const struct {
        const char* command;
        bool finished;
        int exitStatus;
        const char* output;
    } rows[] = {{"printf 'a\\nb'", true, 0, "a\nb"},
                {"echo x; exit 3", true, 3, "x\n"},
                {"no-such-command", true, 127, ""},
                {"kill -9 $$", true, -1, ""},
                {"cat", true, 0, ""},
                {"echo first; exec >&-; sleep 0.05; exit 4", true, 4, "first\n"},
                {"sleep 100 & echo started", true, 0, "started\n"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.command);
        const tav::CommandResult result = runShell(row.command);
        EXPECT_EQ(result.finished, row.finished);
        EXPECT_EQ(result.exitStatus, row.exitStatus);
        EXPECT_EQ(result.output, row.output);
    }
}

TEST(Command, IsEndedWithAllThatItStarted) {
    const std::size_t descriptors = openDescriptors();
    tav::StopSignal stop;
    const tav::StopScope scope(&stop);
    std::thread stopper([&] {
        while (readFile("/tmp/child").empty())
            std::this_thread::sleep_for(1ms);
        stop.request();
    });
    const auto begin = Clock::now();
    const tav::CommandResult hung = runShell("sh -c 'echo $$ > /tmp/child; sleep 1000; :' | cat");
    stopper.join();
    EXPECT_FALSE(hung.finished);
    EXPECT_LT(Clock::now() - begin, 10s);
    const pid_t child = std::stoi(readFile("/tmp/child"));
    while (::kill(child, 0) == 0)
        std::this_thread::sleep_for(1ms);
    EXPECT_FALSE(runShell("echo too late").finished);
    EXPECT_EQ(openDescriptors(), descriptors + 1) << "only the stop signal's own";
}

TEST(Command, IsEndedWhenItFloodsUs) {
    const tav::CommandResult flood = runShell("yes");
    EXPECT_FALSE(flood.finished);
    EXPECT_LT(flood.output.size(), tav::commandOutputLimit + 8192);
    EXPECT_FALSE(runShell("yes > /tmp/flood").succeeded());
    EXPECT_LE(fs::file_size("/tmp/flood"), 64U << 20U);
}

TEST(Command, StartsWithACleanSetOfSignals) {
    ::signal(SIGPIPE, SIG_IGN);
    sigset_t all;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, nullptr);
    EXPECT_EQ(runShell("grep SigBlk /proc/self/status").output, "SigBlk:\t0000000000000000\n");
    EXPECT_EQ(runShell("kill -PIPE $$; echo survived").output, "");
}

TEST(Command, WorksWhateverTheEmbeddingProcessIsLike) {
    const struct {
        const char* name;
        void (*prepare)();
    } rows[] = {{"it reaps all children itself",
                 [] {
                     struct sigaction action {};
                     action.sa_handler = [](int /*signal*/) {
                         const int saved = errno;
                         while (::waitpid(-1, nullptr, WNOHANG) > 0) {
                         }
                         errno = saved;
                     };
                     ::sigaction(SIGCHLD, &action, nullptr);
                 }},
                {"it ignores the end of its children", [] { ::signal(SIGCHLD, SIG_IGN); }},
                {"its standard streams are closed",
                 [] {
                     for (const int stream : {0, 1, 2})
                         ::close(stream);
                 }},
                {"it writes nowhere",
                 [] {
                     ::close(1);
                     ::close(2);
                 }},
                {"it has hundreds of descriptors open, and no room for more than a few",
                 [] {
                     const rlimit limit{400, 400};
                     ::setrlimit(RLIMIT_NOFILE, &limit);
                     int last = 0;
                     while (last >= 0)
                         last = ::open("/dev/null", O_RDONLY);
                     for (int freed = 390; freed < 400; ++freed)
                         ::close(freed);
                 }},
                {"its files may not grow", [] {
                     const rlimit limit{4096, 4096};
                     ::setrlimit(RLIMIT_FSIZE, &limit);
                 }}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EXIT(
            {
                row.prepare();
                for (int round = 0; round < 20; ++round) {
                    const tav::CommandResult good = runShell("echo out | cat; echo err >&2");
                    if (!good.succeeded()) ::_exit(1);
                    if (good.output != "out\n") ::_exit(2);
                    const tav::CommandResult bad = runShell("sleep 0.01; exit 3");
                    if (!bad.finished || bad.exitStatus != 3) ::_exit(3);
                    const tav::CommandResult killed = runShell("kill -9 $$");
                    if (!killed.finished || killed.exitStatus != -1) ::_exit(4);
                }
                if (runShell("ls /proc/self/fd | wc -l").output != "5\n") ::_exit(5);
                ::_exit(0);
            },
            testing::ExitedWithCode(0), "");
    }
}

TEST(Command, ThatCannotEvenBeKilledHoldsUpNoStop) {
    tav::StopSignal stop;
    const tav::StopScope scope(&stop);
    std::thread stopper([&] {
        while (readFile("/tmp/child").empty())
            std::this_thread::sleep_for(1ms);
        stop.request();
    });
    killsNothing = true;  // as a process that hangs in the kernel
    const auto begin = Clock::now();
    EXPECT_FALSE(runShell("trap '' TERM; echo $$ > /tmp/child; exec sleep 1000").finished);
    EXPECT_LT(Clock::now() - begin, 2s);
    stopper.join();
    killsNothing = false;
    const pid_t child = std::stoi(readFile("/tmp/child"));
    ::kill(child, SIGKILL);
    const tav::StopScope unstoppable(nullptr);
    while (::kill(child, 0) == 0)
        EXPECT_TRUE(runShell("true").succeeded()) << "a later command clears it away";
}

TEST(ScratchFile, IsNeverAStaleOrPlantedFile) {
    writeFile("/tmp/victim", "secret\n");
    const struct {
        const char* name;
        void (*plant)();
    } rows[] = {{"nothing", [] {}},
                {"a stale file", [] { writeFile(path, "stale\n"); }},
                {"a link", [] { fs::create_symlink("/tmp/victim", path); }},
                {"a link to nowhere", [] { fs::create_symlink("/tmp/nowhere", path); }},
                {"a pipe in use", [] {
                     ::mkfifo(path, 0666);
                     ::flock(::open(path, O_RDWR | O_CLOEXEC), LOCK_EX);
                 }}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        row.plant();
        {
            const tav::ScratchFile scratch(path);
            ASSERT_TRUE(scratch.isOpen());
            EXPECT_EQ(fs::status(path).permissions(),
                      fs::perms::owner_read | fs::perms::owner_write);
            runShell("echo fresh >> /tmp/scratch");
            EXPECT_EQ(scratch.read(100), "fresh\n");
            EXPECT_EQ(scratch.read(3), "fre");
        }
        EXPECT_FALSE(fs::exists(fs::symlink_status(path)));
    }
    EXPECT_EQ(readFile("/tmp/victim"), "secret\n");
    EXPECT_FALSE(fs::exists("/tmp/nowhere"));
    fs::create_directories("/tmp/scratch/inside");
    EXPECT_FALSE(tav::ScratchFile(path).isOpen());
    EXPECT_FALSE(tav::ScratchFile("/no/such/directory/file").isOpen());
}

TEST(ScratchFile, IsUsedByOneAtATime) {
    constexpr int users = 8;
    std::vector<std::thread> threads;
    for (int user = 0; user < users; ++user) {
        threads.emplace_back([user] {
            const tav::ScratchFile scratch("/tmp/shared");
            const std::string word = std::to_string(user) + "\n";
            runShell("printf '" + std::to_string(user) + "' >> /tmp/shared; echo >> /tmp/shared");
            EXPECT_EQ(scratch.read(100), word);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    const tav::ScratchFile held("/tmp/shared");
    tav::StopSignal stop;
    stop.request();
    const tav::StopScope scope(&stop);
    errno = 0;
    EXPECT_FALSE(tav::ScratchFile("/tmp/shared").isOpen());
    EXPECT_EQ(errno, EINTR) << "cut short, which is no failure";
}

}  // namespace
