#include "sim/storelib/OrderSocket.h"

#include <array>
#include <cstring>

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

namespace tav::sim {
namespace {

constexpr std::size_t longestOrder = 4096;
constexpr timeval patience{2, 0};

FileDescriptor listenAt(const std::string& path) {
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ::unlink(path.c_str());
    const bool listening =
        ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        ::listen(socket.get(), 16) == 0;
    return listening ? std::move(socket) : FileDescriptor();
}

/// What comes up to the end of the line.
std::string readLine(const FileDescriptor& client) {
    std::string line;
    std::array<char, 512> part{};
    while (line.size() < longestOrder && line.find('\n') == std::string::npos) {
        const ssize_t count = ::recv(client.get(), part.data(), part.size(), 0);
        if (count <= 0) break;
        line.append(part.data(), static_cast<std::size_t>(count));
    }
    return line.substr(0, line.find('\n'));
}

}  // namespace

OrderSocket::OrderSocket(const char* path, Answer answer)
    : path_(path), answer_(std::move(answer)), socket_(listenAt(path_)) {
    if (socket_.isOpen()) thread_ = std::thread([this] { run(); });
}

OrderSocket::~OrderSocket() {
    if (!thread_.joinable()) return;
    ::shutdown(socket_.get(), SHUT_RDWR);  // accept() returns
    thread_.join();
    ::unlink(path_.c_str());
}

void OrderSocket::run() {
    while (true) {
        const FileDescriptor client(::accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (client.isOpen()) {
            serve(client);
        } else if (errno == EINVAL || errno == EBADF) {
            return;
        }
    }
}

void OrderSocket::serve(const FileDescriptor& client) {
    ::setsockopt(client.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    const std::string answer = answer_(readLine(client)) + '\n';
    ::send(client.get(), answer.data(), answer.size(), MSG_NOSIGNAL);
}

}  // namespace tav::sim
