/// Preloaded into the service: a reload that is asked for while its libraries are being
/// initialised.
#include <csignal>
#include <cstdlib>

namespace {
[[gnu::constructor]] void hangUp() {
    ::unsetenv("LD_PRELOAD");  // not for the commands that the service runs
    std::raise(SIGHUP);
}
}  // namespace
