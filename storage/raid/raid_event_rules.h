#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>

#include "base/Export.h"
#include "core/tavResourceStatus.h"
#include "storage/raid/sas_event_detail.h"

/// What becomes of an event of a RAID controller: three tables, one for the events of volumes,
/// drives and controllers each. docs/raid.md shows them to those who read logs.
namespace tav {

/// Event classes, severities in ascending order.
namespace event_class {
inline constexpr std::uint32_t debug = 0;
inline constexpr std::uint32_t progress = 1;
inline constexpr std::uint32_t information = 2;
inline constexpr std::uint32_t warning = 3;
inline constexpr std::uint32_t critical = 4;
inline constexpr std::uint32_t fatal = 5;
inline constexpr std::uint32_t dead = 6;
}  // namespace event_class

/// The code of the event that a drive has been inserted.
inline constexpr std::uint32_t driveInsertedCode = 0x5B;

/// A few numbers; none stands for any.
class EventNumbers {
 public:
    constexpr EventNumbers() = default;
    constexpr EventNumbers(std::initializer_list<std::uint32_t> numbers) {
        for (const std::uint32_t number : numbers)
            numbers_.at(count_++) = number;
    }
    constexpr bool match(std::uint32_t number) const {
        for (std::size_t i = 0; i < count_; ++i)
            if (numbers_[i] == number) return true;
        return count_ == 0;
    }

 private:
    std::array<std::uint32_t, 6> numbers_{};
    std::size_t count_ = 0;
};

/// Whether the controller's inventory holds the resource that an event names.
enum class Presence : std::uint8_t { Any, Present, Absent };

/// What the storage manager is asked to do with its inventory.
enum class InventoryRequest : std::uint8_t { None, Invalidate, PushAndInvalidate };

/// Writes a line about an event.
using EventReport = void (*)(const TAV_SAS_EVENT_DETAIL& event);

struct RaidEventRule {
    // When it applies:
    EventNumbers classes{};
    EventNumbers codes{};
    EventNumbers newDriveStates{};
    Presence presence = Presence::Present;
    /// Which health the resource's last event has reported; empty for any.
    std::optional<TAV_RESOURCE_HEALTH> reported{};

    // What it does:
    std::optional<TAV_RESOURCE_STATE> state{};
    bool takesNewDriveState = false;  ///< the state is the one that the drive has changed to
    std::optional<TAV_RESOURCE_HEALTH> health{};
    int raises = 0;  ///< event ID; 0 for none
    bool critical = false;
    bool isShown = false;  ///< the library shows such a state too, whenever it is asked
    InventoryRequest inventory = InventoryRequest::None;
    std::array<EventReport, 2> reports{};    ///< written first; null for none
    EventReport reportAfterwards = nullptr;  ///< written last
};

/// Of the resource that an event names; empty when the controller's inventory does not hold it, and
/// Unknown when the RMC has not been told what the resource is like now.
using ReportedHealth = std::optional<TAV_RESOURCE_HEALTH>;

/// The first row that applies, or null. `reported` is the health that the last event of the event's
/// resource has reported.
TAV_API const RaidEventRule* volumeEventRule(const TAV_SAS_EVENT_DETAIL& event,
                                             ReportedHealth reported);
TAV_API const RaidEventRule* driveEventRule(const TAV_SAS_EVENT_DETAIL& event,
                                            ReportedHealth reported);
TAV_API const RaidEventRule* controllerEventRule(const TAV_SAS_EVENT_DETAIL& event,
                                                 ReportedHealth reported);

}  // namespace tav
