// What a location code costs: made with its text, and read back into its long form.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <new>
#include <string>
#include <vector>

#include "bench/Measure.h"
#include "hwlib/location/physloc.h"
#include "hwlib/location/tavPhyLoc.h"

namespace {

std::size_t allocations = 0;

}  // namespace

void* operator new(std::size_t size) {
    ++allocations;
    if (void* const memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

constexpr int rounds = 500;
constexpr int callsPerRound = 4'000;

/// Nanoseconds per call in the quickest round: what the work costs when nothing disturbs it.
template <typename Work>
double nanosecondsPerCall(Work work) {
    double best = std::numeric_limits<double>::max();
    for (int round = 0; round < rounds; ++round) {
        const auto start = std::chrono::steady_clock::now();
        for (int call = 0; call < callsPerRound; ++call)
            work(static_cast<std::size_t>(call));
        const std::chrono::duration<double, std::nano> spent =
            std::chrono::steady_clock::now() - start;
        best = std::min(best, spent.count() / callsPerRound);
    }
    return best;
}

/// One code of each kind.
std::vector<physloc_code_t> everyKind() {
    std::vector<physloc_code_t> codes;
    for (std::uint32_t type = 1; type <= 60; ++type) {
        physloc_data_t data;
        physloc_init_data(&data, 0);
        data.type = static_cast<physloc_type_t>(type);
        data.rack = data.u_position = data.slot = data.link = data.instance = 1;
        data.cpu_socket = data.hub = data.cpu_core = data.group = 0;
        if (type == PHYSLOC_PCIE_SLOT || type >= PHYSLOC_ROOT_COMPLEX) data.instance = 0;
        if (type == PHYSLOC_DVD) data.slot = 0;
        physloc_code_t code;
        if (physloc_encode(&data, &code) == PHYSLOC_SUCCESS) codes.push_back(code);
    }
    return codes;
}

}  // namespace

int main() {
    const std::vector<std::string> geo{"1", "6", "3"};
    struct Wanted {
        physloc_type_t type;
        std::string instance;
    };
    const std::array<Wanted, 3> wanted{
        {{PHYSLOC_PCIE_SLOT, "NA"}, {PHYSLOC_DRIVE_SLOT, "NA"}, {PHYSLOC_CHASSIS_LAN, "1"}}};
    std::size_t sink = 0;
    bench::Report report;

    allocations = 0;
    const double encoding = nanosecondsPerCall([&](std::size_t call) {
        const Wanted& next = wanted[call % wanted.size()];
        sink += tavPhyLoc::getPhyLoc(geo, next.type, next.instance).size();
    });
    const double perCall = static_cast<double>(allocations) / (1.0 * rounds * callsPerRound);
    report.value("location code and 16-digit text", encoding, "ns", 150);
    report.value("allocations of it (the result alone is 1)", perCall, "", 1);

    const std::vector<physloc_code_t> codes = everyKind();
    if (codes.size() != 60) return 2;
    allocations = 0;
    const double decoding = nanosecondsPerCall([&](std::size_t call) {
        const physloc_code_t& code = codes[call % codes.size()];
        char text[PHYSLOC_TEXT_SIZE];
        if (physloc_get_string(PHYSLOC_FORM_LONG, physloc_word(code, 0), physloc_word(code, 1),
                               text) == PHYSLOC_SUCCESS) {
            sink += static_cast<unsigned char>(text[0]);
        }
    });
    report.value("long form, all kinds in turn", decoding, "ns", 500);
    report.value("allocations of it", static_cast<double>(allocations), "", 0);

    std::printf("(%zu)\n", sink % 10);
    return report.exitStatus();
}
