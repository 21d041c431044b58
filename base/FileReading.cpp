#include "base/FileReading.h"

#include <array>
#include <cerrno>

#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include "base/FileDescriptor.h"

namespace tav {
namespace {

template <class Read>
std::size_t unlessInterrupted(Read read) {
    ssize_t count = 0;
    do {
        count = read();
    } while (count < 0 && errno == EINTR);
    return count > 0 ? static_cast<std::size_t>(count) : 0;
}

}  // namespace

int openForReading(const char* path) {
    return openForReading(AT_FDCWD, path);
}

int openForReading(int directory, const char* path) {
    return ::openat(directory, path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

std::size_t readOnce(int descriptor, std::span<char> room) {
    return unlessInterrupted([&] { return ::read(descriptor, room.data(), room.size()); });
}

std::size_t readOnceAt(int descriptor, std::span<std::byte> room, std::uint64_t position) {
    return unlessInterrupted([&] {
        return ::pread64(descriptor, room.data(), room.size(), static_cast<off64_t>(position));
    });
}

std::size_t readFileOnce(const char* path, std::span<char> room) {
    return readFileOnce(AT_FDCWD, path, room);
}

std::size_t readFileOnce(int directory, const char* path, std::span<char> room) {
    const FileDescriptor file(openForReading(directory, path));
    return file.isOpen() ? readOnce(file.get(), room) : 0;
}

std::string linkTarget(const char* path) {
    return linkTarget(AT_FDCWD, path);
}

std::string linkTarget(int directory, const char* path) {
    std::array<char, PATH_MAX> target;
    const ssize_t length = ::readlinkat(directory, path, target.data(), target.size());
    if (length <= 0 || length == static_cast<ssize_t>(target.size())) return {};
    return {target.data(), static_cast<std::size_t>(length)};
}

}  // namespace tav
