#include "core/SystemLog.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <string>

#include <poll.h>
#include <syslog.h>

#include <sys/socket.h>
#include <sys/un.h>

#include "base/FileDescriptor.h"

namespace {

using std::chrono::milliseconds;

constexpr sockaddr_un systemLog{AF_UNIX, "/dev/log"};
/// Of a record that is longer than the system log can take, this much is sent.
constexpr std::size_t surelyTaken = 32U << 10U;
/// How long a system log that has no room is waited for: once, until it takes records again.
constexpr milliseconds patience{100};

std::atomic<std::size_t> lost{0};

__attribute__((format(printf, 1, 0))) std::string formatted(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    std::string text(static_cast<std::size_t>(length < 0 ? 0 : length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    return text;
}

/// As the system log has its records: "<11>Nov 22 21:00:00 tav: text".
std::string recordOf(int priority, const std::string& text) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    constexpr std::array months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    std::array<char, 64> head{};
    std::snprintf(head.data(), head.size(), "<%d>%s %2d %02d:%02d:%02d tav: ", LOG_USER | priority,
                  months.at(static_cast<std::size_t>(local.tm_mon)), local.tm_mday, local.tm_hour,
                  local.tm_min, local.tm_sec);
    return head.data() + text;
}

/// False when the system log does not take it in time, or there is none.
bool send(int type, const std::string& record, milliseconds limit) {
    const tav::FileDescriptor sender(::socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const void* const address = &systemLog;
    if (!sender.isOpen() ||
        ::connect(sender.get(), static_cast<const sockaddr*>(address), sizeof systemLog) != 0) {
        return false;
    }
    // Behind a record on a stream stands a NUL.
    const std::size_t size = record.size() + (type == SOCK_STREAM ? 1 : 0);
    while (true) {
        const ssize_t sent = ::send(sender.get(), record.c_str(), size, MSG_NOSIGNAL);
        if (sent >= 0 || errno != EAGAIN) return sent == static_cast<ssize_t>(size);
        pollfd room{sender.get(), POLLOUT, 0};
        if (::poll(&room, 1, static_cast<int>(limit.count())) != 1) return false;
        limit = milliseconds(0);
    }
}

bool send(const std::string& record) {
    const milliseconds limit = lost == 0 ? patience : milliseconds(0);
    return send(SOCK_DGRAM, record, limit) ||
           (errno == EPROTOTYPE && send(SOCK_STREAM, record, limit)) ||
           (errno == EMSGSIZE && send(SOCK_DGRAM, record.substr(0, surelyTaken) + " ...", limit));
}

}  // namespace

void tav::reportToSystemLog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string text = formatted(format, arguments);
    va_end(arguments);
    if (const std::size_t missed = lost; missed > 0) {
        const std::string told =
            std::to_string(missed) + " records are missing here: the system log did not take them.";
        if (send(recordOf(LOG_WARNING, told))) lost -= missed;
    }
    if (!send(recordOf(priority, text))) ++lost;
}
