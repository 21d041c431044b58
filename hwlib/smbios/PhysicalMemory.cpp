#include "hwlib/smbios/PhysicalMemory.h"

#include <chrono>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

#include <sys/mman.h>

#include "base/Waiting.h"

namespace tav {
namespace {

constexpr const char* memoryDevice = "/dev/mem";
constexpr int openAttempts = 6;
constexpr std::chrono::seconds openPause{5};

FileDescriptor openMemory() {
    for (int attempt = 1;; ++attempt) {
        FileDescriptor memory(::open(memoryDevice, O_RDONLY | O_CLOEXEC));
        if (memory.isOpen()) return memory;
        if (attempt == openAttempts) break;
        if (pauseFor(openPause) == Pause::Stopped) return {};
    }
    std::fprintf(stderr, "ERROR: Failed to open %s\n", memoryDevice);
    return {};
}

}  // namespace

Answer<MappedMemory> MappedMemory::map(int memory, std::uint64_t address, std::size_t length) {
    if (memory < 0) return Lack::Refused;
    const auto pageSize = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    const std::uint64_t start = address / pageSize * pageSize;
    const auto inPage = static_cast<std::size_t>(address - start);
    const std::size_t mappedLength = inPage + length;
    void* const pages =
        ::mmap64(nullptr, mappedLength, PROT_READ, MAP_SHARED, memory, static_cast<off64_t>(start));
    if (pages == MAP_FAILED) {
        std::fprintf(stderr, "ERROR: Failed to map 0x%lx 0x%lx\n",
                     static_cast<unsigned long>(start), static_cast<unsigned long>(mappedLength));
        return Lack::Refused;
    }
    return MappedMemory({static_cast<std::byte*>(pages), mappedLength}, inPage);
}

MappedMemory::~MappedMemory() {
    if (!pages_.empty()) ::munmap(pages_.data(), pages_.size());
}

PhysicalMemory::PhysicalMemory() : device_(openMemory()) {}

Answer<MappedMemory> PhysicalMemory::map(std::uint64_t address, std::size_t length) const {
    return MappedMemory::map(device_.get(), address, length);
}

}  // namespace tav
