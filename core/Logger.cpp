#include "core/Logger.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <strings.h>
#include <syslog.h>
#include <unistd.h>

#include "base/OneLine.h"
#include "core/LogFile.h"
#include "core/LogLinks.h"
#include "core/LogRotation.h"
#include "core/SystemLog.h"
#include "core/tavConfig.h"
#include "core/tavUtils.h"

namespace CPlusPlusLogging {

/// What the lines of one kind begin with, and how urgent the system log finds them.
struct Logger::Form {
    std::string_view tag;  ///< padded so that the lines of the main log line up
    int priority;
    bool isDebug = false;       ///< goes to the debug log
    bool severalLines = false;  ///< the line ends in a message are its own layout
};

namespace {

constexpr const char* systemLogName = "syslog";

bool isSystemLog(const std::string& location) {
    return ::strcasecmp(location.c_str(), systemLogName) == 0;
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
        if (text.find(row.word) != std::string::npos) return row.level;
    }
    return LEVEL_WARNING;
}

/// Reports why a log's file cannot be used, with errno's number and text.
void reportFailure(const char* failure, const tav::LogFile& log) {
    tav::reportToSystemLog(LOG_ERR, "%s[%s]: %d - %s", failure, log.path().c_str(), errno,
                           std::strerror(errno));
}

void createDirectoryOrExit(const tav::LogFile& log, const char* failure, int exitStatus) {
    if (createDirectoryPath(log.path()) == 0) return;
    reportFailure(failure, log);
    std::exit(exitStatus);
}

/// Three digits at least.
void appendLineNumber(std::string& text, int line) {
    if (line >= 0 && line < 100) text.append(line < 10 ? "00" : "0");
    std::array<char, 12> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), line).ptr;
    text.append(digits.data(), end);
}

/// A message is one line, whoever wrote its parts; only a line end behind it stays.
void appendMessage(std::string& text, std::string_view message) {
    const bool endsItself = message.ends_with('\n');
    tav::appendOneLine(text, message.substr(0, message.size() - (endsItself ? 1 : 0)));
    if (endsItself) text.push_back('\n');
}

void appendLines(std::string& text, std::string_view message) {
    for (std::size_t end = message.find('\n'); end != std::string_view::npos;
         end = message.find('\n')) {
        appendMessage(text, message.substr(0, end + 1));
        message.remove_prefix(end + 1);
    }
    appendMessage(text, message);
}

}  // namespace

void Logger::appendText(const Form& form, std::string_view message, std::string_view module,
                        int line) {
    line_.append(form.tag);
    appendLineNumber(line_, line);
    line_.append(" ").append(module).append(": ");
    (form.severalLines ? appendLines : appendMessage)(line_, message);
}

namespace {

/// A log that is not written at present may still lie there from a time when it was.
bool rotateIdle(const std::string& path) {
    tav::LogFile log(path);
    return ::access(path.c_str(), F_OK) == 0 && log.reopen() && tav::rotateWhenFull(log);
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
        return isSystemLog(location) ? Target::SystemLog : Target::File;
    };
    debugLog_ = std::make_unique<tav::LogFile>(config.getTAVDebugLogFileLocation());
    mainLog_ = std::make_unique<tav::LogFile>(config.getTAVLogFileLocation());
    mainTarget_ = targetOf(mainLog_->path());
    debugTarget_ = targetOf(debugLog_->path());
    debugLevel_ = config.getDebugLogSettings() ? DEBUG_LOGGED : LEVEL_DISABLED;
    logLevel_ = levelFrom(config.getTAVLoggingLevel());
    openLogs(config.getDebugLogSettings());
    linkLogs();
}

Logger::~Logger() = default;

void Logger::openLogs(bool debugLogging) {
    if (mainTarget_ == Target::File) {
        createDirectoryOrExit(*mainLog_, "Failed to create directory path for TAV log file ", -10);
        createDirectoryOrExit(*debugLog_, "Failed to create directory path for TAV debug log file ",
                              -11);
        if (!mainLog_->open()) reportFailure("Error opening TAV log file ", *mainLog_);
    }
    if (debugTarget_ == Target::File && debugLogging && !debugLog_->open()) {
        reportFailure("Error opening the TAV debug log file", *debugLog_);
    }
}

void Logger::linkLogs() {
    if (mainTarget_ == Target::File) createSymbolicLink(mainLog_->path(), tav::logLinkDirectory);
    if (debugTarget_ == Target::File) createSymbolicLink(debugLog_->path(), tav::logLinkDirectory);
    createSymbolicLink(tav::logBackupDirectory, tav::logLinkDirectory);
}

void Logger::error(std::string_view message, std::string_view module, int line) {
    if (writesErrors()) write(LineKind::Error, message, module, line);
}

void Logger::warning(std::string_view message, std::string_view module, int line) {
    if (writesWarnings()) write(LineKind::Warning, message, module, line);
}

void Logger::info(std::string_view message, std::string_view module, int line) {
    if (writesInfo()) write(LineKind::Info, message, module, line);
}

void Logger::debug(std::string_view message, std::string_view module, int line) {
    if (writesDebug()) write(LineKind::Debug, message, module, line);
}

void Logger::debugLines(std::string_view message, std::string_view module, int line) {
    if (writesDebug()) write(LineKind::DebugLines, message, module, line);
}

void Logger::always(std::string_view message, std::string_view module, int line) {
    write(LineKind::Always, message, module, line);
}

void Logger::write(LineKind kind, std::string_view message, std::string_view module, int line) {
    // In the order of the kinds.
    static constexpr std::array<Form, 6> forms = {{{"[ERROR]   ", LOG_ERR},
                                                   {"[WARNING] ", LOG_WARNING},
                                                   {"[INFO]    ", LOG_INFO},
                                                   {"[INFO] ", LOG_INFO},
                                                   {"[DEBUG] ", LOG_DEBUG, true},
                                                   {"[DEBUG] ", LOG_DEBUG, true, true}}};
    const Form& form = forms[static_cast<std::size_t>(kind)];
    const std::lock_guard<std::mutex> held(mutex_);
    line_.clear();
    if ((form.isDebug ? debugTarget_ : mainTarget_.load()) == Target::SystemLog) {
        appendText(form, message, module, line);
        tav::reportToSystemLog(form.priority, "%s", line_.c_str());
        return;
    }
    onceASecond();
    line_.append(stamp_);
    appendText(form, message, module, line);
    line_.push_back('\n');
    (form.isDebug ? debugLog_ : mainLog_)->append(line_);
}

/// What need not be found out anew for every line.
void Logger::onceASecond() {
    const std::time_t now = std::time(nullptr);
    if (now == stampSecond_) return;
    stamp_ = tavUtils::getDateTime() + ' ';
    stampSecond_ = now;
    for (tav::LogFile* const log : {mainLog_.get(), debugLog_.get()}) {
        bringBack(*log);
    }
}

/// A log whose file has been taken away from under it would go on into nowhere.
void Logger::bringBack(tav::LogFile& log) {
    if (!log.isOpen() || !log.isAstray()) return;
    if (createDirectoryPath(log.path()) != 0 || !log.reopen()) return;
    tav::reportToSystemLog(LOG_WARNING,
                           "TAV log file [%s] had been removed or replaced and was opened anew.",
                           log.path().c_str());
}

void Logger::isFileExceeded(const std::string& path) {
    if (isSystemLog(path)) return;  // a file of that name in the working directory is not ours
    const std::lock_guard<std::mutex> held(mutex_);
    bool rotated = false;
    for (tav::LogFile* const log : {mainLog_.get(), debugLog_.get()}) {
        if (log->path() != path) continue;
        if (!rotated) {
            rotated = log->isOpen() ? tav::rotateWhenFull(*log) : rotateIdle(path);
        } else if (log->isOpen()) {
            log->reopen();  // both logs share one file
        }
    }
}

}  // namespace CPlusPlusLogging
