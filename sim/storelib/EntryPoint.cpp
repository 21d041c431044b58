/// The library's one function.
#include <cstdint>

#include "sim/storelib/RaidLibrary.h"

extern "C" __attribute__((visibility("default"))) std::uint32_t ProcessLibCommand(
    const std::uint8_t* command) {
    // Never destroyed: the program may call until its very end.
    static auto* const library = new tav::sim::RaidLibrary;
    return library->process(command);
}
