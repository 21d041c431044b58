#include "base/StopSignal.h"

#include <cerrno>
#include <cstdint>
#include <utility>

#include <sys/eventfd.h>

namespace tav {
namespace {
thread_local const StopSignal* threadStop = nullptr;
}

// Some are made before main() can see to streams that are closed.
StopSignal::StopSignal()
    : event_(beyondStandardStreams(FileDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)))) {}

void StopSignal::request() noexcept {
    const int savedErrno = errno;
    requested_.store(true, std::memory_order_release);
    const std::uint64_t one = 1;
    // Fails only when the counter is full, which leaves the descriptor readable all the same.
    [[maybe_unused]] const ssize_t written = ::write(event_.get(), &one, sizeof one);
    errno = savedErrno;
}

void StopSignal::withdraw() noexcept {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t taken = ::read(event_.get(), &count, sizeof count);
    requested_.store(false, std::memory_order_release);
}

const StopSignal* currentStop() noexcept {
    return threadStop;
}

StopScope::StopScope(const StopSignal* stop) noexcept
    : previous_(std::exchange(threadStop, stop)) {}

StopScope::~StopScope() {
    threadStop = previous_;
}

}  // namespace tav
