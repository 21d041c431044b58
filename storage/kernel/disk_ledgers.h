#pragma once

#include <functional>
#include <string>
#include <vector>

#include "core/Ledger.h"
#include "storage/model/storage_conditions.h"
#include "storage/model/tavDiskInfo.h"

/// The ledgers of a controller's disks, and how a discovery is brought together with them. No lock,
/// no device: the controller's own business.
namespace tav {

using DiskLedger = Ledger<tavDiskInfo>;

enum class Sameness { Same, Other, Unknown };
/// By the serial numbers that both are known by, like compared with like. Unknown: no source has
/// told both, which says nothing.
Sameness samenessOf(const DiskMemory& before, const DiskMemory& now);

/// Completes what was found now, at the same address, by what is known: serial numbers that cannot
/// be read this time, what it has answered before; where `isIdentified` is false, also all that the
/// disk has told of itself. Leaves another disk alone.
void keepKnown(const tavDiskInfo& known, bool isIdentified, tavDiskInfo& found);

/// What is to be done about each disk that a discovery has met or missed.
struct DiskRegister {
    /// The disk's place; empty for none.
    std::function<std::string(const tavDiskInfo&)> placeOf;
    std::function<void(const tavDiskInfo& disk, const std::string& place)> isNew;
    /// Puts what is said of a disk that has gone into its record.
    std::function<void(tavDiskInfo& disk)> describeVanished;
    /// The condition of a disk has changed. `before` is the record that it had.
    std::function<void(const DiskLedger& disk, const tavDiskInfo& before,
                       const DiskLedger::Change& change)>
        hasChanged;
};

/// Takes what a discovery has found over into the ledgers, which then are those of the disks that
/// were found, in their order, and of those that have gone.
void enter(std::vector<tavDiskInfo> found, const DiskRegister& about,
           std::vector<DiskLedger>& ledgers);

/// Why a disk is gone whose place another one has taken.
std::string serialChangeReason(const std::string& current, const std::string& known);

}  // namespace tav
