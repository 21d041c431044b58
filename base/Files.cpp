#include "base/Files.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <fcntl.h>

#include <sys/stat.h>

namespace tav {

FileDescriptor openRegularFile(const char* path) {
    FileDescriptor file(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file.isOpen()) return file;
    struct stat status {};
    if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        errno = EINVAL;
        return FileDescriptor();
    }
    return file;
}

std::optional<std::string> readRegularFile(const char* path, std::size_t limit) {
    const FileDescriptor file = openRegularFile(path);
    std::string content;
    if (!file.isOpen() || !readUpTo(file.get(), limit + 1, content)) return std::nullopt;
    if (content.size() > limit) return std::nullopt;
    return content;
}

bool readUpTo(int descriptor, std::size_t limit, std::string& content) {
    std::array<char, 16384> chunk;
    while (content.size() < limit) {
        const std::size_t room = std::min(chunk.size(), limit - content.size());
        const ssize_t count = ::read(descriptor, chunk.data(), room);
        if (count == 0) return true;
        if (count > 0) {
            content.append(chunk.data(), static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

bool writeAll(int descriptor, const char* bytes, std::size_t size) {
    while (size > 0) {
        const ssize_t count = ::write(descriptor, bytes, size);
        if (count < 0 && errno != EINTR) return false;
        if (count > 0) {
            bytes += count;
            size -= static_cast<std::size_t>(count);
        }
    }
    return true;
}

}  // namespace tav
