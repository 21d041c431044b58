#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "core/Export.h"

namespace tav {

/// A copy of `length` bytes of physical memory from `address` on; empty when they cannot be read.
/// Tells so on standard error. While "/dev/mem" cannot be opened it is tried up to six times, five
/// seconds apart; the calling thread's stop signal ends that early.
std::vector<std::byte> readPhysicalMemory(std::uint64_t address, std::size_t length);

}  // namespace tav
