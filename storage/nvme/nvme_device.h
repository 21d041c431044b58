#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "base/FileDescriptor.h"

/// Asks an NVMe controller through its character device and the kernel's admin command interface.
/// Any thread; a command lasts until the controller answers or the kernel gives it up.
namespace tav::nvme {

/// What has become of a command, or of opening the controller.
enum class Outcome : std::uint8_t {
    Answered,
    Refused,   ///< the controller does not know the command, the page or a field
    Silent,    ///< it has not answered in time: the kernel has cancelled the command
    NotReady,  ///< the kernel lets nobody ask it now: it is in reset
    Gone,      ///< there is no such controller any more
    Failed,    ///< any other way
};

struct Completion {
    Outcome outcome = Outcome::Answered;
    int status = 0;  ///< status code type and status code by the standard; 0 where there is none
    int error = 0;   ///< errno; 0 where there is none
};

/// What the kernel's answer says: the result of ioctl() (its status field where it is positive),
/// and errno where that is negative.
Completion completionOf(int result, int error);

/// "NVMe status 0x109" or "Error number: 5".
std::string textOf(const Completion& completion);

/// "/dev/nvme0", open; not open: `completion` tells why.
FileDescriptor openController(const std::string& name, Completion& completion);

using IdentifyData = std::array<std::byte, 4096>;
using HealthLogData = std::array<std::byte, 512>;

Completion readControllerIdentity(int controller, IdentifyData& data);
Completion readNamespaceIdentity(int controller, std::uint32_t namespaceId, IdentifyData& data);
/// That of the whole controller.
Completion readHealthLog(int controller, HealthLogData& data);

}  // namespace tav::nvme
