#include "core/LogFile.h"

#include <cerrno>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

#include <sys/stat.h>

#include "base/Files.h"

namespace tav {
namespace {

constexpr mode_t logMode = 0640;
/// Readable too, to see whether it ends within a line. Without O_NONBLOCK a FIFO would be waited
/// for.
constexpr int appending = O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;

bool endsWithinLine(int file) {
    struct stat status {};
    char last = '\n';
    return ::fstat(file, &status) == 0 && status.st_size > 0 &&
           ::pread(file, &last, 1, status.st_size - 1) == 1 && last != '\n';
}

/// Goes on behind a write() that has not taken the whole line. Whether the file ends within it
/// then.
bool isTornAfter(int file, std::string_view line, ssize_t written) {
    if (written > 0) line.remove_prefix(static_cast<std::size_t>(written));
    return !writeAll(file, line.data(), line.size()) && endsWithinLine(file);
}

bool areSame(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

}  // namespace

mode_t logModeLike(int file) {
    struct stat status {};
    return ::fstat(file, &status) == 0 ? status.st_mode & logMode : 0;
}

bool LogFile::open() {
    return adopt(FileDescriptor(::open(path_.c_str(), appending, logMode)));
}

bool LogFile::adopt(FileDescriptor file) {
    if (!file.isOpen()) return false;
    struct stat status {};
    if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        errno = EINVAL;
        return false;
    }
    torn_ = endsWithinLine(file.get());
    descriptor_ = beyondStandardStreams(std::move(file));
    return true;
}

void LogFile::append(std::string_view line) {
    if (!isOpen()) return;
    if (torn_ && !writeAll(descriptor_.get(), "\n", 1)) return;
    // Not writeAll() at once: see writeFormatted() in Log.cpp.
    const ssize_t written = ::write(descriptor_.get(), line.data(), line.size());
    torn_ = written != static_cast<ssize_t>(line.size()) &&
            isTornAfter(descriptor_.get(), line, written);
}

bool LogFile::isSameFile(int file) const {
    struct stat mine {};
    struct stat other {};
    return ::fstat(descriptor_.get(), &mine) == 0 && ::fstat(file, &other) == 0 &&
           areSame(mine, other);
}

bool LogFile::isAstray() const {
    struct stat mine {};
    struct stat named {};
    return ::fstat(descriptor_.get(), &mine) == 0 &&
           (::stat(path_.c_str(), &named) != 0 || !areSame(mine, named));
}

bool LogFile::reopen() {
    return adopt(FileDescriptor(::open(path_.c_str(), appending | O_NOFOLLOW, logMode)));
}

bool LogFile::startAnew() {
    std::string freshPath = path_ + ".XXXXXX";
    FileDescriptor fresh(::mkostemp(freshPath.data(), O_APPEND | O_CLOEXEC));
    if (!fresh.isOpen()) return false;
    const bool replaced = ::fchmod(fresh.get(), logModeLike(descriptor_.get())) == 0 &&
                          ::rename(freshPath.c_str(), path_.c_str()) == 0;
    if (!replaced) {
        ::unlink(freshPath.c_str());
        return false;
    }
    return adopt(std::move(fresh));
}

}  // namespace tav
