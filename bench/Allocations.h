#pragma once

#include <atomic>
#include <cstddef>
#include <cstdlib>

/// Include this in the one source of a benchmark that counts what is allocated: the program's
/// malloc() is the C library's, and counts.
namespace bench {
inline std::atomic<long> allocations{0};
}

extern "C" void* __libc_malloc(std::size_t size);  // NOLINT(bugprone-reserved-identifier)

extern "C" void* malloc(std::size_t size) noexcept {
    ++bench::allocations;
    return __libc_malloc(size);
}
