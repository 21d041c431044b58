#pragma once

#include <optional>

#include "sim/device/DiskBytes.h"
#include "sim/device/DiskModel.h"

namespace tav::sim {

/// The registers of an ATA command that reads one sector.
struct AtaCommand {
    std::uint8_t command = 0;
    std::uint8_t features = 0;
    std::uint8_t lbaLow = 0;
    std::uint8_t lbaMid = 0;
    std::uint8_t lbaHigh = 0;
};

/// The 512 bytes that the disk returns; none when it aborts the command.
std::optional<DiskBytes> readAtaSector(const DiskFacts& disk, const AtaCommand& command);

}  // namespace tav::sim
