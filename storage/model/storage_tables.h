#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// Catalogue data of the storage controllers and drives that are known by name.

struct tavStorageHba {
    std::uint32_t chipsetID;  ///< PCI device ID × 65536 + vendor ID; 0 stands for any.
    std::uint32_t boardID;    ///< The same of the subsystem; 0 stands for any.
    const char* shortName;
    std::uint8_t family;  ///< Flags of tavStorageControllerFamily.
    const char* model;
};

inline constexpr std::size_t MAX_STORAGE_HBA_LIST = 2;
extern const std::array<tavStorageHba, MAX_STORAGE_HBA_LIST> gStorageHbaList;

/// Texts are NUL-padded; the model is what the drive answers to INQUIRY or IDENTIFY DEVICE.
struct tavStorageDrive {
    char model[41];
    char partNumber[60];
    char description[102];
};
static_assert(sizeof(tavStorageDrive) == 203 && offsetof(tavStorageDrive, partNumber) == 41 &&
              offsetof(tavStorageDrive, description) == 101);

inline constexpr std::size_t MAX_STORAGE_DRIVE_LIST = 17;
extern const std::array<tavStorageDrive, MAX_STORAGE_DRIVE_LIST> gStorageDriveList;

/// The same of NVMe drives, whose model is what Identify Controller answers.
extern const std::array<tavStorageDrive, 4> gNVMeDriveList;
