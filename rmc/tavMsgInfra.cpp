#include "rmc/tavMsgInfra.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <sys/stat.h>

#include "base/FileDescriptor.h"
#include "base/Waiting.h"
#include "core/Log.h"

using tav::here;

namespace {

using namespace std::chrono_literals;

constexpr tav::ModuleLog logger{"TAV_MSGINFRA"};

static_assert(TAV_PACKET_SIZE <= PIPE_BUF, "a packet is written whole or not at all");

constexpr std::uint8_t responseMarker = 9;
constexpr std::uint32_t responseLength = 8;
constexpr auto retryPause = 20ms;

/// Pauses before another try; false when there shall be none.
bool goesOn(const tavPipePatience& patience) {
    return patience() && tav::pauseFor(retryPause) == tav::Pause::Finished;
}

/// Opens a FIFO without waiting for its other end. Not open: errno tells why, EINVAL for what is no
/// FIFO.
tav::FileDescriptor openPipe(const char* path, int mode) {
    tav::FileDescriptor pipe(::open(path, mode | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (pipe.isOpen() && (::fstat(pipe.get(), &status) != 0 || !S_ISFIFO(status.st_mode))) {
        pipe.reset();
        errno = EINVAL;
    }
    return pipe;
}

/// The writing end, once somebody reads from the other one.
tav::FileDescriptor openForWriting(const char* path, const tavPipePatience& patience) {
    while (true) {
        tav::FileDescriptor pipe = openPipe(path, O_WRONLY);
        const bool hasNoReader = !pipe.isOpen() && errno == ENXIO;
        if (!hasNoReader || !goesOn(patience)) return pipe;
    }
}

}  // namespace

bool tavCreatePipe(const char* path) {
    const bool created = ::mkfifo(path, 0666) == 0;
    logger.debug(here(),
                 created ? "Creation of Pipe %s is successfull." : "Creation of Pipe %s failed.",
                 path);
    return created;
}

int tavReadPipe(const char* path, _TAV_MESSAGE_PACKET* packet, const tavPipePatience& patience) {
    const tav::FileDescriptor pipe = openPipe(path, O_RDONLY);
    if (!pipe.isOpen()) {
        logger.error(here(), "tavReadPipe:Open of %s failed while reading.", path);
        return -1;
    }
    logger.debug(here(), "readFd = %d.\n", pipe.get());
    while (true) {
        const ssize_t size = ::read(pipe.get(), packet, TAV_PACKET_SIZE);
        if (size == static_cast<ssize_t>(TAV_PACKET_SIZE)) return 0;
        // Nothing yet: no writer (0), or one that has not written.
        const bool isEmpty = size == 0 || (size < 0 && (errno == EAGAIN || errno == EINTR));
        if (!isEmpty || !goesOn(patience)) return -1;
    }
}

int tavWritePipe(const char* path, const _TAV_MESSAGE_PACKET* packet,
                 const tavPipePatience& patience) {
    const tav::FileDescriptor pipe = openForWriting(path, patience);
    if (!pipe.isOpen()) {
        logger.error(here(), "tavWritePipe: Open of %s failed while writing.", path);
        return -1;
    }
    logger.debug(here(), "writeFd = %d.\n", pipe.get());
    while (true) {
        const ssize_t size = ::write(pipe.get(), packet, TAV_PACKET_SIZE);
        if (size == static_cast<ssize_t>(TAV_PACKET_SIZE)) {
            logger.debug(here(), "%d bytes written on pipe =%s", static_cast<int>(size), path);
            return 0;
        }
        const bool isFull = size < 0 && (errno == EAGAIN || errno == EINTR);
        if (!isFull || !goesOn(patience)) return -1;
    }
}

namespace tav {

std::optional<CliRequest> parseCliRequest(std::span<const std::byte> bytes) {
    if (bytes.size() != TAV_PACKET_SIZE) return std::nullopt;
    _TAV_MESSAGE_PACKET packet{};
    std::memcpy(&packet, bytes.data(), TAV_PACKET_SIZE);
    const auto end = std::find(packet.payload.begin(), packet.payload.end(), '\0');
    return CliRequest{packet.header.messageCode, packet.clientPID, {packet.payload.begin(), end}};
}

_TAV_MESSAGE_PACKET makeCliRequest(const CliRequest& request) {
    _TAV_MESSAGE_PACKET packet{};
    packet.header.messageCode = request.messageCode;
    packet.clientPID = request.clientPID;
    const std::size_t size = std::min(request.payload.size(), TAV_PAYLOAD_SIZE - 1);
    packet.payloadLength = static_cast<std::uint32_t>(size);
    std::memcpy(packet.payload.data(), request.payload.data(), size);
    return packet;
}

_TAV_MESSAGE_PACKET makeCliResponse(std::int32_t code) {
    _TAV_MESSAGE_PACKET packet{};
    packet.responseMarker = responseMarker;
    packet.payloadLength = responseLength;
    std::memcpy(packet.payload.data(), &code, sizeof code);
    return packet;
}

std::optional<std::int32_t> parseCliResponse(const _TAV_MESSAGE_PACKET& packet) {
    if (packet.responseMarker != responseMarker) return std::nullopt;
    std::int32_t code = 0;
    std::memcpy(&code, packet.payload.data(), sizeof code);
    return code;
}

std::string responsePipeOf(std::int32_t clientPID) {
    if (clientPID <= 0) return {};
    std::array<char, 50> path{};
    std::snprintf(path.data(), path.size(), "%s%d", tavResponsePipe, clientPID);
    return path.data();
}

}  // namespace tav
