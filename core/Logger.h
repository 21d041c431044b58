#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "base/Export.h"

namespace tav {
class LogFile;
}

namespace CPlusPlusLogging {

/// Threshold of a log.
enum LOG_LEVEL : std::int32_t {
    DEBUG_LOGGED = 1,  ///< of the debug log: its lines are written
    LEVEL_INFO = 2,
    LEVEL_WARNING = 3,
    LEVEL_ERROR = 4,
    LEVEL_ENABLED_ONLY = 6,
    LEVEL_DISABLED = 7,  ///< also of the debug log: its lines are not written
};

/// What a line is. DebugLines: of the debug log, with the line ends of its message kept.
enum class LineKind : std::uint8_t { Error, Warning, Info, Always, Debug, DebugLines };

/// The logger of the process. It writes either to files or to the system log, as the configuration
/// says when the instance is made; only the level and the main log's target can change later.
///
/// Any thread may log; every line is formatted and written under one lock (rank: innermost, see
/// docs/architecture.md), so nothing inside the writing of a line logs.
class TAV_API Logger {
 public:
    /// The instance, made by the first call. When a log file's directory cannot be created the
    /// process ends here, with exit status -10 (main log) or -11 (debug log).
    static Logger* getInstance();
    static void loggerInit();

    /// One line each: message, module tag, source line number (three digits or four). What in the
    /// message would end the line, move a cursor or is no UTF-8 is written as an escape sequence; a
    /// line end behind the message stays.
    void error(std::string_view message, std::string_view module, int line);
    void warning(std::string_view message, std::string_view module, int line);
    void info(std::string_view message, std::string_view module, int line);
    void debug(std::string_view message, std::string_view module, int line);
    /// The same with the line ends in the message kept: for dumps whose layout is our own.
    void debugLines(std::string_view message, std::string_view module, int line);
    /// Written whatever the level.
    void always(std::string_view message, std::string_view module, int line);

    /// All of these, whatever the level.
    void write(LineKind kind, std::string_view message, std::string_view module, int line);

    /// Whether the level lets lines of that kind through.
    bool writesErrors() const noexcept { return level() < 5; }
    bool writesWarnings() const noexcept { return level() < 4; }
    bool writesInfo() const noexcept { return level() < 3; }
    bool writesDebug() const noexcept { return debugLevel_ == DEBUG_LOGGED; }

    void updateLogLevel(LOG_LEVEL level) noexcept { logLevel_ = level; }
    LOG_LEVEL getLoglevel() const noexcept { return level(); }
    LOG_LEVEL getDebugLoglevel() const noexcept { return debugLevel_; }
    void enaleLog() noexcept { logLevel_ = LEVEL_ENABLED_ONLY; }
    void disableLog() noexcept { logLevel_ = LEVEL_DISABLED; }
    /// Sends the main log to its file from now on; opens nothing.
    void enableFileLogging() noexcept { mainTarget_ = Target::File; }

    /// Moves the main or the debug log into the backup directory when it has reached 500,000,000
    /// bytes, and starts it anew. No line is lost: the log lock is held meanwhile, and the live log
    /// stays as it is when the copy fails. The ten newest backups of a log are kept. Other paths
    /// are left alone.
    void isFileExceeded(const std::string& path);

    void lock() { mutex_.lock(); }
    void unlock() { mutex_.unlock(); }

 private:
    enum class Target : std::int32_t { File = 2, SystemLog = 3 };

    struct Form;

    Logger();
    ~Logger();

    LOG_LEVEL level() const noexcept { return logLevel_.load(std::memory_order_relaxed); }

    void openLogs(bool debugLogging);
    void linkLogs();
    void appendText(const Form& form, std::string_view message, std::string_view module, int line);
    void onceASecond();
    static void bringBack(tav::LogFile& log);

    static Logger* m_Instance;

    std::unique_ptr<tav::LogFile> mainLog_;
    std::unique_ptr<tav::LogFile> debugLog_;
    std::mutex mutex_;
    std::atomic<LOG_LEVEL> logLevel_{LEVEL_WARNING};
    LOG_LEVEL debugLevel_ = LEVEL_DISABLED;
    std::atomic<Target> mainTarget_{Target::SystemLog};
    Target debugTarget_ = Target::SystemLog;

    std::string line_;   ///< the line being written; kept to reuse its memory
    std::string stamp_;  ///< date and time of stampSecond_, and a blank
    std::time_t stampSecond_ = -1;
};

/// Creates every missing parent directory of `path` (mode 0700), never its last component. 0, or -1
/// at the first that cannot be created, with errno as mkdir left it.
TAV_API int createDirectoryPath(const std::string& path);

/// Makes `linkDirectory`/(base name of `target`) a symbolic link to `target`, replacing what is
/// there. 0, also when `target` cannot be read (nothing is done then), or -1 after a warning in the
/// system log.
TAV_API int createSymbolicLink(const std::string& target, const std::string& linkDirectory);

}  // namespace CPlusPlusLogging
