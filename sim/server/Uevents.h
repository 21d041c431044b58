#pragma once

#include <string>

namespace tav::sim {

/// Has the kernel tell of a device in the private root's network, as it tells of its own ones
/// outside (sim/enter --uevents): `path` is the device's below /sys. Throws std::runtime_error when
/// the kernel refuses.
void sendUevent(const std::string& action, const std::string& path, const std::string& subsystem);

}  // namespace tav::sim
