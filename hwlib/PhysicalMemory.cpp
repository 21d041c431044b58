#include "hwlib/PhysicalMemory.h"

#include <chrono>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

#include <sys/mman.h>

#include "core/FileDescriptor.h"
#include "core/Waiting.h"

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

/// Whole pages of a file, mapped for reading for as long as this object lives.
class MappedPages {
 public:
    MappedPages(int file, std::uint64_t start, std::size_t length)
        : length_(length),
          pages_(::mmap64(nullptr, length, PROT_READ, MAP_SHARED | MAP_POPULATE, file,
                          static_cast<off64_t>(start))) {}
    MappedPages(const MappedPages&) = delete;
    MappedPages& operator=(const MappedPages&) = delete;
    ~MappedPages() {
        if (isMapped()) ::munmap(pages_, length_);
    }

    bool isMapped() const { return pages_ != MAP_FAILED; }
    const std::byte* bytes() const { return static_cast<const std::byte*>(pages_); }

 private:
    std::size_t length_;
    void* pages_;
};

}  // namespace

std::vector<std::byte> readPhysicalMemory(std::uint64_t address, std::size_t length) {
    const FileDescriptor memory = openMemory();
    if (!memory.isOpen()) return {};
    const auto pageSize = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    const std::uint64_t start = address / pageSize * pageSize;
    const auto inPage = static_cast<std::size_t>(address - start);
    const MappedPages pages(memory.get(), start, inPage + length);
    if (!pages.isMapped()) {
        std::fprintf(stderr, "ERROR: Failed to map 0x%lx 0x%lx\n",
                     static_cast<unsigned long>(start),
                     static_cast<unsigned long>(inPage + length));
        return {};
    }
    return {pages.bytes() + inPage, pages.bytes() + inPage + length};
}

}  // namespace tav
