#include "tools/capture/RaidQuestions.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>

#include <dlfcn.h>

#include "base/Waiting.h"
#include "storage/raid/storelib_commands.h"

namespace tav::capture {
namespace {

using storelib::Commands;
using storelib::success;

constexpr std::uint8_t passThroughType = 6;

template <class Record>
std::string_view bytesOf(const Record& record) {
    return {reinterpret_cast<const char*>(&record), sizeof record};
}

/// What tells one question from another: the first bytes of its block, and, when it is passed
/// through to the firmware, the operation and the mailbox.
std::string keyOf(const _SL_LIB_CMD_PARAM_T& block) {
    std::string key(bytesOf(block).substr(0, offsetof(_SL_LIB_CMD_PARAM_T, reserved11)));
    if (block.commandType == passThroughType) {
        const auto* const frame = static_cast<const SL_DCMD_FRAME_T*>(block.data);
        key += bytesOf(frame->opcode);
        key += static_cast<char>(frame->mailbox);
    }
    return "raid " + hexadecimal(key);
}

std::string dataOf(const _SL_LIB_CMD_PARAM_T& block) {
    const void* data = block.data;
    std::size_t size = block.dataSize;
    if (block.commandType == passThroughType) {
        const auto* const frame = static_cast<const SL_DCMD_FRAME_T*>(block.data);
        data = frame->output;
        size = frame->outputSize;
    }
    return data == nullptr ? std::string() : std::string(static_cast<const char*>(data), size);
}

/// Calls the library and takes down what it says.
class RecordingCall {
 public:
    using EntryPoint = std::uint32_t (*)(_SL_LIB_CMD_PARAM_T*);

    RecordingCall(Recorder& recorder, EntryPoint library)
        : recorder_(&recorder), library_(library) {}

    std::uint32_t operator()(_SL_LIB_CMD_PARAM_T* block) const {
        Answer answer;
        answer.question = keyOf(*block);
        recorder_->ask(raidLibrary, answer.question);
        const Stopwatch taken;
        const std::uint32_t status = library_(block);
        answer.outcome =
            "status=" + std::to_string(status) + " ms=" + std::to_string(taken.elapsed().count());
        if (status == success) answer.data = dataOf(*block);
        recorder_->addAnswer(raidLibrary, std::move(answer));
        return status;
    }

 private:
    Recorder* recorder_;
    EntryPoint library_;
};

template <class Entry, std::size_t Size>
std::size_t countIn(const Entry (&)[Size], std::size_t told) {
    return std::min(told, Size);
}

void askDrives(const Commands& library, std::uint32_t controller) {
    const auto list = std::make_unique<_MR_PD_LIST>();
    if (library.driveList(controller, *list, sizeof *list) != success) return;
    for (std::size_t i = 0; i < countIn(list->entries, list->count); ++i) {
        _MR_PD_INFO record{};
        library.driveInfo(controller, list->entries[i].deviceId, record);
    }
}

void askVolumes(const Commands& library, std::uint32_t controller) {
    const auto list = std::make_unique<_MR_LD_LIST>();
    if (library.volumeList(controller, *list) != success) return;
    for (std::size_t i = 0; i < countIn(list->entries, list->count); ++i) {
        const std::uint8_t target = list->entries[i].targetId;
        _MR_LD_INFO record{};
        SL_PD_IN_LD_LIST_T drives{};
        library.volumeInfo(controller, target, record);
        library.volumeDrives(controller, target, drives);
    }
}

void askController(const Commands& library, std::uint32_t controller) {
    std::array<char, storelib::safeIdSize> safeId{};
    _MR_MFC_MFG made{};
    const auto record = std::make_unique<_MR_CTRL_INFO>();
    SL_PCI_INFO_T place{};
    _MR_EVT_LOG_INFO events{};
    library.safeId(controller, safeId.data());
    library.manufacturingRecord(controller, 0, made);
    library.controllerInfo(controller, *record);
    library.pciInfo(controller, place);
    library.eventSequence(controller, events);
    askDrives(library, controller);
    askVolumes(library, controller);
}

/// What is read of the answers to one question.
struct Range {
    std::size_t offset, size;
};
struct ReadRanges {
    std::uint8_t type, code;
    std::array<Range, 8> ranges;
};
#define TAV_FIELD(record, field)                       \
    Range {                                            \
        offsetof(record, field), sizeof(record::field) \
    }
constexpr ReadRanges readRanges[] = {
    {1, 0, {{{0, 8}, TAV_FIELD(_MR_CTRL_INFO, packageVersion)}}},
    {1, 11, {{{0, offsetof(SL_PCI_INFO_T, reserved6)}, TAV_FIELD(SL_PCI_INFO_T, domain)}}},
    {2,
     0,
     {{TAV_FIELD(_MR_PD_INFO, productId),
       TAV_FIELD(_MR_PD_INFO, revision),
       TAV_FIELD(_MR_PD_INFO, vendorSpecific),
       TAV_FIELD(_MR_PD_INFO, scsiDeviceType),
       {offsetof(_MR_PD_INFO, firmwareState), 6},
       {offsetof(_MR_PD_INFO, rawSize), 28},
       TAV_FIELD(_MR_PD_INFO, mediaType),
       TAV_FIELD(_MR_PD_INFO, userDataBlockSize)}}},
    {3,
     0,
     {{{0, 1},
       {offsetof(_MR_LD_INFO, primaryRaidLevel), 7},
       TAV_FIELD(_MR_LD_INFO, size),
       TAV_FIELD(_MR_LD_INFO, identifier)}}},
};
#undef TAV_FIELD

}  // namespace

void askRaidLibrary(Recorder& recorder) {
    recorder.ask(raidLibrary, "open");
    void* const handle = ::dlopen("libstorelib.so", RTLD_LAZY);
    void* const symbol = handle == nullptr ? nullptr : ::dlsym(handle, "ProcessLibCommand");
    if (symbol == nullptr) {
        recorder.refuseToOpen(raidLibrary, ENOENT);
        return;
    }
    // The library stays loaded: what it has started need not end with what it was asked.
    const auto library = reinterpret_cast<RecordingCall::EntryPoint>(symbol);
    const Commands commands(RecordingCall(recorder, library));
    SL_CTRL_LIST_T list{};
    if (commands.initialize(list) == success) {
        commands.controllerList(list);
        for (std::size_t i = 0; i < countIn(list.controllerIds, list.count); ++i)
            askController(commands, list.controllerIds[i]);
    }
    commands.release();
}

void blankUnread(Answer& answer) {
    constexpr std::size_t wordLength = 5;  // "raid "
    const std::string key = answer.question.substr(std::min(wordLength, answer.question.size()));
    if (answer.data.size() == storelib::safeIdSize) {
        answer.data.assign(answer.data.size(),
                           '\0');  // only whether it can be asked is of interest
        return;
    }
    for (const ReadRanges& known : readRanges) {
        const std::array<char, 2> begin{static_cast<char>(known.type),
                                        static_cast<char>(known.code)};
        if (!key.starts_with(hexadecimal({begin.data(), begin.size()}))) continue;
        std::string blanked(answer.data.size(), '\0');
        for (const Range& range : known.ranges) {
            if (range.offset + range.size <= blanked.size())
                blanked.replace(range.offset, range.size, answer.data, range.offset, range.size);
        }
        answer.data = std::move(blanked);
        return;
    }
}

}  // namespace tav::capture
