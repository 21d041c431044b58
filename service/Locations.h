#pragma once

#include <atomic>
#include <thread>

#include "base/StopSignal.h"

namespace tavd {

/// Has the host tell where its PCI functions sit before the managers start and, where it has not,
/// until it does: after 10, 20 and 40 seconds and then every minute, on a thread of its own that
/// ends with the answer. Then every manager builds anew, and the RMC gets the inventory that knows
/// the locations. A host without the command for it is asked once. Service's thread only.
class Locations {
 public:
    /// With the Fibre Channel manager, or without.
    explicit Locations(bool withFibreChannel) : withFibreChannel_(withFibreChannel) {}
    Locations(const Locations&) = delete;
    Locations& operator=(const Locations&) = delete;
    ~Locations() { stop(); }

    /// Begins to ask and waits for the first answer, for ten seconds at most, or until the calling
    /// thread is asked to stop.
    void start();

    void requestStop() { stop_.request(); }
    void stop();

 private:
    void ask();
    void askAgain();
    void rebuild() const;

    const bool withFibreChannel_;
    tav::StopSignal stop_;
    tav::StopSignal isAsked_;  ///< the host has been asked once
    std::atomic<bool> isLate_{false};
    std::thread thread_;
};

}  // namespace tavd
