#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace tav::ctl {

/// What `work` returns, which is done in a process of its own and told through a pipe: the kernel
/// lets go of one that has asked a hung device only when the device does, and nobody should have to
/// wait for that. None when it does not come within the limit; the process is killed then. Where no
/// other process can be had it is done in this one, without a limit. Without any other thread; what
/// `work` prints it has to flush.
std::optional<std::string> workInChild(std::chrono::milliseconds limit,
                                       const std::function<std::string()>& work);

}  // namespace tav::ctl
