/// A libstorelib.so whose one entry point leads to whoever asks for it: see FakeRaidLibrary.
#include <atomic>
#include <cstdint>

namespace {
std::atomic<std::uint32_t (*)(void*)> answer{nullptr};
constexpr std::uint32_t failed = 0x8002;
}  // namespace

extern "C" __attribute__((visibility("default"))) void forwardStorelib(std::uint32_t (*to)(void*)) {
    answer = to;
}

extern "C" __attribute__((visibility("default"))) std::uint32_t ProcessLibCommand(void* command) {
    std::uint32_t (*const to)(void*) = answer;
    return to == nullptr ? failed : to(command);
}
