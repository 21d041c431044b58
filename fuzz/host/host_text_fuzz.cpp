#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "core/tavUtils.h"
#include "host/HostBoot.h"
#include "host/HostMemory.h"
#include "rmc/RmcFrame.h"

/// What host commands, files and the controller answer may be anything.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const tav::HostMemory memory = tav::parseMemorySample(text);
    if (memory.totalMBytes < 0 || memory.freeMBytes < 0) std::abort();
    if (const auto locations = tav::parsePciTopology(text)) {
        for (const auto& [address, location] : *locations) {
            if (address.empty() || !location.starts_with('r')) std::abort();
        }
    }
    for (const char c : tav::parseVersionLine(text)) {
        if (c == ' ' || c == '\n') std::abort();
    }
    tavUtils utils;
    for (const std::string& line : tav::splitLines(text)) {
        if (line.empty() || line.find('\n') != std::string::npos) std::abort();
        utils.toEpoc(line);
    }
    std::string trimmed;
    utils.trimExtraSpaces(std::string(text), trimmed);
    utils.getSubStr("r", "i", std::string(text));
    tav::parseStartupHistory(text);
    tav::parseRmcAnswer({data, size});
    return 0;
}
