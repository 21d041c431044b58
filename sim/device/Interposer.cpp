/// Stands before the C library's open() and ioctl() in the program it is linked or preloaded into.
/// What is not a simulated device goes to the kernel by a raw system call, because looking up the
/// C library's own function would find the sanitizers' interceptors before they are ready.
#include <cerrno>
#include <cstdarg>

#include <fcntl.h>
#include <unistd.h>

#include <sys/syscall.h>

#include "sim/device/DeviceTable.h"

#define TAV_INTERPOSE __attribute__((visibility("default")))

// Named by assembler label: the headers' own declarations of these functions differ from one
// setting of the feature macros to the next. A third argument that the caller has left out is
// garbage here, and is not looked at.
extern "C" {
TAV_INTERPOSE int tavSimOpen(const char* path, int flags, mode_t mode) __asm__("open");
TAV_INTERPOSE int tavSimOpen64(const char* path, int flags, mode_t mode) __asm__("open64");
TAV_INTERPOSE int tavSimCheckedOpen(const char* path, int flags) __asm__("__open_2");
TAV_INTERPOSE int tavSimCheckedOpen64(const char* path, int flags) __asm__("__open64_2");
TAV_INTERPOSE int tavSimIoctl(int descriptor, unsigned long request, ...) __asm__("ioctl");
}

namespace {

int resultOf(int value) {
    if (value >= 0) return value;
    errno = -value;
    return -1;
}

int openAnything(const char* path, int flags, mode_t mode) {
    if (path != nullptr) {
        if (const auto simulated = tav::sim::openDevice(path, flags)) return resultOf(*simulated);
    }
    return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

bool hasMode(int flags) {
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

}  // namespace

int tavSimOpen(const char* path, int flags, mode_t mode) {
    return openAnything(path, flags, hasMode(flags) ? mode : 0);
}

int tavSimOpen64(const char* path, int flags, mode_t mode) {
    return openAnything(path, flags | O_LARGEFILE, hasMode(flags) ? mode : 0);
}

int tavSimCheckedOpen(const char* path, int flags) {
    return openAnything(path, flags, 0);
}

int tavSimCheckedOpen64(const char* path, int flags) {
    return openAnything(path, flags | O_LARGEFILE, 0);
}

int tavSimIoctl(int descriptor, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (const auto simulated = tav::sim::controlDevice(descriptor, request, argument)) {
        return resultOf(*simulated);
    }
    return static_cast<int>(::syscall(SYS_ioctl, descriptor, request, argument));
}
