#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include "base/Export.h"

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
    /// A request's text with its NUL; in a response a 32-bit result code, 0 for success.
    std::array<char, TAV_PAYLOAD_SIZE> payload;
};
inline constexpr std::size_t TAV_PACKET_SIZE = sizeof(_TAV_MESSAGE_PACKET);
static_assert(TAV_PACKET_SIZE == 4096);
static_assert(offsetof(_TAV_MESSAGE_PACKET, header) == 3);
static_assert(offsetof(_TAV_MESSAGE_PACKET, payloadLength) == 5);
static_assert(offsetof(_TAV_MESSAGE_PACKET, clientPID) == 9);
static_assert(offsetof(_TAV_MESSAGE_PACKET, payload) == 17);

/// Makes a FIFO. False when it cannot be made, also when something stands there already.
TAV_API bool tavCreatePipe(const char* path);

/// Asked again and again, some hundredths of a second apart, while a pipe cannot be used yet:
/// whether to go on waiting.
using tavPipePatience = std::function<bool()>;

/// Waits for one whole packet from the FIFO at `path`, which is opened anew. 0, or -1 when the path
/// is no FIFO, when it cannot be read, and when `patience` or the thread's stop signal ended the
/// wait.
TAV_API int tavReadPipe(const char* path, _TAV_MESSAGE_PACKET* packet,
                        const tavPipePatience& patience);

/// Writes one packet, whole, to the FIFO at `path`, once somebody has opened it for reading and it
/// has room. Follows no link and writes to nothing but a FIFO. 0, or -1 as above.
TAV_API int tavWritePipe(const char* path, const _TAV_MESSAGE_PACKET* packet,
                         const tavPipePatience& patience);

namespace tav {

/// What a client asks for.
struct CliRequest {
    std::uint16_t messageCode = 0;
    std::int32_t clientPID = 0;
    std::string payload;  ///< up to its NUL, or all of it
};

/// The request in what was read at once; none unless that is exactly one packet.
TAV_API std::optional<CliRequest> parseCliRequest(std::span<const std::byte> bytes);

TAV_API _TAV_MESSAGE_PACKET makeCliRequest(const CliRequest& request);
TAV_API _TAV_MESSAGE_PACKET makeCliResponse(std::int32_t code);

/// The result code of a response; none when it is not one.
TAV_API std::optional<std::int32_t> parseCliResponse(const _TAV_MESSAGE_PACKET& packet);

/// The path of a client's pipe; empty for what can be no process ID.
TAV_API std::string responsePipeOf(std::int32_t clientPID);

}  // namespace tav
