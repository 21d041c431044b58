#include "core/LogLinks.h"

#include <cerrno>
#include <cstdio>
#include <string>

#include <syslog.h>
#include <unistd.h>

#include <sys/stat.h>

#include "core/SystemLog.h"

std::string_view tav::logBaseName(std::string_view path) {
    return path.substr(path.find_last_of("/\\") + 1);
}

namespace CPlusPlusLogging {
namespace {

constexpr mode_t directoryMode = 0700;

/// Whether the entry at `link` is the very file that `target` names, under whatever spelling.
bool isSameEntry(const std::string& target, const std::string& link) {
    struct stat targetStatus {};
    struct stat linkStatus {};
    return ::stat(target.c_str(), &targetStatus) == 0 && ::lstat(link.c_str(), &linkStatus) == 0 &&
           targetStatus.st_dev == linkStatus.st_dev && targetStatus.st_ino == linkStatus.st_ino;
}

}  // namespace

int createDirectoryPath(const std::string& path) {
    if (path.empty()) return 0;
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        if (::mkdir(path.substr(0, slash).c_str(), directoryMode) != 0 && errno != EEXIST) {
            return -1;
        }
    }
    return 0;
}

int createSymbolicLink(const std::string& target, const std::string& directory) {
    if (::access(target.c_str(), R_OK) != 0) return 0;
    const std::string_view name = tav::logBaseName(target);
    if (name.empty()) {
        tav::reportToSystemLog(LOG_WARNING, "basename(%s) returned NULL", target.c_str());
        return -1;
    }
    const std::string link = directory + "/" + std::string(name);
    // Checked before anything is removed: a log may live in the link directory itself.
    if (target == link || isSameEntry(target, link)) {
        tav::reportToSystemLog(
            LOG_WARNING,
            "Target path(%s) matches symbolic link path(%s). Hence, symbolic link will "
            "not be created.",
            target.c_str(), link.c_str());
        return -1;
    }
    if (std::remove(link.c_str()) != 0 && errno != ENOENT) {
        tav::reportToSystemLog(LOG_WARNING, "remove(%s) completed with errno [%d]", link.c_str(),
                               errno);
        return -1;
    }
    if (::symlink(target.c_str(), link.c_str()) != 0 && errno != EEXIST) {
        tav::reportToSystemLog(LOG_WARNING, "symlink(%s, %s) completed with errno [%d]",
                               target.c_str(), link.c_str(), errno);
        return -1;
    }
    return 0;
}

}  // namespace CPlusPlusLogging
