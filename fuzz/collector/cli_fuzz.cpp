#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>

#include "collector/ClientEvent.h"
#include "rmc/tavMsgInfra.h"

namespace {

/// A client of which there is a pipe.
constexpr std::int32_t known = 7;

/// Whatever stands before a client's packet, the packet is found, and nothing is looked at twice.
void findAmong(std::span<const std::byte> bytes) {
    const auto isClient = [](std::int32_t client) { return client == known; };
    for (const bool isEnd : {false, true}) {
        const tav::CliRequests found = tav::findCliRequests(bytes, isEnd, isClient);
        if (found.requests.size() * TAV_PACKET_SIZE + found.ignored != found.consumed ||
            found.consumed > bytes.size() || (isEnd && found.consumed != bytes.size())) {
            std::abort();
        }
    }
}

}  // namespace

/// A request is any bytes of any length, and an event that a client brings any text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto bytes = std::as_bytes(std::span(data, size));
    const auto request = tav::parseCliRequest(bytes);
    if (request.has_value() != (size == TAV_PACKET_SIZE)) std::abort();
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto event = tav::parseClientEvent(text);
    if (event && (!event->isObject() || event->size() < 2)) std::abort();

    // What a client writes is what the server reads.
    const std::string payload = text.substr(0, text.find('\0')).substr(0, TAV_PAYLOAD_SIZE - 1);
    const _TAV_MESSAGE_PACKET packet = tav::makeCliRequest({258, known, payload});
    const auto again = tav::parseCliRequest(std::as_bytes(std::span(&packet, 1)));
    if (!again || again->payload != payload || again->clientPID != known) std::abort();

    std::string stream = text;
    stream.append(reinterpret_cast<const char*>(&packet), sizeof packet);
    findAmong(bytes);
    findAmong(std::as_bytes(std::span(stream)));
    return 0;
}
