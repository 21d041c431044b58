#pragma once

#include <cstdint>

/// Families of controllers, as a set of flags.
enum tavStorageControllerFamily : std::uint8_t {
    TAV_FAMILY_INTEL_SATA_RAID = 1,
    TAV_FAMILY_MEGARAID = 2,
    TAV_FAMILY_NVME = 4,
    TAV_FAMILY_OTHER = 128,  ///< no row of the model table knows it
    TAV_FAMILY_ANY = 255,
};
