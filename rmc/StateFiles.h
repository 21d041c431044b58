#pragma once

/// Where a service keeps what it knows for others to read, and what stands there. Each file is one
/// JSON object and is replaced as a whole; root may read it, and the group that owns the directory.
/// Times are in seconds since the epoch. Texts that came from devices stand as they were told.
namespace tav {

inline constexpr const char* stateDirectory = "/run/tavd";

/// The inventory as it was sent last, or as it would be sent where something has changed since:
/// "HostDataCollection" and, when they are watched, "FibreChannelDevices"; "Collected": when that
/// was; "Built": when each manager's part was, by its name; "Sent", once one was sent: "At", and
/// whether it was "Acknowledged".
inline constexpr const char* inventoryFile = "/run/tavd/inventory.json";

/// "Events": the last, a hundred at most, the oldest first. Each has "Time", "ID" (0: none is
/// known), "Outcome" ("Delivered", "Dropped", "Failed"), "Why" (empty for delivered ones) and
/// "Event", what was sent (null: that is not known).
inline constexpr const char* eventsFile = "/run/tavd/events.json";

/// The service itself: "Version", "Process" and "StartTicks" (which together tell whether it still
/// runs), "Started", "Written", "Uptime" (of the host when it was written: seconds that no clock's
/// setting moves), "Stopped" (once it has); the record of deliveries (rmc/DeliveryRecord.h);
/// "Managers": by name "Builds", "BuildSeconds", "LastBuild", "Polls", "PollSeconds", "LastPoll";
/// "StandingStill": "Loop" and "Seconds"; "Unanswered": "Who", "What", "Since"; "Frames" and
/// "FailuresByStep"; "Use": "CpuSeconds", "ResidentBytes", "VirtualBytes", "Threads",
/// "Descriptors". Written every five minutes at least.
inline constexpr const char* healthFile = "/run/tavd/health.json";

/// Locked (flock) by the service for as long as it runs, whatever becomes of its files and pipe.
/// Where it cannot be had, the service runs without it.
inline constexpr const char* serviceLock = "/run/tavd.lock";

}  // namespace tav
