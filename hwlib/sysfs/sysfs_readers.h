#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "base/Export.h"

/// Readers of single-value files under sysfs and procfs.
///
/// Each opens the file, reads it once (at most 4,096 bytes: an attribute is at most one page) and
/// closes it. None logs, throws, or blocks longer than the kernel takes to produce the attribute.
/// All may be called on any thread; none takes a lock. `path` is NUL-terminated.

/// The file's text up to the first newline or NUL, NUL-terminated, in a new buffer that the caller
/// frees with free(). Null when the file cannot be read, is empty or begins with NUL.
TAV_API char* get_sysfs_str(const char* path);

/// The file's bytes in a new buffer of exactly `*size` bytes that the caller frees with free(); no
/// terminator is added. Null, and `*size` left alone, when the file cannot be read or is empty.
TAV_API unsigned char* get_sysfs_buf(const char* path, std::size_t* size);

/// The number at the start of the file's text. White space may stand before it, a sign too, and
/// "0x" before hexadecimal digits; what follows the digits is ignored. A file that cannot be read,
/// a text that does not start with a number, and a number that the result cannot hold give the
/// failure value: all bits set.
TAV_API std::uint64_t get_sysfs_llhex(const char* path);
TAV_API std::uint32_t get_sysfs_lhex(const char* path);
TAV_API std::uint32_t get_sysfs_ihex(const char* path);
TAV_API std::uint16_t get_sysfs_shex(const char* path);
TAV_API std::uint8_t get_sysfs_chex(const char* path);
TAV_API std::uint32_t get_sysfs_uint(const char* path);
TAV_API std::uint64_t get_sysfs_ullong(const char* path);
TAV_API std::int32_t get_sysfs_int(const char* path);
TAV_API std::int64_t get_sysfs_llong(const char* path);

namespace tav {

struct FreeDeleter {
    void operator()(void* buffer) const noexcept { std::free(buffer); }
};

/// Owns what get_sysfs_str() and its like return.
using OwnedText = std::unique_ptr<char, FreeDeleter>;
using OwnedBytes = std::unique_ptr<unsigned char, FreeDeleter>;

}  // namespace tav
