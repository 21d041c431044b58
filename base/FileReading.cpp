#include "base/FileReading.h"

#include <array>
#include <cerrno>

#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

namespace tav {
namespace {

template <class Read>
Answer<std::size_t> unlessInterrupted(Read read) {
    ssize_t count = 0;
    do {
        count = read();
    } while (count < 0 && errno == EINTR);
    if (count < 0) return lackOf(errno);
    return static_cast<std::size_t>(count);
}

}  // namespace

FileDescriptor openForReading(const char* path) {
    return openForReading(AT_FDCWD, path);
}

FileDescriptor openForReading(int directory, const char* path) {
    return FileDescriptor(::openat(directory, path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

Answer<std::size_t> readOnce(int descriptor, std::span<char> room) {
    return unlessInterrupted([&] { return ::read(descriptor, room.data(), room.size()); });
}

Answer<std::size_t> readOnceAt(int descriptor, std::span<std::byte> room, std::uint64_t position) {
    return unlessInterrupted([&] {
        return ::pread64(descriptor, room.data(), room.size(), static_cast<off64_t>(position));
    });
}

Answer<std::string_view> readAttribute(const char* path, std::span<char> room) {
    return readAttribute(AT_FDCWD, path, room);
}

Answer<std::string_view> readAttribute(int directory, const char* path, std::span<char> room) {
    const FileDescriptor file = openForReading(directory, path);
    if (!file.isOpen()) return lackOf(errno);
    const auto length = readOnce(file.get(), room);
    if (!length) return length.lack();
    if (*length == 0) return Lack::Absent;
    return std::string_view(room.data(), *length);
}

Answer<std::string> linkTarget(const char* path) {
    return linkTarget(AT_FDCWD, path);
}

Answer<std::string> linkTarget(int directory, const char* path) {
    std::array<char, PATH_MAX> target;
    const ssize_t length = ::readlinkat(directory, path, target.data(), target.size());
    if (length < 0) return lackOf(errno);
    if (length == static_cast<ssize_t>(target.size())) return Lack::Malformed;
    return std::string(target.data(), static_cast<std::size_t>(length));
}

}  // namespace tav
