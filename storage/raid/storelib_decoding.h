#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Export.h"
#include "core/Ledger.h"
#include "storage/raid/storelib_records.h"

/// One controller of the vendor library.
struct CTRL_INFO {
    std::string firmwareVersion;     ///< of the package
    std::uint32_t controllerId = 0;  ///< the library's number; 24 bits
    std::string serialNumber;
    std::uint32_t pciSubsystem = 0;  ///< subsystem ID x 65536 + subsystem vendor ID
    std::uint32_t pciId = 0;         ///< device ID x 65536 + vendor ID
    std::string interfaceType;       ///< "SAS/SATA"
    std::string pciLocation;         ///< "0000:65:00.0"
};

/// One physical drive.
struct PD_INFO {
    std::string serialNumber;
    std::string model;
    std::uint64_t capacityBytes = 0;
    std::string interfaceType;
    std::string mediaType;  ///< "SSD" or "HDD"
    std::string revision;
    std::uint32_t slotNumber = 0;
    std::string firmwareState;  ///< display string
    std::uint32_t health = 0;   ///< see tav::storelib::Health
    std::uint32_t deviceId = 0;
    tav::LookClock::time_point askedAt{};  ///< when this was still to be told
};

/// One logical drive.
struct LD_INFO {
    std::uint32_t targetId = 0;
    std::string durableName;  ///< 32 hexadecimal digits in lower case
    std::string raidLevel;    ///< "RAID1"; empty where there is no name for it
    std::uint64_t capacityBytes = 0;
    std::string state;                      ///< display string
    std::uint32_t health = 0;               ///< see tav::storelib::Health
    std::vector<std::string> memberDrives;  ///< serial numbers
    tav::LookClock::time_point askedAt{};   ///< when this was still to be told
};

/// What the vendor library's records mean. Pure functions of records of any content.
namespace tav::storelib {

/// The library's words for how a resource does.
enum Health : std::uint32_t { Ok = 1, Warning = 2, Unknown = 3, Critical = 4 };

struct StateText {
    const char* text;
    Health health;
};
TAV_API StateText driveState(std::uint16_t firmwareState);
TAV_API StateText volumeState(std::uint8_t state);

/// "RAID1", "RAID01" for spans of it, ...; empty for what has no name.
TAV_API const char* raidLevelText(std::uint8_t primary, std::uint8_t qualifier,
                                  std::uint8_t secondary, std::uint8_t spanDepth);

/// A text of a record: up to its NUL, if it has one.
TAV_API std::string fieldText(std::string_view field);

/// Device ID x 65536 + vendor ID.
TAV_API std::uint32_t pciIdOf(const _MR_CTRL_INFO& record);
TAV_API std::string pciLocationText(const SL_PCI_INFO_T& record);

/// The drive; none for what is no disk.
TAV_API std::optional<PD_INFO> toDrive(const _MR_PD_INFO& record, std::uint16_t deviceId);

/// Bytes of a volume, in whole mebibytes.
TAV_API std::uint64_t capacityOf(const _MR_LD_INFO& record, std::uint32_t blockSize);

/// The volume without its members. `blockSize` is that of its first drive.
TAV_API LD_INFO toVolume(const _MR_LD_INFO& record, std::uint32_t blockSize);

/// What is left of an id without the byte that names the library's kind.
inline constexpr std::uint32_t controllerIdMask = 0xFFFFFF;
constexpr bool isMegaRaid(std::uint32_t id) {
    return (id & ~controllerIdMask) == 0;
}

}  // namespace tav::storelib
