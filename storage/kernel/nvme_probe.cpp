#include "storage/kernel/nvme_probe.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "base/printed.h"
#include "core/Log.h"
#include "storage/kernel/disk_ledgers.h"
#include "storage/kernel/disk_questions.h"
#include "storage/model/storage_location.h"
#include "storage/model/storage_utils.h"
#include "storage/nvme/nvme_device.h"

namespace tav {
namespace {

constexpr ModuleLog logger{"STOR_CTLR"};

constexpr const char* protocol = "NVMe";
constexpr const char* mediaType = "SSD";

/// Every word of Identify Controller that the kernel has a copy of.
struct KernelsCopy {
    std::string model, serialNumber, firmware;

    explicit KernelsCopy(const std::string& controller) {
        const std::string directory = nvme::controllerDirectory(controller);
        model = nvme::attribute(directory, "model").value_or("");
        serialNumber = nvme::attribute(directory, "serial").value_or("");
        firmware = nvme::attribute(directory, "firmware_rev").value_or("");
    }
};

const std::string& firstTold(const std::string& told, const std::string& otherwise) {
    return told.empty() ? otherwise : told;
}

std::optional<nvme::ControllerIdentity> identify(const std::string& name, int controller) {
    nvme::IdentifyData data{};
    const nvme::Completion completion = nvme::readControllerIdentity(controller, data);
    if (completion.outcome == nvme::Outcome::Answered) {
        if (auto identity = nvme::controllerIdentity(data)) return identity;
    }
    logger.debug(here(), "%s: The controller does not identify itself. (%s)", name.c_str(),
                 nvme::textOf(completion).c_str());
    return std::nullopt;
}

/// By its own word; where it has none, as the kernel has it.
std::uint64_t capacityOf(int controller, const std::string& owner,
                         const nvme::ListedNamespace& listed) {
    nvme::IdentifyData data{};
    if (controller >= 0 && nvme::readNamespaceIdentity(controller, listed.id, data).outcome ==
                               nvme::Outcome::Answered) {
        if (const auto bytes = nvme::namespaceBytes(data)) return *bytes;
    }
    return nvme::bytesOf(owner, listed.name);
}

/// What cannot be asked now is what it was, unless it is another drive.
void keepCondition(const tavDiskInfo& known, tavDiskInfo& disk) {
    if (samenessOf(known.getMemory(), disk.getMemory()) == Sameness::Other) return;
    assign(disk, conditionOf(known));
    disk.setEventInfoString(known.getEventInfoString());
}

/// Through which controller a drive is asked: of those that reach it the first that is live.
struct Path {
    std::string controller;
    bool isListed = false;  ///< the kernel reaches the drive through some controller

    Path(const std::string& own, const std::string& namespaceName) : controller(own) {
        const std::vector<std::string> reaching = nvme::controllersOf(own, namespaceName);
        isListed = !reaching.empty();
        if (reaching.size() < 2) return;
        const auto live = std::find_if(reaching.begin(), reaching.end(), [](const auto& candidate) {
            return nvme::stateOf(candidate) == nvme::ControllerState::Live;
        });
        if (live != reaching.end()) controller = *live;
    }
};

/// One drive's turn to be asked how it does.
class DriveStatus {
 public:
    DriveStatus(const Path& path, const std::function<bool()>& isLongInReset, tavDiskInfo& disk)
        : controller_(path.controller),
          isListed_(path.isListed),
          isLongInReset_(isLongInReset),
          disk_(disk) {}

    DiskJudgement judge() {
        switch (nvme::stateOf(controller_)) {
            case nvme::ControllerState::Gone:
                return {offline, printed("The NVMe controller %s is gone.", controller_.c_str())};
            case nvme::ControllerState::Leaving:
                return {offline,
                        printed("The NVMe controller %s is being removed.", controller_.c_str())};
            case nvme::ControllerState::Dead:
                return {failed,
                        printed("The NVMe controller %s is dead: the kernel has given it up.",
                                controller_.c_str())};
            case nvme::ControllerState::InReset:
                return judgeInReset();
            default:
                return isListed_ ? judgeByLog() : judgeUnlisted();
        }
    }

 private:
    /// What cannot be asked for a moment is what it was.
    DiskJudgement unchanged() const { return {conditionOf(disk_), disk_.getEventInfoString()}; }

    DiskJudgement judgeInReset() const {
        if (!isLongInReset_()) return unchanged();
        return {failed, printed("The NVMe controller %s has been in reset for >= 60 seconds.",
                                controller_.c_str())};
    }

    DiskJudgement judgeUnlisted() const {
        return {offline, printed("Namespace %u of NVMe controller %s is gone.",
                                 static_cast<unsigned>(disk_.getNamespace()), controller_.c_str())};
    }

    DiskJudgement judgeByLog() {
        nvme::Completion completion;
        const FileDescriptor file = nvme::openController(controller_, completion);
        if (!file.isOpen()) return judgeUnopened(completion);
        nvme::HealthLogData data{};
        completion = nvme::readHealthLog(file.get(), data);
        switch (completion.outcome) {
            case nvme::Outcome::Answered:
                noteAnswered(healthLogQuestion, disk_);
                return judgeLog(nvme::healthLog(data));
            case nvme::Outcome::Refused: {
                std::string failure = noteRefused(healthLogQuestion, disk_);
                if (failure.empty()) return {running, ""};
                return {failed, std::move(failure)};
            }
            case nvme::Outcome::NotReady:
                return unchanged();
            case nvme::Outcome::Silent:
                return {failed, printed("The disk drive (NVMe namespace: %s) did not answer in "
                                        "time. (SMART / health information log)",
                                        disk_.getOSSCSILink().c_str())};
            default:
                return {failed, printed("Failed to read SMART / health information log from disk "
                                        "drive. (%s)",
                                        nvme::textOf(completion).c_str())};
        }
    }

    DiskJudgement judgeUnopened(const nvme::Completion& completion) const {
        if (completion.outcome == nvme::Outcome::NotReady) return unchanged();
        const bool isGone = completion.outcome == nvme::Outcome::Gone;
        return {
            isGone ? offline : failed,
            printed("Unable to open NVMe controller /dev/%s (NVMe namespace: %s). Error number: "
                    "%d.",
                    controller_.c_str(), disk_.getOSSCSILink().c_str(), completion.error)};
    }

    /// A log that is none tells nothing.
    DiskJudgement judgeLog(const std::optional<nvme::HealthLog>& log) const {
        const std::string link = disk_.getOSSCSILink();
        if (!log) {
            logger.debug(here(), "%s: The SMART / health information log tells nothing.",
                         link.c_str());
            if (disk_.getState() == TAV_STATE_UNKNOWN) return {running, ""};
            return unchanged();
        }
        const DiskMemory& memory = disk_.getMemory();
        DiskJudgement judgement =
            nvme::judgeDrive({*log, memory.warningKelvins, memory.criticalKelvins});
        logger.debug(here(), "%s: NVMe Disk Status: [S=%s; H=%s] (C=0x%02X, T=%d K, S=%d, W=%d)",
                     link.c_str(), displayText(judgement.condition.state),
                     displayText(judgement.condition.health), log->warnings, log->kelvins,
                     log->spare, log->used);
        return judgement;
    }

    const std::string& controller_;
    const bool isListed_;
    const std::function<bool()>& isLongInReset_;
    tavDiskInfo& disk_;
};

}  // namespace

void describeNvmeController(const std::string& controller, tavStorageControllerInfo& found) {
    nvme::Completion completion;
    const FileDescriptor file = nvme::openController(controller, completion);
    const auto identity = file.isOpen() ? identify(controller, file.get()) : std::nullopt;
    const nvme::ControllerIdentity told = identity.value_or(nvme::ControllerIdentity{});
    const KernelsCopy copy(controller);
    const auto best = [](const std::string& own, const std::string& kernels,
                         const std::string& known) {
        const std::string& text = firstTold(firstTold(own, kernels), known);
        return text.empty() ? std::string(notAvailable) : text;
    };
    found.setProtocol(protocol);
    found.setModel(best(told.model, copy.model, found.getModel()));
    found.setSerialNumber(best(told.serialNumber, copy.serialNumber, found.getSerialNumber()));
    found.setFirmwareVersion(
        best(told.firmwareRevision, copy.firmware, found.getFirmwareVersion()));
}

void describeNvmeDrive(const std::string& controller, const nvme::ListedNamespace& listed,
                       const tavDiskInfo* known, tavDiskInfo& disk) {
    const std::string path = Path(controller, listed.name).controller;
    nvme::Completion completion;
    const FileDescriptor file = nvme::openController(path, completion);
    const auto identity = file.isOpen() ? identify(path, file.get()) : std::nullopt;
    const nvme::ControllerIdentity told = identity.value_or(nvme::ControllerIdentity{});
    const KernelsCopy copy(path);
    disk.setOSSCSILink(listed.name);
    disk.setNamespace(listed.id);
    disk.setOSDeviceName("/dev/" + listed.blockDevice);
    disk.setProtocol(protocol);
    disk.setMediaType(mediaType);
    disk.memory().unitSerial = copy.serialNumber;
    disk.memory().identifySerial = told.serialNumber;
    disk.setSerialNumber(firstTold(told.serialNumber, copy.serialNumber));
    disk.setModel(firstTold(told.model, copy.model));
    disk.setRevision(firstTold(told.firmwareRevision, copy.firmware));
    disk.setPartNumber(getDiskPartNumber(disk.getModel()));
    disk.setCapacityBytes(capacityOf(file.get(), controller, listed));
    if (known != nullptr) {
        keepKnown(*known, identity.has_value(), disk);
        keepCondition(*known, disk);
    }
    if (!identity) return;
    disk.memory().warningKelvins = told.warningKelvins;
    disk.memory().criticalKelvins = told.criticalKelvins;
}

DiskJudgement nvmeDriveStatus(const std::string& controller,
                              const std::function<bool()>& isLongInReset, tavDiskInfo& disk) {
    disk.memory().isReplaced = false;
    const Path path(controller, disk.getOSSCSILink());
    const std::string serial =
        nvme::attribute(nvme::controllerDirectory(path.controller), "serial").value_or("");
    const std::string recorded = disk.getMemory().unitSerial;
    if (serial.empty() || recorded.empty() || serial == recorded) {
        return DriveStatus(path, isLongInReset, disk).judge();
    }
    disk.memory().isReplaced = true;
    return {offline, serialChangeReason(serial, recorded)};
}

}  // namespace tav
