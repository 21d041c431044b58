#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace tav::ctl {

/// The code that 16 hexadecimal digits stand for.
inline std::optional<std::uint64_t> parseLocationCode(std::string_view text) {
    if (text.size() != 16) return std::nullopt;
    std::uint64_t code = 0;
    const char* const end = text.data() + text.size();
    const auto [next, error] = std::from_chars(text.data(), end, code, 16);
    if (error != std::errc{} || next != end) return std::nullopt;
    return code;
}

/// What to tell a person who has given another text.
inline std::string notALocationCode(std::string_view text) {
    return '\'' + std::string(text) +
           "' is not a location code, which is 16 hexadecimal digits such as 0003000106010005";
}

}  // namespace tav::ctl
