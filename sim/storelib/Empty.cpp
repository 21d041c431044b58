/// A library of the right name that has not the function that is looked for.
#include <cstdint>

extern "C" __attribute__((visibility("default"))) std::uint32_t ProcessAnotherCommand() {
    return 0;
}
