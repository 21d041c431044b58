#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/FileDescriptor.h"
#include "sim/rmc/Controller.h"
#include "sim/rmc/Reporter.h"

namespace tav::sim {

enum class ServerEnd { Finished, TimedOut, Signalled, Failed };

/// Serves machines on one Unix socket, and orders for faults on another, from one thread.
class RmcServer {
 public:
    using Clock = std::chrono::steady_clock;

    RmcServer(Controller& controller, Reporter& reporter)
        : controller_(controller), reporter_(reporter) {}

    /// Listen on a socket made at `path`, where a stale one is replaced. False: errno says why not.
    bool serveMachines(const std::string& path);
    bool serveOrders(const std::string& path);

    /// The server ends once every command named in this way has been finished so often.
    void endAfter(const std::string& command, unsigned count) { awaited_[command] += count; }

    /// Until endAfter() is satisfied, `limit` has passed, or a termination signal arrives.
    ServerEnd run(std::optional<std::chrono::seconds> limit);

 private:
    struct Connection {
        FileDescriptor socket;
        bool givesOrders = false;
        BmcReader reader;
        std::string line;
    };
    struct Late {
        unsigned connection;
        Bytes bytes;
    };

    void accept(int listener, bool givesOrders);
    void receive(unsigned id, Connection& connection);
    void serve(unsigned id, Connection& connection, std::span<const std::uint8_t> received);
    void serveRequest(unsigned id, const BmcRequest& request);
    void takeOrders(unsigned id, Connection& connection);
    std::string follow(std::string_view order);
    void send(unsigned id, const Bytes& bytes);
    void sendLate(Clock::time_point now);
    void drop(unsigned id);
    bool waitAndServe(Clock::time_point until, int signals);

    Controller& controller_;
    Reporter& reporter_;
    FileDescriptor machines_;
    FileDescriptor orders_;
    std::map<unsigned, Connection> connections_;
    unsigned lastConnection_ = 0;
    std::multimap<Clock::time_point, Late> late_;
    std::map<std::string, unsigned> awaited_;
    bool awaitedAll_ = false;
    bool signalled_ = false;
};

}  // namespace tav::sim
