#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "core/tavConfig.h"

/// Any text is a configuration, if only that of the defaults: every interval stays positive.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::vector<tavSettingReport> reports;
    const tavConfig config = tavConfig::fromText(text, &reports);
    const bool sound = config.getDoorBellSleepInterval() > 0 &&
                       config.getInventoryPushIntervalSettings() > 0 &&
                       config.getInventoryQueryInterval() > 0 &&
                       config.getrefreshInterval("EthernetDevices") > 0 &&
                       !config.getTAVLogFileLocation().empty() && !config.isResourceEnabled(0);
    if (!sound) std::abort();
    return 0;
}
