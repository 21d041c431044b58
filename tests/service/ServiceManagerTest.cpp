#include <array>
#include <chrono>
#include <string>

#include <poll.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

#include "base/FileDescriptor.h"
#include "core/LoopWatch.h"
#include "service/ServiceManager.h"
#include "tests/support/Service.h"

namespace {

using namespace std::chrono_literals;
using tav::test::logEverything;
using tav::test::logs;
using testing::HasSubstr;

/// Stands for systemd.
class Listener {
 public:
    explicit Listener(const std::string& path) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        if (path[0] == '@') address.sun_path[0] = '\0';
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
        EXPECT_EQ(::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), size), 0);
        ::setenv("NOTIFY_SOCKET", path.c_str(), 1);
    }
    /// The next message; empty when none comes within that time.
    std::string heard(std::chrono::milliseconds wait) {
        pollfd watched{socket_.get(), POLLIN, 0};
        if (::poll(&watched, 1, static_cast<int>(wait.count())) <= 0) return {};
        std::array<char, 256> text{};
        const ssize_t size = ::recv(socket_.get(), text.data(), text.size(), 0);
        return {text.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
    }

 private:
    tav::FileDescriptor socket_{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

TEST(ServiceManager, TheServiceTellsThatItServesLivesAndEnds) {
    for (const char* const path : {"/run/notify", "@tavd-notify"}) {
        logEverything();
        tav::test::writeHostCommands();
        Listener systemd(path);
        ::setenv("WATCHDOG_USEC", "200000", 1);
        const pid_t service = ::fork();
        if (service == 0) {
            ::setenv("WATCHDOG_PID", std::to_string(::getpid()).c_str(), 1);
            ::execl(TAVD, TAVD, nullptr);
            ::_exit(127);
        }
        EXPECT_EQ(systemd.heard(5s), "READY=1");
        for (int feed = 0; feed < 3; ++feed)
            EXPECT_EQ(systemd.heard(1s), "WATCHDOG=1");
        ::kill(service, SIGTERM);
        std::string last;
        for (std::string next; (next = systemd.heard(1s)) == "WATCHDOG=1" || last.empty();)
            last = next;
        EXPECT_EQ(last, "STOPPING=1");
        ::waitpid(service, nullptr, 0);
    }
}

TEST(ServiceManager, FeedsNoWatchdogWhileALoopStands) {
    logEverything();
    Listener systemd("/run/notify");
    ::setenv("WATCHDOG_USEC", "3000000", 1);
    tavd::ServiceManager manager;
    EXPECT_EQ(manager.lookEvery(), 1500ms);
    EXPECT_EQ(std::getenv("NOTIFY_SOCKET"), nullptr) << "children have nothing to say";
    tav::LoopWatch moving;
    moving.begins();
    manager.lookAtLoops();
    EXPECT_EQ(systemd.heard(1s), "WATCHDOG=1");

    ::pthread_setname_np(::pthread_self(), "tav-stuck");
    tav::LoopWatch stuck(0s);
    stuck.begins();
    manager.lookAtLoops();
    manager.lookAtLoops();
    EXPECT_EQ(systemd.heard(50ms), "");
    EXPECT_THAT(logs(), HasSubstr("tav-stuck stands still"));
    EXPECT_EQ(logs().find("stands still"), logs().rfind("stands still")) << "told once";

    stuck.waits();
    manager.lookAtLoops();
    EXPECT_EQ(systemd.heard(1s), "WATCHDOG=1");
}

TEST(ServiceManager, NobodyListens) {
    ::unsetenv("NOTIFY_SOCKET");
    ::setenv("WATCHDOG_USEC", "200000", 1);
    ::setenv("WATCHDOG_PID", "1", 1);
    tavd::ServiceManager manager;
    EXPECT_FALSE(manager.lookEvery()) << "the watchdog waits for another process";
    manager.serves();
    manager.lookAtLoops();
}

}  // namespace
