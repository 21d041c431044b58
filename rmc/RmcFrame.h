#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "base/Export.h"

/// The frames that carry a named command to the management controller: request data of OEM NetFn
/// 3Ah, command 80h. Numbers are little endian.
namespace tav {

inline constexpr std::size_t rmcFrameSize = 60;
inline constexpr std::size_t rmcCommandNameSize = 20;    ///< with at least one NUL
inline constexpr std::size_t rmcFirstFramePayload = 33;  ///< bytes of payload in the first frame
inline constexpr std::size_t rmcLaterFramePayload = 57;  ///< and in every later one

using RmcFrame = std::array<std::uint8_t, rmcFrameSize>;

/// Offset  Width  First frame                     Later frames
///      0      2  0                               token of the previous answer
///      2      1  14h                             0
///      3     20  command name, zero-filled       payload
///     23      4  length of the whole payload     payload
///     27     33  payload                         payload
/// `command` has at most 19 characters; what `payload` does not fill is zero. At most
/// rmcFirstFramePayload bytes are taken.
TAV_API RmcFrame firstRmcFrame(std::string_view command, std::uint32_t payloadSize,
                               std::string_view payload);
/// At most rmcLaterFramePayload bytes are taken.
TAV_API RmcFrame laterRmcFrame(std::uint16_t token, std::string_view payload);

/// The four data bytes of the answer to a frame.
struct RmcAnswer {
    std::uint8_t transferStatus = 0;
    std::uint16_t token = 0;
    std::uint8_t exitStatus = 0;
};

/// Empty for fewer than four bytes.
TAV_API std::optional<RmcAnswer> parseRmcAnswer(std::span<const std::uint8_t> data);

}  // namespace tav
