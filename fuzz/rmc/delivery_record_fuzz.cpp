/// Any text as the record of deliveries that a service has left: what is taken for one survives
/// being written and read again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "rmc/DeliveryRecord.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto record =
        tav::parseDeliveryRecord(std::string(reinterpret_cast<const char*>(data), size));
    if (!record) return 0;
    const std::string text = tav::renderDeliveryRecord(*record);
    const auto again = tav::parseDeliveryRecord(text);
    if (!again || tav::renderDeliveryRecord(*again) != text) std::abort();
    return 0;
}
