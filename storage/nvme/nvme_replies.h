#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

/// What the bytes that an NVMe controller has sent mean. Pure functions of any bytes of any number.
/// Data that is shorter than the standard's layout, all zeros or all ones is none, and absent; what
/// a later version of the standard has put behind or between the fields is passed by.
namespace tav::nvme {

using Bytes = std::span<const std::byte>;

/// Texts are trimmed; one of which the controller has filled in nothing is empty.
struct ControllerIdentity {
    std::string serialNumber;
    std::string model;
    std::string firmwareRevision;
    /// Composite temperatures in kelvins from which on it is too hot, or critically so. 0: it tells
    /// none, or one at which no drive runs (0 degrees Celsius and below).
    int warningKelvins = 0;
    int criticalKelvins = 0;
};
std::optional<ControllerIdentity> controllerIdentity(Bytes identify);

/// The size of a namespace in bytes; absent also for one whose block size makes no sense. A
/// namespace may have none (0).
std::optional<std::uint64_t> namespaceBytes(Bytes identify);

/// The SMART / health information log. A value that the controller does not tell is -1.
struct HealthLog {
    unsigned warnings = 0;    ///< set of CriticalWarning; without the bits that are reserved
    int kelvins = -1;         ///< composite temperature; 1 to 65534
    int spare = -1;           ///< percent, 0 to 100
    int spareThreshold = -1;  ///< percent, 0 to 100
    int used = 0;  ///< percent of the endurance; 0 to 255, which stands for more than 254
    std::uint64_t mediaErrors = 0;  ///< the greatest number stands for any greater one
};
std::optional<HealthLog> healthLog(Bytes log);

}  // namespace tav::nvme
