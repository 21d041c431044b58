#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/Export.h"
#include "storage/raid/storelib_commands.h"
#include "storage/raid/storelib_decoding.h"

namespace tav::storelib {

/// Everything that the library tells at one time. What it did not want to tell then is as it was
/// the time before: nothing is absent because it could not be asked for.
struct TAV_API Snapshot {
    std::vector<CTRL_INFO> controllers;
    std::map<std::uint32_t, std::vector<PD_INFO>> drives;   ///< by controller id
    std::map<std::uint32_t, std::vector<LD_INFO>> volumes;  ///< by controller id

    /// Null for a controller that is not known.
    const CTRL_INFO* controller(std::uint32_t id) const;
    /// None for a controller that is not known.
    const std::vector<PD_INFO>& drivesOf(std::uint32_t controllerId) const;
    const std::vector<LD_INFO>& volumesOf(std::uint32_t controllerId) const;
};

/// Asks the library for one kind of thing after the other, controller by controller. Each question
/// replaces that part of a snapshot, which the next ones then build on.
class TAV_API Survey {
 public:
    /// `controllers` are the whole ids of the library's list. `known` is the last snapshot.
    Survey(const Commands& commands, std::vector<std::uint32_t> controllers, const Snapshot& known)
        : commands_(commands), controllers_(std::move(controllers)), known_(known) {}

    void readControllers(Snapshot& next) const;
    void readDrives(Snapshot& next) const;
    void readVolumes(Snapshot& next) const;

 private:
    std::optional<CTRL_INFO> readController(std::uint32_t controller) const;
    std::string readSerialNumber(std::uint32_t controller) const;
    std::vector<PD_INFO> readDrives(std::uint32_t controller,
                                    const std::vector<PD_INFO>& known) const;
    std::vector<LD_INFO> readVolumes(std::uint32_t controller, const std::vector<PD_INFO>& drives,
                                     const std::vector<LD_INFO>& known) const;
    void readMembers(std::uint32_t controller, std::uint8_t targetId, const _MR_LD_INFO& record,
                     const std::vector<PD_INFO>& drives, const LD_INFO* known,
                     LD_INFO& volume) const;
    std::optional<std::uint32_t> readBlockSize(std::uint32_t controller,
                                               const SL_PD_IN_LD_LIST_T& members) const;
    /// What is known under that id, unless another controller had it.
    template <class Record>
    const std::vector<Record>& knownOf(std::uint32_t id,
                                       const std::map<std::uint32_t, std::vector<Record>>& lists,
                                       const Snapshot& next) const;

    const Commands& commands_;
    std::vector<std::uint32_t> controllers_;
    const Snapshot& known_;
};

/// How many entries of a record may be read: those that it tells of, but no more than it has room
/// for.
template <class Entry, std::size_t Size>
std::size_t countIn(const Entry (&)[Size], std::size_t told) {
    return told < Size ? told : Size;
}

}  // namespace tav::storelib
