#include "core/ScratchFile.h"

#include <cerrno>
#include <chrono>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include <sys/file.h>
#include <sys/stat.h>

#include "core/Files.h"
#include "core/Waiting.h"

namespace tav {
namespace {

constexpr std::chrono::milliseconds lookAgain{50};
/// Somebody who plants files at the path as fast as we remove them does not keep us for ever.
constexpr int attemptLimit = 100;

/// Whether somebody of our own user works with the file at `path` right now.
bool isInUse(const char* path) {
    const FileDescriptor file(::open(path, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0) return false;
    if (!S_ISREG(status.st_mode) || status.st_uid != ::geteuid()) return false;
    return ::flock(file.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

/// Whether the locked file is still the one that the path names.
bool isAt(const char* path, int file) {
    struct stat named {};
    struct stat held {};
    return ::lstat(path, &named) == 0 && ::fstat(file, &held) == 0 && named.st_ino == held.st_ino &&
           named.st_dev == held.st_dev;
}

}  // namespace

ScratchFile::ScratchFile(const char* path) : path_(path) {
    constexpr int flags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    for (int attempt = 0; attempt < attemptLimit; ++attempt) {
        while (isInUse(path)) {
            if (pauseFor(lookAgain) == Pause::Stopped) {
                errno = EINTR;
                return;
            }
        }
        if (::unlink(path) != 0 && errno != ENOENT) return;
        FileDescriptor file(::open(path, flags, 0600));
        if (!file.isOpen() && errno != EEXIST) return;
        // Between the creation and the lock another one may have taken the file for a stale one.
        if (file.isOpen() && ::flock(file.get(), LOCK_EX | LOCK_NB) == 0 &&
            isAt(path, file.get())) {
            file_ = std::move(file);
            return;
        }
    }
}

ScratchFile::~ScratchFile() {
    if (file_.isOpen()) ::unlink(path_);
}

std::string ScratchFile::read(std::size_t limit) const {
    std::string content;
    if (::lseek(file_.get(), 0, SEEK_SET) != 0 || !readUpTo(file_.get(), limit, content)) return {};
    return content;
}

}  // namespace tav
