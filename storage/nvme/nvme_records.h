#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// What a controller is asked and answers, byte for byte, as far as it is read (the NVM Express
/// base standard 2.0; namespaces: its NVM command set 1.0). A field's name is the standard's, its
/// abbreviation stands in the comment.
namespace tav::nvme {

/// Least significant byte first; at any offset.
template <std::size_t Size>
using LittleEndian = std::array<std::uint8_t, Size>;

template <std::size_t Size>
using Reserved = std::array<std::uint8_t, Size>;

// --- Admin commands
// -------------------------------------------------------------------------------

inline constexpr std::uint8_t getLogPageCommand = 0x02;
inline constexpr std::uint8_t identifyCommand = 0x06;

/// Controller or Namespace Structure (CNS), dword 10 of Identify.
inline constexpr std::uint32_t identifyNamespaceStructure = 0x00;
inline constexpr std::uint32_t identifyControllerStructure = 0x01;

/// Log Page Identifier (LID), dword 10 of Get Log Page; the number of dwords less one stands above
/// it (NUMDL).
inline constexpr std::uint32_t healthInformationLog = 0x02;
inline constexpr unsigned numberOfDwordsShift = 16;

/// What is about the whole controller.
inline constexpr std::uint32_t allNamespaces = 0xFFFFFFFF;

/// Status Code Type (bits 8 to 10) and Status Code (bits 0 to 7) of a completion.
inline constexpr int statusMask = 0x7FF;

// --- Identify
// -------------------------------------------------------------------------------------

struct IdentifyController {
    LittleEndian<2> pciVendorId;                   ///< VID
    LittleEndian<2> pciSubsystemVendorId;          ///< SSVID
    std::array<std::uint8_t, 20> serialNumber;     ///< SN, ASCII, filled up with blanks
    std::array<std::uint8_t, 40> modelNumber;      ///< MN, likewise
    std::array<std::uint8_t, 8> firmwareRevision;  ///< FR, likewise
    Reserved<194> unread72;
    LittleEndian<2> warningTemperature;   ///< WCTEMP, kelvins; 0: not reported
    LittleEndian<2> criticalTemperature;  ///< CCTEMP, likewise
    Reserved<3826> unread270;
};
static_assert(sizeof(IdentifyController) == 4096);
static_assert(offsetof(IdentifyController, serialNumber) == 4 &&
              offsetof(IdentifyController, modelNumber) == 24 &&
              offsetof(IdentifyController, firmwareRevision) == 64 &&
              offsetof(IdentifyController, warningTemperature) == 266 &&
              offsetof(IdentifyController, criticalTemperature) == 268);

struct LbaFormat {
    LittleEndian<2> metadataSize;  ///< MS
    std::uint8_t dataSize;         ///< LBADS: a block has 2 to the power of this many bytes
    std::uint8_t relativePerformance;
};
static_assert(sizeof(LbaFormat) == 4);

struct IdentifyNamespace {
    LittleEndian<8> size;  ///< NSZE, blocks
    LittleEndian<8> capacity;
    LittleEndian<8> utilization;
    std::uint8_t features;
    std::uint8_t numberOfLbaFormats;  ///< NLBAF, less one
    std::uint8_t formattedLbaSize;    ///< FLBAS: index of the format, bits 6-5 above bits 3-0
    Reserved<101> unread27;
    std::array<LbaFormat, 64> lbaFormats;  ///< LBAF0 to LBAF63
    Reserved<3712> unread384;
};
static_assert(sizeof(IdentifyNamespace) == 4096);
static_assert(offsetof(IdentifyNamespace, numberOfLbaFormats) == 25 &&
              offsetof(IdentifyNamespace, formattedLbaSize) == 26 &&
              offsetof(IdentifyNamespace, lbaFormats) == 128);

// --- SMART / Health Information log
// ---------------------------------------------------------------

/// Bits of the critical warning; those above are reserved.
enum CriticalWarning : std::uint8_t {
    spareBelowThreshold = 0x01,
    temperatureBeyondThreshold = 0x02,
    reliabilityDegraded = 0x04,
    mediaReadOnly = 0x08,
    volatileBackupFailed = 0x10,
    persistentRegionUnreliable = 0x20,
};

struct HealthInformation {
    std::uint8_t criticalWarning;
    LittleEndian<2> compositeTemperature;  ///< kelvins; 0: not reported
    std::uint8_t availableSpare;           ///< percent
    std::uint8_t availableSpareThreshold;  ///< percent
    std::uint8_t percentageUsed;           ///< of the endurance; may exceed 100, 255: more than 254
    std::uint8_t enduranceGroupCriticalWarning;
    Reserved<153> unread7;
    LittleEndian<16> mediaErrors;  ///< Media and Data Integrity Errors
    Reserved<336> unread176;
};
static_assert(sizeof(HealthInformation) == 512);
static_assert(offsetof(HealthInformation, compositeTemperature) == 1 &&
              offsetof(HealthInformation, availableSpare) == 3 &&
              offsetof(HealthInformation, percentageUsed) == 5 &&
              offsetof(HealthInformation, mediaErrors) == 160);

}  // namespace tav::nvme
