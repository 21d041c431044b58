#include "core/SystemLog.h"

#include <cstdarg>

#include <syslog.h>

void tav::reportToSystemLog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    ::openlog("tav", 0, LOG_USER);
    ::vsyslog(priority, format, arguments);
    ::closelog();
    va_end(arguments);
}
