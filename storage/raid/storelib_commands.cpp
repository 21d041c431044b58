#include "storage/raid/storelib_commands.h"

namespace tav::storelib {
namespace {

enum CommandType : std::uint8_t {
    LibraryCommand = 0,
    ControllerCommand = 1,
    DriveCommand = 2,
    VolumeCommand = 3,
    PassThroughCommand = 6,
    EventCommand = 7,
};

enum CommandCode : std::uint8_t {
    Initialize = 0,
    Register = 1,
    Unregister = 2,
    ControllerList = 3,
    Release = 9,
    ControllerInfo = 0,
    DriveList = 4,
    EnclosureList = 5,
    PciInfo = 11,
    VolumeList = 13,
    DriveInfo = 0,
    VolumeInfo = 0,
    VolumeDrives = 11,
    FirmwareCommand = 3,
    SequenceInfo = 0,
};

constexpr std::uint8_t withControllerList = 1;  // the initialisation's qualifier

constexpr std::uint8_t controllerToHost = 2;
constexpr std::uint32_t manufacturingOpcode = 0x010E0301;
constexpr std::uint32_t safeIdOpcode = 0x01160300;

}  // namespace

/// What of a command block differs from question to question.
struct Commands::Question {
    std::uint8_t type, code;
    void* data = nullptr;
    std::uint32_t size = 0;
    std::uint32_t controller = 0;
    std::uint16_t deviceId = 0;
    std::uint8_t targetId = 0;
};

std::uint32_t Commands::ask(const Question& question) const {
    _SL_LIB_CMD_PARAM_T command{};
    command.commandType = question.type;
    command.commandCode = question.code;
    command.controllerId = question.controller;
    command.deviceId = question.deviceId;
    command.targetId = question.targetId;
    command.dataSize = question.size;
    command.data = question.data;
    return call_(&command);
}

std::uint32_t Commands::initialize(SL_CTRL_LIST_T& list) const {
    _SL_LIB_CMD_PARAM_T command{};
    command.commandType = LibraryCommand;
    command.commandCode = Initialize;
    command.commandQualifier = withControllerList;
    command.dataSize = sizeof list;
    command.data = &list;
    return call_(&command);
}

std::uint32_t Commands::release() const {
    return ask({.type = LibraryCommand, .code = Release});
}

std::uint32_t Commands::controllerList(SL_CTRL_LIST_T& list) const {
    return ask(
        {.type = LibraryCommand, .code = ControllerList, .data = &list, .size = sizeof list});
}

std::uint32_t Commands::registerEvents(_SL_REG_AEN_INPUT_T& input,
                                       _SL_REG_AEN_OUTPUT_T& output) const {
    _SL_LIB_CMD_PARAM_T command{};
    command.commandType = LibraryCommand;
    command.commandCode = Register;
    command.argumentPointer = &input;
    command.dataSize = sizeof output;
    command.data = &output;
    return call_(&command);
}

std::uint32_t Commands::unregisterEvents(std::uint32_t uniqueId) const {
    _SL_LIB_CMD_PARAM_T command{};
    command.commandType = LibraryCommand;
    command.commandCode = Unregister;
    command.argument = uniqueId;
    return call_(&command);
}

std::uint32_t Commands::controllerInfo(std::uint32_t controller, _MR_CTRL_INFO& record) const {
    return ask({.type = ControllerCommand,
                .code = ControllerInfo,
                .data = &record,
                .size = sizeof record,
                .controller = controller});
}

std::uint32_t Commands::driveList(std::uint32_t controller, _MR_PD_LIST& list,
                                  std::uint32_t size) const {
    return ask({.type = ControllerCommand,
                .code = DriveList,
                .data = &list,
                .size = size,
                .controller = controller});
}

std::uint32_t Commands::enclosureList(std::uint32_t controller, _MR_ENCL_LIST& list) const {
    return ask({.type = ControllerCommand,
                .code = EnclosureList,
                .data = &list,
                .size = sizeof list,
                .controller = controller});
}

std::uint32_t Commands::pciInfo(std::uint32_t controller, SL_PCI_INFO_T& record) const {
    return ask({.type = ControllerCommand,
                .code = PciInfo,
                .data = &record,
                .size = sizeof record,
                .controller = controller});
}

std::uint32_t Commands::volumeList(std::uint32_t controller, _MR_LD_LIST& list) const {
    return ask({.type = ControllerCommand,
                .code = VolumeList,
                .data = &list,
                .size = sizeof list,
                .controller = controller});
}

std::uint32_t Commands::driveInfo(std::uint32_t controller, std::uint16_t deviceId,
                                  _MR_PD_INFO& record) const {
    return ask({.type = DriveCommand,
                .code = DriveInfo,
                .data = &record,
                .size = sizeof record,
                .controller = controller,
                .deviceId = deviceId});
}

std::uint32_t Commands::volumeInfo(std::uint32_t controller, std::uint8_t targetId,
                                   _MR_LD_INFO& record) const {
    return ask({.type = VolumeCommand,
                .code = VolumeInfo,
                .data = &record,
                .size = sizeof record,
                .controller = controller,
                .targetId = targetId});
}

std::uint32_t Commands::volumeDrives(std::uint32_t controller, std::uint8_t targetId,
                                     SL_PD_IN_LD_LIST_T& drives) const {
    return ask({.type = VolumeCommand,
                .code = VolumeDrives,
                .data = &drives,
                .size = sizeof drives,
                .controller = controller,
                .targetId = targetId});
}

std::uint32_t Commands::manufacturingRecord(std::uint32_t controller, std::uint8_t mailbox,
                                            _MR_MFC_MFG& record) const {
    return passThrough(controller, manufacturingOpcode, mailbox, &record, sizeof record);
}

std::uint32_t Commands::safeId(std::uint32_t controller, char* safeId) const {
    return passThrough(controller, safeIdOpcode, 0, safeId, safeIdSize);
}

std::uint32_t Commands::eventSequence(std::uint32_t controller, _MR_EVT_LOG_INFO& record) const {
    return ask({.type = EventCommand,
                .code = SequenceInfo,
                .data = &record,
                .size = sizeof record,
                .controller = controller});
}

std::uint32_t Commands::passThrough(std::uint32_t controller, std::uint32_t opcode,
                                    std::uint8_t mailbox, void* output, std::uint32_t size) const {
    SL_DCMD_FRAME_T frame{};
    frame.outputSize = size;
    frame.opcode = opcode;
    frame.direction = controllerToHost;
    frame.mailbox = mailbox;
    frame.output = output;
    return ask({.type = PassThroughCommand,
                .code = FirmwareCommand,
                .data = &frame,
                .size = sizeof frame,
                .controller = controller});
}

}  // namespace tav::storelib
