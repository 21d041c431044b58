#include "bench/storage/kernel/CallTimes.h"

#include <cstdarg>
#include <cstddef>

#include <dirent.h>
#include <fcntl.h>

#include <sys/stat.h>
#include <sys/types.h>

// The names that the linker gives to the two ends of a wrapper.
// NOLINTBEGIN(bugprone-reserved-identifier)

using bench::callTimes;
using bench::timed;

extern "C" {

int __real_open(const char* path, int flags, ...);
int __real_openat(int directory, const char* path, int flags, ...);
int __real_close(int descriptor);
int __real_ioctl(int descriptor, unsigned long request, ...);
int __real_access(const char* path, int mode);
int __real_stat(const char* path, struct stat* status);
int __real_lstat(const char* path, struct stat* status);
int __real_fstat(int descriptor, struct stat* status);
int __real_fstatat(int directory, const char* path, struct stat* status, int flags);
ssize_t __real_read(int descriptor, void* buffer, std::size_t size);
ssize_t __real_readlink(const char* path, char* target, std::size_t size);
ssize_t __real_readlinkat(int directory, const char* path, char* target, std::size_t size);
ssize_t __real_getdents64(int directory, void* buffer, std::size_t size);
int __real_vsnprintf(char* text, std::size_t size, const char* format, va_list arguments);
int __real___vsnprintf_chk(char* text, std::size_t size, int flag, std::size_t room,
                           const char* format, va_list arguments);
void* __libc_malloc(std::size_t size);

int __wrap_open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return timed([&] { return __real_open(path, flags, mode); });
}
int __wrap_openat(int directory, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return timed([&] { return __real_openat(directory, path, flags, mode); });
}
int __wrap_close(int descriptor) {
    return timed([&] { return __real_close(descriptor); });
}
int __wrap_ioctl(int descriptor, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    ++callTimes.requests;
    return timed([&] { return __real_ioctl(descriptor, request, argument); });
}
int __wrap_access(const char* path, int mode) {
    return timed([&] { return __real_access(path, mode); });
}
int __wrap_stat(const char* path, struct stat* status) {
    return timed([&] { return __real_stat(path, status); });
}
int __wrap_lstat(const char* path, struct stat* status) {
    return timed([&] { return __real_lstat(path, status); });
}
int __wrap_fstat(int descriptor, struct stat* status) {
    return timed([&] { return __real_fstat(descriptor, status); });
}
int __wrap_fstatat(int directory, const char* path, struct stat* status, int flags) {
    return timed([&] { return __real_fstatat(directory, path, status, flags); });
}
ssize_t __wrap_read(int descriptor, void* buffer, std::size_t size) {
    return timed([&] { return __real_read(descriptor, buffer, size); });
}
ssize_t __wrap_readlink(const char* path, char* target, std::size_t size) {
    return timed([&] { return __real_readlink(path, target, size); });
}
ssize_t __wrap_readlinkat(int directory, const char* path, char* target, std::size_t size) {
    return timed([&] { return __real_readlinkat(directory, path, target, size); });
}
ssize_t __wrap_getdents64(int directory, void* buffer, std::size_t size) {
    return timed([&] { return __real_getdents64(directory, buffer, size); });
}

/// How the logger and others put a text together, checked by the compiler or not.
int __wrap_vsnprintf(char* text, std::size_t size, const char* format, va_list arguments) {
    ++callTimes.formatted;
    return __real_vsnprintf(text, size, format, arguments);
}

int __wrap___vsnprintf_chk(char* text, std::size_t size, int flag, std::size_t room,
                           const char* format, va_list arguments) {
    ++callTimes.formatted;
    return __real___vsnprintf_chk(text, size, flag, room, format, arguments);
}

/// What the C library's own would do.
void* malloc(std::size_t size) {
    if (bench::callDepth == 0) ++callTimes.allocations;
    return __libc_malloc(size);
}

}  // extern "C"

// NOLINTEND(bugprone-reserved-identifier)
