#pragma once

#include <string>

#include "tools/capture/Recording.h"

namespace tav::capture {

/// Asks an NVMe controller what the storage manager asks it, and takes down what comes back; and
/// lists the controllers that the kernel has. May hang: belongs into a lane.
void askNvmeController(Recorder& recorder, const std::string& name);
std::vector<std::string> nvmeControllers();

/// Where the serial number stands in what a controller says of itself; empty for other answers.
std::string_view nvmeSerial(const Answer& answer);

/// Blanks in an answer what no manager reads, names of the controller and its namespaces among it.
void blankUnreadNvme(Answer& answer);

}  // namespace tav::capture
