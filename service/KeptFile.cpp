#include "service/KeptFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include <sys/stat.h>

#include "base/FileDescriptor.h"
#include "base/Files.h"
#include "core/Log.h"

namespace tavd {
namespace {

constexpr tav::ModuleLog logger{"TAVD"};

/// Whether a device's node, a FIFO or a socket stands there, which is not ours to take away.
bool isInTheWay(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) &&
           !S_ISLNK(status.st_mode) && !S_ISDIR(status.st_mode);
}

}  // namespace

void KeptFile::replace(std::string_view text) {
    if (put(text)) {
        if (told_ != 0) logger.warning(tav::here(), "%s is written again.", path_.c_str());
        told_ = 0;
        return;
    }
    const int error = errno;
    if (error == told_) return;
    told_ = error;
    logger.warning(tav::here(), "%s cannot be written: %s (errno: %d). All else goes on.",
                   path_.c_str(), std::strerror(error), error);
}

bool KeptFile::put(std::string_view text) const {
    if (isInTheWay(path_)) {
        errno = EEXIST;
        return false;
    }
    const std::string fresh = path_ + ".new";
    ::unlink(fresh.c_str());  // one that a crash has left behind
    const tav::FileDescriptor file(
        ::open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file.isOpen()) return false;
    if (tav::writeAll(file.get(), text.data(), text.size()) && ::fchmod(file.get(), mode_) == 0 &&
        ::rename(fresh.c_str(), path_.c_str()) == 0) {
        return true;
    }
    const int error = errno;
    ::unlink(fresh.c_str());
    errno = error;
    return false;
}

}  // namespace tavd
