#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "sim/rmc/BmcProtocol.h"

namespace tav::sim {

/// What the controller tells about a transfer after each frame.
enum class TransferStatus : std::uint8_t {
    Complete = 0x00,
    Incomplete = 0x01,
    IndexError = 0x03,
    NotSupported = 0x05,
    LengthExceeded = 0x08,
};

/// A command that has arrived whole.
struct Command {
    std::string name;
    std::string payload;  ///< without the terminating NUL
    unsigned frames = 0;
};

/// What one frame led to.
struct FrameResult {
    TransferStatus status = TransferStatus::IndexError;
    std::uint16_t token = 0;              ///< to be echoed by the next frame of this transfer
    std::vector<std::string> violations;  ///< each rule that the frame breaks, in words
    std::string name;                     ///< of the command, as far as it is known
    unsigned frame = 0;                   ///< number of this frame in its command, from 1
    std::size_t arrived = 0;              ///< payload bytes so far, terminating NUL included
    std::size_t expected = 0;             ///< payload bytes that the first frame announced
    std::optional<Command> complete;
};

/// Puts commands together from their 60-byte frames, and checks every byte that the sender has to
/// get right. A frame is little-endian: token in bytes 0 and 1. The first frame of a command has
/// token 0, 14h in byte 2, the NUL-padded name in bytes 3 to 22, the payload's length (with its
/// NUL) in bytes 23 to 26 and the first 33 payload bytes. Later frames have the token of the
/// previous answer, 0 in byte 2 and 57 payload bytes. What the last frame does not need is zero.
///
/// Every answer hands out another token, so that one that is not echoed is noticed.
class FrameChecker {
 public:
    static constexpr std::size_t frameLength = 60;
    static constexpr std::size_t longestPayload = std::size_t{64} << 20;

    /// `sender` tells apart those whose frames must not mix.
    FrameResult accept(std::span<const std::uint8_t> frame, unsigned sender);

    /// The transfer that `token` belongs to is given up.
    void abandon(std::uint16_t token);

    /// The sender is gone. Returns the names of the commands that it left unfinished.
    std::vector<std::string> forget(unsigned sender);

 private:
    struct Transfer {
        unsigned sender = 0;
        Command command;
        std::size_t expected = 0;
    };

    void acceptFirst(std::span<const std::uint8_t> frame, unsigned sender, FrameResult& result);
    void acceptLater(std::span<const std::uint8_t> frame, unsigned sender, FrameResult& result);
    void append(std::span<const std::uint8_t> part, Transfer transfer, FrameResult& result);
    bool hasTransferOf(unsigned sender) const;
    std::uint16_t nextToken();

    std::map<std::uint16_t, Transfer> transfers_;  ///< by the token that the next frame must carry
    std::optional<unsigned> transferring_;         ///< the sender whose transfer began last
    std::uint16_t lastToken_ = 0;
};

/// Why `text` is not a JSON object; empty when it is one.
std::string whyNotJsonObject(std::string_view text);

}  // namespace tav::sim
