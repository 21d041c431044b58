#include "tools/ServiceClient.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <iostream>
#include <optional>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <sys/stat.h>

#include "base/FileDescriptor.h"
#include "rmc/StateFiles.h"
#include "rmc/tavMsgInfra.h"
#include "tools/ServiceFiles.h"

namespace tav::ctl {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// As long as the service may wait for a silent controller, and for the clients before us.
constexpr auto patience = 120s;

std::atomic<int> interruptedBy{0};

void onSignal(int signal) {
    interruptedBy = signal;
}

/// From an interrupt on, every wait ends, so that the answer's pipe is removed.
void endWaitsOnSignals() {
    struct sigaction action {};
    action.sa_handler = onSignal;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        ::sigaction(signal, &action, nullptr);
    action.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &action, nullptr);
}

/// The pipe that this process is answered on, for as long as the object lives.
class ResponsePipe {
 public:
    ResponsePipe() : path_(responsePipeOf(::getpid())) {
        ::unlink(path_.c_str());  // of a process that had our number before
        ::umask(0077);            // who may read it takes the answer away
        if (!tavCreatePipe(path_.c_str())) return;
        // With a reader from now on, the service never has to wait for us.
        reader_ = openPipe(path_.c_str(), O_RDWR);
    }
    ResponsePipe(const ResponsePipe&) = delete;
    ResponsePipe& operator=(const ResponsePipe&) = delete;
    ~ResponsePipe() { ::unlink(path_.c_str()); }

    bool isOpen() const { return reader_.isOpen(); }
    const std::string& path() const { return path_; }

 private:
    std::string path_;
    FileDescriptor reader_;
};

ExitStatus complain(std::string_view command, const std::string& what, ExitStatus status) {
    std::cerr << "tavctl " << command << ": " << what << '\n';
    return status;
}

ExitStatus explainUnreachable(std::string_view command, int error) {
    const std::string pipe = tavRequestPipe;
    const std::string why = std::strerror(error);
    switch (error) {
        case ENOENT:
            return complain(command,
                            "there is no " + pipe +
                                ": tavd does not run (systemctl status tavd), or makes its "
                                "pipe anew within ten seconds",
                            NoService);
        case ENXIO:
            return complain(command, "nobody reads " + pipe + ": tavd has ended", NoService);
        case EACCES:
        case EPERM:
        case EROFS:
            return complain(command, "cannot write to " + pipe + ": " + why + "; try it as root",
                            NotAllowed);
        case EINVAL:
        case ELOOP:
        case EISDIR:
            return complain(command,
                            pipe +
                                " is no pipe: remove it, and tavd makes its pipe anew within "
                                "ten seconds",
                            NoService);
        default:
            return complain(command, "cannot open " + pipe + ": " + why, Failed);
    }
}

/// What the service says about a request that it has not fulfilled.
const char* explain(CliReason reason) {
    switch (reason) {
        case CliReason::Dropped:
            return "the event was dropped: the service has not sent its first inventory yet, and "
                   "until then only the host's events pass; try it again in a minute or two";
        case CliReason::NotDelivered:
            return "the management controller has not taken the event; the service's log says why, "
                   "and tavctl status whether the controller answers";
        case CliReason::NoSuchEvent:
            return "nobody raises this test event";
        case CliReason::NoEvent:
            return "the service does not take this for an event, which is one JSON object with at "
                   "least two members";
        case CliReason::None:
            break;
    }
    return "the service has refused the request; its log says why";
}

ExitStatus judge(std::string_view command, const _TAV_MESSAGE_PACKET& answer) {
    const std::optional<std::int32_t> code = parseCliResponse(answer);
    if (!code) return complain(command, "the answer is none of the service's", Failed);
    return *code == 0 ? Done : complain(command, explain(reasonOf(answer)), Failed);
}

/// Whether nobody is there any more who could answer. A service that has lost its pipe goes on with
/// what it has read.
bool hasEnded() {
    if (serviceRuns() || lacksDescriptors(errno)) return false;
    return lifeOf(readStateFile(healthFile).json) != Life::Runs;
}

/// What to end with when a wait has ended without a result.
ExitStatus gaveUp(std::string_view command, const char* what) {
    if (interruptedBy != 0) return static_cast<ExitStatus>(Interrupted + interruptedBy);
    return complain(command, hasEnded() ? "the service has ended without an answer" : what,
                    NoAnswer);
}

}  // namespace

bool serviceRuns() {
    return openPipe(tavRequestPipe, O_WRONLY).isOpen();
}

bool lacksDescriptors(int error) {
    return error == EMFILE || error == ENFILE;
}

ExitStatus askService(std::string_view command, std::uint16_t messageCode,
                      const std::string& payload) {
    endWaitsOnSignals();
    if (!serviceRuns()) return explainUnreachable(command, errno);
    const ResponsePipe response;
    if (!response.isOpen()) {
        const bool isForbidden = errno == EACCES || errno == EPERM;
        return complain(command,
                        "cannot make " + response.path() + ": " + std::strerror(errno) +
                            (isForbidden ? "; try it as root" : ""),
                        isForbidden ? NotAllowed : Failed);
    }
    const auto end = Clock::now() + patience;
    const auto goOn = [end] { return interruptedBy == 0 && Clock::now() < end && !hasEnded(); };
    const _TAV_MESSAGE_PACKET request = makeCliRequest({messageCode, ::getpid(), payload});
    if (tavWritePipe(tavRequestPipe, &request, goOn) != 0) {
        return gaveUp(command, "the service has not taken the request");
    }
    _TAV_MESSAGE_PACKET answer{};
    if (tavReadPipe(response.path().c_str(), &answer, goOn) != 0) {
        return gaveUp(command, "the service has not answered");
    }
    return judge(command, answer);
}

}  // namespace tav::ctl
