#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

#include "base/Answer.h"
#include "base/FileDescriptor.h"

namespace tav {

/// A part of physical memory, mapped for reading for as long as this object lives.
class MappedMemory {
 public:
    /// Refused when `memory` is no open memory device, or not for that part.
    static Answer<MappedMemory> map(int memory, std::uint64_t address, std::size_t length);

    MappedMemory(MappedMemory&& other) noexcept
        : pages_(std::exchange(other.pages_, {})), bytes_(std::exchange(other.bytes_, {})) {}
    MappedMemory(const MappedMemory&) = delete;
    MappedMemory& operator=(const MappedMemory&) = delete;
    ~MappedMemory();

    std::span<const std::byte> bytes() const noexcept { return bytes_; }

 private:
    MappedMemory(std::span<std::byte> pages, std::size_t start) noexcept
        : pages_(pages), bytes_(pages.subspan(start)) {}

    std::span<std::byte> pages_;
    std::span<const std::byte> bytes_;
};

/// The host's physical memory, through "/dev/mem". What fails is told on standard error.
class PhysicalMemory {
 public:
    /// Tries up to six times, five seconds apart, to open the device; the calling thread's stop
    /// signal ends that early.
    PhysicalMemory();

    /// Maps `length` bytes from `address` on.
    Answer<MappedMemory> map(std::uint64_t address, std::size_t length) const;

 private:
    FileDescriptor device_;
};

}  // namespace tav
