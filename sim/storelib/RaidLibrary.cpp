#include "sim/storelib/RaidLibrary.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <sstream>
#include <thread>
#include <utility>

#include "sim/Clock.h"
#include "sim/hostcmds/Files.h"
#include "sim/rmc/Json.h"
#include "sim/server/Changes.h"
#include "sim/server/RaidOrders.h"
#include "sim/server/ServerTree.h"

namespace tav::sim {
namespace {

constexpr std::uint32_t success = 0;
constexpr std::uint32_t notInitialized = 0x8001;
constexpr std::uint32_t failed = 0x8002;
constexpr std::uint32_t invalidController = 0x800A;
constexpr std::uint32_t invalidDevice = 0x800C;

constexpr std::uint32_t anySize = 0xFFFFFFFF;

template <class Value>
Value valueAt(const std::uint8_t* bytes, std::size_t offset) {
    Value value;
    std::memcpy(&value, bytes + offset, sizeof value);
    return value;
}

std::string hexadecimal(std::uint32_t number) {
    std::ostringstream text;
    text << "0x" << std::hex << number;
    return text.str();
}

// --- Blocks of bytes whose unnamed ones have to be 0 --------------------------------------------

struct Range {
    std::size_t offset, size;
};

constexpr std::size_t blockSize = 32 + sizeof(void*);
constexpr std::size_t frameSize = 28 + sizeof(void*);

/// Fields of the command block that not every command has.
enum Field : unsigned {
    Qualifier = 1,
    Controller = 2,
    Device = 4,
    Target = 8,
    Id = 16,
    Input = 32,
    Data = 64
};
struct FieldRange {
    unsigned field;
    Range range;
};
constexpr FieldRange fieldRanges[] = {
    {0, {0, 2}},
    {Qualifier, {2, 1}},
    {Controller, {4, 4}},
    {Device, {8, 2}},
    {Target, {10, 1}},
    {Id, {16, 4}},
    {Input, {16, sizeof(void*)}},
    {Data, {28, 4 + sizeof(void*)}},
};

bool isCovered(std::size_t offset, const std::vector<Range>& ranges) {
    return std::any_of(ranges.begin(), ranges.end(), [offset](const Range& range) {
        return offset >= range.offset && offset < range.offset + range.size;
    });
}

/// The offset of the first byte that has no name and is not 0; `size` when there is none.
std::size_t firstStray(const std::uint8_t* bytes, std::size_t size,
                       const std::vector<Range>& named) {
    std::size_t offset = 0;
    while (offset < size && (bytes[offset] == 0 || isCovered(offset, named)))
        ++offset;
    return offset;
}

std::vector<Range> rangesOf(unsigned fields) {
    std::vector<Range> ranges;
    for (const FieldRange& known : fieldRanges) {
        if ((known.field & fields) == known.field) ranges.push_back(known.range);
    }
    return ranges;
}

RaidRequest parseBlock(const std::uint8_t* block) {
    return {block[0],
            block[1],
            block[2],
            valueAt<std::uint32_t>(block, 4),
            valueAt<std::uint16_t>(block, 8),
            block[10],
            valueAt<std::uint32_t>(block, 16),
            valueAt<const std::uint8_t*>(block, 16),
            valueAt<std::uint32_t>(block, 28),
            valueAt<std::uint8_t*>(block, 32)};
}

}  // namespace

// --- Commands -----------------------------------------------------------------------------------

struct RaidLibrary::Command {
    std::uint8_t type, code;
    unsigned fields;
    std::uint32_t size;
    Answer answer;
};

constexpr RaidLibrary::Command RaidLibrary::commands[] = {
    {0, 0, Qualifier | Data, 260, &RaidLibrary::initialize},
    {0, 1, Input | Data, 264, &RaidLibrary::registerEvents},
    {0, 2, Id, 0, &RaidLibrary::unregisterEvents},
    {0, 3, Data, 260, &RaidLibrary::listControllers},
    {0, 9, 0, 0, &RaidLibrary::release},
    {1, 0, Controller | Data, 2384, &RaidLibrary::tellController<controllerInformation>},
    {1, 4, Controller | Data, anySize, &RaidLibrary::tellController<driveList>},
    {1, 5, Controller | Data, 4616, &RaidLibrary::tellController<enclosureList>},
    {1, 11, Controller | Data, 112, &RaidLibrary::tellController<pciInformation>},
    {1, 13, Controller | Data, 4104, &RaidLibrary::tellController<volumeList>},
    {2, 0, Controller | Device | Data, 512, &RaidLibrary::tellDrive<driveInformation>},
    {3, 0, Controller | Target | Data, 384, &RaidLibrary::tellVolume<volumeInformation>},
    {3, 11, Controller | Target | Data, 516, &RaidLibrary::tellVolume<volumeDrives>},
    {6, 3, Controller | Data, frameSize, &RaidLibrary::passThrough},
    {7, 0, Controller | Data, 20, &RaidLibrary::tellSequence},
};

const RaidLibrary::Command* RaidLibrary::commandOf(int type, int code) {
    const auto* const found = std::find_if(
        std::begin(commands), std::end(commands),
        [&](const Command& command) { return command.type == type && command.code == code; });
    return found == std::end(commands) ? nullptr : found;
}

std::uint32_t RaidLibrary::process(const std::uint8_t* block) {
    const RaidRequest request = parseBlock(block);
    const std::string name =
        "command " + std::to_string(request.type) + '/' + std::to_string(request.code);
    const Command* const command = commandOf(request.type, request.code);
    if (command == nullptr) return violation(name + " is none");
    const std::size_t stray = firstStray(block, blockSize, rangesOf(command->fields));
    if (stray < blockSize) return violation(name + ": byte " + std::to_string(stray) + " is not 0");
    if (command->size != anySize && request.size != command->size) {
        return violation(name + ": a buffer of " + std::to_string(request.size) + " bytes");
    }
    if ((command->fields & Data) != 0 && request.data == nullptr) {
        return violation(name + ": no buffer");
    }
    return answer(*command, request);
}

std::uint32_t RaidLibrary::answer(const Command& command, const RaidRequest& request) {
    std::int64_t slowness = 0;
    {
        const std::lock_guard held(lock_);
        if (!described_) takeFirstFailures();
    }
    hangWhileOrdered(request);
    {
        const std::lock_guard held(lock_);
        std::uint32_t status = success;
        if (takeFailure(request, status)) return status;
        if (!initialized_ && command.answer != &RaidLibrary::initialize) return notInitialized;
        slowness = slowness_;
    }
    if (slowness > 0) std::this_thread::sleep_for(realTime(std::chrono::milliseconds(slowness)));
    return (this->*command.answer)(request);
}

/// Under the lock.
void RaidLibrary::readDescription() {
    std::string fault;
    raid_ = member(parseJson(fileText(serverDescription), fault).value_or(Json::Value()), "raid");
}

/// Under the lock.
void RaidLibrary::takeFirstFailures() {
    readDescription();
    slowness_ = numberOf(raid_, "slow");
    for (const Json::Value& failure : member(raid_, "failures")) {
        failures_[{int(numberOf(failure, "type")), int(numberOf(failure, "code"))}] = {
            static_cast<std::uint32_t>(numberOf(failure, "status")), numberOf(failure, "times")};
    }
    described_ = true;
}

void RaidLibrary::hangWhileOrdered(const RaidRequest& request) {
    std::unique_lock held(lock_);
    resumed_.wait(held, [&] { return !hanging_.contains({request.type, request.code}); });
}

/// Under the lock.
bool RaidLibrary::takeFailure(const RaidRequest& request, std::uint32_t& status) {
    const auto failure = failures_.find({request.type, request.code});
    if (failure == failures_.end()) return false;
    ++struck_[failure->first];
    status = failure->second.status;
    if (failure->second.times > 0 && --failure->second.times == 0) failures_.erase(failure);
    return true;
}

std::uint32_t RaidLibrary::initialize(const RaidRequest& request) {
    const std::lock_guard lifetime(lifetime_);
    std::uint32_t status = success;
    {
        const std::lock_guard held(lock_);
        if (!initialized_) readDescription();
        status = static_cast<std::uint32_t>(numberOf(raid_, "initialization"));
        if (status != success) return status;
        initialized_ = true;
        status = give(controllerList(raid_), request.data, request.size);
    }
    if (notifier_ == nullptr) notifier_ = std::make_unique<Notifier>();
    if (orders_ == nullptr) {
        orders_ = std::make_unique<OrderSocket>(
            raidOrders, [this](const std::string& line) { return order(line); });
    }
    return status;
}

std::uint32_t RaidLibrary::release(const RaidRequest& /*request*/) {
    const std::lock_guard lifetime(lifetime_);
    orders_.reset();
    notifier_.reset();
    const std::lock_guard held(lock_);
    initialized_ = false;
    registered_.clear();
    return success;
}

std::uint32_t RaidLibrary::registerEvents(const RaidRequest& request) {
    constexpr std::uint32_t mostControllers = 64;
    const std::lock_guard lifetime(lifetime_);
    const std::uint8_t* const input = request.argumentPointer;
    if (input == nullptr) return violation("a registration without input");
    const auto count = valueAt<std::uint32_t>(input, 0);
    if (count == 0 || count > mostControllers) return violation("a registration of none");
    RaidRecord output(264);
    {
        const std::lock_guard held(lock_);
        if (!registered_.empty()) return violation("a second registration");
        for (std::size_t at = 4; at < 4 + 12 * std::size_t(count); at += 12) {
            const auto id = valueAt<std::uint32_t>(input, at);
            if (controller(id).isNull()) return invalidController;
            registered_[id] = {valueAt<std::uint16_t>(input, at + 4),
                               valueAt<std::int8_t>(input, at + 7)};
        }
        output.put(260, 4, ++registrations_);
    }
    notifier_->setCallback(valueAt<Notifier::Callback>(input, 772));
    return give(output, request.data, request.size);
}

std::uint32_t RaidLibrary::unregisterEvents(const RaidRequest& request) {
    const std::lock_guard lifetime(lifetime_);
    {
        const std::lock_guard held(lock_);
        if (registered_.empty() || request.argument != registrations_) {
            return violation("registration " + std::to_string(request.argument) + " is none");
        }
        registered_.clear();
    }
    // Not under the lock: a callback that is running may ask for something.
    notifier_->setCallback(nullptr);
    return success;
}

std::uint32_t RaidLibrary::listControllers(const RaidRequest& request) {
    const std::lock_guard held(lock_);
    return give(controllerList(raid_), request.data, request.size);
}

/// Under the lock.
const Json::Value& RaidLibrary::controller(std::int64_t id) const {
    const Json::Value& entry = entryWithId(member(raid_, "controllers"), id);
    return textOf(entry, "gone") == "yes" ? Json::Value::nullSingleton() : entry;
}

template <RaidRecord (*make)(const Json::Value& controller)>
std::uint32_t RaidLibrary::tellController(const RaidRequest& request) {
    const std::lock_guard held(lock_);
    const Json::Value& told = controller(request.controller);
    return told.isNull() ? invalidController : give(make(told), request.data, request.size);
}

template <RaidRecord (*make)(const Json::Value& drive)>
std::uint32_t RaidLibrary::tellDrive(const RaidRequest& request) {
    const std::lock_guard held(lock_);
    const Json::Value& told = controller(request.controller);
    if (told.isNull()) return invalidController;
    const Json::Value& drive = entryWithId(member(told, "drives"), request.device);
    if (drive.isNull()) return violation("drive " + std::to_string(request.device) + " is none");
    if (textOf(drive, "gone") == "yes") return invalidDevice;
    return give(make(drive), request.data, request.size);
}

template <RaidRecord (*make)(const Json::Value& volume)>
std::uint32_t RaidLibrary::tellVolume(const RaidRequest& request) {
    const std::lock_guard held(lock_);
    const Json::Value& told = controller(request.controller);
    if (told.isNull()) return invalidController;
    const Json::Value& volume = entryWithId(member(told, "volumes"), request.target);
    if (volume.isNull()) return violation("volume " + std::to_string(request.target) + " is none");
    if (textOf(volume, "gone") == "yes") return invalidDevice;
    return give(make(volume), request.data, request.size);
}

std::uint32_t RaidLibrary::passThrough(const RaidRequest& request) {
    constexpr std::uint8_t toHost = 2;
    struct Firmware {
        std::uint32_t opcode;
        RaidRecord (*make)(const Json::Value& controller);
    };
    constexpr Firmware operations[] = {{0x010E0301, manufacturingRecord}, {0x01160300, safeId}};
    const std::uint8_t* const frame = request.data;
    if (firstStray(frame, frameSize, {{0, 8}, {12, 1}, {16, 1}, {28, sizeof(void*)}}) < frameSize) {
        return violation("a pass-through frame with a stray byte");
    }
    if (frame[12] != toHost) return violation("a pass-through frame that reads nothing");
    const auto opcode = valueAt<std::uint32_t>(frame, 4);
    const auto* const operation =
        std::find_if(std::begin(operations), std::end(operations),
                     [&](const Firmware& candidate) { return candidate.opcode == opcode; });
    if (operation == std::end(operations)) {
        return violation("opcode " + hexadecimal(opcode) + " is none");
    }
    const std::lock_guard held(lock_);
    const Json::Value& told = controller(request.controller);
    if (told.isNull()) return invalidController;
    return give(operation->make(told), valueAt<std::uint8_t*>(frame, 28),
                valueAt<std::uint32_t>(frame, 0));
}

std::uint32_t RaidLibrary::tellSequence(const RaidRequest& request) {
    const std::lock_guard held(lock_);
    if (controller(request.controller).isNull()) return invalidController;
    return give(sequenceInformation(sequence_), request.data, request.size);
}

/// No more than there is room for: lists may be asked for in part.
std::uint32_t RaidLibrary::give(const RaidRecord& record, std::uint8_t* output,
                                std::uint32_t size) {
    if (output == nullptr) return violation("no output");
    std::memcpy(output, record.bytes().data(), std::min<std::size_t>(size, record.bytes().size()));
    return success;
}

std::uint32_t RaidLibrary::violation(const std::string& what) {
    std::ofstream(raidViolations, std::ios::app) << what + '\n' << std::flush;
    return failed;
}

// --- Orders -------------------------------------------------------------------------------------

namespace {

std::string noCommand(int type, int code) {
    return "no such command: " + std::to_string(type) + ' ' + std::to_string(code);
}

}  // namespace

std::string RaidLibrary::order(const std::string& line) {
    std::istringstream words(line);
    std::string verb;
    words >> verb;
    if (verb == "controller" || verb == "drive" || verb == "volume") return change(line);
    if (verb == "event") return fire(words);
    if (verb == "fail") return fail(words);
    if (verb == "slow") return slow(words);
    if (verb == "hang") return hang(words);
    if (verb == "resume") return resume();
    if (verb == "struck") return struck();
    return "no such order: " + line;
}

std::string RaidLibrary::change(const std::string& line) {
    const std::lock_guard held(lock_);
    Json::Value server;
    server["raid"] = raid_;
    std::string fault;
    if (!changeRaid(server, line, fault)) return fault;
    raid_ = server["raid"];
    return "ok";
}

std::string RaidLibrary::fire(std::istream& words) {
    std::int64_t id = 0;
    if (!(words >> id)) return "an event of which controller?";
    Json::Value event;
    std::string name;
    std::string value;
    while (std::getline(words >> std::ws, name, '=') && words >> std::quoted(value))
        event[name] = value;
    const std::int64_t times = event.isMember("times") ? numberOf(event, "times") : 1;
    for (std::int64_t i = 0; i < times; ++i) {
        std::vector<std::uint8_t> record;
        {
            const std::lock_guard held(lock_);
            if (controller(id).isNull()) return "no such controller";
            ++sequence_;
            if (!isWanted(event, id)) return "nobody wants to know";
            record = eventDetail(controller(id), event, sequence_).bytes();
        }
        if (!notifier_->tell(std::move(record))) return "nobody wants to know";
    }
    return "ok";
}

/// Under the lock.
bool RaidLibrary::isWanted(const Json::Value& event, std::int64_t controllerId) const {
    const auto registration = registered_.find(controllerId);
    return registration != registered_.end() &&
           (registration->second.locales & numberOf(event, "locale")) != 0 &&
           numberOf(event, "class") >= registration->second.leastClass;
}

std::string RaidLibrary::fail(std::istream& words) {
    int type = 0;
    int code = 0;
    std::string status;
    std::int64_t times = 0;  // 0: for ever
    if (!(words >> type >> code >> status)) return "fail TYPE CODE STATUS [COUNT]";
    words >> times;
    if (commandOf(type, code) == nullptr) return noCommand(type, code);
    const auto number = static_cast<std::uint32_t>(std::strtoul(status.c_str(), nullptr, 0));
    const std::lock_guard held(lock_);
    if (number == success) {
        failures_.erase({type, code});
    } else {
        failures_[{type, code}] = {number, times};
    }
    return "ok";
}

std::string RaidLibrary::hang(std::istream& words) {
    int type = 0;
    int code = 0;
    if (!(words >> type >> code)) return "hang TYPE CODE";
    if (commandOf(type, code) == nullptr) return noCommand(type, code);
    const std::lock_guard held(lock_);
    hanging_.insert({type, code});
    return "ok";
}

std::string RaidLibrary::resume() {
    {
        const std::lock_guard held(lock_);
        hanging_.clear();
    }
    resumed_.notify_all();
    return "ok";
}

std::string RaidLibrary::struck() {
    const std::lock_guard held(lock_);
    std::string text = "ok";
    for (const auto& [command, times] : struck_) {
        text += ' ' + std::to_string(command.first) + '/' + std::to_string(command.second) + '=' +
                std::to_string(times);
    }
    return text;
}

std::string RaidLibrary::slow(std::istream& words) {
    const std::lock_guard held(lock_);
    return words >> slowness_ ? "ok" : "slow MILLISECONDS";
}

}  // namespace tav::sim
