#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string_view>

#include "nic/LinkMessages.h"
#include "nic/NicTables.h"

/// The host's network commands print anything, and a notification holds any bytes.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    for (const auto& row : tav::parseNicList(text)) {
        if (row.size() != tav::nicColumns) std::abort();
        tav::nicPartNumber(row[tav::NIC_COLUMN_DESCRIPTION]);
        const bool isName = tav::isInterfaceName(row[tav::NIC_COLUMN_NAME]);
        if (isName && row[tav::NIC_COLUMN_NAME].size() > 15) std::abort();
    }
    for (const tav::NicLink& link : tav::parseNicLinks(text)) {
        if (link.name.empty() || link.status.empty()) std::abort();
        tav::conditionOf(tav::adapterStatus(link.status, text));
    }
    const auto detail = tav::nicDetail(text, "Cable ");
    if (detail && detail->find('\n') != std::string::npos) std::abort();
    tav::nonPhysicalKind(text);
    const auto messages = tav::decodeLinkMessages(std::as_bytes(std::span(data, size)));
    if (messages.size() > size / 32) std::abort();
    return 0;
}
