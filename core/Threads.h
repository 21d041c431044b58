#pragma once

#include <functional>
#include <thread>

namespace tav {

/// Starts `body` as a joinable thread that the system's tools show as `name` (at most 15
/// characters). Returns 0, or the error number that explains why no thread could be created.
int startThread(std::thread& thread, const char* name, std::function<void()> body);

/// Joins the thread. Returns 0, or the error number (EINVAL when there is nothing to join).
int joinThread(std::thread& thread);

}  // namespace tav
