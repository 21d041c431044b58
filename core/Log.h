#pragma once

#include <string>

#include "base/Export.h"

namespace tav {

/// Source line that a log line carries.
struct SourceLine {
    int number;
};

/// The line this is written on.
constexpr SourceLine here(int line = __builtin_LINE()) {
    return {line};
}

/// The fixed number that a message is known by.
constexpr SourceLine at(int line) {
    return {line};
}

/// Writes the log lines of one module: formats like printf, into at most 4,095 characters, and only
/// when the logger's level lets the line through. One constant of this class per source file.
class TAV_API ModuleLog {
 public:
    /// `module` is the short upper-case tag of the lines and must outlive this object.
    constexpr explicit ModuleLog(const char* module) : module_(module) {}

    void error(SourceLine line, const char* format, ...) const
        __attribute__((format(printf, 3, 4)));
    void warning(SourceLine line, const char* format, ...) const
        __attribute__((format(printf, 3, 4)));
    void info(SourceLine line, const char* format, ...) const __attribute__((format(printf, 3, 4)));
    void debug(SourceLine line, const char* format, ...) const
        __attribute__((format(printf, 3, 4)));

    /// Keeps the line ends of the message: for dumps whose layout is our own.
    void debugLines(SourceLine line, const char* format, ...) const
        __attribute__((format(printf, 3, 4)));

    /// Whether debug lines are written, for messages whose arguments are costly to make.
    bool writesDebug() const;

    /// A ready text of any length, written whole.
    void infoText(SourceLine line, const std::string& text) const;

 private:
    const char* module_;
};

}  // namespace tav
