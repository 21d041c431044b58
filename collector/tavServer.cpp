#include "collector/tavServer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <json/value.h>
#include <sys/stat.h>

#include "base/Threads.h"
#include "base/Waiting.h"
#include "collector/ClientEvent.h"
#include "core/Log.h"
#include "core/resource_managers.h"
#include "core/tavUtils.h"
#include "host/HostResourceManager.h"
#include "nic/NICResourceManager.h"
#include "rmc/tavEventHandler.h"
#include "rmc/tavMsgInfra.h"
#include "storage/SASResourceManager.h"

using tav::CliReason;
using tav::here;

namespace {

using namespace std::chrono_literals;

constexpr tav::ModuleLog logger{"TAV_SERVER"};

constexpr const char* cliSource = "TAV-CLI";
constexpr const char* unknownLocation = "FFFFFFFFFFFFFFFF";
constexpr auto clientPatience = 10s;
/// How often a client that does not take its answer is tried again.
constexpr auto answerRetry = 20ms;
/// How often the server looks whether the request pipe is still the one that it reads.
constexpr auto pipeCheck = 9s;
/// A pipe's whole room, so that one read sees all that waits there.
constexpr std::size_t readSize = 65536;
constexpr std::size_t mostUnseen = 16 * readSize;
constexpr std::size_t mostAnswers = 1000;
/// How many things that stood in the request pipe's place are kept.
constexpr int mostAside = 100;

std::optional<tavEvent> hostEvent(int id, const std::string& /*location*/) {
    return HostResourceManager::testEvent(id);
}
std::optional<tavEvent> networkEvent(int id, const std::string& location) {
    return NICResourceManager::testEvent(id, location);
}
std::optional<tavEvent> storageEvent(int id, const std::string& location) {
    return SASResourceManager::testEvent(id, location, false);
}

/// Which managers are enabled and which of them work; waits for those that are just building.
tavEvent systemTestEvent(int id) {
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
    return {id, "TESTEVENT", false, tavUtils::getTime(), std::move(details), cliSource};
}
std::optional<tavEvent> systemEvent(int id, const std::string& /*location*/) {
    return systemTestEvent(id);
}

/// Whose the test events are.
enum Category : int { NoCategory = -1, System = 1, Host = 2, Network = 3, Storage = 5 };

struct Maker {
    Category category;
    std::optional<tavEvent> (*make)(int id, const std::string& location);
};
constexpr std::array makers = {
    Maker{System, systemEvent},
    Maker{Host, hostEvent},
    Maker{Network, networkEvent},
    Maker{Storage, storageEvent},
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

CliReason forwardEvent(const std::string& payload) {
    logger.infoText(here(), payload);
    std::optional<Json::Value> event = tav::parseClientEvent(payload);
    if (!event) {
        logger.debug(here(), "Json packets are invalid");
        return CliReason::NoEvent;
    }
    (*event)["Source"] = cliSource;
    const tav::EventOutcome outcome = tavEventHandler().forwardEvent(*event);
    return outcome == tav::EventOutcome::Delivered ? CliReason::None : CliReason::NotDelivered;
}

/// The event that a payload "ID" or "ID LOCATION" asks for; none when nobody raises it.
std::optional<tavEvent> testEventFor(const std::string& payload) {
    const std::size_t blank = payload.find(' ');
    const std::string location =
        blank == std::string::npos ? unknownLocation : payload.substr(blank + 1);
    const int id = eventIdIn(payload.substr(0, blank));
    const int category = getEventType(id);
    const auto* const maker =
        std::find_if(makers.begin(), makers.end(),
                     [&](const Maker& candidate) { return candidate.category == category; });
    return maker == makers.end() ? std::nullopt : maker->make(id, location);
}

/// For an operator who looks; nobody is waited for who does not.
void printUnlessItBlocks(std::string_view text) {
    pollfd output{STDOUT_FILENO, POLLOUT, 0};
    if (::poll(&output, 1, 0) != 1 || (output.revents & POLLOUT) == 0) return;
    [[maybe_unused]] const ssize_t written = ::write(STDOUT_FILENO, text.data(), text.size());
}

CliReason raiseTestEvent(const std::string& payload) {
    const std::optional<tavEvent> event = testEventFor(payload);
    if (!event) {
        printUnlessItBlocks("Invalid eventId.\n");
        return CliReason::NoSuchEvent;
    }
    switch (tavEventHandler().deliverEvent(*event)) {
        case tav::EventOutcome::Delivered:
            return CliReason::None;
        case tav::EventOutcome::Dropped:
            return CliReason::Dropped;
        case tav::EventOutcome::Failed:
            break;
    }
    return CliReason::NotDelivered;
}

CliReason fulfil(const tav::CliRequest& request) {
    logger.debug(here(), "msgFromClient->header.messageCode = %d", request.messageCode);
    logger.debug(here(), "msgFromClient->payload = %s", request.payload.c_str());
    logger.debug(here(), "msgFromClient->clientPID = %d", request.clientPID);
    return request.messageCode == TAV_TEST_EVENT_REQUEST ? raiseTestEvent(request.payload)
                                                         : forwardEvent(request.payload);
}

/// Whether a client of that number waits for an answer.
bool isClient(std::int32_t clientPID) {
    struct stat status {};
    return ::lstat(tav::responsePipeOf(clientPID).c_str(), &status) == 0 &&
           S_ISFIFO(status.st_mode);
}

bool isAlive(std::int32_t process) {
    return ::kill(process, 0) == 0 || errno == EPERM;
}

/// Whether it is a pipe that nobody else may read, or fill.
bool isOursAlone(const struct stat& status) {
    return S_ISFIFO(status.st_mode) && status.st_uid == ::geteuid() &&
           (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

/// Puts what stands in the request pipe's place out of the way, but loses nothing: what is in a
/// pipe is lost with its last user only.
void clearPlace() {
    struct stat status {};
    if (::lstat(tavRequestPipe, &status) != 0 || isOursAlone(status)) return;
    if (S_ISFIFO(status.st_mode)) {
        if (::unlink(tavRequestPipe) == 0) {
            logger.warning(here(), "%s was a pipe that others may use; it is replaced.",
                           tavRequestPipe);
        }
        return;
    }
    const std::string aside = std::string(tavRequestPipe) + ".not-a-pipe";
    for (int number = 1; number <= mostAside; ++number) {
        const std::string path = number == 1 ? aside : aside + '-' + std::to_string(number);
        if (::renameat2(AT_FDCWD, tavRequestPipe, AT_FDCWD, path.c_str(), RENAME_NOREPLACE) == 0) {
            logger.warning(here(), "%s was no pipe and has been moved to %s.", tavRequestPipe,
                           path.c_str());
            return;
        }
        if (errno != EEXIST) return;
    }
}

}  // namespace

TAVServer& TAVServer::instance() {
    static TAVServer* const server = new TAVServer;  // outlives every thread
    return *server;
}

void TAVServer::initializeTAVServer() {
    TAVServer& server = instance();
    if (server.thread_.joinable()) {
        logger.warning(here(), "The TAV Server already runs; it is not started again.");
        return;
    }
    server.stopRequested_ = false;
    server.stopSignal_.withdraw();
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
    clearPlace();
    isPipeMissed_ = !openRequestPipe();  // it is tried again with every look at the pipe
    if (isPipeMissed_) logger.error(here(), "Open of pipe %s failed.", tavRequestPipe);
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

bool TAVServer::openRequestPipe() {
    const bool isNew = tavCreatePipe(tavRequestPipe);
    // Open for writing too, so that it never seems to have come to its end.
    requests_ = tav::openPipe(tavRequestPipe, O_RDWR);
    const bool isOurs = requests_.isOpen() && ::fstat(requests_.get(), &requestPipe_) == 0 &&
                        (isNew || isOursAlone(requestPipe_));
    if (!isOurs) requests_.reset();
    return isOurs;
}

bool TAVServer::isRequestPipeInPlace() const {
    struct stat present {};
    return requests_.isOpen() && ::lstat(tavRequestPipe, &present) == 0 &&
           present.st_dev == requestPipe_.st_dev && present.st_ino == requestPipe_.st_ino;
}

void TAVServer::keepRequestPipe() {
    if (isRequestPipeInPlace()) return;
    takeRequests();  // those that were left in the old one
    clearPlace();
    const bool isBack = openRequestPipe();
    if (isBack || !isPipeMissed_) {
        logger.warning(here(),
                       isBack ? "%s had gone; it has been made anew."
                              : "%s has gone and cannot be made anew; trying on.",
                       tavRequestPipe);
    }
    isPipeMissed_ = !isBack;
}

void TAVServer::closePipes() {
    const std::lock_guard<std::mutex> held(pipesLock_);
    if (isRequestPipeInPlace()) ::unlink(tavRequestPipe);
    requests_.reset();
    stopReadEnd_.reset();
    serStopPipeFd_.reset();
    read_.clear();
    waiting_.clear();
    answers_.clear();
}

std::chrono::milliseconds TAVServer::longestWait(const tav::TimeLimit& untilCheck) const {
    if (!waiting_.empty()) return 0ms;
    if (answers_.empty()) return untilCheck.left();
    return std::min(tav::TimeLimit(answerRetry).left(), untilCheck.left());
}

void TAVServer::serveUntilStopped() {
    watch_.begins();
    tav::TimeLimit untilCheck(pipeCheck);
    while (true) {
        // What waits behind the requests that have been taken may go on waiting in the pipe.
        std::array<pollfd, 2> watched = {pollfd{waiting_.empty() ? requests_.get() : -1, POLLIN, 0},
                                         pollfd{stopReadEnd_.get(), POLLIN, 0}};
        const auto wait = static_cast<int>(longestWait(untilCheck).count());
        watch_.waits();
        const int ready = ::poll(watched.data(), watched.size(), wait);
        watch_.works();
        logger.debug(here(), "value of n = %d", ready);
        if (watched[1].revents != 0) return;
        if (watched[0].revents != 0) takeRequests();
        serveNextRequest();
        deliverAnswers();
        if (untilCheck.left() == 0ms) {
            keepRequestPipe();
            untilCheck = tav::TimeLimit(pipeCheck);
        }
        std::this_thread::yield();
    }
}

/// Takes what waits in the pipe; false when that was nothing.
bool TAVServer::readRequests() {
    bool isEnd = false;
    const std::size_t before = read_.size();
    while (!isEnd && read_.size() < mostUnseen) {
        const std::size_t size = read_.size();
        read_.resize(size + readSize);
        const ssize_t got = ::read(requests_.get(), read_.data() + size, readSize);
        read_.resize(size + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        isEnd = got < static_cast<ssize_t>(readSize);
    }
    return read_.size() > before;
}

void TAVServer::takeRequests() {
    if (!requests_.isOpen()) return;
    logger.debug(here(), "Descriptor %d is ready.\n", requests_.get());
    if (!readRequests()) return;
    logger.debug(here(), "done reading (%zu bytes)\n", read_.size());
    const bool isEnd = read_.size() < mostUnseen;
    tav::CliRequests found = tav::findCliRequests(read_, isEnd, isClient);
    read_.erase(read_.begin(), read_.begin() + static_cast<std::ptrdiff_t>(found.consumed));
    if (found.ignored > 0) {
        logger.warning(here(), "Ignoring a request of %zu bytes; requests have %zu.", found.ignored,
                       TAV_PACKET_SIZE);
    }
    std::move(found.requests.begin(), found.requests.end(), std::back_inserter(waiting_));
}

void TAVServer::serveNextRequest() {
    if (waiting_.empty()) return;
    const tav::CliRequest request = std::move(waiting_.front());
    waiting_.pop_front();
    answer(request.clientPID, fulfil(request));
}

void TAVServer::answer(std::int32_t clientPID, CliReason reason) {
    if (tav::responsePipeOf(clientPID).empty()) {
        logger.warning(here(), "There is no client %d to answer to.", clientPID);
        return;
    }
    logger.debug(here(), "Writing to the response named pipe.");
    answers_.push_back({clientPID, tav::makeCliResponse(reason), tav::TimeLimit(clientPatience)});
}

/// Tries each answer once; those that can never be delivered are forgotten.
void TAVServer::deliverAnswers() {
    std::erase_if(answers_, [&](const Answer& answer) {
        const std::string path = tav::responsePipeOf(answer.clientPID);
        const tav::PipeWrite outcome = tav::tryWritePipe(path.c_str(), answer.packet);
        const bool isWorthWaiting = outcome == tav::PipeWrite::NotYet &&
                                    isAlive(answer.clientPID) && answer.limit.left() > 0ms &&
                                    answers_.size() <= mostAnswers;
        if (isWorthWaiting) return false;
        if (outcome != tav::PipeWrite::Written) {
            logger.warning(here(), "Client %d has not taken its answer.", answer.clientPID);
        }
        return true;
    });
}

void TAVServer::stopTAVServer() {
    logger.info(here(), "Stopping TAV Server.");
    requestStop();
    tav::joinThread(instance().thread_);
    instance().stopRequested_ = false;
}

void TAVServer::requestStop() {
    TAVServer& server = instance();
    server.stopSignal_.request();
    server.watch_.ends();
    if (!server.askToStop()) logger.error(here(), "Unable to write to pipe fd");
}

/// Wakes the server's thread. One that has not opened its pipes yet sees the flag instead.
bool TAVServer::askToStop() {
    constexpr int tries = 3;
    const std::lock_guard<std::mutex> held(pipesLock_);
    if (std::exchange(stopRequested_, true)) return true;
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
    raiseTestEvent(payload);
}

void generateTestEvent(int id) {
    tavEventHandler().generateEvent(systemTestEvent(id));
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
    const auto isWorthWaiting = [&] { return isAlive(clientPID) && limit.left() > 0ms; };
    if (tavWritePipe(path.c_str(), &packet, isWorthWaiting) != 0) {
        logger.warning(here(), "Client %d has not taken its answer.", clientPID);
    }
}

bool jsonValidate(const char* text) {
    return tav::parseStrictJson(text).has_value();
}
