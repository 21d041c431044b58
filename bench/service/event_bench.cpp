/// How long an event is on its way to the controller: one that the RAID library tells of, and one
/// that a person asks for. Needs a root of its own, which it fills. The clock of the waits runs
/// fast until the first inventory has been sent.
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "bench/Measure.h"
#include "collector/tavJobManager.h"
#include "rmc/tavipmi.h"
#include "tests/support/FakeRaidLibrary.h"
#include "tests/support/Rmc.h"
#include "tests/support/Service.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using tav::test::FakeController;
using tav::test::FakeRaidLibrary;
using tav::test::RaidEventBytes;
using tav::test::Rmc;

constexpr int samples = 100;
constexpr auto pauseAfterTransfer = 500ms;

double microsecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

/// From the call of `report` until the controller has the whole of what it reports.
bench::Latency untilReceived(Rmc& rmc, const std::function<void(int)>& report) {
    std::vector<double> latencies;
    for (int sample = 0; sample < samples; ++sample) {
        const std::size_t had = rmc.commands().size();
        const auto start = Clock::now();
        std::thread reporter([&] { report(sample); });
        if (!rmc.waitForCommands(had + 1)) ::_exit(2);
        latencies.push_back(microsecondsSince(start));
        reporter.join();
    }
    return bench::latencyOf(std::move(latencies));
}

bench::Latency raidEvents(Rmc& rmc, FakeRaidLibrary& library) {
    return untilReceived(rmc, [&](int sample) {
        const bool worse = sample % 2 == 0;
        library.fire(RaidEventBytes{}
                         .code(worse ? 0xFB : 0xF9)
                         .locale(1)
                         .eventClass(worse ? 2 : 0)
                         .argument(3, {0, 0, 0, 0})
                         .text("VD 00 changes"));
    });
}

bench::Latency transport(Rmc& rmc) {
    const std::string document = rmc.commands().back().payload;
    return untilReceived(rmc, [&](int /*sample*/) {
        unsigned char transferStatus = 0;
        unsigned char exitStatus = 0;
        ipmi::IPMIUtils().RMC_CLI_Exec("MPEventGen", document, &transferStatus, &exitStatus);
    });
}

bench::Latency wholeProgram(const std::vector<std::string>& command,
                            std::chrono::duration<double> prescribed) {
    std::vector<double> latencies;
    for (int sample = 0; sample < samples; ++sample)
        latencies.push_back((bench::run(command).wall - prescribed.count()) * 1e6);
    return bench::latencyOf(std::move(latencies));
}

void startAndDeliverTheFirstInventory(Rmc& rmc) {
    tavJobManager::startTAVServer();
    rmc.waitForCommands(2);
    while (!tavJsonAggregator::getInstance()->isInventorySent())
        std::this_thread::sleep_for(1ms);
    std::this_thread::sleep_for(1s);
    tav::test::clockSpeed = 1;
}

}  // namespace

int main() {
    tav::test::logEverything(R"("EnableResources":["HostOSInfo","StorageControllers"])");
    tav::test::writeHostCommands();
    FakeRaidLibrary library({{0, "SV0", 0x65, {{8, 0, "D8"}, {9, 1, "D9"}}, {{0, 3, {8, 9}}}}});
    Rmc rmc;
    tav::test::Service service(100);
    startAndDeliverTheFirstInventory(rmc);
    const bench::Latency raid = raidEvents(rmc, library);
    bench::Report::latency("from the RAID library's call to the controller", raid,
                           "the transport alone", transport(rmc));
    bench::Report::latency("tavctl event 708, its 500 ms left out",
                           wholeProgram({TAVCTL, "event", "708"}, pauseAfterTransfer),
                           "tavctl --version", wholeProgram({TAVCTL, "--version"}, 0ms));
    const bool unharmed = rmc.violations().empty();
    tavJobManager::stopTAVServer();
    return unharmed ? 0 : 1;
}
