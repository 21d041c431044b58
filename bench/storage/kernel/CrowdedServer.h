#pragma once

#include <array>
#include <cstdio>
#include <filesystem>

#include <json/value.h>

#include "sim/server/ServerTree.h"
#include "sim/server/Tree.h"

namespace bench {

/// A server of so many controllers, each with so many disks: as `describeDisk(number, host,
/// target)` describes them, numbered one after the other. It takes the place of what /sys had.
template <class DescribeDisk>
void buildCrowdedServer(int controllers, int disksEach, DescribeDisk describeDisk) {
    for (const char* const directory : {"/sys/class", "/sys/devices", "/sys/bus", "/run/sim/disks"})
        std::filesystem::remove_all(directory);
    Json::Value server;
    for (int host = 0; host < controllers; ++host) {
        std::array<char, sizeof "0000:00:00.0"> address{};
        std::snprintf(address.data(), address.size(), "0000:%02x:00.0", (host + 1) & 0xFF);
        Json::Value function;
        function["address"] = address.data();
        function["vendor"] = "0x1000";
        function["device"] = "0x005d";
        function["subVendor"] = "0x1000";
        function["subDevice"] = "0x3090";
        Json::Value scsiHost;
        scsiHost["host"] = host;
        scsiHost["function"] = function["address"];
        server["functions"].append(function);
        server["scsiHosts"].append(scsiHost);
        for (int target = 0; target < disksEach; ++target)
            server["disks"].append(describeDisk(host * disksEach + target, host, target));
    }
    tav::sim::buildServer(server, tav::sim::Tree("/"));
}

}  // namespace bench
