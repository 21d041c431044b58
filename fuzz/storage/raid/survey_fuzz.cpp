/// A vendor's library that answers every question with any status and any bytes: what is made of it
/// stays within what was told, and nothing is gone because the library stops answering.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>
#include <vector>

#include "core/Logger.h"
#include "storage/raid/storelib_survey.h"

namespace {

using namespace tav::storelib;

void require(bool condition) {
    if (!condition) std::abort();
}

/// Hands the input out byte by byte, and zeros behind its end.
class Input {
 public:
    explicit Input(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    std::uint8_t next() {
        if (bytes_.empty()) return 0;
        const std::uint8_t byte = bytes_.front();
        bytes_ = bytes_.subspan(1);
        return byte;
    }

    /// A record is mostly zeros: a few pieces at places of the input's choice.
    void fill(std::span<std::uint8_t> record) {
        for (int pieces = next() % 8; pieces > 0 && !record.empty(); --pieces) {
            const std::size_t high = next();
            const std::size_t at = (high << 8U | next()) % record.size();
            const std::size_t end = std::min(record.size(), at + next() % 8U + 1);
            for (std::uint8_t& byte : record.subspan(at, end - at))
                byte = next();
        }
    }

 private:
    std::span<const std::uint8_t> bytes_;
};

/// As many bytes as the command has room for; a firmware command's room stands in its frame.
std::span<std::uint8_t> roomOf(const _SL_LIB_CMD_PARAM_T& command) {
    constexpr std::uint8_t passThrough = 6;
    void* room = command.data;
    std::size_t size = command.dataSize;
    if (command.commandType == passThrough) {
        const auto* const frame = static_cast<const SL_DCMD_FRAME_T*>(command.data);
        room = frame->output;
        size = frame->outputSize;
    }
    return {static_cast<std::uint8_t*>(room), size};
}

/// The bytes that make a controller the supported one.
void makeSupported(const _SL_LIB_CMD_PARAM_T& command) {
    constexpr std::uint8_t controllerCommand = 1, controllerInfo = 0;
    if (command.commandType != controllerCommand || command.commandCode != controllerInfo) return;
    auto* const record = static_cast<_MR_CTRL_INFO*>(command.data);
    record->vendorId = 0x1000;
    record->pciDeviceId = 0x005D;
}

void survey(const Commands& commands, const Snapshot& known, Snapshot& next) {
    const Survey survey(commands, {0x000000, 0x000001, 0x01000002}, known);
    survey.readControllers(next);
    survey.readDrives(next);
    survey.readVolumes(next);
}

void check(const Snapshot& snapshot) {
    require(snapshot.controllers.size() <= 3);
    for (const auto& [controller, drives] : snapshot.drives)
        require(drives.size() <= 256);
    for (const auto& [controller, volumes] : snapshot.volumes) {
        require(volumes.size() <= 256);
        for (const LD_INFO& volume : volumes)
            require(volume.memberDrives.size() <= 256 && volume.durableName.size() == 32);
    }
}

}  // namespace

/// What is complained of goes to the system log, which takes longer than all else.
extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    CPlusPlusLogging::Logger::getInstance()->disableLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input({data, size});
    const Commands any([&](_SL_LIB_CMD_PARAM_T* command) -> std::uint32_t {
        const std::uint8_t status = input.next();
        input.fill(roomOf(*command));
        if (status % 4U != 3) makeSupported(*command);
        return status < 0xE0 ? success : status;
    });
    const Commands silent([](_SL_LIB_CMD_PARAM_T*) -> std::uint32_t { return 0x8009; });

    const Snapshot empty;
    Snapshot first;
    survey(any, empty, first);
    check(first);
    Snapshot second = first;
    survey(any, first, second);
    check(second);

    Snapshot last = second;
    survey(silent, second, last);
    for (const CTRL_INFO& controller : second.controllers) {
        const std::uint32_t id = controller.controllerId;
        require(last.controller(id) != nullptr);
        require(last.drivesOf(id).size() == second.drivesOf(id).size());
        require(last.volumesOf(id).size() == second.volumesOf(id).size());
    }
    return 0;
}
