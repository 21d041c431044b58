/// Any text as the health that a service has left, with its record of deliveries: what is taken for
/// one survives being written and read again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>

#include <json/reader.h>

#include "base/JsonText.h"
#include "rmc/DeliveryRecord.h"

namespace {

Json::Value jsonIn(const char* text, std::size_t size) {
    Json::Value json;
    try {
        const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
        if (!reader->parse(text, text + size, &json, nullptr)) return {};
    } catch (const std::exception&) {  // nested too deeply
        return {};
    }
    return json;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto record = tav::parseDeliveryRecord(jsonIn(reinterpret_cast<const char*>(data), size));
    if (!record) return 0;
    const Json::Value written = tav::renderDeliveryRecord(*record);
    const auto again = tav::parseDeliveryRecord(written);
    if (!again ||
        tav::compactJson(tav::renderDeliveryRecord(*again)) != tav::compactJson(written)) {
        std::abort();
    }
    return 0;
}
