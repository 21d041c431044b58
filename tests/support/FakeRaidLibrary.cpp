#include "tests/support/FakeRaidLibrary.h"

#include <cstring>
#include <stdexcept>
#include <thread>

#include <dlfcn.h>

namespace tav::test {
namespace {

constexpr std::uint32_t invalidController = 0x800A;
constexpr std::uint32_t failed = 0x8002;
constexpr std::uint32_t wrongSize = 0x800B;
constexpr std::uint32_t registrationId = 0x5A5A;

/// How much there is room for in a command's answer.
struct AnswerSize {
    std::uint8_t type, code;
    std::size_t bytes;
};
constexpr AnswerSize answerSizes[] = {{0, 0, 260},  {0, 1, 264},   {0, 3, 260},
                                      {1, 0, 2384}, {1, 4, 6152},  {1, 5, 4616},
                                      {1, 11, 112}, {1, 13, 4104}, {2, 0, 512},
                                      {3, 0, 384},  {3, 11, 516},  {6, 3, 28 + sizeof(void*)},
                                      {7, 0, 20}};

std::atomic<FakeRaidLibrary*> current{nullptr};
std::atomic<int> commandsUnderWay{0};

template <class Value>
Value get(const std::uint8_t* bytes, std::size_t offset) {
    Value value;
    std::memcpy(&value, bytes + offset, sizeof value);
    return value;
}

template <class Value>
void put(std::uint8_t* bytes, std::size_t offset, Value value) {
    std::memcpy(bytes + offset, &value, sizeof value);
}

void putText(std::uint8_t* bytes, std::size_t offset, const std::string& text) {
    std::memcpy(bytes + offset, text.data(), text.size());
}

void forwardTo(std::uint32_t (*answer)(void*)) {
    void* const library = ::dlopen("libstorelib.so", RTLD_LAZY);
    if (library == nullptr) throw std::runtime_error(::dlerror());
    const auto forward =
        reinterpret_cast<void (*)(std::uint32_t(*)(void*))>(::dlsym(library, "forwardStorelib"));
    forward(answer);
}

}  // namespace

FakeRaidLibrary::FakeRaidLibrary(std::vector<FakeController> controllers)
    : controllers_(std::move(controllers)) {
    current = this;
    forwardTo(&FakeRaidLibrary::enter);
}

FakeRaidLibrary::~FakeRaidLibrary() {
    release();
    forwardTo(nullptr);
    while (commandsUnderWay > 0)  // the library's lane may still be at work
        std::this_thread::yield();
    current = nullptr;
}

void FakeRaidLibrary::change(const std::function<void(std::vector<FakeController>&)>& change) {
    const std::lock_guard<std::mutex> held(lock_);
    change(controllers_);
}

void FakeRaidLibrary::fail(std::uint8_t type, std::uint8_t code, std::uint32_t status, int times) {
    const std::lock_guard<std::mutex> held(lock_);
    failures_[type << 8 | code] = {status, times};
}

void FakeRaidLibrary::hang(std::uint8_t type, std::uint8_t code) {
    const std::lock_guard<std::mutex> held(lock_);
    hanging_ = type << 8 | code;
}

/// Returns when no command hangs any more.
void FakeRaidLibrary::release() {
    std::unique_lock<std::mutex> held(lock_);
    hanging_.reset();
    hangs_.notify_all();
    hangs_.wait(held, [this] { return hangingCommands_ == 0; });
}

void FakeRaidLibrary::waitForHanging() {
    std::unique_lock<std::mutex> held(lock_);
    hangs_.wait(held, [this] { return hangingCommands_ > 0; });
}

void FakeRaidLibrary::hangIfWanted(int command) {
    std::unique_lock<std::mutex> held(lock_);
    if (hanging_ != command) return;
    ++hangingCommands_;
    hangs_.notify_all();
    hangs_.wait(held, [&] { return hanging_ != command; });
    --hangingCommands_;
    hangs_.notify_all();
}

bool FakeRaidLibrary::fire(RaidEventBytes event) {
    Callback callback = nullptr;
    {
        const std::lock_guard<std::mutex> held(lock_);
        callback = callback_;
    }
    if (callback != nullptr) callback(event.data());
    return callback != nullptr;
}

std::vector<std::uint8_t> FakeRaidLibrary::registered() const {
    const std::lock_guard<std::mutex> held(lock_);
    return registered_;
}

std::uint32_t FakeRaidLibrary::enter(void* command) {
    ++commandsUnderWay;
    FakeRaidLibrary& library = *current;
    const auto start = std::chrono::steady_clock::now();
    const auto* const bytes = static_cast<const std::uint8_t*>(command);
    library.hangIfWanted(bytes[0] << 8 | bytes[1]);
    const std::uint32_t status = library.answer(bytes);
    const auto end = start + library.commandTime_.load();
    while (std::chrono::steady_clock::now() < end) {
    }
    library.ownTime_ += (std::chrono::steady_clock::now() - start).count();
    --commandsUnderWay;
    return status;
}

std::uint32_t FakeRaidLibrary::answer(const std::uint8_t* command) {
    const std::lock_guard<std::mutex> held(lock_);
    const auto failure = failures_.find(command[0] << 8 | command[1]);
    if (failure != failures_.end() && failure->second.times-- > 0) return failure->second.status;
    for (const AnswerSize& size : answerSizes) {
        if (size.type != command[0] || size.code != command[1]) continue;
        if (size.bytes != get<std::uint32_t>(command, 28)) return wrongSize;
    }
    auto* const data = get<std::uint8_t*>(command, 32);
    switch (command[0]) {
        case 0:
            return answerLibrary(command, data);
        case 1:
            return answerController(command, data);
        case 2:
            return answerDrive(command, data);
        case 3:
            return answerVolume(command, data);
        case 6:
            return answerPassThrough(command, data);
        case 7:
            if (controllerOf(command) == nullptr) return invalidController;
            put<std::uint32_t>(data, 0, 1000 + controllerOf(command)->id);
            return 0;
        default:
            return failed;
    }
}

void FakeRaidLibrary::listControllers(std::uint8_t* data) const {
    put<std::uint16_t>(data, 0, static_cast<std::uint16_t>(controllers_.size()));
    for (std::size_t i = 0; i < controllers_.size(); ++i)
        put<std::uint32_t>(data, 4 + 4 * i, controllers_[i].id);
}

std::uint32_t FakeRaidLibrary::registerCallback(const std::uint8_t* command, std::uint8_t* data) {
    const auto* const input = get<const std::uint8_t*>(command, 16);
    registered_.assign(input, input + 772);
    callback_ = get<Callback>(input, 772);
    put<std::uint32_t>(data, 260, registrationId);
    ++registrations_;
    return 0;
}

std::uint32_t FakeRaidLibrary::answerLibrary(const std::uint8_t* command, std::uint8_t* data) {
    switch (command[1]) {
        case 0:
        case 3:
            listControllers(data);
            return 0;
        case 1:
            return registerCallback(command, data);
        case 2:
            if (get<std::uint32_t>(command, 16) != registrationId) return failed;
            callback_ = nullptr;
            ++unregistrations_;
            return 0;
        default:
            return 0;
    }
}

const FakeController* FakeRaidLibrary::controllerOf(const std::uint8_t* command) const {
    for (const FakeController& controller : controllers_)
        if (controller.id == get<std::uint32_t>(command, 4)) return &controller;
    return nullptr;
}

std::uint32_t FakeRaidLibrary::answerController(const std::uint8_t* command,
                                                std::uint8_t* data) const {
    const FakeController* const controller = controllerOf(command);
    if (controller == nullptr) return invalidController;
    switch (command[1]) {
        case 0:
            put<std::uint32_t>(data, 0, 0x005D1000);
            put<std::uint32_t>(data, 4, 0x93611000);
            putText(data, 1600, "24.21.0-0151");
            return 0;
        case 4:
            put<std::uint32_t>(data, 4, static_cast<std::uint32_t>(controller->drives.size()));
            for (std::size_t i = 0; i < controller->drives.size(); ++i)
                put<std::uint16_t>(data, 8 + 24 * i, controller->drives[i].id);
            return 0;
        case 5:
            data[0] = 7;
            return 0;
        case 11:
            put<std::uint32_t>(data, 0, controller->bus);
            return 0;
        case 13:
            put<std::uint32_t>(data, 0, static_cast<std::uint32_t>(controller->volumes.size()));
            for (std::size_t i = 0; i < controller->volumes.size(); ++i)
                data[8 + 16 * i] = controller->volumes[i].id;
            return 0;
        default:
            return failed;
    }
}

std::uint32_t FakeRaidLibrary::answerDrive(const std::uint8_t* command, std::uint8_t* data) const {
    const FakeController* const controller = controllerOf(command);
    if (controller == nullptr) return invalidController;
    for (const FakeDrive& drive : controller->drives) {
        if (drive.id != get<std::uint16_t>(command, 8)) continue;
        putText(data, 20, "ST600MM0009     N004");
        putText(data, 40, drive.serial);
        put<std::uint16_t>(data, 184, drive.state);
        data[189] = 0x20;
        put<std::uint64_t>(data, 232, 1000);
        data[259] = drive.slot;
        put<std::uint16_t>(data, 404, drive.blockSize);
        return 0;
    }
    return failed;
}

std::uint32_t FakeRaidLibrary::answerVolume(const std::uint8_t* command, std::uint8_t* data) const {
    const FakeController* const controller = controllerOf(command);
    if (controller == nullptr) return invalidController;
    for (const FakeVolume& volume : controller->volumes) {
        if (volume.id != command[10]) continue;
        if (command[1] == 0) {
            data[0] = volume.id;
            data[32] = 1;
            data[38] = volume.state;
            put<std::uint64_t>(data, 256, 1U << 20U);
            data[312] = static_cast<std::uint8_t>(controller->id);
            data[320] = volume.made;
            data[327] = volume.id;
            return 0;
        }
        put<std::uint32_t>(data, 0, static_cast<std::uint32_t>(volume.members.size()));
        for (std::size_t i = 0; i < volume.members.size(); ++i)
            put<std::uint16_t>(data, 4 + 2 * i, volume.members[i]);
        return 0;
    }
    return failed;
}

std::uint32_t FakeRaidLibrary::answerPassThrough(const std::uint8_t* command,
                                                 std::uint8_t* data) const {
    constexpr std::uint32_t manufacturingRecord = 0x010E0301;
    const FakeController* const controller = controllerOf(command);
    if (controller == nullptr) return invalidController;
    const bool isManufacturing = get<std::uint32_t>(data, 4) == manufacturingRecord;
    if (get<std::uint32_t>(data, 0) != (isManufacturing ? 32 : 41)) return wrongSize;
    putText(get<std::uint8_t*>(data, 28), isManufacturing ? 2 : 0, controller->serial);
    return 0;
}

}  // namespace tav::test
