/// What a capture of a server with a hundred disks takes beyond the disks' answers, each of which
/// comes after as long as a disk needs to read a log. Needs a root of its own, whose /sys it fills.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

#include <json/value.h>

#include "base/LaneGroup.h"
#include "base/Lanes.h"
#include "bench/Measure.h"
#include "sim/device/DiskModel.h"
#include "sim/device/ScsiGeneric.h"
#include "sim/server/ServerTree.h"
#include "tools/capture/Capture.h"
#include "tools/capture/ScsiQuestions.h"

namespace {

using namespace std::chrono_literals;
using namespace tav::capture;

constexpr int disks = 100;
constexpr auto answerTime = 5ms;
constexpr int rounds = 10;
constexpr double bound = 1.5;

/// A hundred disks of both kinds behind one adapter.
Json::Value described() {
    Json::Value server;
    Json::Value adapter;
    adapter["address"] = "0000:00:17.0";
    adapter["driver"] = "ahci";
    server["functions"].append(adapter);
    for (int i = 0; i < disks; ++i) {
        const std::string number = std::to_string(i);
        Json::Value host;
        host["host"] = i;
        host["function"] = adapter["address"];
        host["ata"] = i + 1;
        server["scsiHosts"].append(host);
        Json::Value disk;
        disk["name"] = "sg" + number;
        disk["block"] = "sd" + number;
        disk["address"] = number + ":0:0:0";
        disk["protocol"] = i % 2 == 0 ? "SATA" : "SAS";
        disk["media"] = i % 4 < 2 ? "HDD" : "SSD";
        disk["model"] = "MODEL";
        disk["serial"] = "S470" + std::to_string(1000 + i);
        disk["capacity"] = 2048;
        server["disks"].append(disk);
    }
    return server;
}

void install(const Json::Value& disk) {
    const auto answer = [facts =
                             tav::sim::DiskFacts(tav::sim::diskFacts(disk))](sg_io_hdr& request) {
        std::this_thread::sleep_for(answerTime);
        const auto told = tav::sim::answerCommand(facts, {request.cmdp, request.cmd_len});
        if (told.sense.empty()) {
            tav::sim::completeWithData(request, told.data);
        } else {
            tav::sim::completeWithSense(request, told.sense);
        }
        return 0;
    };
    tav::sim::installDevice("/dev/" + disk["name"].asString(),
                            tav::sim::scriptedScsiDevice(answer));
}

/// The same disks, asked the same by as many threads, and nothing made of it.
void askDisksAlone() {
    const auto pool = std::make_shared<tav::Lanes>("bench-ask", mostAskedAtATime, 5s);
    const auto recorder = std::make_shared<Recorder>();
    tav::LaneGroup<std::string, bool> lanes(pool, 30s);
    for (const ScsiNode& node : scsiNodes()) {
        lanes.ask(node.name, node.name, [recorder, node] {
            askScsiDisk(*recorder, node);
            return true;
        });
    }
    lanes.collect(
        tav::TimeLimit(30s), [](const std::string&, bool) {}, [] {});
}

void capture() {
    const auto captured = captureHost({});
    if (captured && captured->lacking.empty()) return;
    std::fprintf(stderr, "the capture lacks something\n");
    std::_Exit(2);
}

}  // namespace

int main() {
    const Json::Value server = described();
    tav::sim::buildServer(server, tav::sim::Tree("/"));
    for (const Json::Value& disk : server["disks"])
        install(disk);
    bench::Report report;
    report.ratio("a capture of 100 disks", "their answers alone, of 5 ms each",
                 bench::leastOf(
                     rounds, [] { return bench::secondsPerCall(1, capture); },
                     [] { return bench::secondsPerCall(1, askDisksAlone); }),
                 bound);
    return report.exitStatus();
}
