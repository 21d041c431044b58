#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>

#include "collector/tavServer.h"
#include "rmc/tavMsgInfra.h"

/// A request is any bytes of any length, and an event that a client brings any text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto bytes = std::as_bytes(std::span(data, size));
    const auto request = tav::parseCliRequest(bytes);
    if (request.has_value() != (size == TAV_PACKET_SIZE)) std::abort();
    const std::string text(reinterpret_cast<const char*>(data), size);
    jsonValidate(text.c_str());

    // What a client writes is what the server reads.
    const std::string payload = text.substr(0, text.find('\0')).substr(0, TAV_PAYLOAD_SIZE - 1);
    const _TAV_MESSAGE_PACKET packet = tav::makeCliRequest({258, 7, payload});
    const auto again = tav::parseCliRequest(std::as_bytes(std::span(&packet, 1)));
    if (!again || again->payload != payload || again->clientPID != 7) std::abort();
    return 0;
}
