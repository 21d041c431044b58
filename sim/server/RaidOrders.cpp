#include "sim/server/RaidOrders.h"

#include <array>
#include <cstring>
#include <stdexcept>

#include <sys/socket.h>
#include <sys/un.h>

#include "base/FileDescriptor.h"

namespace tav::sim {
void orderRaid(const std::string& order) {
    const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, raidOrders, sizeof address.sun_path - 1);
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error(std::string("no RAID library at ") + raidOrders);
    }
    const std::string line = order + '\n';
    std::array<char, 512> answer{};
    if (::send(socket.get(), line.data(), line.size(), MSG_NOSIGNAL) < 0 ||
        ::recv(socket.get(), answer.data(), answer.size() - 1, 0) <= 0) {
        throw std::runtime_error("the RAID library does not answer");
    }
    if (std::strncmp(answer.data(), "ok", 2) != 0) {
        throw std::runtime_error(std::string("the RAID library refuses: ") + answer.data());
    }
}

}  // namespace tav::sim
