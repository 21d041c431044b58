#include "storage/nvme/nvme_device.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>

#include <linux/nvme_ioctl.h>
#include <sys/ioctl.h>

#include "base/printed.h"
#include "storage/nvme/nvme_records.h"

namespace tav::nvme {
namespace {

struct StatusOutcome {
    int status;
    Outcome outcome;
};

/// Everything else has failed.
constexpr std::array statusOutcomes = {
    StatusOutcome{0x001, Outcome::Refused},  // Invalid Command Opcode
    StatusOutcome{0x002, Outcome::Refused},  // Invalid Field in Command
    StatusOutcome{0x00B, Outcome::Refused},  // Invalid Namespace or Format
    StatusOutcome{0x109, Outcome::Refused},  // Invalid Log Page
    StatusOutcome{0x007, Outcome::Silent},   // Command Abort Requested
    StatusOutcome{0x370, Outcome::Silent},  // Internal Path Error; the kernel's own for a path that
    StatusOutcome{0x371, Outcome::Silent},  // is lost, and for a command that it has cancelled
};

struct ErrorOutcome {
    int error;
    Outcome outcome;
};
constexpr std::array errorOutcomes = {
    ErrorOutcome{EINTR, Outcome::Silent},     ErrorOutcome{ETIME, Outcome::Silent},
    ErrorOutcome{ETIMEDOUT, Outcome::Silent}, ErrorOutcome{EAGAIN, Outcome::NotReady},
    ErrorOutcome{ENODEV, Outcome::Gone},      ErrorOutcome{ENXIO, Outcome::Gone},
    ErrorOutcome{ENOENT, Outcome::Gone},
};

template <class Rows, class Key>
Outcome outcomeIn(const Rows& rows, Key key, int code) {
    const auto* const found =
        std::find_if(rows.begin(), rows.end(), [&](const auto& row) { return row.*key == code; });
    return found == rows.end() ? Outcome::Failed : found->outcome;
}

/// With the kernel's own time-out: a shorter one would make it reset a controller that is merely
/// slow.
Completion ask(int controller, std::uint8_t opcode, std::uint32_t namespaceId,
               std::uint32_t dword10, std::span<std::byte> data) {
    nvme_admin_cmd command{};
    command.opcode = opcode;
    command.nsid = namespaceId;
    command.addr = reinterpret_cast<std::uintptr_t>(data.data());
    command.data_len = static_cast<std::uint32_t>(data.size());
    command.cdw10 = dword10;
    const int result = ::ioctl(controller, NVME_IOCTL_ADMIN_CMD, &command);
    return completionOf(result, errno);
}

}  // namespace

Completion completionOf(int result, int error) {
    if (result == 0) return {};
    if (result < 0) return {outcomeIn(errorOutcomes, &ErrorOutcome::error, error), 0, error};
    const int status = result & statusMask;
    return {outcomeIn(statusOutcomes, &StatusOutcome::status, status), status, 0};
}

std::string textOf(const Completion& completion) {
    if (completion.error != 0) return printed("Error number: %d", completion.error);
    return printed("NVMe status 0x%03X", static_cast<unsigned>(completion.status));
}

FileDescriptor openController(const std::string& name, Completion& completion) {
    FileDescriptor controller(::open(("/dev/" + name).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    completion = completionOf(controller.isOpen() ? 0 : -1, errno);
    return controller;
}

Completion readControllerIdentity(int controller, IdentifyData& data) {
    return ask(controller, identifyCommand, 0, identifyControllerStructure, data);
}

Completion readNamespaceIdentity(int controller, std::uint32_t namespaceId, IdentifyData& data) {
    return ask(controller, identifyCommand, namespaceId, identifyNamespaceStructure, data);
}

Completion readHealthLog(int controller, HealthLogData& data) {
    constexpr std::uint32_t dwords = sizeof(HealthLogData) / sizeof(std::uint32_t);
    return ask(controller, getLogPageCommand, allNamespaces,
               (dwords - 1) << numberOfDwordsShift | healthInformationLog, data);
}

}  // namespace tav::nvme
