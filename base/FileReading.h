#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "base/Answer.h"
#include "base/FileDescriptor.h"

/// Reading what the kernel renders: attributes, links, devices' own memory. Regular files are read
/// by base/Files.h.
namespace tav {

/// The kernel renders an attribute file into one page.
inline constexpr std::size_t attributeLimit = 4096;

/// Opens `path` for reading, relative to the open directory `directory` or to the working
/// directory. Never waits: a FIFO without a writer, say, opens at once and reads as empty. When the
/// result is not open, errno tells why.
FileDescriptor openForReading(const char* path);
FileDescriptor openForReading(int directory, const char* path);

/// One read, repeated only when a signal interrupts it: the bytes read, 0 at the end.
Answer<std::size_t> readOnce(int descriptor, std::span<char> room);

/// The same at a position of the file.
Answer<std::size_t> readOnceAt(int descriptor, std::span<std::byte> room, std::uint64_t position);

/// Opens an attribute, reads it once, closes it. The text stands in `room`; one of no bytes tells
/// nothing and is absent.
Answer<std::string_view> readAttribute(const char* path, std::span<char> room);
Answer<std::string_view> readAttribute(int directory, const char* path, std::span<char> room);

/// The target of a symbolic link; malformed when it has 4,096 bytes or more.
Answer<std::string> linkTarget(const char* path);
Answer<std::string> linkTarget(int directory, const char* path);

}  // namespace tav
