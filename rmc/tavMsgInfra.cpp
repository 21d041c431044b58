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

/// The writing end, once somebody reads from the other one.
tav::FileDescriptor openForWriting(const char* path, const tavPipePatience& patience) {
    while (true) {
        tav::FileDescriptor pipe = tav::openPipe(path, O_WRONLY);
        const bool hasNoReader = !pipe.isOpen() && errno == ENXIO;
        if (!hasNoReader || !goesOn(patience)) return pipe;
    }
}

bool isNotYet(ssize_t written) {
    return written < 0 && (errno == EAGAIN || errno == EINTR);
}

ssize_t writePacket(const tav::FileDescriptor& pipe, const _TAV_MESSAGE_PACKET& packet) {
    return ::write(pipe.get(), &packet, TAV_PACKET_SIZE);
}

constexpr auto endlessly = [] { return true; };

}  // namespace

bool tavCreatePipe(const char* path) {
    const bool created = ::mkfifo(path, 0666) == 0;
    const int error = errno;
    logger.debug(here(),
                 created ? "Creation of Pipe %s is successfull." : "Creation of Pipe %s failed.",
                 path);
    errno = error;
    return created;
}

int tavReadPipe(const char* path, _TAV_MESSAGE_PACKET* packet, const tavPipePatience& patience) {
    const tav::FileDescriptor pipe = tav::openPipe(path, O_RDONLY);
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
        const ssize_t size = writePacket(pipe, *packet);
        if (size == static_cast<ssize_t>(TAV_PACKET_SIZE)) {
            logger.debug(here(), "%d bytes written on pipe =%s", static_cast<int>(size), path);
            return 0;
        }
        if (!isNotYet(size) || !goesOn(patience)) return -1;
    }
}

int tavReadPipe(const char* path, _TAV_MESSAGE_PACKET* packet) {
    return tavReadPipe(path, packet, endlessly);
}

int tavWritePipe(const char* path, const _TAV_MESSAGE_PACKET* packet) {
    return tavWritePipe(path, packet, endlessly);
}

namespace tav {

FileDescriptor openPipe(const char* path, int mode) {
    FileDescriptor pipe(::open(path, mode | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (pipe.isOpen() && (::fstat(pipe.get(), &status) != 0 || !S_ISFIFO(status.st_mode))) {
        pipe.reset();
        errno = EINVAL;
    }
    return pipe;
}

PipeWrite tryWritePipe(const char* path, const _TAV_MESSAGE_PACKET& packet) {
    const FileDescriptor pipe = openPipe(path, O_WRONLY);
    if (!pipe.isOpen()) return errno == ENXIO ? PipeWrite::NotYet : PipeWrite::Failed;
    const ssize_t size = writePacket(pipe, packet);
    if (size == static_cast<ssize_t>(TAV_PACKET_SIZE)) return PipeWrite::Written;
    return isNotYet(size) ? PipeWrite::NotYet : PipeWrite::Failed;
}

std::optional<CliRequest> parseCliRequest(std::span<const std::byte> bytes) {
    if (bytes.size() != TAV_PACKET_SIZE) return std::nullopt;
    _TAV_MESSAGE_PACKET packet{};
    std::memcpy(&packet, bytes.data(), TAV_PACKET_SIZE);
    const auto end = std::find(packet.payload.begin(), packet.payload.end(), '\0');
    return CliRequest{packet.header.messageCode, packet.clientPID, {packet.payload.begin(), end}};
}

namespace {

/// The packet at the front of the bytes, when it names a client that is known.
std::optional<CliRequest> clientsRequest(std::span<const std::byte> bytes,
                                         const std::function<bool(std::int32_t)>& isClient) {
    if (bytes.size() < TAV_PACKET_SIZE || bytes[0] != std::byte{0}) return std::nullopt;
    std::int32_t client = 0;
    std::memcpy(&client, bytes.data() + offsetof(_TAV_MESSAGE_PACKET, clientPID), sizeof client);
    if (!isClient(client)) return std::nullopt;
    return parseCliRequest(bytes.first(TAV_PACKET_SIZE));
}

/// How far behind the front of the bytes, and less than a packet, a client's request begins.
std::optional<std::size_t> distanceToRequest(std::span<const std::byte> bytes,
                                             const std::function<bool(std::int32_t)>& isClient) {
    for (std::size_t at = 1; at < TAV_PACKET_SIZE && at + TAV_PACKET_SIZE <= bytes.size(); ++at) {
        if (clientsRequest(bytes.subspan(at), isClient)) return at;
    }
    return std::nullopt;
}

}  // namespace

CliRequests findCliRequests(std::span<const std::byte> bytes, bool isEnd,
                            const std::function<bool(std::int32_t)>& isClient) {
    CliRequests found;
    const auto rest = [&] { return bytes.subspan(found.consumed); };
    while (rest().size() >= TAV_PACKET_SIZE) {
        std::optional<CliRequest> request = clientsRequest(rest(), isClient);
        if (!request) {
            if (const auto distance = distanceToRequest(rest(), isClient)) {
                found.ignored += *distance;
                found.consumed += *distance;
                continue;
            }
            request = parseCliRequest(rest().first(TAV_PACKET_SIZE));
        }
        found.requests.push_back(*std::move(request));
        found.consumed += TAV_PACKET_SIZE;
    }
    if (isEnd) {
        found.ignored += rest().size();
        found.consumed = bytes.size();
    }
    return found;
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

_TAV_MESSAGE_PACKET makeCliResponse(CliReason reason) {
    return makeCliResponse(reason == CliReason::None ? 0 : 1, reason);
}

_TAV_MESSAGE_PACKET makeCliResponse(std::int32_t code, CliReason reason) {
    _TAV_MESSAGE_PACKET packet{};
    packet.responseMarker = responseMarker;
    packet.payloadLength = responseLength;
    std::memcpy(packet.payload.data(), &code, sizeof code);
    std::memcpy(packet.payload.data() + sizeof code, &reason, sizeof reason);
    return packet;
}

std::optional<std::int32_t> parseCliResponse(const _TAV_MESSAGE_PACKET& packet) {
    if (packet.responseMarker != responseMarker) return std::nullopt;
    std::int32_t code = 0;
    std::memcpy(&code, packet.payload.data(), sizeof code);
    return code;
}

CliReason reasonOf(const _TAV_MESSAGE_PACKET& response) {
    CliReason reason{};
    std::memcpy(&reason, response.payload.data() + sizeof(std::int32_t), sizeof reason);
    return reason;
}

std::string responsePipeOf(std::int32_t clientPID) {
    if (clientPID <= 0) return {};
    std::array<char, 50> path{};
    std::snprintf(path.data(), path.size(), "%s%d", tavResponsePipe, clientPID);
    return path.data();
}

}  // namespace tav
