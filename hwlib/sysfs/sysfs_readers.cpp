#include "hwlib/sysfs/sysfs_readers.h"

#include <array>
#include <span>
#include <string_view>

#include "base/FileReading.h"
#include "base/OwnedCopies.h"
#include "hwlib/sysfs/SysfsNumbers.h"

namespace {

using tav::SysfsFormat;

constexpr std::string_view lineEnds("\n\0", 2);

template <class Number>
Number readNumber(const char* path, SysfsFormat format) {
    Number number = tav::noSysfsValue<Number>;
    tav::_get_sysfs_numeric(path, format, &number);
    return number;
}

}  // namespace

char* get_sysfs_str(const char* path) {
    // Read onto the stack, so that one allocation of the right size is all it takes.
    std::array<char, tav::attributeLimit> room;
    const auto text = tav::readAttribute(path, room);
    if (!text || text->front() == '\0') return nullptr;
    return tav::newText(text->substr(0, text->find_first_of(lineEnds)));
}

unsigned char* get_sysfs_buf(const char* path, std::size_t* size) {
    std::array<char, tav::attributeLimit> room;
    const auto bytes = tav::readAttribute(path, room);
    if (!bytes) return nullptr;
    unsigned char* const buffer = tav::newBytes(std::as_bytes(std::span(*bytes)));
    if (buffer != nullptr) *size = bytes->size();
    return buffer;
}

std::uint64_t get_sysfs_llhex(const char* path) {
    return readNumber<std::uint64_t>(path, SysfsFormat::Hexadecimal);
}

std::uint32_t get_sysfs_lhex(const char* path) {
    return readNumber<std::uint32_t>(path, SysfsFormat::Hexadecimal);
}

std::uint32_t get_sysfs_ihex(const char* path) {
    return readNumber<std::uint32_t>(path, SysfsFormat::Hexadecimal);
}

std::uint16_t get_sysfs_shex(const char* path) {
    return readNumber<std::uint16_t>(path, SysfsFormat::Hexadecimal);
}

std::uint8_t get_sysfs_chex(const char* path) {
    return readNumber<std::uint8_t>(path, SysfsFormat::Hexadecimal);
}

std::uint32_t get_sysfs_uint(const char* path) {
    return readNumber<std::uint32_t>(path, SysfsFormat::Decimal);
}

std::uint64_t get_sysfs_ullong(const char* path) {
    return readNumber<std::uint64_t>(path, SysfsFormat::Decimal);
}

std::int32_t get_sysfs_int(const char* path) {
    return readNumber<std::int32_t>(path, SysfsFormat::Decimal);
}

std::int64_t get_sysfs_llong(const char* path) {
    return readNumber<std::int64_t>(path, SysfsFormat::Decimal);
}
