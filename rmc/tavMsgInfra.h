#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/Export.h"
#include "base/FileDescriptor.h"

/// The pipes between the service and its command-line clients, and what travels on them. Used by
/// both sides.

/// Where requests go to; the service reads it.
inline constexpr const char* tavRequestPipe = "/var/run/orntav";
/// Where a client's answer goes to, followed by the client's process ID; the client reads it.
inline constexpr const char* tavResponsePipe = "/var/run/orntavcli";

inline constexpr std::size_t TAV_PAYLOAD_SIZE = 4079;
/// Message code that asks for a test event; with any other the payload is an event to be forwarded.
inline constexpr std::uint16_t TAV_TEST_EVENT_REQUEST = 258;

/// A message, always whole on the pipe. Integers are little-endian, which the host is too.
struct __attribute__((packed)) _TAV_MESSAGE_PACKET {
    std::uint8_t responseMarker;  ///< 9 in a response, 0 in a request
    std::uint16_t reserved1;
    struct __attribute__((packed)) {
        std::uint16_t messageCode;
    } header;
    std::uint32_t payloadLength;  ///< 8 in a response; not looked at in a request
    std::int32_t clientPID;
    std::uint32_t reserved2;
    /// A request's text with its NUL; in a response two 32-bit numbers: the result code, 0 for
    /// success, and a tav::CliReason.
    std::array<char, TAV_PAYLOAD_SIZE> payload;
};
inline constexpr std::size_t TAV_PACKET_SIZE = sizeof(_TAV_MESSAGE_PACKET);
static_assert(TAV_PACKET_SIZE == 4096);
static_assert(offsetof(_TAV_MESSAGE_PACKET, header) == 3);
static_assert(offsetof(_TAV_MESSAGE_PACKET, payloadLength) == 5);
static_assert(offsetof(_TAV_MESSAGE_PACKET, clientPID) == 9);
static_assert(offsetof(_TAV_MESSAGE_PACKET, payload) == 17);

/// Makes a FIFO, with the rights that the process's umask leaves: who may read it takes away what
/// is written for others, so that should be 077. False when it cannot be made, also when something
/// stands there already; errno then tells why.
TAV_API bool tavCreatePipe(const char* path);

/// Asked again and again, some hundredths of a second apart, while a pipe cannot be used yet:
/// whether to go on waiting.
using tavPipePatience = std::function<bool()>;

/// Waits for one whole packet from the FIFO at `path`, which is opened anew. 0, or -1 when the path
/// is no FIFO, when it cannot be read or holds less than a packet, and when `patience` or the
/// thread's stop signal ended the wait.
TAV_API int tavReadPipe(const char* path, _TAV_MESSAGE_PACKET* packet,
                        const tavPipePatience& patience);

/// Writes one packet, whole, to the FIFO at `path`, once somebody has opened it for reading and it
/// has room. Follows no link and writes to nothing but a FIFO. 0, or -1 as above.
TAV_API int tavWritePipe(const char* path, const _TAV_MESSAGE_PACKET* packet,
                         const tavPipePatience& patience);

/// The same with endless patience.
TAV_API int tavReadPipe(const char* path, _TAV_MESSAGE_PACKET* packet);
TAV_API int tavWritePipe(const char* path, const _TAV_MESSAGE_PACKET* packet);

namespace tav {

/// Opens a FIFO (`mode`: O_RDONLY, O_WRONLY or O_RDWR) without waiting for its other end, and
/// nothing else. Not open: errno tells why, EINVAL for what is no FIFO.
TAV_API FileDescriptor openPipe(const char* path, int mode);

enum class PipeWrite { Written, NotYet, Failed };

/// One try of tavWritePipe. NotYet: nobody reads there yet, or there is no room.
TAV_API PipeWrite tryWritePipe(const char* path, const _TAV_MESSAGE_PACKET& packet);

/// Why a request's result code is not 0.
enum class CliReason : std::int32_t {
    None = 0,
    Dropped = 1,       ///< the event was not sent, because the controller has no inventory yet
    NotDelivered = 2,  ///< the controller could not be reached or has refused the event
    NoSuchEvent = 3,   ///< nobody raises that test event
    NoEvent = 4,       ///< what was to be forwarded is not one JSON object with two members or more
};

/// What a client asks for.
struct CliRequest {
    std::uint16_t messageCode = 0;
    std::int32_t clientPID = 0;
    std::string payload;  ///< up to its NUL, or all of it
};

/// The request in what was read at once; none unless that is exactly one packet.
TAV_API std::optional<CliRequest> parseCliRequest(std::span<const std::byte> bytes);

/// What a stretch of bytes from the request pipe holds. Clients write whole packets, but a broken
/// one may leave fewer bytes, and then all that wait behind it stand at odd places.
struct CliRequests {
    std::vector<CliRequest> requests;
    std::size_t consumed = 0;  ///< bytes that need not be looked at again
    std::size_t ignored = 0;   ///< bytes among them that belong to no packet
};

/// Finds the requests in `bytes`. Where a packet may as well begin at another place, it begins
/// where `isClient` knows the client that it names. `isEnd`: nothing more waits in the pipe, so
/// that a packet that is not whole never will be.
TAV_API CliRequests findCliRequests(std::span<const std::byte> bytes, bool isEnd,
                                    const std::function<bool(std::int32_t)>& isClient);

/// A payload of more than TAV_PAYLOAD_SIZE - 1 bytes is cut.
TAV_API _TAV_MESSAGE_PACKET makeCliRequest(const CliRequest& request);
/// The result code is 0 for no reason, else 1.
TAV_API _TAV_MESSAGE_PACKET makeCliResponse(CliReason reason);
TAV_API _TAV_MESSAGE_PACKET makeCliResponse(std::int32_t code, CliReason reason = CliReason::None);

/// The result code of a response; none when it is not one.
TAV_API std::optional<std::int32_t> parseCliResponse(const _TAV_MESSAGE_PACKET& packet);
/// The second number of a response.
TAV_API CliReason reasonOf(const _TAV_MESSAGE_PACKET& response);

/// The path of a client's pipe; empty for what can be no process ID.
TAV_API std::string responsePipeOf(std::int32_t clientPID);

}  // namespace tav
