#pragma once

#include <algorithm>
#include <string_view>

namespace tav {

/// What isspace() takes for white space.
inline constexpr std::string_view whiteSpace = " \t\n\v\f\r";

/// `text` without those of `characters` that it begins with, ends with, or both.
constexpr std::string_view trimStart(std::string_view text,
                                     std::string_view characters = whiteSpace) {
    return text.substr(std::min(text.find_first_not_of(characters), text.size()));
}
constexpr std::string_view trimEnd(std::string_view text,
                                   std::string_view characters = whiteSpace) {
    return text.substr(0, text.find_last_not_of(characters) + 1);
}
constexpr std::string_view trimBoth(std::string_view text,
                                    std::string_view characters = whiteSpace) {
    return trimEnd(trimStart(text, characters), characters);
}

}  // namespace tav
