#pragma once

#include <json/value.h>

#include "sim/server/Tree.h"

namespace tav::sim {

/// Where the simulated parts of a server find the facts that the kernel cannot have, inside the
/// private root. Rewriting a file in one of the directories changes a running server; the
/// description is read by the RAID library, whenever that is initialized.
inline constexpr const char* serverDescription = "/run/sim/server.json";
inline constexpr const char* disksDirectory = "/run/sim/disks/";
inline constexpr const char* nvmeDirectory = "/run/sim/nvme/";
inline constexpr const char* ethernetDirectory = "/run/sim/ethernet/";

/// Writes the /sys of a described server, and the files above. What the description lacks is left
/// out; a member of the wrong type counts as absent. A part with "gone": "yes" is not there, nor is
/// what stands on a PCI function that is gone.
void buildServer(const Json::Value& server, const Tree& tree);

/// The same for a running server: what is no longer there vanishes.
void changeServer(const Json::Value& server, const Tree& tree);

bool isGone(const Json::Value& entry);

/// The file of one simulated disk: its description as "key=value" lines.
std::string diskFacts(const Json::Value& disk);

}  // namespace tav::sim
