#pragma once

#include <cstdint>
#include <iomanip>
#include <span>
#include <sstream>
#include <string>
#include <vector>

namespace tav::test {

using Bytes = std::vector<std::uint8_t>;

/// "00 1F" as bytes.
inline Bytes bytes(const std::string& text) {
    std::istringstream words(text);
    Bytes result;
    for (unsigned byte = 0; words >> std::hex >> byte;)
        result.push_back(static_cast<std::uint8_t>(byte));
    return result;
}

/// "001F"
inline std::string hex(std::span<const std::uint8_t> bytes) {
    std::ostringstream text;
    text << std::hex << std::uppercase << std::setfill('0');
    for (const std::uint8_t byte : bytes)
        text << std::setw(2) << unsigned{byte};
    return text.str();
}

}  // namespace tav::test
