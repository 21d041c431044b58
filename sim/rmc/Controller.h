#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "sim/rmc/BmcProtocol.h"
#include "sim/rmc/FrameChecker.h"
#include "sim/rmc/Injections.h"

namespace tav::sim {

/// What one request led to.
struct Outcome {
    std::optional<BmcAnswer> answer;  ///< none: the answer is lost
    std::chrono::milliseconds delay{0};
    std::optional<BmcControl> control;  ///< sent after the answer
    std::vector<std::string> violations;
    std::optional<FrameResult> frame;     ///< when the request carried a frame of a command
    std::optional<Command> finished;      ///< the command that this request completed
    std::optional<Command> refused;       ///< the command that was refused, as far as it had come
    std::string struck;                   ///< the order that this request fell under
    std::optional<std::string> doorBell;  ///< what was answered to a door bell
};

/// The simulated management controller: answers each request, without any input or output of its
/// own. A command counts as finished when the controller has taken it whole; an injected completion
/// code, and an injected transfer status above 2, or other than 0 for the last frame, mean that it
/// has refused it.
class Controller {
 public:
    Outcome handle(const BmcRequest& request, unsigned sender);

    /// The sender is gone. Returns the names of the commands that it left unfinished.
    std::vector<std::string> forget(unsigned sender) { return checker_.forget(sender); }

    Injections& injections() { return injections_; }

 private:
    void handleFrame(const BmcRequest& request, unsigned sender, Outcome& outcome);
    void handleDoorBell(const BmcRequest& request, Outcome& outcome);
    static void handleStandard(const BmcRequest& request, Outcome& outcome);

    FrameChecker checker_;
    Injections injections_;
};

}  // namespace tav::sim
