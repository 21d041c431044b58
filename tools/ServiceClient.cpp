#include "tools/ServiceClient.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <iostream>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include "base/FileDescriptor.h"
#include "rmc/tavMsgInfra.h"

namespace tav::ctl {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// As long as the service may wait for a silent controller, and for the clients before us.
constexpr auto patience = 120s;

std::atomic<bool> interrupted{false};

void onSignal(int /*signal*/) {
    interrupted = true;
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
        if (!tavCreatePipe(path_.c_str())) return;
        // With a reader from now on, the service never has to wait for us.
        reader_.reset(::open(path_.c_str(), O_RDWR | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
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

ExitStatus explainMissingService(std::string_view command) {
    if (::access(tavRequestPipe, F_OK) != 0) {
        return complain(command,
                        std::string("there is no ") + tavRequestPipe +
                            ": tavd does not run (systemctl status tavd)",
                        NoService);
    }
    if (::access(tavRequestPipe, W_OK) != 0) {
        return complain(command,
                        std::string("cannot write to ") + tavRequestPipe + ": " +
                            std::strerror(errno) + "; try it as root",
                        NoService);
    }
    return complain(command, std::string("nobody reads ") + tavRequestPipe + ": tavd has ended",
                    NoService);
}

}  // namespace

bool serviceRuns() {
    const FileDescriptor pipe(
        ::open(tavRequestPipe, O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    return pipe.isOpen();
}

ExitStatus askService(std::string_view command, std::uint16_t messageCode,
                      const std::string& payload) {
    endWaitsOnSignals();
    if (!serviceRuns()) return explainMissingService(command);
    const ResponsePipe response;
    if (!response.isOpen()) {
        return complain(
            command,
            "cannot make " + response.path() + ": " + std::strerror(errno) + "; try it as root",
            Failed);
    }
    const auto end = Clock::now() + patience;
    const auto goOn = [end] { return !interrupted && Clock::now() < end && serviceRuns(); };
    const _TAV_MESSAGE_PACKET request = makeCliRequest({messageCode, ::getpid(), payload});
    if (tavWritePipe(tavRequestPipe, &request, goOn) != 0) {
        return complain(command, "the service has not taken the request", NoAnswer);
    }
    _TAV_MESSAGE_PACKET answer{};
    if (tavReadPipe(response.path().c_str(), &answer, goOn) != 0) {
        return complain(command,
                        serviceRuns() ? "the service has not answered"
                                      : "the service has ended without an answer",
                        NoAnswer);
    }
    const std::optional<std::int32_t> code = parseCliResponse(answer);
    if (!code) return complain(command, "the answer is none of the service's", Failed);
    return *code == 0 ? Done : Failed;
}

}  // namespace tav::ctl
