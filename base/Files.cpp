#include "base/Files.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>

#include <sys/stat.h>

#include "base/FileReading.h"

namespace tav {

FileDescriptor openRegularFile(const char* path) {
    FileDescriptor file = openForReading(path);
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
        const auto count = readOnce(descriptor, std::span(chunk).first(room));
        if (!count) return false;
        if (*count == 0) return true;
        content.append(chunk.data(), *count);
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
