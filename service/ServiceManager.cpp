#include "service/ServiceManager.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <unistd.h>

#include <sys/socket.h>
#include <sys/un.h>

#include "base/FileDescriptor.h"
#include "core/Log.h"
#include "core/LoopWatch.h"

namespace tavd {
namespace {

constexpr tav::ModuleLog logger{"TAVD"};

std::string takeFromEnvironment(const char* name) {
    const char* const value = std::getenv(name);
    std::string text = value == nullptr ? "" : value;
    ::unsetenv(name);
    return text;
}

/// 0 for what is no number.
long long numberIn(const std::string& text) {
    long long number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

}  // namespace

ServiceManager::ServiceManager() : socket_(takeFromEnvironment("NOTIFY_SOCKET")) {
    const std::string process = takeFromEnvironment("WATCHDOG_PID");
    const long long microseconds = numberIn(takeFromEnvironment("WATCHDOG_USEC"));
    if (microseconds > 0 && (process.empty() || numberIn(process) == ::getpid())) {
        watchdog_ = std::chrono::microseconds(microseconds);
    }
}

std::optional<std::chrono::milliseconds> ServiceManager::lookEvery() const {
    if (watchdog_.count() == 0) return std::nullopt;
    return std::chrono::duration_cast<std::chrono::milliseconds>(watchdog_ / 2);
}

void ServiceManager::lookAtLoops() {
    std::vector<std::string> standing;
    for (const tav::StandingLoop& loop : tav::LoopWatch::standingStill()) {
        standing.push_back(loop.name);
        if (std::find(toldOf_.begin(), toldOf_.end(), loop.name) != toldOf_.end()) continue;
        logger.error(tav::here(), "%s stands still: it should have gone on %lld s ago.%s",
                     loop.name.c_str(), static_cast<long long>(loop.overdue.count()),
                     watchdog_.count() == 0 ? "" : " The watchdog will restart the service.");
    }
    toldOf_ = std::move(standing);
    if (toldOf_.empty() && watchdog_.count() > 0) tell("WATCHDOG=1");
}

/// One datagram; an address that begins with '@' stands in no directory. What cannot be delivered
/// is let go: the listener acts on what it does not hear.
void ServiceManager::tell(std::string_view message) const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socket_.empty() || socket_.size() >= sizeof address.sun_path) return;
    std::memcpy(address.sun_path, socket_.data(), socket_.size());
    if (address.sun_path[0] == '@') address.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socket_.size());
    const tav::FileDescriptor sender(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ::sendto(sender.get(), message.data(), message.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
             reinterpret_cast<const sockaddr*>(&address), size);
}

}  // namespace tavd
