#include "core/Command.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <unistd.h>

#include <sys/syscall.h>
#include <sys/wait.h>

#include "base/FileDescriptor.h"
#include "base/StopSignal.h"
#include "core/LoopWatch.h"

namespace tav {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::minutes timeLimit{5};
/// A command that has been killed and is not gone by then hangs in the kernel.
constexpr std::chrono::milliseconds killLimit{500};
constexpr std::chrono::milliseconds lookForEndEvery{2};

/// What the shell is told before the command. It reports its exit status itself, for processes
/// whose own handling of SIGCHLD takes that from us. 64 MiB in blocks of 512 bytes: the shell sets
/// that, because what it has started before we could is not limited any more.
constexpr int reportDescriptor = 3;
constexpr const char* preamble = "trap 'echo $? >&3' EXIT; ulimit -f 131072; ";
constexpr int endedBySignal = -1;
/// How often a command is looked at on a kernel that cannot report its end (before Linux 5.3).
constexpr int lookEveryMs = 20;

struct Pipe {
    FileDescriptor readEnd;
    FileDescriptor writeEnd;
};

bool openPipe(Pipe& pipe) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) return false;
    FileDescriptor readEnd(ends[0]);
    FileDescriptor writeEnd(ends[1]);
    pipe.readEnd = beyondStandardStreams(std::move(readEnd));
    pipe.writeEnd = beyondStandardStreams(std::move(writeEnd));
    return pipe.readEnd.isOpen() && pipe.writeEnd.isOpen() &&
           ::fcntl(pipe.readEnd.get(), F_SETFL, O_NONBLOCK) == 0;
}

/// Attributes and file actions of the child; releases both.
class SpawnSetup {
 public:
    SpawnSetup() {
        ::posix_spawn_file_actions_init(&actions_);
        ::posix_spawnattr_init(&attributes_);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;
    ~SpawnSetup() {
        ::posix_spawnattr_destroy(&attributes_);
        ::posix_spawn_file_actions_destroy(&actions_);
    }

    /// A process group of its own, so that all of it can be killed; no signal blocked or ignored,
    /// and no file of ours open. What it complains about is told by our own log lines.
    bool prepare(int output, int report) {
        sigset_t none;
        sigset_t all;
        ::sigemptyset(&none);
        ::sigfillset(&all);
        constexpr short flags =
            POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
        return ::posix_spawnattr_setflags(&attributes_, flags) == 0 &&
               ::posix_spawnattr_setsigmask(&attributes_, &none) == 0 &&
               ::posix_spawnattr_setsigdefault(&attributes_, &all) == 0 &&
               ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY,
                                                  0) == 0 &&
               ::posix_spawn_file_actions_addopen(&actions_, STDERR_FILENO, "/dev/null", O_WRONLY,
                                                  0) == 0 &&
               ::posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO) == 0 &&
               ::posix_spawn_file_actions_adddup2(&actions_, report, reportDescriptor) == 0 &&
               ::posix_spawn_file_actions_addclosefrom_np(&actions_, reportDescriptor + 1) == 0;
    }

    pid_t spawn(const std::string& command) {
        std::string shell = "sh";
        std::string option = "-c";
        std::string text = preamble + command;
        std::array<char*, 4> arguments = {shell.data(), option.data(), text.data(), nullptr};
        pid_t child = -1;
        const int failure =
            ::posix_spawn(&child, "/bin/sh", &actions_, &attributes_, arguments.data(), ::environ);
        return failure == 0 ? child : -1;
    }

 private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

pid_t startShell(const std::string& command, int output, int report) {
    SpawnSetup setup;
    if (!setup.prepare(output, report)) return -1;
    return setup.spawn(command);
}

/// Takes what the pipe holds now.
void drain(int pipe, std::string& output) {
    std::array<char, 4096> chunk;
    while (output.size() <= commandOutputLimit) {
        const ssize_t count = ::read(pipe, chunk.data(), chunk.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return;
        output.append(chunk.data(), static_cast<std::size_t>(count));
    }
}

bool hasEnded(pid_t child) {
    siginfo_t info{};
    return ::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
           info.si_pid == child;
}

/// Waits for the command's end while collecting its output; false when it has to be killed.
bool superviseCommand(pid_t child, int pipe, std::string& output) {
    const auto end = steady_clock::now() + timeLimit;
    const FileDescriptor endOfChild(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
    const StopSignal* const stop = currentStop();
    std::array<pollfd, 3> watched{{{pipe, POLLIN, 0},
                                   {endOfChild.get(), POLLIN, 0},
                                   {stop == nullptr ? -1 : stop->descriptor(), POLLIN, 0}}};
    while (true) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(end - steady_clock::now()).count();
        if (left <= 0 || stopRequested() || output.size() > commandOutputLimit) return false;
        const int wait = endOfChild.isOpen() ? static_cast<int>(left) : lookEveryMs;
        ::poll(watched.data(), watched.size(), wait);
        const bool ended = endOfChild.isOpen() ? watched[1].revents != 0 : hasEnded(child);
        drain(pipe, output);
        if (ended) return true;
        // All writers are gone but the command goes on: nothing more to read, only its end.
        if ((watched[0].revents & POLLHUP) != 0) watched[0].fd = -1;
    }
}

/// How an ended command ended, from the system: nothing where somebody else has reaped it.
struct Reaped {
    bool gone = false;  ///< false: it is still there
    std::optional<int> exitStatus;
};

Reaped reap(pid_t child) {
    int status = 0;
    const pid_t reaped = ::waitpid(child, &status, WNOHANG);
    if (reaped == 0 || (reaped < 0 && errno == EINTR)) return {};
    if (reaped < 0) return {true, std::nullopt};
    return {true, WIFEXITED(status) ? WEXITSTATUS(status) : endedBySignal};
}

/// Killed commands that hung in the kernel. They are reaped when they have come out of it.
class Abandoned {
 public:
    void add(pid_t child) {
        const std::lock_guard<std::mutex> held(lock_);
        children_.push_back(child);
    }
    void reapWhatHasEnded() {
        const std::lock_guard<std::mutex> held(lock_);
        std::erase_if(children_, [](pid_t child) { return reap(child).gone; });
    }

 private:
    std::mutex lock_;
    std::vector<pid_t> children_;
};

Abandoned& abandoned() {
    static Abandoned* const instance = new Abandoned;  // outlives every thread
    return *instance;
}

void killAll(pid_t child) {
    ::kill(-child, SIGKILL);
    const auto end = steady_clock::now() + killLimit;
    while (!reap(child).gone) {
        if (steady_clock::now() >= end) {
            abandoned().add(child);
            return;
        }
        std::this_thread::sleep_for(lookForEndEvery);
    }
}

/// What the shell has written before it ended; a signal leaves it no time to.
int reportedStatus(int report) {
    std::string text;
    drain(report, text);
    int status = endedBySignal;
    std::from_chars(text.data(), text.data() + text.size(), status);
    return status;
}

}  // namespace

CommandResult runShell(const std::string& command) {
    abandoned().reapWhatHasEnded();
    CommandResult result;
    Pipe output;
    Pipe report;
    if (!openPipe(output) || !openPipe(report)) return result;
    const pid_t child = startShell(command, output.writeEnd.get(), report.writeEnd.get());
    if (child < 0) return result;
    output.writeEnd.reset();
    report.writeEnd.reset();
    result.finished = superviseCommand(child, output.readEnd.get(), result.output);
    if (result.finished) {
        const std::optional<int> exitStatus = reap(child).exitStatus;
        result.exitStatus = exitStatus ? *exitStatus : reportedStatus(report.readEnd.get());
    } else {
        killAll(child);
    }
    LoopWatch::advances();
    return result;
}

}  // namespace tav
