#pragma once

#include <array>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <string>
#include <vector>

#include <unistd.h>

#include <sys/socket.h>
#include <sys/un.h>

namespace tav::test {

/// Receives what the process writes to the system log.
class SystemLog {
 public:
    SystemLog() : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, "/dev/log");
        ::unlink(address.sun_path);
        const void* const generic = &address;
        if (::bind(socket_, static_cast<const sockaddr*>(generic), sizeof address) != 0) {
            throw std::runtime_error("cannot listen on /dev/log");
        }
    }
    SystemLog(const SystemLog&) = delete;
    SystemLog& operator=(const SystemLog&) = delete;
    ~SystemLog() { ::close(socket_); }

    /// The records so far, as "<priority>identity: text" without their time, if that is now.
    std::vector<std::string> records() {
        std::vector<char> datagram(1U << 18U);
        ssize_t size = 0;
        while ((size = ::recv(socket_, datagram.data(), datagram.size(), 0)) > 0) {
            std::string record(datagram.data(), static_cast<std::size_t>(size));
            const std::size_t priorityEnd = record.find('>') + 1;
            constexpr std::size_t timeSize = 16;  // "Nov 22 21:00:00 "
            if (isNow(record.substr(priorityEnd, timeSize))) record.erase(priorityEnd, timeSize);
            records_.push_back(record);
        }
        return records_;
    }

 private:
    /// Whether it was that in the last minute.
    static bool isNow(const std::string& time) {
        const std::time_t now = std::time(nullptr);
        for (std::time_t moment = now; moment > now - 60; --moment) {
            std::array<char, 32> text{};
            std::strftime(text.data(), text.size(), "%b %e %T ", std::localtime(&moment));
            if (time == text.data()) return true;
        }
        return false;
    }

    int socket_;
    std::vector<std::string> records_;
};

}  // namespace tav::test
