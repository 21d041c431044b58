#include "storage/raid/tavSASLSIEvent.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <memory>
#include <span>
#include <string>
#include <utility>

#include "base/StopSignal.h"
#include "base/Waiting.h"
#include "core/Log.h"
#include "storage/raid/raid_event_record.h"
#include "storage/raid/storelib_lane.h"
#include "storage/raid/storelib_survey.h"
#include "storage/raid/tavStoreLibInterface.h"

using tav::here;

namespace {

using namespace std::chrono_literals;

constexpr tav::ModuleLog logger{"LSI_EVENT_INTERF"};

using tav::storelib::invalidController;
using tav::storelib::success;

constexpr std::uint16_t allLocales = 0xFFFF;
constexpr std::int8_t informationAndAbove = 0;

constexpr int unregisterAttempts = 3;
constexpr auto unregisterRetry = 100ms;
constexpr auto unregisterLimit = 500ms;

constexpr std::uint32_t commandTimeout = 0x8009;

struct StatusText {
    std::uint32_t status;
    const char* text;
};
constexpr StatusText registrationStatusTable[] = {
    {0x8001, "Init not done"},           {0x8003, "WMI Init failed"},
    {0x8004, "WMI Registration failed"}, {0x8006, "COM Init failed"},
    {0x8007, "Invalid Event Mask"},      {0x8009, "Command Timeout"},
    {0x800A, "Invalid controller"},      {0x8015, "Memory Allocation failed"},
};

const char* registrationStatusText(std::uint32_t status) {
    for (const StatusText& row : registrationStatusTable)
        if (row.status == status) return row.text;
    return nullptr;
}

const tav::storelib::Commands& library() {
    return tavStoreLibInterface::getInstance()->commands();
}

}  // namespace

std::atomic<tavSASLSIEvent::Handler> tavSASLSIEvent::_tavSASFunc{nullptr};
// The library's threads may come as long as the process lives.
tavRemoveLockEx& tavSASLSIEvent::epRemoveLock = *new tavRemoveLockEx;

tavSASLSIEvent* tavSASLSIEvent::getInstance() {
    static tavSASLSIEvent* const instance = new tavSASLSIEvent;  // outlives every thread
    return instance;
}

int tavSASLSIEvent::RegisterForAEN(Handler handler) {
    tavStoreLibInterface& store = *tavStoreLibInterface::getInstance();
    if (store.tavStoreInit() != 1) return 0;
    _tavSASFunc = handler;
    epRemoveLock.reopen();
    store.lane().run([this] { renewRegistration(); });
    return 1;
}

/// In the library's lane.
void tavSASLSIEvent::renewRegistration() {
    const std::lock_guard<std::mutex> held(registrationLock_);
    // The newest events are asked for before an older registration ends: the new one begins there,
    // and nothing is lost between the two.
    Selection selection = selectControllers();
    if (selection.controllers.empty() || selection.controllers == registeredControllers()) return;
    // One that the library does not let go of serves on: two would report everything twice.
    if (!registered_ || unregister() == success) registerControllers(std::move(selection));
}

bool tavSASLSIEvent::isRegistered(std::uint32_t controllerId, const std::string& serial) const {
    for (const EventSource& controller : registeredControllers()) {
        const bool isAnother =
            !serial.empty() && !controller.serial.empty() && serial != controller.serial;
        if (controller.id == controllerId && !isAnother) return true;
    }
    return false;
}

std::vector<tavSASLSIEvent::EventSource> tavSASLSIEvent::registeredControllers() const {
    const std::lock_guard<std::mutex> held(controllersLock_);
    return controllers_;
}

void tavSASLSIEvent::setRegistered(std::vector<EventSource> controllers) {
    const std::lock_guard<std::mutex> held(controllersLock_);
    controllers_ = std::move(controllers);
    registered_ = !controllers_.empty();
}

void tavSASLSIEvent::registerControllers(Selection selection) {
    input_ = selection.record;
    input_.callback = AENCallBack;
    const std::uint32_t status = RegisterAENCall(&input_, &output_);
    if (status == success) {
        setRegistered(std::move(selection.controllers));
        logger.debug(here(),
                     "AEN Registration successful for [%u] LSI MR controllers. (Unique ID: [0x%x])",
                     input_.controllerCount, output_.uniqueId);
        return;
    }
    const char* const text = registrationStatusText(status);
    logger.error(here(), "%s", text == nullptr ? "RegisterAEN command failed" : text);
}

/// Those that tell their newest event.
tavSASLSIEvent::Selection tavSASLSIEvent::selectControllers() {
    tavStoreLibInterface& store = *tavStoreLibInterface::getInstance();
    const auto snapshot = store.snapshot();
    const auto ids = store.getControllerIds();
    Selection selection;
    for (const std::uint32_t id : ids) {
        _MR_EVT_LOG_INFO sequence{};
        const std::uint32_t status = IssueEventSequenceInfo(&sequence, id);
        if (status != success) {
            logger.warning(here(),
                           "Failed to determine event sequence info.                             "
                           "Skipping AEN registration for this controller. (ID: [%u]; rval = "
                           "[0x%x])",
                           id, status);
            continue;
        }
        auto& record = selection.record;
        if (record.controllerCount == std::size(record.controllers)) break;
        record.controllers[record.controllerCount++] = {id, allLocales, 0, informationAndAbove,
                                                        sequence.newestSequence};
        const CTRL_INFO* const controller = snapshot->controller(id);
        selection.controllers.push_back(
            {id, controller == nullptr ? "" : controller->serialNumber});
    }
    if (selection.controllers.empty()) {
        logger.warning(here(),
                       "Unable to register for AEN: No controllers could be selected. (Total: "
                       "[%u]; Selected: [%u])",
                       static_cast<unsigned>(ids.size()), 0U);
    }
    return selection;
}

std::uint32_t tavSASLSIEvent::IssueEventSequenceInfo(_MR_EVT_LOG_INFO* record,
                                                     std::uint32_t controllerId) {
    const std::uint32_t status = library().eventSequence(controllerId, *record);
    if (status == invalidController) {
        logger.error(here(), "Invalid controller");
    } else if (status != success) {
        logger.error(here(), "GetEventSequenceInfo : ProcessLibCommandCall failed");
    }
    return status;
}

std::uint32_t tavSASLSIEvent::RegisterAENCall(_SL_REG_AEN_INPUT_T* input,
                                              _SL_REG_AEN_OUTPUT_T* output) {
    const std::uint32_t status = library().registerEvents(*input, *output);
    if (status == success) {
        logger.debug(here(), "RegisterAENCall successful");
    } else if (const char* const text = registrationStatusText(status)) {
        logger.error(here(), "RegisterAENCall failed %s", text);
    } else {
        logger.error(here(), "RegisterAENCall failed  (rval:%u)", status);
    }
    return status;
}

std::uint32_t tavSASLSIEvent::UnregisterForAEN() {
    if (!registered_) return success;
    epRemoveLock.stopAndWait();
    // It is while the process stops that this has to succeed.
    const tav::StopScope patient(nullptr);
    const auto status = std::make_shared<std::uint32_t>(commandTimeout);
    const auto work = [this, status] {
        const std::lock_guard<std::mutex> held(registrationLock_);
        *status = registered_ ? unregister() : success;
    };
    const auto limit = std::chrono::steady_clock::now() + unregisterLimit;
    if (tavStoreLibInterface::getInstance()->lane().run(work, limit)) return *status;
    logger.warning(here(),
                   "The RAID library does not answer, so the registration for its events stays; "
                   "what it calls is ignored.");
    return commandTimeout;
}

std::uint32_t tavSASLSIEvent::unregister() {
    std::uint32_t status = success;
    for (int attempt = 1; attempt <= unregisterAttempts; ++attempt) {
        if (attempt > 1) tav::pauseFor(unregisterRetry);
        status = library().unregisterEvents(output_.uniqueId);
        if (status == success) {
            setRegistered({});
            break;
        }
        logger.warning(here(),
                       "Failed to unregister AEN for LSI MR controllers on attempt #%d. (Unique "
                       "ID: [0x%x]; rval: [0x%x])",
                       attempt, output_.uniqueId, status);
    }
    return status;
}
