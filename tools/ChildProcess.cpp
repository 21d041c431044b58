#include "tools/ChildProcess.h"

#include <array>
#include <csignal>

#include <fcntl.h>
#include <unistd.h>

#include "base/FileDescriptor.h"
#include "base/Files.h"
#include "base/Waiting.h"

namespace tav::ctl {
namespace {

/// All that is written there until its end; none when that does not come in time.
std::optional<std::string> readAll(int pipe, const TimeLimit& limit) {
    std::string text;
    std::array<char, 4096> chunk;
    while (waitReadable(pipe, limit) != Readable::TimedOut) {
        const ssize_t count = ::read(pipe, chunk.data(), chunk.size());
        if (count <= 0) return text;
        text.append(chunk.data(), static_cast<std::size_t>(count));
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> workInChild(std::chrono::milliseconds limit,
                                       const std::function<std::string()>& work) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) return work();
    const FileDescriptor readEnd(ends[0]);
    FileDescriptor writeEnd(ends[1]);
    const pid_t child = ::fork();
    if (child < 0) return work();
    if (child == 0) {
        const std::string text = work();
        writeAll(writeEnd.get(), text.data(), text.size());
        writeEnd.reset();  // a thread that hangs would keep it open
        ::_exit(0);
    }
    writeEnd.reset();
    auto text = readAll(readEnd.get(), TimeLimit(limit));
    if (!text) ::kill(child, SIGKILL);
    return text;
}

}  // namespace tav::ctl
