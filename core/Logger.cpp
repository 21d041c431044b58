#include "core/Logger.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <strings.h>
#include <syslog.h>

#include <sys/sendfile.h>
#include <sys/stat.h>

#include "base/Files.h"
#include "core/tavConfig.h"
#include "core/tavUtils.h"

namespace CPlusPlusLogging {
namespace {

constexpr const char* linkDirectory = "/opt/orn/tav/log";
constexpr const char* backupDirectory = "/scratch/log/orn/tav/backup_log";
constexpr const char* systemLogName = "syslog";
constexpr const char* identity = "tav";
constexpr off_t rotationSize = 500'000'000;
constexpr mode_t directoryMode = 0700;
constexpr mode_t logMode = 0640;
constexpr int appending = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY;

// Written with the padding that makes the lines of the main log line up.
constexpr std::string_view errorTag = "[ERROR]  ";
constexpr std::string_view warningTag = "[WARNING]";
constexpr std::string_view infoTag = "[INFO]   ";
constexpr std::string_view debugTag = "[DEBUG]";
constexpr std::string_view alwaysTag = "[INFO]";

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

struct Priority {
    std::string_view word;
    int priority;
};
constexpr std::array priorities = {Priority{"ERROR", LOG_ERR}, Priority{"WARNING", LOG_WARNING},
                                   Priority{"INFO", LOG_INFO}, Priority{"DEBUG", LOG_DEBUG}};

int priorityOf(std::string_view tag) {
    for (const Priority& row : priorities) {
        if (contains(tag, row.word)) return row.priority;
    }
    return LOG_INFO;
}

struct LevelWord {
    std::string_view word;
    LOG_LEVEL level;
};
constexpr std::array levelWords = {LevelWord{"error", LEVEL_ERROR},
                                   LevelWord{"warning", LEVEL_WARNING},
                                   LevelWord{"info", LEVEL_INFO}};

LOG_LEVEL levelFrom(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const LevelWord& row : levelWords) {
        if (contains(text, row.word)) return row.level;
    }
    return LEVEL_WARNING;
}

/// One record in the system log, for what cannot go to the log itself.
__attribute__((format(printf, 2, 3))) void reportToSyslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    ::openlog(identity, 0, LOG_USER);
    ::vsyslog(priority, format, arguments);
    ::closelog();
    va_end(arguments);
}

std::string_view baseName(std::string_view path) {
    return path.substr(path.find_last_of("/\\") + 1);
}

/// A new, empty backup file that replaces no other; its name is put into `path`.
tav::FileDescriptor createBackup(std::string_view logPath, std::string& path) {
    std::tm now{};
    const std::time_t seconds = std::time(nullptr);
    ::localtime_r(&seconds, &now);
    std::array<char, 32> suffix{};
    std::strftime(suffix.data(), suffix.size(), "%Y%m%d-%H%M%S", &now);
    const std::string stem =
        std::string(backupDirectory) + "/" + std::string(baseName(logPath)) + "_" + suffix.data();
    constexpr int attempts = 1000;
    path = stem;
    for (int attempt = 2; attempt <= attempts; ++attempt) {
        const int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW;
        tav::FileDescriptor backup(::open(path.c_str(), flags, logMode));
        if (backup.isOpen() || errno != EEXIST) return backup;
        path = stem + "-" + std::to_string(attempt);
    }
    return tav::FileDescriptor();
}

bool copyToEnd(int from, int to) {
    constexpr std::size_t atOnce = 1U << 30U;
    ssize_t copied = 0;
    do {
        copied = ::sendfile(to, from, nullptr, atOnce);
    } while (copied > 0 || (copied < 0 && errno == EINTR));
    return copied == 0;
}

/// Copies the log into the backup directory; leaves no partial backup behind.
bool backUp(const std::string& logPath, std::string& backupPath) {
    const tav::FileDescriptor log = tav::openRegularFile(logPath.c_str());
    if (!log.isOpen()) return false;
    const tav::FileDescriptor backup = createBackup(logPath, backupPath);
    if (!backup.isOpen()) return false;
    if (copyToEnd(log.get(), backup.get())) return true;
    ::unlink(backupPath.c_str());
    return false;
}

/// Puts a new, empty file in the place of the log. Not open when that fails; the old one stays
/// then.
tav::FileDescriptor startAnew(const std::string& logPath) {
    const std::string freshPath = logPath + ".new";
    tav::FileDescriptor fresh(::open(freshPath.c_str(), appending | O_TRUNC | O_NOFOLLOW, logMode));
    if (!fresh.isOpen()) return fresh;
    if (::rename(freshPath.c_str(), logPath.c_str()) == 0) return fresh;
    ::unlink(freshPath.c_str());
    return tav::FileDescriptor();
}

void ensureBackupDirectory() {
    struct stat status {};
    if (::stat(backupDirectory, &status) == 0 && S_ISDIR(status.st_mode)) return;
    createDirectoryPath(std::string(backupDirectory) + "/");
    createSymbolicLink(backupDirectory, linkDirectory);
}

/// Whether the entry at `link` is the very file that `target` names, under whatever spelling.
bool isSameEntry(const std::string& target, const std::string& link) {
    struct stat targetStatus {};
    struct stat linkStatus {};
    return ::stat(target.c_str(), &targetStatus) == 0 && ::lstat(link.c_str(), &linkStatus) == 0 &&
           targetStatus.st_dev == linkStatus.st_dev && targetStatus.st_ino == linkStatus.st_ino;
}

off_t sizeOf(const std::string& path) {
    const tav::FileDescriptor file = tav::openRegularFile(path.c_str());
    return file.isOpen() ? ::lseek(file.get(), 0, SEEK_END) : -1;
}

}  // namespace

Logger* Logger::m_Instance = nullptr;

Logger* Logger::getInstance() {
    static Logger* const instance = m_Instance = new Logger;  // lives as long as the process
    return instance;
}

void Logger::loggerInit() {
    getInstance();
}

Logger::Logger() {
    const tavConfig& config = *tavConfig::getInstance();
    const auto targetOf = [](const std::string& location) {
        return ::strcasecmp(location.c_str(), systemLogName) == 0 ? Target::SystemLog
                                                                  : Target::File;
    };
    debugLog_.path = config.getTAVDebugLogFileLocation();
    mainLog_.path = config.getTAVLogFileLocation();
    mainTarget_ = targetOf(mainLog_.path);
    debugTarget_ = targetOf(debugLog_.path);
    debugLevel_ = config.getDebugLogSettings() ? DEBUG_LOGGED : LEVEL_DISABLED;
    logLevel_ = levelFrom(config.getTAVLoggingLevel());
    openLogs(config.getDebugLogSettings());
    linkLogs();
}

Logger::~Logger() = default;

void Logger::openLogs(bool debugLogging) {
    if (mainTarget_ == Target::File) {
        if (createDirectoryPath(mainLog_.path) != 0) {
            reportToSyslog(LOG_ERR,
                           "Failed to create directory path for TAV log file [%s]: %d - %s",
                           mainLog_.path.c_str(), errno, std::strerror(errno));
            std::exit(-10);
        }
        if (createDirectoryPath(debugLog_.path) != 0) {
            reportToSyslog(LOG_ERR,
                           "Failed to create directory path for TAV debug log file [%s]: %d - %s",
                           debugLog_.path.c_str(), errno, std::strerror(errno));
            std::exit(-11);
        }
        mainLog_.descriptor.reset(::open(mainLog_.path.c_str(), appending, logMode));
        if (!mainLog_.descriptor.isOpen()) {
            reportToSyslog(LOG_ERR, "Error opening TAV log file [%s]: %d - %s",
                           mainLog_.path.c_str(), errno, std::strerror(errno));
        }
    }
    if (debugTarget_ == Target::File && debugLogging) {
        debugLog_.descriptor.reset(::open(debugLog_.path.c_str(), appending, logMode));
        if (!debugLog_.descriptor.isOpen()) {
            reportToSyslog(LOG_ERR, "Error opening the TAV debug log file[%s]: %d - %s",
                           debugLog_.path.c_str(), errno, std::strerror(errno));
        }
    }
}

void Logger::linkLogs() {
    if (mainTarget_ == Target::File) createSymbolicLink(mainLog_.path, linkDirectory);
    if (debugTarget_ == Target::File) createSymbolicLink(debugLog_.path, linkDirectory);
    createSymbolicLink(backupDirectory, linkDirectory);
}

void Logger::error(std::string_view message, std::string_view module, int line) {
    if (writesErrors()) write(mainTarget_, errorTag, message, module, line);
}

void Logger::warning(std::string_view message, std::string_view module, int line) {
    if (writesWarnings()) write(mainTarget_, warningTag, message, module, line);
}

void Logger::info(std::string_view message, std::string_view module, int line) {
    if (writesInfo()) write(mainTarget_, infoTag, message, module, line);
}

void Logger::debug(std::string_view message, std::string_view module, int line) {
    if (writesDebug()) write(debugTarget_, debugTag, message, module, line);
}

void Logger::always(std::string_view message, std::string_view module, int line) {
    write(mainTarget_, alwaysTag, message, module, line);
}

void Logger::write(Target target, std::string_view tag, std::string_view message,
                   std::string_view module, int line) {
    const std::lock_guard<std::mutex> held(mutex_);
    if (target == Target::File) {
        logIntoFile(tag, message, module, line);
    } else {
        logIntoSyslog(tag, message, module, line);
    }
}

namespace {

/// Three digits at least.
void appendLineNumber(std::string& text, int line) {
    if (line >= 0 && line < 10) text.append("00");
    if (line >= 10 && line < 100) text.append("0");
    text.append(std::to_string(line));
}

void appendText(std::string& text, std::string_view tag, std::string_view message,
                std::string_view module, int line) {
    text.append(tag).append(" ");
    appendLineNumber(text, line);
    text.append(" ").append(module).append(": ").append(message);
}

}  // namespace

void Logger::logIntoFile(std::string_view tag, std::string_view message, std::string_view module,
                         int line) {
    LogFile& log = contains(tag, "DEBUG") ? debugLog_ : mainLog_;
    const std::time_t now = std::time(nullptr);
    if (now != stampSecond_) {
        stamp_ = tavUtils::getDateTime();
        stampSecond_ = now;
        restoreIfRemoved(mainLog_);
        restoreIfRemoved(debugLog_);
    }
    line_.assign(stamp_).append(" ");
    appendText(line_, tag, message, module, line);
    line_.append("\n");
    // A line that does not fit on a full disk is lost; the next one is tried again.
    tav::writeAll(log.descriptor.get(), line_.data(), line_.size());
}

void Logger::logIntoSyslog(std::string_view tag, std::string_view message, std::string_view module,
                           int line) {
    std::string text;
    appendText(text, tag, message, module, line);
    reportToSyslog(priorityOf(tag), "%s", text.c_str());
}

/// A log whose file has been deleted from under it would go on into nowhere.
void Logger::restoreIfRemoved(LogFile& log) {
    struct stat status {};
    if (!log.descriptor.isOpen() || ::fstat(log.descriptor.get(), &status) != 0) return;
    if (status.st_nlink > 0 || createDirectoryPath(log.path) != 0) return;
    tav::FileDescriptor fresh(::open(log.path.c_str(), appending, logMode));
    if (!fresh.isOpen()) return;
    log.descriptor = std::move(fresh);
    reportToSyslog(LOG_WARNING, "TAV log file [%s] had been removed and was created anew.",
                   log.path.c_str());
}

void Logger::isFileExceeded(const std::string& path) {
    if (path != mainLog_.path && path != debugLog_.path) return;
    if (sizeOf(path) < rotationSize) return;
    ensureBackupDirectory();
    const std::lock_guard<std::mutex> held(mutex_);
    std::string backupPath;
    if (!backUp(path, backupPath)) return;
    tav::FileDescriptor fresh = startAnew(path);
    if (!fresh.isOpen()) {
        ::unlink(backupPath.c_str());
        return;
    }
    for (LogFile* log : {&mainLog_, &debugLog_}) {
        if (log->path == path) {
            log->descriptor.reset(::fcntl(fresh.get(), F_DUPFD_CLOEXEC, 0));
        }
    }
}

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
    const std::string_view name = baseName(target);
    if (name.empty()) {
        reportToSyslog(LOG_WARNING, "basename(%s) returned NULL", target.c_str());
        return -1;
    }
    const std::string link = directory + "/" + std::string(name);
    // Checked before anything is removed: a log may live in the link directory itself.
    if (target == link || isSameEntry(target, link)) {
        reportToSyslog(LOG_WARNING,
                       "Target path(%s) matches symbolic link path(%s). Hence, symbolic link will "
                       "not be created.",
                       target.c_str(), link.c_str());
        return -1;
    }
    if (std::remove(link.c_str()) != 0 && errno != ENOENT) {
        reportToSyslog(LOG_WARNING, "remove(%s) completed with errno [%d]", link.c_str(), errno);
        return -1;
    }
    if (::symlink(target.c_str(), link.c_str()) != 0 && errno != EEXIST) {
        reportToSyslog(LOG_WARNING, "symlink(%s, %s) completed with errno [%d]", target.c_str(),
                       link.c_str(), errno);
        return -1;
    }
    return 0;
}

}  // namespace CPlusPlusLogging
