#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace tav::test {

/// A notification of a RAID controller, byte by byte.
class RaidEventBytes {
 public:
    RaidEventBytes& controller(std::uint32_t id) { return number(0, id, 4); }
    RaidEventBytes& code(std::uint32_t code) { return number(12, code, 4); }
    RaidEventBytes& locale(std::uint16_t bits) { return number(16, bits, 2); }
    RaidEventBytes& eventClass(int severity) {
        return number(19, static_cast<std::uint8_t>(severity), 1);
    }
    RaidEventBytes& argument(std::uint8_t type, const std::vector<std::uint8_t>& bytes) {
        number(20, type, 1);
        for (std::size_t i = 0; i < bytes.size(); ++i)
            number(36 + i, bytes[i], 1);
        return *this;
    }
    RaidEventBytes& text(std::string_view text) {
        for (std::size_t i = 0; i < text.size(); ++i)
            number(132 + i, static_cast<std::uint8_t>(text[i]), 1);
        return *this;
    }
    const std::array<std::byte, 260>& bytes() const { return bytes_; }
    /// As the library hands it over.
    void* data() { return bytes_.data(); }

 private:
    RaidEventBytes& number(std::size_t offset, std::uint32_t value, std::size_t width) {
        for (std::size_t i = 0; i < width; ++i)
            bytes_.at(offset + i) = static_cast<std::byte>(value >> 8 * i);
        return *this;
    }
    std::array<std::byte, 260> bytes_{};
};

}  // namespace tav::test
