#include "rmc/tavipmi.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include <fcntl.h>

#include <linux/ipmi.h>
#include <sys/ioctl.h>

#include "base/StopSignal.h"
#include "base/Waiting.h"
#include "base/printed.h"
#include "core/Command.h"
#include "core/Log.h"
#include "core/LoopWatch.h"
#include "core/TimelyQuestion.h"
#include "rmc/DeliveryNotes.h"

using tav::at;
using tav::here;
using tav::RmcStep;

namespace ipmi {
namespace {

using namespace std::chrono_literals;

constexpr tav::ModuleLog logger{"IPMI"};

constexpr const char* devicePath = "/dev/ipmi0";
constexpr std::array driverCommands = {
    "modprobe ipmi_msghandler > /dev/null 2>&1",
    "modprobe ipmi_si > /dev/null 2>&1",
    "modprobe ipmi_devintf > /dev/null 2>&1",
    "modprobe ipmi_watchdog > /dev/null 2>&1",
    "modprobe ipmi_ssif > /dev/null 2>&1",
    "mknod -m 0600 /dev/ipmi0 c `cat /proc/devices | grep ipmidev |cut -d \" \" -f 1` 0 > "
    "/dev/null 2>&1"};
constexpr auto driverStart = 3s;

/// The driver answers within seconds whatever happens; a longer silence is a broken driver.
constexpr auto answerLimit = 30s;
/// How much longer a thread waits that has been asked to stop: a healthy controller takes
/// milliseconds, so a transfer that moves is finished and a dead one does not hold up the stop.
constexpr auto answerLimitWhenStopping = 1s;
/// How long a transfer that moves may go on after that.
constexpr auto transferLimitWhenStopping = 30s;
constexpr auto pauseAfterTransfer = 500ms;
/// How often a command tries whether the one before it has ended.
constexpr auto turnRetry = 10ms;

constexpr unsigned char netFnApp = 0x06;
constexpr unsigned char netFnOem = 0x3A;
constexpr unsigned char netFnPartition = 0x34;
constexpr unsigned char cmdGetDeviceId = 0x01;
constexpr unsigned char cmdGetBtCapabilities = 0x36;
constexpr unsigned char cmdRmcFrame = 0x80;
constexpr unsigned char cmdDoorBell = 0x81;
constexpr unsigned char cmdPartition = 0x08;

constexpr unsigned char goOnLimit = 2;  ///< highest status that lets a transfer go on
constexpr unsigned char statusLengthExceeded = 8;

struct StatusMessage {
    unsigned char status;
    int line;
    const char* text;
};
/// Why the controller stopped a transfer or was not content with its end.
constexpr std::array transferStatusMessages = {
    StatusMessage{1, 487, "Input data is not complete"},
    StatusMessage{3, 490, "Error in index"},
    StatusMessage{4, 493, "Cli entries full"},
    StatusMessage{5, 496, "Provided command not supported"},
    StatusMessage{6, 499, "Memory could not be allocated"},
    StatusMessage{statusLengthExceeded, 502, "Request command length exceeded"}};
/// Why an exchange failed, by the last status known.
constexpr std::array exchangeMessages = {
    StatusMessage{0xAA, 462, "The pointer to the stdout or stderr is NULL."},
    StatusMessage{0xDD, 465, "Command time out."},
    StatusMessage{0xEE, 468, "The size of stdout or stderr is not enough."},
    StatusMessage{0x07, 471, "Request ioctl failure"},
    StatusMessage{0x08, 474, "Response ioctl failure"}};

template <std::size_t rows>
const StatusMessage* findMessage(const std::array<StatusMessage, rows>& table,
                                 unsigned char status) {
    const auto row = std::find_if(table.begin(), table.end(), [&](const StatusMessage& message) {
        return message.status == status;
    });
    return row == table.end() ? nullptr : &*row;
}

void logExchangeFailure(unsigned char transferStatus) {
    const StatusMessage* const message = findMessage(exchangeMessages, transferStatus);
    if (message != nullptr) {
        logger.error(at(message->line), "%s", message->text);
    } else {
        logger.error(at(477), "Error occurred while executing RMC_CLI_Exec");
    }
}

void logTransferStatus(unsigned char transferStatus, unsigned char exitStatus,
                       std::size_t payloadSize) {
    const StatusMessage* const message = findMessage(transferStatusMessages, transferStatus);
    if (message == nullptr) {
        logger.error(at(505), "RMC Cli Command Execution failed");
    } else if (transferStatus == statusLengthExceeded) {
        logger.error(at(message->line),
                     "Transfer Status is 0x%x[%s] and Cmd Exit Status is 0x%x. Payload size:%zu",
                     transferStatus, message->text, exitStatus, payloadSize);
    } else {
        logger.error(at(message->line), "Transfer Status is 0x%x[%s] and Cmd Exit Status is 0x%x",
                     transferStatus, message->text, exitStatus);
    }
}

/// No two requests of the process share one, so that a late answer is never taken for another.
long nextMessageId() {
    static std::atomic<long> last{0};
    return ++last;
}

struct Opened {
    tav::FileDescriptor device{};
    int error = 0;  ///< why it is not open
};

/// In time: a driver that hangs keeps whoever opens its device.
Opened openDevice() {
    static auto& question =  // outlives every thread
        *new tav::TimelyQuestion<Opened>("tav-ipmi-open", "The question to the IPMI driver");
    auto opened = question.ask([] {
        Opened answer{tav::FileDescriptor(::open(devicePath, O_RDWR | O_CLOEXEC))};
        if (!answer.device.isOpen()) answer.error = errno;
        return answer;
    });
    return opened ? *std::move(opened) : Opened{{}, ETIMEDOUT};
}

void loadDriver() {
    for (const char* command : driverCommands) {
        tav::runShell(command);
    }
    tav::pauseFor(driverStart);
}

std::string describe(int error) {
    return tav::printed("%s (errno: %d)", std::strerror(error), error);
}

/// Tells an operator once what fails, and once when it works again; not every time.
class Trouble {
 public:
    void tell(const std::string& what) {
        const std::lock_guard<std::mutex> held(lock_);
        if (what == told_) return;
        told_ = what;
        logger.error(here(), "%s", what.c_str());
    }
    void isOver() {
        const std::lock_guard<std::mutex> held(lock_);
        if (told_.empty()) return;
        told_.clear();
        logger.warning(here(), "The controller answers again.");
    }

 private:
    std::mutex lock_;
    std::string told_;
};

Trouble& trouble() {
    static Trouble* const instance = new Trouble;  // outlives every thread
    return *instance;
}

/// Locks the channel for one command. False, and not locked, when the thread has been asked to stop
/// before its turn came.
bool takeTurn(std::mutex& channel) {
    while (!tav::stopRequested()) {
        if (channel.try_lock()) return true;
        tav::pauseFor(turnRetry);
    }
    return false;
}

/// Says when a transfer that has gone on after a stop has done so for long enough.
class StopLimit {
 public:
    bool isOver() {
        if (!tav::stopRequested()) return false;
        if (!limit_) limit_.emplace(transferLimitWhenStopping);
        return limit_->left() == 0ms;
    }

 private:
    std::optional<tav::TimeLimit> limit_;
};

/// Waits for an answer; a stop shortens the patience, but does not end it.
bool waitForAnswer(int device, const tav::TimeLimit& limit) {
    const tav::Readable outcome = tav::waitReadable(device, limit);
    if (outcome != tav::Readable::Stopped) return outcome == tav::Readable::Ready;
    const tav::StopScope unstoppable(nullptr);
    return tav::waitReadable(device, tav::TimeLimit(answerLimitWhenStopping)) ==
           tav::Readable::Ready;
}

}  // namespace

std::mutex IPMIUtils::mlock;

struct IPMIUtils::Answer {
    /// The largest message of the driver's interface. Not cleared: there is one for each frame.
    std::array<unsigned char, IPMI_MAX_MSG_LENGTH> bytes;
    std::size_t size = 0;  ///< with the completion code
};

IPMIUtils::IPMIUtils() {
    Opened opened = openDevice();
    if (!opened.device.isOpen() && opened.error != ETIMEDOUT) {
        loadDriver();
        opened = openDevice();
    }
    device_ = std::move(opened.device);
    if (!device_.isOpen()) {
        fail(RmcStep::Open, tav::printed("%s cannot be opened: %s; nothing reaches the controller",
                                         devicePath, describe(opened.error).c_str()));
    }
}

bool IPMIUtils::fail(RmcStep step, std::string what) {
    tav::noteFailureAt(step);
    failure_ = std::move(what);
    return false;
}

bool IPMIUtils::execute(unsigned char netfn, unsigned char cmd, unsigned char lun,
                        const unsigned char* data, unsigned char& dataLen, unsigned char* resp,
                        unsigned char& respLen) {
    if (!device_.isOpen()) return false;
    const long messageId = nextMessageId();
    Answer answer;
    if (!send(netfn, cmd, lun, data, dataLen, messageId) || !receive(messageId, answer)) {
        return false;
    }
    completionCode_ = answer.bytes[0];
    const std::size_t size = std::min<std::size_t>(answer.size - 1, respLen);
    std::copy_n(answer.bytes.begin() + 1, size, resp);
    logger.debug(here(), "size %d, rs %d, dl %d\n", static_cast<int>(answer.size), respLen,
                 dataLen);
    respLen = static_cast<unsigned char>(size);
    tav::LoopWatch::advances();
    return true;
}

bool IPMIUtils::send(unsigned char netfn, unsigned char cmd, unsigned char lun,
                     const unsigned char* data, unsigned char dataLen, long messageId) {
    ipmi_system_interface_addr address{};
    address.addr_type = IPMI_SYSTEM_INTERFACE_ADDR_TYPE;
    address.channel = IPMI_BMC_CHANNEL;
    address.lun = lun;
    static_assert(sizeof address == 8);

    ipmi_req request{};
    void* const addressBytes = &address;
    request.addr = static_cast<unsigned char*>(addressBytes);
    request.addr_len = sizeof address;
    request.msgid = messageId;
    request.msg.netfn = netfn;
    request.msg.cmd = cmd;
    request.msg.data = const_cast<unsigned char*>(data);  // the driver only reads it
    request.msg.data_len = dataLen;
    int result = -1;
    do {
        result = ::ioctl(device_.get(), IPMICTL_SEND_COMMAND, &request);
    } while (result != 0 && errno == EINTR);
    if (result == 0) return true;
    const int error = errno;
    logger.debug(at(118), "Request ioctl failure with error code : %d", error);
    return fail(RmcStep::Send, tav::printed("The IPMI driver has not taken request %02Xh/%02Xh: %s",
                                            netfn, cmd, describe(error).c_str()));
}

/// Takes messages until the one that answers `messageId` comes.
bool IPMIUtils::receive(long messageId, Answer& answer) {
    const tav::TimeLimit limit(answerLimit);
    do {
        if (!waitForAnswer(device_.get(), limit)) break;
        ipmi_addr address{};
        void* const addressBytes = &address;
        ipmi_recv message{};
        message.addr = static_cast<unsigned char*>(addressBytes);
        message.addr_len = sizeof address;
        message.msg.data = answer.bytes.data();
        message.msg.data_len = static_cast<unsigned short>(answer.bytes.size());
        // A message that is too long for the buffer is handed out all the same, as far as it goes.
        if (::ioctl(device_.get(), IPMICTL_RECEIVE_MSG_TRUNC, &message) != 0 && errno != EMSGSIZE) {
            if (errno == EINTR) continue;
            const int error = errno;
            logger.debug(at(155), "Response ioctl failure");
            return fail(RmcStep::Receive,
                        "The IPMI driver has not handed out an answer: " + describe(error));
        }
        if (message.recv_type != IPMI_RESPONSE_RECV_TYPE || message.msgid != messageId) continue;
        answer.size = std::min<std::size_t>(message.msg.data_len, answer.bytes.size());
        return answer.size > 0 || fail(RmcStep::Answer, "The controller's answer is empty");
    } while (limit.left() > 0ms);
    if (tav::stopRequested()) {
        return fail(RmcStep::Stop, "The controller had not answered when the service stopped");
    }
    return fail(RmcStep::Silence, "The controller has not answered in time");
}

int IPMIUtils::RMC_CLI_Exec(const std::string& command, const std::string& payload,
                            unsigned char* transferStatus, unsigned char* exitStatus) {
    if (transferStatus == nullptr || exitStatus == nullptr || command.empty() || payload.empty() ||
        command.size() >= tav::rmcCommandNameSize) {
        logger.error(at(211), "Provided command / arguments is not valid");
        fail(RmcStep::Command, "The command is not valid");
        return 0;
    }
    tav::RmcAnswer last;
    const auto report = [&] {
        *transferStatus = last.transferStatus;
        *exitStatus = last.exitStatus;
    };
    // The text's own NUL is part of what travels.
    const std::string_view bytes(payload.c_str(), payload.size() + 1);
    std::size_t sent = 0;
    const tav::Stopwatch watch;
    StopLimit limit;
    while (sent < bytes.size()) {
        if (limit.isOver()) {
            fail(RmcStep::Stop,
                 "The transfer was too slow to be finished when the service stopped");
            report();
            return 0;
        }
        const bool first = sent == 0;
        const std::string_view rest = bytes.substr(sent);
        const auto answer = exchangeFrame(
            first ? tav::firstRmcFrame(command, static_cast<std::uint32_t>(bytes.size()), rest)
                  : tav::laterRmcFrame(last.token, rest));
        if (!answer) {
            report();
            return 0;
        }
        last = *answer;
        if (last.transferStatus > goOnLimit) {
            report();
            return 1;
        }
        sent += first ? tav::rmcFirstFramePayload : tav::rmcLaterFramePayload;
    }
    if (last.transferStatus != 0) report();
    transferTook_ = watch.elapsed();
    // The controller needs its pause also from a thread that is stopping.
    const tav::StopScope unstoppable(nullptr);
    tav::pauseFor(pauseAfterTransfer);
    return 1;
}

std::optional<tav::RmcAnswer> IPMIUtils::exchangeFrame(const tav::RmcFrame& frame) {
    std::array<unsigned char, 4> data{};
    unsigned char frameSize = tav::rmcFrameSize;
    unsigned char dataSize = data.size();
    if (!execute(netFnOem, cmdRmcFrame, 0, frame.data(), frameSize, data.data(), dataSize)) {
        return std::nullopt;
    }
    // For a controller that is silent the driver hands out an answer of its own, without data.
    if (completionCode_ != 0) {
        fail(RmcStep::Refusal,
             tav::printed("The controller refuses commands (completion code %02Xh)",
                          completionCode_));
        return std::nullopt;
    }
    const auto answer = tav::parseRmcAnswer(std::span<const std::uint8_t>(data).first(dataSize));
    if (answer) {
        tav::noteFrame();
    } else {
        fail(RmcStep::Answer,
             tav::printed("The controller's answer has %d bytes instead of 4", dataSize));
    }
    return answer;
}

namespace {

int notSent(const std::string& command, std::string& why) {
    why = "the service stopped before it was sent";
    tav::noteFailureAt(RmcStep::Stop);
    tav::noteFailed(command, why);
    logger.info(here(), "%s was not sent, because the service stops.", command.c_str());
    return 1;
}

/// Why the controller has not taken a command that reached it.
std::string describeStatus(unsigned char transferStatus) {
    const StatusMessage* const message = findMessage(transferStatusMessages, transferStatus);
    return message != nullptr ? message->text : tav::printed("Transfer status %d", transferStatus);
}

}  // namespace

int IPMIUtils::RMC_CLI_Cmd_Execution(const std::string& command, const std::string& payload) {
    std::string why;
    return RMC_CLI_Cmd_Execution(command, payload, why);
}

int IPMIUtils::RMC_CLI_Cmd_Execution(const std::string& command, const std::string& payload,
                                     std::string& why) {
    if (!takeTurn(mlock)) return notSent(command, why);
    const std::lock_guard<std::mutex> held(mlock, std::adopt_lock);
    IPMIUtils channel;
    if (!channel.device_.isOpen() && tav::stopRequested()) return notSent(command, why);
    logger.debug(at(453), "Command to be executed on RMC : %s %s", command.c_str(),
                 payload.c_str());
    unsigned char transferStatus = 0;
    unsigned char exitStatus = 0;
    if (channel.RMC_CLI_Exec(command, payload, &transferStatus, &exitStatus) == 0) {
        logExchangeFailure(transferStatus);
        if (!channel.failure().empty()) trouble().tell(channel.failure());
        why = channel.failure();
        tav::noteFailed(command, why);
        return 1;
    }
    trouble().isOver();
    if (transferStatus != 0) {
        logTransferStatus(transferStatus, exitStatus, payload.size());
        why = describeStatus(transferStatus);
        tav::noteFailureAt(RmcStep::Status);
        tav::noteFailed(command, why);
        return 1;
    }
    tav::noteDelivered(command, channel.transferTook_);
    return 0;
}

bool IPMIUtils::checkIPMIDBRequest() {
    logger.debug(at(417), "Checking IPMI door bell request");
    if (!takeTurn(mlock)) return false;
    const std::lock_guard<std::mutex> held(mlock, std::adopt_lock);
    if (!device_.isOpen() && tav::stopRequested()) return false;
    std::array<unsigned char, 254> text{};
    unsigned char textSize = text.size();
    unsigned char noData = 0;
    if (!execute(netFnOem, cmdDoorBell, 0, nullptr, noData, text.data(), textSize) ||
        completionCode_ != 0) {
        logger.error(at(439), "An error occurred in checking RMC request via IPMI");
        if (completionCode_ != 0) {
            fail(RmcStep::Refusal,
                 tav::printed("The controller has no door bell (completion code %02Xh)",
                              completionCode_));
        }
        trouble().tell(failure_);
        return false;
    }
    trouble().isOver();
    // A full answer has no room for a NUL behind its text.
    std::string request(text.begin(), text.begin() + textSize);
    request.resize(std::strlen(request.c_str()));
    logger.debug(at(428), "Return buffer from door bell: %s", request.c_str());
    return request.find("WriteInventory") != std::string::npos;
}

namespace {

/// Asks on a device of its own; true for a successful answer of at least `leastSize` bytes.
bool ask(unsigned char netfn, unsigned char cmd, unsigned char* answer, unsigned char size,
         unsigned char leastSize) {
    IPMIUtils channel;
    unsigned char noData = 0;
    return channel.execute(netfn, cmd, 0, nullptr, noData, answer, size) &&
           channel.completionCode() == 0 && size >= leastSize;
}

template <class Record>
bool askForRecord(unsigned char netfn, unsigned char cmd, Record& record,
                  std::size_t leastSize = sizeof(Record)) {
    std::array<unsigned char, sizeof(Record)> bytes{};
    if (!ask(netfn, cmd, bytes.data(), bytes.size(), static_cast<unsigned char>(leastSize))) {
        return false;
    }
    std::memcpy(&record, bytes.data(), sizeof record);
    return true;
}

}  // namespace

bool GetDeviceIdInfo(_GET_DEVICE_ID& info) {
    return askForRecord(netFnApp, cmdGetDeviceId, info,
                        offsetof(_GET_DEVICE_ID, auxiliaryFirmwareRevision));
}

bool GetCapabilities(_GET_BMC_CAPABILITIES& capabilities) {
    return askForRecord(netFnApp, cmdGetBtCapabilities, capabilities);
}

bool GetPartitionId(unsigned int /*unused*/) {
    std::array<unsigned char, 4> answer{};
    return askForRecord(netFnPartition, cmdPartition, answer, 1) && (answer[0] & 1U) != 0;
}

}  // namespace ipmi

void sendToRMC(const char* json) {
    constexpr tav::ModuleLog serverLogger{"TAV_SERVER"};
    if (ipmi::IPMIUtils::RMC_CLI_Cmd_Execution("MPEventGen", json == nullptr ? "" : json) == 1) {
        serverLogger.debug(at(198), "FAILURE in logging event to RMC");
    } else {
        serverLogger.debug(at(200), "SUCCESS in delivering event to RMC");
    }
}
