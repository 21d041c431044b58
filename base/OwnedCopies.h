#pragma once

#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>

/// What interfaces hand out for their callers to free with free(). Null without memory.
namespace tav {

/// A new buffer of exactly these bytes; not null for none either.
inline unsigned char* newBytes(std::span<const std::byte> bytes) {
    auto* const copy = static_cast<unsigned char*>(std::malloc(bytes.empty() ? 1 : bytes.size()));
    if (copy != nullptr && !bytes.empty()) std::memcpy(copy, bytes.data(), bytes.size());
    return copy;
}

/// A new buffer with the text and a NUL behind it.
inline char* newText(std::string_view text) {
    auto* const copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy == nullptr) return nullptr;
    text.copy(copy, text.size());
    copy[text.size()] = '\0';
    return copy;
}

}  // namespace tav
