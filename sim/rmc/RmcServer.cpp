#include "sim/rmc/RmcServer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <vector>

#include <poll.h>
#include <unistd.h>

#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "sim/Clock.h"
#include "sim/rmc/Json.h"

namespace tav::sim {
namespace {

constexpr std::size_t longestOrder = std::size_t{64} << 10;
constexpr std::string_view noteWord = "note=";

FileDescriptor listenAt(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    // It appears under its name when it listens: whoever sees it can connect.
    const std::string fresh = path + ".n";
    if (fresh.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return {};
    }
    std::memcpy(address.sun_path, fresh.c_str(), fresh.size());
    ::unlink(fresh.c_str());
    FileDescriptor listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener.get(), SOMAXCONN) != 0 || ::rename(fresh.c_str(), path.c_str()) != 0) {
        return {};
    }
    return listener;
}

/// SIGTERM and SIGINT as something to poll.
FileDescriptor terminationSignals() {
    sigset_t wanted;
    sigemptyset(&wanted);
    sigaddset(&wanted, SIGTERM);
    sigaddset(&wanted, SIGINT);
    ::sigprocmask(SIG_BLOCK, &wanted, nullptr);
    return FileDescriptor(::signalfd(-1, &wanted, SFD_CLOEXEC));
}

Bytes bytesOf(const std::string& text) {
    return {text.begin(), text.end()};
}

}  // namespace

bool RmcServer::serveMachines(const std::string& path) {
    machines_ = listenAt(path);
    return machines_.isOpen();
}

bool RmcServer::serveOrders(const std::string& path) {
    orders_ = listenAt(path);
    return orders_.isOpen();
}

ServerEnd RmcServer::run(std::optional<std::chrono::seconds> limit) {
    const FileDescriptor signals = terminationSignals();
    const Clock::time_point end = Clock::now() + limit.value_or(std::chrono::hours(24 * 365));
    while (!awaitedAll_) {
        if (signalled_) return ServerEnd::Signalled;
        if (Clock::now() >= end) return ServerEnd::TimedOut;
        if (!waitAndServe(end, signals.get())) return ServerEnd::Failed;
    }
    return ServerEnd::Finished;
}

bool RmcServer::waitAndServe(Clock::time_point until, int signals) {
    if (!late_.empty()) until = std::min(until, late_.begin()->first);
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();

    std::vector<pollfd> watched = {
        {signals, POLLIN, 0}, {machines_.get(), POLLIN, 0}, {orders_.get(), POLLIN, 0}};
    std::vector<unsigned> ids;
    for (const auto& [id, connection] : connections_) {
        watched.push_back({connection.socket.get(), POLLIN, 0});
        ids.push_back(id);
    }
    const auto timeout = static_cast<int>(std::clamp<long long>(left, 0, 60'000));
    if (::poll(watched.data(), watched.size(), timeout) < 0) return errno == EINTR;

    signalled_ = watched[0].revents != 0;
    if (watched[1].revents != 0) accept(machines_.get(), false);
    if (watched[2].revents != 0) accept(orders_.get(), true);
    for (std::size_t index = 0; index < ids.size(); ++index) {
        const auto found = connections_.find(ids[index]);
        if (watched[index + 3].revents != 0 && found != connections_.end()) {
            receive(found->first, found->second);
        }
    }
    sendLate(Clock::now());
    return true;
}

void RmcServer::accept(int listener, bool givesOrders) {
    FileDescriptor socket(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket.isOpen()) return;
    Connection& connection = connections_[++lastConnection_];
    connection.socket = std::move(socket);
    connection.givesOrders = givesOrders;
}

void RmcServer::receive(unsigned id, Connection& connection) {
    std::array<std::uint8_t, 4096> buffer{};
    const ssize_t count = ::recv(connection.socket.get(), buffer.data(), buffer.size(), 0);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (count <= 0) return drop(id);
    serve(id, connection, {buffer.data(), static_cast<std::size_t>(count)});
}

void RmcServer::serve(unsigned id, Connection& connection, std::span<const std::uint8_t> received) {
    if (connection.givesOrders) {
        connection.line.append(received.begin(), received.end());
        return takeOrders(id, connection);
    }
    for (const BmcUnit& unit : connection.reader.take(received)) {
        if (unit.isControl) continue;  // the machine announces its version, or has been reset
        if (const auto request = decodeRequest(unit)) {
            serveRequest(id, *request);
        } else {
            reporter_.violation("a message that is too short or has a wrong checksum");
        }
    }
}

void RmcServer::serveRequest(unsigned id, const BmcRequest& request) {
    const Outcome outcome = controller_.handle(request, id);
    reporter_.report(outcome);  // first: what has been acknowledged stands in the record
    if (outcome.answer) {
        Bytes bytes = encode(*outcome.answer);
        if (outcome.control) {
            const Bytes control = encode(*outcome.control);
            bytes.insert(bytes.end(), control.begin(), control.end());
        }
        if (outcome.delay.count() == 0) {
            send(id, bytes);
        } else {
            late_.emplace(Clock::now() + realTime(outcome.delay), Late{id, std::move(bytes)});
        }
    }
    if (!outcome.finished) return;
    const auto awaited = awaited_.find(outcome.finished->name);
    if (awaited == awaited_.end()) return;
    if (--awaited->second == 0) awaited_.erase(awaited);
    awaitedAll_ = awaited_.empty();
}

/// One order a line, each answered with a line.
void RmcServer::takeOrders(unsigned id, Connection& connection) {
    std::string answers;
    std::size_t end = 0;
    while ((end = connection.line.find('\n')) != std::string::npos) {
        const std::string fault = follow(connection.line.substr(0, end));
        answers += fault.empty() ? "ok\n" : "error: " + fault + '\n';
        connection.line.erase(0, end + 1);
    }
    if (connection.line.size() > longestOrder) return drop(id);
    send(id, bytesOf(answers));
}

/// Empty, or why the order cannot be followed. What has been ordered stands in the record.
std::string RmcServer::follow(std::string_view order) {
    Json::Value line;
    if (order.starts_with(noteWord)) {
        std::string fault;
        auto note = parseJson(order.substr(noteWord.size()), fault);
        if (!note) return fault;
        if (!note->isObject()) return "a note is a JSON object";
        line = std::move(*note);
    } else {
        std::string fault = controller_.injections().add(order);
        if (!fault.empty()) return fault;
        line["order"] = std::string(order);
    }
    reporter_.note(line);
    return {};
}

void RmcServer::send(unsigned id, const Bytes& bytes) {
    const auto found = connections_.find(id);
    if (found == connections_.end()) return;
    const ssize_t sent =
        ::send(found->second.socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    // One who lets a whole socket buffer of answers lie has stopped reading.
    if (sent != static_cast<ssize_t>(bytes.size())) ::shutdown(found->second.socket.get(), SHUT_RD);
}

void RmcServer::sendLate(Clock::time_point now) {
    while (!late_.empty() && late_.begin()->first <= now) {
        const Late due = std::move(late_.begin()->second);
        late_.erase(late_.begin());
        send(due.connection, due.bytes);
    }
}

void RmcServer::drop(unsigned id) {
    connections_.erase(id);
    for (const std::string& command : controller_.forget(id))
        reporter_.unfinished(command);
}

}  // namespace tav::sim
