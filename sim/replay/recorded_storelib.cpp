/// The vendor's RAID library of a captured host: answers each command that the host's own library
/// was asked as that has answered. It never tells of an event.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "sim/replay/Conversation.h"

namespace tav::sim {
namespace {

constexpr std::uint32_t success = 0;
constexpr std::uint32_t failed = 0x8002;

/// Command blocks: what tells one question from another stands at their beginning, and in the frame
/// that is passed through to the firmware.
constexpr std::size_t keySize = 11;
constexpr std::size_t sizeOffset = 28;
constexpr std::size_t dataOffset = 32;
constexpr std::size_t frameOpcode = 4;
constexpr std::size_t frameMailbox = 16;
constexpr std::size_t frameOutput = 28;
constexpr std::uint8_t libraryType = 0;
constexpr std::uint8_t passThroughType = 6;

/// Commands that keep the library's own books: registrations, and its end.
constexpr std::uint8_t bookKeeping[] = {1, 2, 9};

template <class Value>
Value valueAt(const std::uint8_t* bytes, std::size_t offset) {
    Value value;
    std::memcpy(&value, bytes + offset, sizeof value);
    return value;
}

struct Request {
    std::vector<std::uint8_t> key;
    std::uint8_t* output;
    std::uint32_t size;
};

Request requestOf(const std::uint8_t* block) {
    Request request{{block, block + keySize},
                    valueAt<std::uint8_t*>(block, dataOffset),
                    valueAt<std::uint32_t>(block, sizeOffset)};
    if (block[0] != passThroughType || request.output == nullptr) return request;
    const std::uint8_t* const frame = request.output;
    request.key.insert(request.key.end(), frame + frameOpcode, frame + frameOpcode + 4);
    request.key.push_back(frame[frameMailbox]);
    request.output = valueAt<std::uint8_t*>(frame, frameOutput);
    request.size = valueAt<std::uint32_t>(frame, 0);
    return request;
}

std::uint32_t process(const std::uint8_t* block) {
    static const auto* const recorded = new RecordedConversation(recordedText("storelib"));
    const bool keepsBooks = block[0] == libraryType &&
                            std::find(std::begin(bookKeeping), std::end(bookKeeping), block[1]) !=
                                std::end(bookKeeping);
    if (keepsBooks) return success;
    const Request request = requestOf(block);
    const RecordedAnswer* const answer = recorded->find("raid", request.key);
    if (answer == nullptr) {
        noteUnrecorded("RAID command " + std::to_string(block[0]) + '/' + std::to_string(block[1]));
        return failed;
    }
    waitAsRecorded(*answer);
    const std::vector<std::uint8_t> data = answer->bytes("data");
    if (request.output != nullptr)
        std::copy_n(data.begin(), std::min<std::size_t>(data.size(), request.size), request.output);
    return static_cast<std::uint32_t>(answer->number("status"));
}

}  // namespace
}  // namespace tav::sim

extern "C" __attribute__((visibility("default"))) std::uint32_t ProcessLibCommand(
    const std::uint8_t* command) {
    return tav::sim::process(command);
}
