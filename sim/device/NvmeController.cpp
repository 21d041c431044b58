#include "sim/device/NvmeController.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include <sys/ioctl.h>

#include "sim/device/DeviceKinds.h"
#include "sim/device/DiskBytes.h"
#include "sim/device/DiskModel.h"
#include "sim/device/FactsFile.h"
#include "sim/replay/Conversation.h"

namespace tav::sim {
namespace {

constexpr int doNotRetry = 0x4000;
constexpr int invalidOpcode = doNotRetry | 0x001;
constexpr int invalidField = doNotRetry | 0x002;
constexpr int invalidNamespace = doNotRetry | 0x00B;
constexpr int invalidLogPage = doNotRetry | 0x109;

constexpr std::chrono::seconds adminTimeout{60};  // of the kernel's driver

/// A structure of little-endian numbers and texts at their offsets.
class Structure {
 public:
    explicit Structure(std::size_t size) : bytes_(size) {}

    void put(std::size_t at, std::uint64_t value, std::size_t size) {
        for (std::size_t i = 0; i < size; ++i, value >>= 8U)
            bytes_[at + i] = static_cast<std::uint8_t>(value);
    }
    void putText(std::size_t at, const std::string& text, std::size_t width) {
        const DiskBytes characters = field(text, width);
        std::copy(characters.begin(), characters.end(),
                  bytes_.begin() + static_cast<std::ptrdiff_t>(at));
    }
    DiskBytes take() { return std::move(bytes_); }

 private:
    DiskBytes bytes_;
};

/// All of it the filling that the facts ask for; empty where they ask for none.
DiskBytes filled(const DiskFacts& controller, const char* what, std::size_t size) {
    const std::string wanted = controller.text(what);
    if (wanted == "ones") return DiskBytes(size, 0xFF);
    if (wanted == "zeros") return DiskBytes(size);
    return {};
}

std::uint64_t numberOf(const DiskFacts& controller, const char* key, std::int64_t otherwise) {
    return static_cast<std::uint64_t>(controller.number(key, otherwise));
}

/// Degrees Celsius as kelvins; 0 where they are not told.
std::uint64_t kelvins(const DiskFacts& controller, const char* key) {
    constexpr std::int64_t freezing = 273;
    return controller.text(key).empty()
               ? 0
               : static_cast<std::uint64_t>(controller.number(key, 0) + freezing);
}

constexpr std::size_t identifySize = 4096;

DiskBytes identifyController(const DiskFacts& controller) {
    if (DiskBytes odd = filled(controller, "identify", identifySize); !odd.empty()) return odd;
    constexpr std::uint64_t version14 = 0x00010400;
    Structure data(identifySize);
    data.put(0, 0x8086, 2);
    data.putText(4, controller.text("serial"), 20);
    data.putText(24, controller.text("model"), 40);
    data.putText(64, controller.text("firmware"), 8);
    data.put(80, version14, 4);
    data.put(266, kelvins(controller, "warningTemperature"), 2);
    data.put(268, kelvins(controller, "criticalTemperature"), 2);
    data.put(516, numberOf(controller, "namespaces", 1), 4);
    return data.take();
}

DiskBytes identifyNamespace(const DiskFacts& controller) {
    constexpr std::uint64_t shift512 = 9;
    Structure data(identifySize);
    const std::uint64_t blocks = numberOf(controller, "blocks", 0);
    data.put(0, blocks, 8);
    data.put(8, blocks, 8);
    data.put(16, blocks, 8);
    data.put(128 + 2, shift512, 1);
    return data.take();
}

DiskBytes healthInformation(const DiskFacts& controller) {
    constexpr std::size_t size = 512;
    if (DiskBytes odd = filled(controller, "healthLog", size); !odd.empty()) return odd;
    Structure data(size);
    data.put(0, numberOf(controller, "criticalWarning", 0), 1);
    data.put(1, kelvins(controller, "temperature"), 2);
    data.put(3, numberOf(controller, "spare", 100), 1);
    data.put(4, numberOf(controller, "spareThreshold", 10), 1);
    data.put(5, numberOf(controller, "used", 0), 1);
    data.put(160, numberOf(controller, "mediaErrors", 0), 8);
    return data.take();
}

int give(const DiskBytes& data, const nvme_admin_cmd& command) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the request has it as a number
    auto* const buffer = reinterpret_cast<std::uint8_t*>(static_cast<std::uintptr_t>(command.addr));
    std::copy_n(data.begin(), std::min<std::size_t>(data.size(), command.data_len), buffer);
    return 0;
}

int identify(const DiskFacts& controller, const nvme_admin_cmd& command) {
    constexpr std::uint32_t ofNamespace = 0;
    constexpr std::uint32_t ofController = 1;
    switch (command.cdw10) {
        case ofController:
            return give(identifyController(controller), command);
        case ofNamespace:
            if (command.nsid == 0 || command.nsid > numberOf(controller, "namespaces", 1)) {
                return invalidNamespace;
            }
            return give(identifyNamespace(controller), command);
        default:
            return invalidField;
    }
}

int getLogPage(const DiskFacts& controller, const nvme_admin_cmd& command) {
    constexpr std::uint32_t healthLog = 0x02;
    constexpr std::uint32_t identifierMask = 0xFF;
    constexpr unsigned dwordsShift = 16;
    const bool isKnown = (command.cdw10 & identifierMask) == healthLog;
    if (!isKnown || controller.text("healthLog") == "refused") return invalidLogPage;
    const std::uint32_t dwords = (command.cdw10 >> dwordsShift) + 1;
    if (dwords * sizeof(std::uint32_t) != command.data_len) return invalidField;
    return give(healthInformation(controller), command);
}

/// An open /dev/nvmeN: looks at the request as the kernel's driver does.
class NvmeFile final : public OpenDevice {
 public:
    NvmeFile(FileDescriptor deviceEnd, NvmeScript script)
        : OpenDevice(std::move(deviceEnd)), script_(std::move(script)) {}

    int control(int /*descriptor*/, unsigned long request, void* argument) override {
        if (request != NVME_IOCTL_ADMIN_CMD) return -ENOTTY;
        if (argument == nullptr) return -EFAULT;
        return script_(*static_cast<nvme_admin_cmd*>(argument));
    }

 private:
    const NvmeScript script_;
};

class ControllerDevice final : public Device {
 public:
    explicit ControllerDevice(FactsFile facts) : facts_(std::move(facts)) {}

    std::shared_ptr<OpenDevice> open(FileDescriptor deviceEnd, int& error) override {
        facts_.waitWhileHanging("open");
        const DiskFacts controller = facts_.read();
        const bool isLive = controller.text("state", "live") == "live";
        if (!controller.isPresent() || !isLive) {
            error = controller.isPresent() ? EWOULDBLOCK : ENODEV;
            return nullptr;
        }
        return std::make_shared<NvmeFile>(
            std::move(deviceEnd),
            [facts = facts_](nvme_admin_cmd& command) { return serve(facts, command); });
    }

 private:
    static int serve(const FactsFile& facts, const nvme_admin_cmd& command) {
        facts.waitWhileHanging("command");
        const std::chrono::milliseconds asked(command.timeout_ms);
        const std::chrono::milliseconds patience = command.timeout_ms == 0 ? adminTimeout : asked;
        // The driver cancels what takes longer, and resets the controller.
        if (!facts.waitUntilItAnswers(patience)) return -EINTR;
        const DiskFacts controller = facts.read();
        return controller.isPresent() ? answerAdminCommand(controller, command) : -ENODEV;
    }

    const FactsFile facts_;
};

int serveRecorded(const RecordedConversation& conversation, nvme_admin_cmd& command) {
    Structure key(9);
    key.put(0, command.opcode, 1);
    key.put(1, command.nsid, 4);
    key.put(5, command.cdw10, 4);
    const RecordedAnswer* const answer = conversation.find("nvme", key.take());
    if (answer == nullptr) {
        noteUnrecorded("NVMe command of opcode " + std::to_string(command.opcode));
        return invalidOpcode;
    }
    waitAsRecorded(*answer);
    if (const auto error = static_cast<int>(answer->number("error")); error != 0) return -error;
    give(answer->bytes("data"), command);
    return static_cast<int>(answer->number("status"));
}

std::shared_ptr<Device> findController(const std::string& path) {
    using Recorded = RecordedDevice<NvmeFile, nvme_admin_cmd, serveRecorded>;
    return findDevice<Recorded, ControllerDevice>(path, nvmeOfThisProcess);
}

[[gnu::constructor]] void serveTheControllers() {
    installDevices("/dev/nvme", findController);
}

}  // namespace

int answerAdminCommand(const DiskFacts& controller, const nvme_admin_cmd& command) {
    constexpr std::uint8_t getLogPageCode = 0x02;
    constexpr std::uint8_t identifyCode = 0x06;
    switch (command.opcode) {
        case identifyCode:
            return identify(controller, command);
        case getLogPageCode:
            return getLogPage(controller, command);
        default:
            return invalidOpcode;
    }
}

std::shared_ptr<Device> scriptedNvmeDevice(NvmeScript script) {
    return std::make_shared<ScriptedDevice<NvmeFile, NvmeScript>>(std::move(script));
}

}  // namespace tav::sim
