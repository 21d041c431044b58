#include "sim/server/OrderClient.h"

#include <array>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>

#include "base/FileDescriptor.h"

namespace tav::sim {

OrderAnswer giveOrder(const char* path, const std::string& order) {
    const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return {};
    }
    OrderAnswer answer{true, std::nullopt};
    const std::string line = order + '\n';
    std::array<char, 512> received{};
    if (::send(socket.get(), line.data(), line.size(), MSG_NOSIGNAL) < 0 ||
        ::recv(socket.get(), received.data(), received.size() - 1, 0) <= 0) {
        return answer;
    }
    answer.line = received.data();
    return answer;
}

}  // namespace tav::sim
