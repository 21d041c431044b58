#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/FileDescriptor.h"

namespace tav {

/// A part of physical memory, mapped for reading for as long as this object lives.
class MappedMemory {
 public:
    MappedMemory(int memory, std::uint64_t address, std::size_t length);
    MappedMemory(const MappedMemory&) = delete;
    MappedMemory& operator=(const MappedMemory&) = delete;
    ~MappedMemory();

    /// Empty when the memory could not be mapped.
    std::span<const std::byte> bytes() const noexcept { return bytes_; }

 private:
    void* pages_;
    std::size_t mappedLength_;
    std::span<const std::byte> bytes_;
};

/// The host's physical memory, through "/dev/mem". What fails is told on standard error.
class PhysicalMemory {
 public:
    /// Tries up to six times, five seconds apart, to open the device; the calling thread's stop
    /// signal ends that early.
    PhysicalMemory();

    /// Maps `length` bytes from `address` on.
    MappedMemory map(std::uint64_t address, std::size_t length) const;

 private:
    FileDescriptor device_;
};

}  // namespace tav
