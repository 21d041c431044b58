#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

/// Building blocks of what simulated disks answer.
namespace tav::sim {

using DiskBytes = std::vector<std::uint8_t>;

/// The number in `size` bytes, most significant first.
inline DiskBytes bigEndian(std::uint64_t value, std::size_t size) {
    DiskBytes bytes(size);
    for (std::size_t i = size; i-- > 0; value >>= 8U)
        bytes[i] = static_cast<std::uint8_t>(value);
    return bytes;
}

/// A text in a field of that width, filled up with blanks.
inline DiskBytes field(std::string text, std::size_t width) {
    text.resize(width, ' ');
    return {text.begin(), text.end()};
}

inline DiskBytes joined(std::initializer_list<DiskBytes> parts) {
    DiskBytes whole;
    for (const DiskBytes& part : parts)
        whole.insert(whole.end(), part.begin(), part.end());
    return whole;
}

/// `page` with a length of two bytes behind its first two, of all that follows.
inline DiskBytes lengthCounted(std::uint8_t first, std::uint8_t second, const DiskBytes& content) {
    return joined({{first, second}, bigEndian(content.size(), 2), content});
}

}  // namespace tav::sim
