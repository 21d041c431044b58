#include "tools/ServiceFiles.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <exception>
#include <fstream>
#include <limits>
#include <memory>

#include <signal.h>

#include <json/reader.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "base/FileDescriptor.h"
#include "base/Files.h"
#include "core/ProcessStatus.h"
#include "rmc/StateFiles.h"

namespace tav::ctl {
namespace {

constexpr std::size_t largestFile = 64 << 20;
/// The service writes every five minutes; one that is slow to gets some more.
constexpr std::chrono::seconds longestSilence = std::chrono::minutes(15);

/// As the kernel lists the locks: to try the lock would keep a service away that starts right now.
bool isLocked(const char* path) {
    struct stat file {};
    if (::lstat(path, &file) != 0) return false;
    std::array<char, 64> name{};
    std::snprintf(name.data(), name.size(), " %02x:%02x:%lu ", major(file.st_dev),
                  minor(file.st_dev), static_cast<unsigned long>(file.st_ino));
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        if (line.find(" FLOCK ") != std::string::npos &&
            line.find(name.data()) != std::string::npos)
            return true;
    }
    return false;
}

}  // namespace

StateFile readStateFile(const char* path) {
    StateFile state;
    const FileDescriptor file = openRegularFile(path);
    std::string text;
    if (!file.isOpen() || !readUpTo(file.get(), largestFile, text)) {
        state.error = errno;
        return state;
    }
    try {
        const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
        const bool isJson =
            reader->parse(text.data(), text.data() + text.size(), &state.json, nullptr);
        if (isJson && state.json.isObject()) return state;
    } catch (const std::exception&) {  // nested too deeply
    }
    state.json = Json::Value();
    state.error = EBADMSG;
    return state;
}

const Json::Value& memberIn(const Json::Value& json, const char* member) {
    static const Json::Value none;
    return json.isObject() && json.isMember(member) ? json[member] : none;
}

std::string textIn(const Json::Value& json, const char* member) {
    const Json::Value& value = memberIn(json, member);
    return value.isString() ? value.asString() : std::string();
}

std::time_t timeIn(const Json::Value& json, const char* member) {
    const Json::Value& value = memberIn(json, member);
    const bool isTime = value.isInt64() && value.asInt64() >= 0 &&
                        value.asInt64() <= std::numeric_limits<std::time_t>::max();
    return isTime ? static_cast<std::time_t>(value.asInt64()) : 0;
}

namespace {

/// Whether the one lives that has written the health.
Life lifeOfWriter(const Json::Value& health) {
    if (timeIn(health, "Stopped") != 0) return Life::Stopped;
    const Json::Value& process = memberIn(health, "Process");
    const Json::Value& ticks = memberIn(health, "StartTicks");
    if (!process.isInt() || process.asInt() <= 0 || !ticks.isUInt64()) return Life::Unknown;
    if (const auto status = processStatus(process.asInt())) {
        return status->startTicks == ticks.asUInt64() ? Life::Runs : Life::Died;
    }
    // A host may hide the processes of others from us.
    return ::kill(process.asInt(), 0) == 0 || errno == EPERM ? Life::Runs : Life::Died;
}

}  // namespace

Life lifeOf(const Json::Value& health) {
    return isLocked(serviceLock) ? Life::Runs : lifeOfWriter(health);
}

bool isOfAnEarlierService(const Json::Value& health) {
    const Life writer = lifeOfWriter(health);
    return (writer == Life::Stopped || writer == Life::Died) && isLocked(serviceLock);
}

std::string whyOutdated(const Json::Value& health) {
    if (isOfAnEarlierService(health)) {
        return std::string("what ") + healthFile +
               " tells is of an earlier service; this one cannot write there, and its log says why";
    }
    const Json::Value& uptime = memberIn(health, "Uptime");
    if (!uptime.isInt64() || lifeOf(health) != Life::Runs) return {};
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    const auto age = std::chrono::floor<std::chrono::seconds>(now).count() - uptime.asInt64();
    if (age < longestSilence.count()) return {};
    return std::string(healthFile) + " has not been written for " + std::to_string(age / 60) +
           " min, and the service's log says why";
}

std::string timeText(std::time_t moment) {
    std::array<char, 64> text{};
    std::tm local{};
    if (::localtime_r(&moment, &local) == nullptr) return "?";
    std::strftime(text.data(), text.size(), "%F %T", &local);
    return text.data();
}

}  // namespace tav::ctl
