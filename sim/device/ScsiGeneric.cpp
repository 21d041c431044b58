#include "sim/device/ScsiGeneric.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <string>

#include "sim/device/DeviceKinds.h"
#include "sim/device/DiskModel.h"
#include "sim/device/FactsFile.h"
#include "sim/replay/Conversation.h"

namespace tav::sim {
namespace {

constexpr std::uint16_t hostTimedOut = 0x03;
constexpr std::uint16_t driverTimedOut = 0x06;
constexpr std::uint16_t driverSense = 0x08;
constexpr unsigned char checkConditionStatus = 0x02;

/// An open /dev/sgN: looks at the request as the kernel's driver does, and lets the script complete
/// it.
class ScsiGenericFile final : public OpenDevice {
 public:
    ScsiGenericFile(FileDescriptor deviceEnd, ScsiScript script)
        : OpenDevice(std::move(deviceEnd)), script_(std::move(script)) {}

    int control(int /*descriptor*/, unsigned long request, void* argument) override {
        constexpr int longestCommand = 16;
        if (request != SG_IO) return -ENOTTY;
        if (argument == nullptr) return -EFAULT;
        auto& header = *static_cast<sg_io_hdr*>(argument);
        if (header.interface_id != 'S') return -ENOSYS;
        if (header.cmdp == nullptr || header.cmd_len < 6 || header.cmd_len > longestCommand) {
            return -EMSGSIZE;
        }
        header.status = header.masked_status = header.msg_status = header.sb_len_wr = 0;
        header.host_status = header.driver_status = 0;
        header.info = SG_INFO_OK;
        return -script_(header);
    }

 private:
    const ScsiScript script_;
};

void completeTimedOut(sg_io_hdr& request) {
    request.host_status = hostTimedOut;
    request.driver_status = driverTimedOut;
    request.info |= SG_INFO_CHECK;
    request.resid = static_cast<int>(request.dxfer_len);
}

class DiskDevice final : public Device {
 public:
    explicit DiskDevice(FactsFile facts) : facts_(std::move(facts)) {}

    std::shared_ptr<OpenDevice> open(FileDescriptor deviceEnd, int& error) override {
        facts_.waitWhileHanging("open");
        if (!facts_.read().isPresent()) {
            error = ENXIO;
            return nullptr;
        }
        return std::make_shared<ScsiGenericFile>(
            std::move(deviceEnd),
            [facts = facts_](sg_io_hdr& request) { return serve(facts, request); });
    }

 private:
    static int serve(const FactsFile& facts, sg_io_hdr& request) {
        facts.waitWhileHanging("command");
        if (!facts.waitUntilItAnswers(std::chrono::milliseconds(request.timeout))) {
            completeTimedOut(request);
            return 0;
        }
        const DiskFacts disk = facts.read();
        if (!disk.isPresent()) return ENODEV;
        const DiskAnswer answer = answerCommand(disk, {request.cmdp, request.cmd_len});
        if (answer.sense.empty()) {
            completeWithData(request, answer.data);
        } else {
            completeWithSense(request, answer.sense);
        }
        return 0;
    }

    const FactsFile facts_;
};

void completeAsRecorded(const RecordedAnswer& answer, sg_io_hdr& request) {
    completeWithData(request, answer.bytes("data"));
    const std::vector<std::uint8_t> sense = answer.bytes("sense");
    const std::size_t count = std::min<std::size_t>(sense.size(), request.mx_sb_len);
    std::copy_n(sense.begin(), count, request.sbp);
    request.sb_len_wr = static_cast<unsigned char>(count);
    request.status = static_cast<unsigned char>(answer.number("status"));
    request.masked_status = static_cast<unsigned char>((request.status >> 1U) & 0x1FU);
    request.host_status = static_cast<unsigned short>(answer.number("host"));
    request.driver_status = static_cast<unsigned short>(answer.number("driver"));
    const bool isGood =
        request.status == 0 && request.host_status == 0 && request.driver_status == 0;
    if (!isGood) request.info |= SG_INFO_CHECK;
}

int serveRecorded(const RecordedConversation& conversation, sg_io_hdr& request) {
    constexpr int noAnswer = EIO;
    const std::span<const std::uint8_t> command(request.cmdp, request.cmd_len);
    const RecordedAnswer* const answer = conversation.find("scsi", command);
    if (answer == nullptr) {
        noteUnrecorded("SCSI command of operation code " + std::to_string(command[0]));
        return noAnswer;
    }
    waitAsRecorded(*answer);
    const auto error = static_cast<int>(answer->number("error"));
    if (error == 0) completeAsRecorded(*answer, request);
    return error;
}

std::shared_ptr<Device> findDisk(const std::string& path) {
    using Recorded = RecordedDevice<ScsiGenericFile, sg_io_hdr, serveRecorded>;
    return findDevice<Recorded, DiskDevice>(path, disksOfThisProcess);
}

[[gnu::constructor]] void serveTheDisks() {
    installDevices("/dev/sg", findDisk);
}

}  // namespace

void completeWithData(sg_io_hdr& request, std::span<const std::uint8_t> data) {
    const std::size_t count = std::min<std::size_t>(data.size(), request.dxfer_len);
    std::copy_n(data.begin(), count, static_cast<std::uint8_t*>(request.dxferp));
    request.resid = static_cast<int>(request.dxfer_len - count);
}

void completeWithSense(sg_io_hdr& request, std::span<const std::uint8_t> sense) {
    const std::size_t count = std::min<std::size_t>(sense.size(), request.mx_sb_len);
    std::copy_n(sense.begin(), count, request.sbp);
    request.sb_len_wr = static_cast<unsigned char>(count);
    request.status = checkConditionStatus;
    request.masked_status = checkConditionStatus >> 1U;
    request.driver_status = driverSense;
    request.info |= SG_INFO_CHECK;
    request.resid = static_cast<int>(request.dxfer_len);
}

std::shared_ptr<Device> scriptedScsiDevice(ScsiScript script) {
    return std::make_shared<ScriptedDevice<ScsiGenericFile, ScsiScript>>(std::move(script));
}

}  // namespace tav::sim
