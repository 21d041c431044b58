#include "rmc/RmcFrame.h"

namespace tav {
namespace {

constexpr std::size_t tokenOffset = 0;
constexpr std::size_t markOffset = 2;
constexpr std::size_t nameOffset = 3;
constexpr std::size_t sizeOffset = nameOffset + rmcCommandNameSize;
constexpr std::size_t firstPayloadOffset = sizeOffset + 4;
constexpr std::uint8_t firstFrameMark = 0x14;
static_assert(firstPayloadOffset + rmcFirstFramePayload == rmcFrameSize);
static_assert(nameOffset + rmcLaterFramePayload == rmcFrameSize);

void putText(RmcFrame& frame, std::size_t offset, std::size_t room, std::string_view text) {
    void* const place = frame.data() + offset;
    text.copy(static_cast<char*>(place), room);
}

}  // namespace

RmcFrame firstRmcFrame(std::string_view command, std::uint32_t payloadSize,
                       std::string_view payload) {
    RmcFrame frame{};
    frame[markOffset] = firstFrameMark;
    putText(frame, nameOffset, rmcCommandNameSize - 1, command);
    for (std::size_t i = 0; i < 4; ++i) {
        frame[sizeOffset + i] = static_cast<std::uint8_t>(payloadSize >> (8 * i));
    }
    putText(frame, firstPayloadOffset, rmcFirstFramePayload, payload);
    return frame;
}

RmcFrame laterRmcFrame(std::uint16_t token, std::string_view payload) {
    RmcFrame frame{};
    frame[tokenOffset] = static_cast<std::uint8_t>(token);
    frame[tokenOffset + 1] = static_cast<std::uint8_t>(token >> 8U);
    putText(frame, nameOffset, rmcLaterFramePayload, payload);
    return frame;
}

std::optional<RmcAnswer> parseRmcAnswer(std::span<const std::uint8_t> data) {
    if (data.size() < 4) return std::nullopt;
    return RmcAnswer{data[0], static_cast<std::uint16_t>(data[1] | (data[2] << 8U)), data[3]};
}

}  // namespace tav
