/// Preloaded into a program, lets somebody else set its real-time clock forward or back: by the
/// seconds in /run/sim/clock (8 bytes), where there is such a file when the program starts. The
/// monotonic clock goes on.
#include <cerrno>
#include <cstdint>
#include <ctime>

#include <fcntl.h>
#include <unistd.h>

#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>

#include "base/FileDescriptor.h"

namespace tav::sim {
namespace {

const volatile std::int64_t* mapSetting() {
    const FileDescriptor file(::open("/run/sim/clock", O_RDONLY | O_CLOEXEC));
    void* const seconds =
        ::mmap(nullptr, sizeof(std::int64_t), PROT_READ, MAP_SHARED, file.get(), 0);
    return seconds == MAP_FAILED ? nullptr : static_cast<const volatile std::int64_t*>(seconds);
}

std::time_t setBy() {
    static const volatile std::int64_t* const setting = mapSetting();
    return setting == nullptr ? 0 : static_cast<std::time_t>(*setting);
}

}  // namespace
}  // namespace tav::sim

extern "C" {

[[gnu::visibility("default")]] int clock_gettime(clockid_t clock, timespec* moment) noexcept {
    const auto result = static_cast<int>(::syscall(SYS_clock_gettime, clock, moment));
    const bool isRealTime = clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
    if (result == 0 && isRealTime) moment->tv_sec += tav::sim::setBy();
    return result;
}

[[gnu::visibility("default")]] int gettimeofday(timeval* moment, void* /*zone*/) noexcept {
    timespec now{};
    if (clock_gettime(CLOCK_REALTIME, &now) != 0) return -1;
    *moment = {now.tv_sec, now.tv_nsec / 1000};
    return 0;
}

[[gnu::visibility("default")]] std::time_t time(std::time_t* moment) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (moment != nullptr) *moment = now.tv_sec;
    return now.tv_sec;
}

}  // extern "C"
