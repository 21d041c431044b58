#pragma once

#include <functional>
#include <thread>

#include "base/Export.h"

namespace tav {

/// Starts `body` as a joinable thread that the system's tools show as `name` (at most 15
/// characters). Returns 0, or the error number that explains why no thread could be created.
TAV_API int startThread(std::thread& thread, const char* name, std::function<void()> body);

/// Joins the thread. Returns 0, or the error number (EINVAL when there is nothing to join).
TAV_API int joinThread(std::thread& thread);

}  // namespace tav
