#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace tav {

/// The kernel renders an attribute file into one page.
inline constexpr std::size_t attributeLimit = 4096;

/// Opens `path` for reading, relative to the open directory `directory` or to the working
/// directory. Never waits: a FIFO without a writer, say, opens at once and reads as empty. -1 on
/// failure.
int openForReading(const char* path);
int openForReading(int directory, const char* path);

/// One read, repeated only when a signal interrupts it. Returns the bytes read; 0 also on failure.
std::size_t readOnce(int descriptor, std::span<char> room);

/// The same at a position of the file.
std::size_t readOnceAt(int descriptor, std::span<std::byte> room, std::uint64_t position);

/// Opens the file, reads it once, closes it. Returns the bytes read; 0 also on failure.
std::size_t readFileOnce(const char* path, std::span<char> room);
std::size_t readFileOnce(int directory, const char* path, std::span<char> room);

/// The target of a symbolic link; empty when `path` is none or the target has 4,096 bytes or more.
std::string linkTarget(const char* path);
std::string linkTarget(int directory, const char* path);

}  // namespace tav
