#include "service/OwnUse.h"

#include <filesystem>
#include <iterator>
#include <system_error>

#include <unistd.h>

#include <sys/resource.h>

namespace tavd {
namespace {

std::uint64_t countOpenDescriptors() {
    std::error_code error;
    const std::filesystem::directory_iterator entries("/proc/self/fd", error);
    return error ? 0 : static_cast<std::uint64_t>(std::distance(begin(entries), end(entries)));
}

}  // namespace

OwnUse ownUse() {
    OwnUse use{tav::processStatus(::getpid()).value_or(tav::ProcessStatus()),
               countOpenDescriptors(), 0};
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) use.mostDescriptors = limit.rlim_cur;
    return use;
}

}  // namespace tavd
