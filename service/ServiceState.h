#pragma once

#include <chrono>
#include <cstddef>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "core/Figures.h"
#include "core/LoopWatch.h"
#include "core/Unanswered.h"
#include "rmc/DeliveryRecord.h"
#include "service/OwnUse.h"

namespace tavd {

/// What the service knows of itself, of one moment.
struct ServiceState {
    struct Manager {
        std::string name;
        tav::Spent::Reading builds;
        tav::Spent::Reading polls;
    };

    std::time_t started = 0;
    std::time_t now = 0;
    std::chrono::nanoseconds uptime{0};  ///< of the host
    std::optional<std::time_t> stopped;
    tav::DeliveryRecord deliveries;
    tav::EventTotals events;
    tav::RmcFigures rmc;
    std::vector<Manager> managers;
    std::vector<tav::StandingLoop> standingStill;
    std::vector<tav::Unanswered::Entry> unanswered;
    OwnUse use;
    std::size_t inventoryBytes = 0;  ///< of the last document
};

/// The parts that the library and the kernel know. Waits for nobody.
ServiceState takeServiceState(bool withFibreChannel);

/// For tav::healthFile (rmc/StateFiles.h).
std::string renderHealth(const ServiceState& state);

}  // namespace tavd
