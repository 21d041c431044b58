#pragma once

#include <cstdint>
#include <functional>
#include <utility>

#include "base/Export.h"
#include "storage/raid/storelib_records.h"

/// The commands of the vendor library, one function each. They fill a command block and hand it to
/// whoever calls the library; what comes back is the library's status.
namespace tav::storelib {

inline constexpr std::uint32_t success = 0;
inline constexpr std::uint32_t notInitialized = 0x8001;
inline constexpr std::uint32_t invalidController = 0x800A;

/// Bytes of a controller's safe id.
inline constexpr std::uint32_t safeIdSize = 41;

class TAV_API Commands {
 public:
    using Call = std::function<std::uint32_t(_SL_LIB_CMD_PARAM_T*)>;

    explicit Commands(Call call) : call_(std::move(call)) {}

    // Of the library.
    std::uint32_t initialize(SL_CTRL_LIST_T& list) const;
    std::uint32_t release() const;
    std::uint32_t controllerList(SL_CTRL_LIST_T& list) const;
    /// The library goes on reading `input` for as long as the registration lasts.
    std::uint32_t registerEvents(_SL_REG_AEN_INPUT_T& input, _SL_REG_AEN_OUTPUT_T& output) const;
    std::uint32_t unregisterEvents(std::uint32_t uniqueId) const;

    // Of a controller, by its whole id.
    std::uint32_t controllerInfo(std::uint32_t controller, _MR_CTRL_INFO& record) const;
    std::uint32_t driveList(std::uint32_t controller, _MR_PD_LIST& list, std::uint32_t size) const;
    std::uint32_t enclosureList(std::uint32_t controller, _MR_ENCL_LIST& list) const;
    std::uint32_t pciInfo(std::uint32_t controller, SL_PCI_INFO_T& record) const;
    std::uint32_t volumeList(std::uint32_t controller, _MR_LD_LIST& list) const;
    std::uint32_t driveInfo(std::uint32_t controller, std::uint16_t deviceId,
                            _MR_PD_INFO& record) const;
    std::uint32_t volumeInfo(std::uint32_t controller, std::uint8_t targetId,
                             _MR_LD_INFO& record) const;
    std::uint32_t volumeDrives(std::uint32_t controller, std::uint8_t targetId,
                               SL_PD_IN_LD_LIST_T& drives) const;
    std::uint32_t manufacturingRecord(std::uint32_t controller, std::uint8_t mailbox,
                                      _MR_MFC_MFG& record) const;
    /// `safeId` has room for safeIdSize bytes.
    std::uint32_t safeId(std::uint32_t controller, char* safeId) const;
    std::uint32_t eventSequence(std::uint32_t controller, _MR_EVT_LOG_INFO& record) const;

 private:
    struct Question;
    std::uint32_t ask(const Question& question) const;
    std::uint32_t passThrough(std::uint32_t controller, std::uint32_t opcode, std::uint8_t mailbox,
                              void* output, std::uint32_t size) const;

    Call call_;
};

}  // namespace tav::storelib
