#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

/// Event notifications of RAID controllers, as the controllers' firmware writes them. Decoding
/// only: plain functions without state, for any bytes and any thread.
namespace tav {

/// The kinds of thing an event is about, as the notification's locale names them.
namespace locale {
inline constexpr std::string_view volume = "LD_EVENT";
inline constexpr std::string_view drive = "PD_EVENT";
inline constexpr std::string_view enclosure = "ENCLOSURE_EVENT";
inline constexpr std::string_view battery = "BBU_EVENT";
inline constexpr std::string_view sas = "SAS_EVENT";
inline constexpr std::string_view controller = "CTRL_EVENT";
inline constexpr std::string_view configuration = "CONFIG_CHNG_EVENT";
inline constexpr std::string_view cluster = "CLUSTER_EVENT";
inline constexpr std::string_view all = "ALL_EVENT";
}  // namespace locale

/// A notification record is 260 bytes, little-endian:
///
/// | Offset | Width | Field |
/// |---|---|---|
/// | 0 | 4 | controller |
/// | 4 | 4 | sequence number |
/// | 8 | 4 | time |
/// | 12 | 4 | code |
/// | 16 | 2 | locale |
/// | 19 | 1 | class, signed |
/// | 20 | 1 | argument type |
/// | 36 | 96 | arguments |
/// | 132 | 128 | text; its NUL may be missing |
inline constexpr std::size_t raidEventSize = 260;
inline constexpr std::size_t raidArgumentsSize = 96;

struct RaidEventRecord {
    std::uint32_t controllerId;
    std::uint32_t code;
    std::uint16_t locale;
    std::int8_t eventClass;  ///< -2 (debug) to 4 (dead)
    std::uint8_t argumentType;
    std::array<std::byte, raidArgumentsSize> arguments;
    std::string text;
};

/// Empty for a record that is too short.
std::optional<RaidEventRecord> decodeRaidEvent(std::span<const std::byte> bytes);

/// The name of a locale, or where the notification names several at once, the one that the event
/// code belongs to; empty when neither is known.
std::string_view raidLocaleText(std::uint16_t locale, std::uint32_t code);

struct RaidDriveReference {
    std::uint16_t deviceId;
    std::uint8_t enclosure;
    std::uint8_t slot;
};

/// The drive that the event's argument names; empty for arguments that name none.
std::optional<RaidDriveReference> raidDriveOf(const RaidEventRecord& event);

/// The target id of the volume that the event's argument names; empty for arguments that name none.
std::optional<std::uint16_t> raidVolumeOf(const RaidEventRecord& event);

/// The state that a drive has changed to; empty for arguments that tell none. A state beyond 16
/// bits reads FFFFh, which no drive has.
std::optional<std::uint16_t> raidNewDriveStateOf(const RaidEventRecord& event);

}  // namespace tav
