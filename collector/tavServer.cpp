#include "collector/tavServer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <json/reader.h>
#include <json/value.h>
#include <sys/stat.h>

#include "base/JsonText.h"
#include "base/Threads.h"
#include "base/Waiting.h"
#include "core/Log.h"
#include "core/resource_managers.h"
#include "core/tavUtils.h"
#include "host/HostResourceManager.h"
#include "nic/NICResourceManager.h"
#include "rmc/tavEventHandler.h"
#include "rmc/tavMsgInfra.h"
#include "storage/SASResourceManager.h"

using tav::here;

namespace {

using namespace std::chrono_literals;

constexpr tav::ModuleLog logger{"TAV_SERVER"};

constexpr const char* cliSource = "TAV-CLI";
constexpr const char* unknownLocation = "FFFFFFFFFFFFFFFF";
constexpr auto clientPatience = 10s;

void raiseHostEvent(int id, const std::string& /*location*/) {
    HostResourceManager::getInstance()->generateTestEvent(id);
}
void raiseSystemEvent(int id, const std::string& /*location*/) {
    generateTestEvent(id);
}
void raiseStorageEvent(int id, const std::string& location) {
    SASResourceManager::getInstance()->generateTestEvent(id, location, false);
}

/// Who raises test events.
enum Category : int { NoCategory = -1, System = 1, Host = 2, Network = 3, Storage = 5 };

struct Raiser {
    Category category;
    void (*raise)(int id, const std::string& location);
};
constexpr std::array raisers = {
    Raiser{System, raiseSystemEvent},
    Raiser{Host, raiseHostEvent},
    Raiser{Network, NICResourceManager::generateTestEvent},
    Raiser{Storage, raiseStorageEvent},
};

struct TestEvent {
    int id;
    Category category;
};
constexpr std::array testEvents = {
    TestEvent{708, System},  TestEvent{356, Host},    TestEvent{359, Host},
    TestEvent{360, Host},    TestEvent{434, Host},    TestEvent{435, Host},
    TestEvent{678, Network}, TestEvent{680, Network}, TestEvent{397, Storage},
    TestEvent{398, Storage}, TestEvent{538, Storage}, TestEvent{539, Storage},
    TestEvent{540, Storage}, TestEvent{681, Storage}, TestEvent{683, Storage},
};

/// The number at the beginning of the text, or one that is no event's.
int eventIdIn(const std::string& text) {
    const long id = std::strtol(text.c_str(), nullptr, 10);
    return id < 0 || id > std::numeric_limits<int>::max() ? 0 : static_cast<int>(id);
}

/// None for what is no JSON; the parser's messages have been logged then.
std::optional<Json::Value> parseEvent(const std::string& text) {
    Json::CharReaderBuilder builder;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value value;
    std::string errors;
    try {
        if (reader->parse(text.data(), text.data() + text.size(), &value, &errors)) return value;
    } catch (const std::exception& failure) {  // it is nested too deeply
        errors = failure.what();
    }
    logger.debug(here(), "Error: %s", errors.c_str());
    return std::nullopt;
}

/// Sends a client's event on; the code that the client is answered.
int forwardEvent(const std::string& payload) {
    logger.infoText(here(), payload);
    std::optional<Json::Value> event = parseEvent(payload);
    if (!event || !event->isObject() || event->size() < 2) {
        logger.debug(here(), "Json packets are invalid");
        return 1;
    }
    (*event)["Source"] = cliSource;
    return tavEventHandler().sendEventToRMC(tav::compactJson(*event));
}

int fulfil(const tav::CliRequest& request) {
    logger.debug(here(), "msgFromClient->header.messageCode = %d", request.messageCode);
    logger.debug(here(), "msgFromClient->payload = %s", request.payload.c_str());
    logger.debug(here(), "msgFromClient->clientPID = %d", request.clientPID);
    if (request.messageCode != TAV_TEST_EVENT_REQUEST) return forwardEvent(request.payload);
    sendTestEventWithEventId(request.payload.c_str());
    return 0;
}

}  // namespace

TAVServer& TAVServer::instance() {
    static TAVServer* const server = new TAVServer;  // outlives every thread
    return *server;
}

void TAVServer::initializeTAVServer() {
    TAVServer& server = instance();
    if (server.thread_.joinable()) return;
    const int failure =
        tav::startThread(server.thread_, "tav-cli", [] { startTestEventServer(nullptr); });
    if (failure != 0) logger.debug(here(), "Unable to spawn a thread to handle event.");
}

void* startTestEventServer(void* /*unused*/) {
    TAVServer& server = TAVServer::instance();
    const tav::StopScope scope(&server.stopSignal_);
    logger.debug(here(), "TAV Server Thread started.");
    server.serve();
    return nullptr;
}

void TAVServer::serve() {
    if (openPipes()) serveUntilStopped();
    closePipes();
}

bool TAVServer::openPipes() {
    const std::lock_guard<std::mutex> held(pipesLock_);
    if (stopRequested_) return false;
    tavCreatePipe(tavRequestPipe);
    // Open for writing too, so that it never seems to have come to its end.
    requests_.reset(::open(tavRequestPipe, O_RDWR | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    if (!requests_.isOpen() || ::fstat(requests_.get(), &requestPipe_) != 0 ||
        !S_ISFIFO(requestPipe_.st_mode)) {
        logger.error(here(), "Open of pipe %s failed.", tavRequestPipe);
        requests_.reset();
        return false;
    }
    logger.debug(here(), "fd in read= %d .\n", requests_.get());
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        logger.error(here(), "Unable to open a pipe for serStopPipeFd file descriptor");
        return false;
    }
    stopReadEnd_.reset(ends[0]);
    serStopPipeFd_.reset(ends[1]);
    return true;
}

void TAVServer::closePipes() {
    const std::lock_guard<std::mutex> held(pipesLock_);
    struct stat present {};
    // Somebody may have put another one in its place.
    if (requests_.isOpen() && ::lstat(tavRequestPipe, &present) == 0 &&
        present.st_dev == requestPipe_.st_dev && present.st_ino == requestPipe_.st_ino) {
        ::unlink(tavRequestPipe);
    }
    requests_.reset();
    stopReadEnd_.reset();
    serStopPipeFd_.reset();
}

void TAVServer::serveUntilStopped() {
    std::array<pollfd, 2> watched = {pollfd{requests_.get(), POLLIN, 0},
                                     pollfd{stopReadEnd_.get(), POLLIN, 0}};
    watch_.begins();
    while (true) {
        watch_.waits();
        const int ready = ::poll(watched.data(), watched.size(), -1);
        watch_.works();
        logger.debug(here(), "value of n = %d", ready);
        if (ready <= 0) {
            std::this_thread::yield();
            continue;
        }
        if (watched[1].revents != 0) return;
        serveRequest();
        std::this_thread::yield();
    }
}

void TAVServer::serveRequest() {
    logger.debug(here(), "Descriptor %d is ready.\n", requests_.get());
    std::array<std::byte, TAV_PACKET_SIZE> buffer{};
    const ssize_t size = ::read(requests_.get(), buffer.data(), buffer.size());
    if (size <= 0) return;
    logger.debug(here(), "done reading (%zu bytes)\n", static_cast<std::size_t>(size));
    const auto request =
        tav::parseCliRequest(std::span(buffer).first(static_cast<std::size_t>(size)));
    if (!request) {
        logger.warning(here(), "Ignoring a request of %d bytes; requests have %d.",
                       static_cast<int>(size), static_cast<int>(TAV_PACKET_SIZE));
        return;
    }
    sendResponseToClient(request->clientPID, fulfil(*request));
}

void TAVServer::stopTAVServer() {
    logger.info(here(), "Stopping TAV Server.");
    TAVServer& server = instance();
    server.stopSignal_.request();
    server.watch_.ends();
    if (!server.askToStop()) logger.error(here(), "Unable to write to pipe fd");
    tav::joinThread(server.thread_);
}

/// Wakes the server's thread. One that has not opened its pipes yet sees the flag instead.
bool TAVServer::askToStop() {
    constexpr int tries = 3;
    const std::lock_guard<std::mutex> held(pipesLock_);
    stopRequested_ = true;
    if (!serStopPipeFd_.isOpen()) {
        logger.error(here(), "Invalid file descriptor");
        return true;
    }
    for (int attempt = 0; attempt < tries; ++attempt) {
        const ssize_t written = ::write(serStopPipeFd_.get(), "S", 1);
        if (written == 1) return true;
        logger.error(here(), "Unable to write to pipe fd, result: %d, Error: %s",
                     static_cast<int>(written), std::strerror(errno));
    }
    return false;
}

int getEventType(int id) {
    const auto* const found =
        std::find_if(testEvents.begin(), testEvents.end(),
                     [id](const TestEvent& candidate) { return candidate.id == id; });
    return found == testEvents.end() ? NoCategory : found->category;
}

void sendTestEventWithEventId(const char* payload) {
    const std::string text = payload;
    const std::size_t blank = text.find(' ');
    const std::string location =
        blank == std::string::npos ? unknownLocation : text.substr(blank + 1);
    const int id = eventIdIn(text.substr(0, blank));
    const int category = getEventType(id);
    const auto* const raiser =
        std::find_if(raisers.begin(), raisers.end(),
                     [&](const Raiser& candidate) { return candidate.category == category; });
    if (raiser == raisers.end()) {
        std::cout << "Invalid eventId." << std::endl;
        return;
    }
    raiser->raise(id, location);
}

void generateTestEvent(int id) {
    Json::Value details;
    Json::Value& enabled = details["EnabledResourceType"] = Json::Value(Json::arrayValue);
    Json::Value& operational = details["OperationalResourceType"] = Json::Value(Json::arrayValue);
    tav::forEachEnabledManager([&](MODULE_NAME type, tavResourceManager& manager) {
        const std::string& name = TAV_MODULE_NAME_MAP.at(type);
        enabled.append(name);
        if (manager.isRunning()) operational.append(name);
    });
    details["EventInfo"] = "TAV Test Event";
    details["Type"] = "Test Event";
    tavEventHandler().generateEvent(
        {id, "TESTEVENT", false, tavUtils::getTime(), std::move(details), cliSource});
}

void sendResponseToClient(int clientPID, int code) {
    const std::string path = tav::responsePipeOf(clientPID);
    if (path.empty()) {
        logger.warning(here(), "There is no client %d to answer to.", clientPID);
        return;
    }
    logger.debug(here(), "Writing to the response named pipe.");
    const _TAV_MESSAGE_PACKET packet = tav::makeCliResponse(code);
    const tav::TimeLimit limit(clientPatience);
    const auto isWorthWaiting = [&] {
        const bool lives = ::kill(clientPID, 0) == 0 || errno == EPERM;
        return lives && limit.left().count() > 0;
    };
    if (tavWritePipe(path.c_str(), &packet, isWorthWaiting) != 0) {
        logger.warning(here(), "Client %d has not taken its answer.", clientPID);
    }
}

bool jsonValidate(const char* text) {
    return parseEvent(text).has_value();
}
