#pragma once

#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace tav {

/// Owns one open descriptor and closes it. -1 stands for none.
class FileDescriptor {
 public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) noexcept : descriptor_(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        reset(std::exchange(other.descriptor_, -1));
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() { reset(); }

    int get() const noexcept { return descriptor_; }
    bool isOpen() const noexcept { return descriptor_ >= 0; }

    void reset(int descriptor = -1) noexcept {
        if (descriptor_ >= 0) ::close(descriptor_);
        descriptor_ = descriptor;
    }

 private:
    int descriptor_ = -1;
};

/// The same file under a number that is none of the standard streams'. Where those are closed, the
/// next file opened takes their place, and gets what others believe to print.
inline FileDescriptor beyondStandardStreams(FileDescriptor file) {
    if (!file.isOpen() || file.get() > STDERR_FILENO) return file;
    return FileDescriptor(::fcntl(file.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

}  // namespace tav
