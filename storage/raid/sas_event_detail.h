#pragma once

#include <cstdint>
#include <string>

#include "core/Ledger.h"

/// What a field of an event says that the notification does not tell.
inline constexpr const char* sasEventNotAvailable = "NotAvailable";
inline constexpr std::uint32_t sasEventNoNumber = 0xFFFFFFFF;

/// One notification of a RAID controller, translated. Belongs to the callback that dispatches it.
struct TAV_SAS_EVENT_DETAIL {
    std::uint32_t eventCode = 0;
    /// 0 debug, 1 progress, 2 information, 3 warning, 4 critical, 5 fatal, 6 dead.
    std::uint32_t eventClass = 0;
    std::string locale;  ///< one of tav::locale, or empty
    std::uint32_t controllerId = 0;
    std::string controllerSerial = sasEventNotAvailable;
    std::string driveSerial = sasEventNotAvailable;   ///< drive events
    std::uint32_t driveSlot = sasEventNoNumber;       ///< drive events
    std::uint32_t deviceId = sasEventNoNumber;        ///< drive events
    std::uint32_t volumeTargetId = sasEventNoNumber;  ///< volume events
    std::uint16_t newDriveState = 0xFFFF;             ///< state changes of drives
    std::string description;                          ///< the firmware's text
    /// What the library tells, when it is asked later, is newer.
    tav::LookClock::time_point heardAt = tav::LookClock::now();
};
