#include "core/LogRotation.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include "base/DirectoryListing.h"
#include "base/FileDescriptor.h"
#include "base/Files.h"
#include "base/StopSignal.h"
#include "core/LogLinks.h"

namespace tav {
namespace {

constexpr const char* suffixFormat = "%Y%m%d-%H%M%S";
constexpr std::size_t suffixLength = 15;
constexpr int attemptLimit = 1000;

/// "tav.log_20190307-140509", and behind it "-2", "-3", ... for further ones of the same second.
std::string backupStem(std::string_view logPath) {
    std::tm now{};
    const std::time_t seconds = std::time(nullptr);
    ::localtime_r(&seconds, &now);
    std::array<char, suffixLength + 1> suffix{};
    std::strftime(suffix.data(), suffix.size(), suffixFormat, &now);
    return std::string(logBaseName(logPath)) + "_" + suffix.data();
}

/// When a backup of that log was made (its suffix, then its number within the second); empty for a
/// name that is none.
std::optional<std::pair<std::string_view, int>> backupAge(std::string_view name,
                                                          std::string_view logName) {
    if (!name.starts_with(logName) || !name.substr(logName.size()).starts_with('_')) {
        return std::nullopt;
    }
    name.remove_prefix(logName.size() + 1);
    const std::string_view suffix = name.substr(0, suffixLength);
    const bool isSuffix = suffix.size() == suffixLength && suffix[8] == '-' &&
                          std::count(suffix.begin(), suffix.end(), '-') == 1 &&
                          suffix.find_first_not_of("0123456789-") == std::string_view::npos;
    if (!isSuffix) return std::nullopt;
    name.remove_prefix(suffixLength);
    if (name.empty()) return std::pair(suffix, 1);
    int number = 0;
    const auto [end, failure] = std::from_chars(name.data() + 1, name.data() + name.size(), number);
    const bool isNumber =
        name.front() == '-' && failure == std::errc() && end == name.data() + name.size();
    return isNumber ? std::optional(std::pair(suffix, number)) : std::nullopt;
}

/// The directory that holds the backups.
class BackupDirectory {
 public:
    bool open() {
        if (adopt()) return true;
        CPlusPlusLogging::createDirectoryPath(std::string(logBackupDirectory) + "/");
        CPlusPlusLogging::createSymbolicLink(logBackupDirectory, logLinkDirectory);
        return adopt();
    }

    /// Asked first, so that a look at a log that finds no room costs nothing.
    bool hasRoomFor(int file) const {
        struct stat status {};
        struct statvfs room {};
        return ::fstat(file, &status) == 0 && ::fstatvfs(directory_.get(), &room) == 0 &&
               static_cast<std::uint64_t>(room.f_bavail) * room.f_frsize >=
                   static_cast<std::uint64_t>(status.st_size);
    }

    /// A new, empty file that replaces no other; its name is put into `name`.
    FileDescriptor create(const std::string& stem, mode_t mode, std::string& name) const {
        constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW;
        name = stem;
        for (int number = 2; number <= attemptLimit; ++number) {
            FileDescriptor backup(::openat(directory_.get(), name.c_str(), flags, mode));
            if (backup.isOpen() || errno != EEXIST) return backup;
            name = stem + "-" + std::to_string(number);
        }
        return FileDescriptor();
    }

    void remove(const std::string& name) const { ::unlinkat(directory_.get(), name.c_str(), 0); }

    /// Removes the oldest backups of a log beyond the limit. `newest` stays, whatever a clock that
    /// was set back makes of its name.
    void prune(std::string_view logName, std::string_view newest) const {
        std::vector<std::string> names;
        forEachEntry(logBackupDirectory, 0, [&](const DirectoryEntry& entry) {
            if (entry.name != newest && backupAge(entry.name, logName)) {
                names.emplace_back(entry.name);
            }
        });
        std::sort(names.begin(), names.end(), [&](const auto& one, const auto& other) {
            return backupAge(one, logName) > backupAge(other, logName);
        });
        for (std::size_t surplus = backupLimit - 1; surplus < names.size(); ++surplus)
            remove(names[surplus]);
    }

 private:
    bool adopt() {
        directory_.reset(::open(logBackupDirectory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        return directory_.isOpen();
    }

    FileDescriptor directory_;
};

/// Given up when the thread is asked to stop: a slow disk must not hold that up.
bool copyToEnd(int from, int to) {
    constexpr std::size_t atOnce = 16U << 20U;
    ssize_t copied = 0;
    do {
        copied = ::sendfile(to, from, nullptr, atOnce);
    } while (!stopRequested() && (copied > 0 || (copied < 0 && errno == EINTR)));
    return copied == 0;
}

/// The log's content, when it is to be moved away; not open otherwise. What stands at the path
/// without being the log is not looked at any further.
FileDescriptor openWhenFull(const LogFile& log) {
    FileDescriptor content = openRegularFile(log.path().c_str());
    struct stat status {};
    const bool isFull = content.isOpen() && log.isSameFile(content.get()) &&
                        ::fstat(content.get(), &status) == 0 && status.st_size >= rotationSize;
    return isFull ? std::move(content) : FileDescriptor();
}

}  // namespace

bool rotateWhenFull(LogFile& log) {
    const FileDescriptor content = openWhenFull(log);
    BackupDirectory backups;
    if (!content.isOpen() || !backups.open() || !backups.hasRoomFor(content.get())) return false;
    std::string name;
    const FileDescriptor backup =
        backups.create(backupStem(log.path()), logModeLike(content.get()), name);
    if (!backup.isOpen()) return false;
    if (!copyToEnd(content.get(), backup.get()) || !log.startAnew()) {
        backups.remove(name);
        return false;
    }
    backups.prune(logBaseName(log.path()), name);
    return true;
}

}  // namespace tav
