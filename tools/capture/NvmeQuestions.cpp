#include "tools/capture/NvmeQuestions.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>

#include <fcntl.h>

#include <linux/nvme_ioctl.h>
#include <sys/ioctl.h>

#include "base/DirectoryListing.h"
#include "base/FileDescriptor.h"
#include "base/FileReading.h"
#include "base/Trim.h"
#include "base/Waiting.h"
#include "storage/nvme/nvme_records.h"

namespace tav::capture {
namespace {

constexpr const char* controllers = "/sys/class/nvme/";
constexpr std::size_t healthLogSize = sizeof(nvme::HealthInformation);
constexpr std::uint32_t healthLog = static_cast<std::uint32_t>(healthLogSize / 4 - 1)
                                        << nvme::numberOfDwordsShift |
                                    nvme::healthInformationLog;

nvme_admin_cmd commandOf(std::uint8_t opcode, std::uint32_t namespaceId, std::uint32_t dword10) {
    nvme_admin_cmd command{};
    command.opcode = opcode;
    command.nsid = namespaceId;
    command.cdw10 = dword10;
    return command;
}

nvme_admin_cmd identifyController() {
    return commandOf(nvme::identifyCommand, 0, nvme::identifyControllerStructure);
}

/// What tells one question from another, least significant byte first.
std::string keyOf(const nvme_admin_cmd& command) {
    std::string key(1, static_cast<char>(command.opcode));
    for (const std::uint32_t number : {command.nsid, command.cdw10}) {
        for (unsigned shift = 0; shift < 32; shift += 8)
            key += static_cast<char>(number >> shift & 0xFFU);
    }
    return "nvme " + hexadecimal(key);
}

/// With the kernel's own time-out, as the managers ask: a shorter one would have the kernel reset a
/// controller that is merely slow. False when nothing more should be asked.
bool ask(Recorder& recorder, const std::string& device, int node, nvme_admin_cmd command,
         std::size_t size) {
    std::string room(size, '\0');
    command.addr = reinterpret_cast<std::uintptr_t>(room.data());
    command.data_len = static_cast<std::uint32_t>(room.size());
    Answer answer;
    answer.question = keyOf(command);
    recorder.ask(device, answer.question);
    const Stopwatch taken;
    const int result = ::ioctl(node, NVME_IOCTL_ADMIN_CMD, &command);
    answer.outcome =
        result < 0 ? "error=" + std::to_string(errno) : "status=" + std::to_string(result);
    answer.outcome += " ms=" + std::to_string(taken.elapsed().count());
    if (result == 0) answer.data = std::move(room);
    recorder.addAnswer(device, std::move(answer));
    return result >= 0;
}

/// The numbers of the namespaces that the kernel has of a controller.
std::vector<std::uint32_t> namespacesOf(const std::string& controller) {
    const std::string directory = controllers + controller + '/';
    std::vector<std::uint32_t> numbers;
    forEachEntry(directory.c_str(), 0, [&](const DirectoryEntry& entry) {
        std::array<char, attributeLimit> room;
        const std::string path = directory + std::string(entry.name) + "/nsid";
        const auto text = readAttribute(path.c_str(), room);
        if (!text) return;
        const std::string digits(trimBoth(*text));
        numbers.push_back(static_cast<std::uint32_t>(std::strtoul(digits.c_str(), nullptr, 10)));
    });
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

/// What the managers read of an answer, by its question.
struct Range {
    std::size_t offset, size;
};
constexpr std::array controllerRanges = {
    Range{0, offsetof(nvme::IdentifyController, unread72)},
    Range{offsetof(nvme::IdentifyController, warningTemperature), 4},
};
constexpr std::array namespaceRanges = {
    Range{0, offsetof(nvme::IdentifyNamespace, unread27)},
    Range{offsetof(nvme::IdentifyNamespace, lbaFormats),
          sizeof nvme::IdentifyNamespace::lbaFormats},
};

template <class Ranges>
std::string keepOnly(const Ranges& ranges, const std::string& data) {
    std::string kept(data.size(), '\0');
    for (const Range& range : ranges)
        kept.replace(range.offset, range.size, data, range.offset, range.size);
    return kept;
}

}  // namespace

void askNvmeController(Recorder& recorder, const std::string& name) {
    recorder.ask(name, "open");
    const FileDescriptor node(::open(("/dev/" + name).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!node.isOpen()) {
        recorder.refuseToOpen(name, errno);
        return;
    }
    constexpr std::size_t identitySize = sizeof(nvme::IdentifyController);
    bool goesOn = ask(recorder, name, node.get(), identifyController(), identitySize);
    for (const std::uint32_t number : namespacesOf(name)) {
        goesOn = goesOn &&
                 ask(recorder, name, node.get(),
                     commandOf(nvme::identifyCommand, number, nvme::identifyNamespaceStructure),
                     identitySize);
    }
    if (goesOn) {
        ask(recorder, name, node.get(),
            commandOf(nvme::getLogPageCommand, nvme::allNamespaces, healthLog), healthLogSize);
    }
}

std::vector<std::string> nvmeControllers() {
    std::vector<std::string> names;
    forEachEntry(controllers, 0,
                 [&](const DirectoryEntry& entry) { names.emplace_back(entry.name); });
    return names;
}

std::string_view nvmeSerial(const Answer& answer) {
    if (answer.question != keyOf(identifyController())) return {};
    return std::string_view(answer.data)
        .substr(std::min(offsetof(nvme::IdentifyController, serialNumber), answer.data.size()),
                sizeof nvme::IdentifyController::serialNumber);
}

void blankUnreadNvme(Answer& answer) {
    if (answer.data.size() != sizeof(nvme::IdentifyController)) return;
    answer.data = answer.question == keyOf(identifyController())
                      ? keepOnly(controllerRanges, answer.data)
                      : keepOnly(namespaceRanges, answer.data);
}

}  // namespace tav::capture
