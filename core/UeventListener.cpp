#include "core/UeventListener.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include <linux/netlink.h>
#include <sys/socket.h>

#include "base/Threads.h"
#include "base/Waiting.h"
#include "core/Log.h"
#include "core/LoopWatch.h"

namespace tav {
namespace {

using namespace std::chrono_literals;

constexpr ModuleLog logger{"UEVENT"};

/// The kernel tells of one disk in a dozen messages.
constexpr auto pauseBetweenDevices = 100ms;
constexpr auto longestSettling = 500ms;
constexpr std::chrono::milliseconds shortestRest = 1s;
constexpr std::chrono::milliseconds longestRest = 10s;

constexpr auto untilStopped = 24h;
/// More than the socket holds: whoever floods it does not keep the listener from telling.
constexpr int mostAtOnce = 4096;
/// The kernel makes none that are longer.
constexpr std::size_t messageSize = 8192;

constexpr unsigned fromKernel = 0;    // the port of the sender
constexpr unsigned kernelsGroup = 1;  // the other one is for what programs make of it

void sayWithout(const char* what, int error) {
    logger.info(here(),
                "%s: %s. Devices that come or go are noticed by the next regular look at them.",
                what, std::strerror(error));
}

}  // namespace

FileDescriptor openUeventSocket() {
    FileDescriptor socket(
        ::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_KOBJECT_UEVENT));
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = kernelsGroup;
    if (!socket.isOpen() ||
        ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        sayWithout("The kernel's news of its devices cannot be had", errno);
        socket.reset();
    }
    return socket;
}

UeventListener::UeventListener(FileDescriptor socket, const char* threadName, Concerns concerns,
                               std::function<void()> tell)
    : socket_(std::move(socket)), concerns_(concerns), tell_(std::move(tell)) {
    if (!socket_.isOpen()) return;
    const int error = startThread(thread_, threadName, [this] {
        const StopScope scope(&stop_);
        listen();
    });
    if (error != 0) sayWithout("Nobody can listen to the kernel's news of its devices", error);
}

UeventListener::~UeventListener() {
    stop_.request();
    joinThread(thread_);
}

void UeventListener::listen() {
    LoopWatch watch;
    watch.begins();
    bool hasNews = false;
    auto rest = shortestRest;
    while (!stopRequested() && socket_.isOpen()) {
        if (!hasNews) {
            const LoopWaits waits(watch);
            waitReadable(socket_.get(), TimeLimit(untilStopped));
            hasNews = takeAll();
            rest = shortestRest;
            continue;
        }
        if (!settles()) return;
        tell_();
        pauseFor(rest);
        hasNews = takeAll();
        rest = std::min(2 * rest, longestRest);
    }
}

/// False when a stop has come first.
bool UeventListener::settles() {
    const TimeLimit limit(longestSettling);
    do {
        if (pauseFor(pauseBetweenDevices) == Pause::Stopped) return false;
    } while (takeAll() && limit.left() > 0ms);
    return true;
}

/// Empties the socket: whether there was something in it that concerns the owner. Only the kernel's
/// own messages count; one that it had to drop may have been any.
bool UeventListener::takeAll() {
    bool hasNews = false;
    std::array<std::byte, messageSize> message;
    for (int count = 0; count < mostAtOnce; ++count) {
        sockaddr_nl sender{};
        socklen_t senderSize = sizeof sender;
        const ssize_t received =
            ::recvfrom(socket_.get(), message.data(), message.size(), MSG_DONTWAIT,
                       reinterpret_cast<sockaddr*>(&sender), &senderSize);
        if (received >= 0) {
            const auto event =
                parseUevent(std::span(message).first(static_cast<std::size_t>(received)));
            hasNews |= sender.nl_pid == fromKernel && event && concerns_(*event);
        } else if (errno == ENOBUFS) {
            hasNews = true;
        } else if (errno != EINTR) {
            if (errno == EAGAIN) break;
            sayWithout("The kernel's news of its devices cannot be read any more", errno);
            socket_.reset();
            break;
        }
    }
    return hasNews;
}

}  // namespace tav
