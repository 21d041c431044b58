#include "sim/rmc/BmcProtocol.h"

#include <cstddef>
#include <numeric>
#include <utility>

namespace tav::sim {
namespace {

constexpr std::uint8_t endOfMessage = 0xA0;
constexpr std::uint8_t endOfControl = 0xA1;
constexpr std::uint8_t escape = 0xAA;
constexpr std::uint8_t escapedBit = 0x10;

constexpr std::size_t longestUnit = 1024;
constexpr std::size_t shortestRequest = 4;  // sequence, NetFn and LUN, command, checksum
constexpr std::size_t shortestAnswer = 5;   // and the completion code

std::uint8_t sumOf(const Bytes& bytes) {
    return static_cast<std::uint8_t>(std::accumulate(bytes.begin(), bytes.end(), 0U));
}

Bytes framed(const Bytes& bytes, std::uint8_t end) {
    Bytes line;
    for (const std::uint8_t byte : bytes) {
        if (byte == endOfMessage || byte == endOfControl || byte == escape) {
            line.push_back(escape);
            line.push_back(byte | escapedBit);
        } else {
            line.push_back(byte);
        }
    }
    line.push_back(end);
    return line;
}

Bytes message(Bytes bytes, const Bytes& data) {
    bytes.insert(bytes.end(), data.begin(), data.end());
    bytes.push_back(static_cast<std::uint8_t>(-sumOf(bytes)));
    return framed(bytes, endOfMessage);
}

std::uint8_t address(std::uint8_t netFn, std::uint8_t lun) {
    return static_cast<std::uint8_t>(netFn << 2 | (lun & 3));
}

bool isMessage(const BmcUnit& unit, std::size_t shortest) {
    return !unit.isControl && unit.bytes.size() >= shortest && sumOf(unit.bytes) == 0;
}

}  // namespace

Bytes encode(const BmcRequest& request) {
    return message({request.sequence, address(request.netFn, request.lun), request.command},
                   request.data);
}

Bytes encode(const BmcAnswer& answer) {
    return message(
        {answer.sequence, address(answer.netFn, answer.lun), answer.command, answer.completionCode},
        answer.data);
}

Bytes encode(BmcControl control) {
    return framed({static_cast<std::uint8_t>(control)}, endOfControl);
}

std::optional<BmcRequest> decodeRequest(const BmcUnit& unit) {
    if (!isMessage(unit, shortestRequest)) return std::nullopt;
    const Bytes& bytes = unit.bytes;
    return BmcRequest{bytes[0], static_cast<std::uint8_t>(bytes[1] >> 2),
                      static_cast<std::uint8_t>(bytes[1] & 3), bytes[2],
                      Bytes(bytes.begin() + 3, bytes.end() - 1)};
}

std::optional<BmcAnswer> decodeAnswer(const BmcUnit& unit) {
    if (!isMessage(unit, shortestAnswer)) return std::nullopt;
    const Bytes& bytes = unit.bytes;
    return BmcAnswer{bytes[0],
                     static_cast<std::uint8_t>(bytes[1] >> 2),
                     static_cast<std::uint8_t>(bytes[1] & 3),
                     bytes[2],
                     bytes[3],
                     Bytes(bytes.begin() + 4, bytes.end() - 1)};
}

std::vector<BmcUnit> BmcReader::take(std::span<const std::uint8_t> received) {
    std::vector<BmcUnit> complete;
    for (const std::uint8_t byte : received) {
        if (byte == endOfMessage || byte == endOfControl) {
            if (!tooLong_) complete.push_back({byte == endOfControl, std::move(current_)});
            current_.clear();
            escaped_ = tooLong_ = false;
        } else if (byte == escape) {
            escaped_ = true;
        } else if (current_.size() < longestUnit) {
            current_.push_back(escaped_ ? static_cast<std::uint8_t>(byte & ~escapedBit) : byte);
            escaped_ = false;
        } else {
            tooLong_ = true;
        }
    }
    return complete;
}

}  // namespace tav::sim
