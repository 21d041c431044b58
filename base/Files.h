#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "base/Export.h"
#include "base/FileDescriptor.h"

namespace tav {

/// Opens a regular file for reading without ever waiting for it (as a FIFO would). Not open: errno
/// tells why (EINVAL for what is not a regular file).
TAV_API FileDescriptor openRegularFile(const char* path);

/// The whole content of a regular file of at most `limit` bytes; empty when it cannot be read.
TAV_API std::optional<std::string> readRegularFile(const char* path, std::size_t limit);

/// Appends what can be read from `descriptor` to `content` until its end, or until `content` holds
/// `limit` bytes. False when a read fails.
TAV_API bool readUpTo(int descriptor, std::size_t limit, std::string& content);

/// Writes all of `size` bytes, going on after interruptions and partial writes. False on failure;
/// errno tells why.
TAV_API bool writeAll(int descriptor, const char* bytes, std::size_t size);

}  // namespace tav
