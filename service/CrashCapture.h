#pragma once

namespace tavd {

/// Where the stack of a crashed service is appended to, beside the standard error.
inline constexpr const char* crashStackFile = "/opt/orn/tav/log/tavd-crash.txt";

/// From now on a fatal signal leaves the crashed thread's stack behind before it ends the process
/// as it would have done anyway; also a stack that is exhausted, but only the calling thread's.
void captureCrashes();

}  // namespace tavd
