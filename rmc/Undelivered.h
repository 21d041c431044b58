#pragma once

#include <chrono>
#include <optional>

#include "base/Export.h"
#include "base/Waiting.h"

namespace tav {

/// Whether the controller's picture of the host is behind, and when to send the inventory that
/// makes it true again: 1, 2, 4, 8 and then every 10 minutes after a failure, until one is
/// acknowledged. The aggregator's; guarded by its lock.
class TAV_API Undelivered {
 public:
    /// An event has not reached the controller.
    void eventWasLost();

    /// The inventory is collected now: what was lost before is in it, what is lost from now on is
    /// not.
    void inventoryBegins();
    /// What became of the inventory that began last.
    void inventoryWasAcknowledged();
    void inventoryFailed();
    /// There was nothing to send, which makes nothing good.
    void inventoryWasEmpty();

    /// Empty while the picture is true, and while an inventory is under way that makes it true.
    const std::optional<Deadline>& askAgainAt() const { return askAgainAt_; }

 private:
    void askAgain();

    std::optional<Deadline> askAgainAt_;
    std::chrono::minutes pause_{1};
    bool wasBehind_ = false;  ///< when the last inventory began
};

}  // namespace tav
