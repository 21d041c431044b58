#pragma once

#include <functional>
#include <string>
#include <thread>

#include "base/FileDescriptor.h"

namespace tav::sim {

/// Takes orders on a stream socket, on a thread of its own: a line a connection, answered with a
/// line. There may be no room for the socket; then nobody can order anything.
class OrderSocket {
 public:
    using Answer = std::function<std::string(const std::string& order)>;

    OrderSocket(const char* path, Answer answer);
    OrderSocket(const OrderSocket&) = delete;
    OrderSocket& operator=(const OrderSocket&) = delete;
    ~OrderSocket();

 private:
    void run();
    void serve(const FileDescriptor& client);

    const std::string path_;
    const Answer answer_;
    FileDescriptor socket_;
    std::thread thread_;
};

}  // namespace tav::sim
