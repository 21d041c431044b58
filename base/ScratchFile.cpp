#include "base/ScratchFile.h"

#include <cerrno>
#include <chrono>

#include <fcntl.h>
#include <unistd.h>

#include <sys/file.h>
#include <sys/stat.h>

#include "base/Files.h"
#include "base/Waiting.h"

namespace tav {
namespace {

constexpr std::chrono::milliseconds lookAgain{50};
/// Somebody who plants files at the path as fast as we remove them does not keep us for ever.
constexpr int attemptLimit = 100;

/// Whether the file could be a scratch file of ours.
bool isOurs(int file) {
    struct stat status {};
    return ::fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == ::geteuid();
}

/// Whether the locked file is still the one that the path names.
bool isAt(const char* path, int file) {
    struct stat named {};
    struct stat held {};
    return ::lstat(path, &named) == 0 && ::fstat(file, &held) == 0 && named.st_ino == held.st_ino &&
           named.st_dev == held.st_dev;
}

enum class Stale { Gone, InUse, Stuck };

/// Removes what stands at `path`, unless somebody of our own user works with it right now. A file
/// of ours is locked while it is removed: whoever has just made it, and has not locked it yet, will
/// notice that it is gone.
Stale removeStale(const char* path) {
    const FileDescriptor file(::open(path, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    if (!file.isOpen() && errno == ENOENT) return Stale::Gone;
    if (file.isOpen() && isOurs(file.get())) {
        if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) return Stale::InUse;
        if (!isAt(path, file.get())) return Stale::Gone;
    }
    return ::unlink(path) == 0 || errno == ENOENT ? Stale::Gone : Stale::Stuck;
}

/// Makes the file anew and locks it; not open when somebody else came first (errno EEXIST).
FileDescriptor makeAnew(const char* path) {
    constexpr int flags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    FileDescriptor file(::open(path, flags, 0600));
    if (!file.isOpen()) return file;
    if (::flock(file.get(), LOCK_EX | LOCK_NB) == 0 && isAt(path, file.get())) return file;
    errno = EEXIST;
    return FileDescriptor();
}

}  // namespace

ScratchFile::ScratchFile(const char* path) : path_(path) {
    for (int attempt = 0; attempt < attemptLimit; ++attempt) {
        file_ = makeAnew(path);
        if (file_.isOpen() || errno != EEXIST) return;
        Stale stale = removeStale(path);
        while (stale == Stale::InUse) {
            if (pauseFor(lookAgain) == Pause::Stopped) {
                errno = EINTR;
                return;
            }
            stale = removeStale(path);
        }
        if (stale == Stale::Stuck) return;
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
