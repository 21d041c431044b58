#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include "base/FileDescriptor.h"
#include "base/OneLine.h"
#include "rmc/DeliveryRecord.h"
#include "rmc/StateFiles.h"
#include "rmc/tavMsgInfra.h"
#include "rmc/tavipmi.h"
#include "tools/ChildProcess.h"
#include "tools/Command.h"
#include "tools/CommandLine.h"
#include "tools/ServiceClient.h"
#include "tools/ServiceFiles.h"

namespace tav::ctl {
namespace {

constexpr std::string_view help =
    R"(Tells in one word whether the collector works, and then what that is made of:
whether a service runs and takes requests; whether what it needs is there (the IPMI
device and behind it the management controller, the configuration file, without
which the built-in defaults apply); what the controller has acknowledged last and
what has failed since; what stands still or does not answer.

  works     the service runs, and what it reports arrives
  degraded  it runs, but the controller cannot be reached, the last inventory or
            event has not arrived, a part of it stands still, a device does not answer,
            or it cannot keep what it knows, so that none of that can be told
  down      it does not run

Root may ask, and who may read /run/tavd (the group tavd), who is not told whether
the controller answers right now.

Exit status: 0 works, 1 degraded, 2 wrong usage, 3 down, 5 you may not ask.
)";

constexpr const char* device = "/dev/ipmi0";
/// A driver tells after some four seconds that its controller is silent.
constexpr std::chrono::seconds patienceWithDevice{6};
constexpr const char* configuration = "/etc/config/orn/tav/tav.conf";

/// What has been found, told at the end: the verdict stands above it.
class Findings {
 public:
    void tell(const char* name, const std::string& what) {
        text_ << std::left << std::setw(15) << name;
        std::string line;
        appendOneLine(line, what);
        text_ << line << '\n';
    }
    void degraded() { isDegraded_ = true; }
    bool isDegraded() const { return isDegraded_; }
    std::string text() const { return text_.str(); }

 private:
    std::ostringstream text_;
    bool isDegraded_ = false;
};

bool isForbidden(int error) {
    return error == EACCES || error == EPERM;
}

/// "Started" may be of one that has stopped, where its successor could not write.
std::string describeRun(const Json::Value& health) {
    const std::time_t started = timeIn(health, "Stopped") == 0 ? timeIn(health, "Started") : 0;
    return started == 0 ? "runs" : "runs since " + timeText(started);
}

/// Why a running service takes no requests, by what opening its pipe has failed with.
std::string pipeTrouble(int error) {
    const std::string pipe = tavRequestPipe;
    switch (error) {
        case ENOENT:
            return pipe + " is missing; it makes it anew within ten seconds";
        case EINVAL:
        case ELOOP:
        case EISDIR:
            return pipe + " is no pipe; it makes it anew within ten seconds";
        case ENXIO:
            return "it does not read " + pipe;
        default:
            return pipe + ": " + std::strerror(error);
    }
}

/// Done, NoService, NotAllowed, or Failed when that cannot be found out.
ExitStatus tellService(Findings& findings, const Json::Value& health) {
    if (serviceRuns()) {
        findings.tell("service", describeRun(health) + "; takes requests on " + tavRequestPipe);
        return Done;
    }
    const int error = errno;
    if (lacksDescriptors(error)) {
        findings.tell("service", std::string("cannot be looked for: ") + std::strerror(error));
        return Failed;
    }
    const bool mayNotAsk = isForbidden(error);
    const Life life = lifeOf(health);
    if (mayNotAsk && (health.empty() || life == Life::Unknown)) {
        findings.tell("service", "may not be asked by you; try it as root");
        return NotAllowed;
    }
    if (life == Life::Runs) {
        findings.tell("service", describeRun(health) +
                                     (mayNotAsk ? "; takes no requests of yours"
                                                : "; takes no requests: " + pipeTrouble(error)));
        if (!mayNotAsk) findings.degraded();
        return Done;
    }
    const std::string last =
        life == Life::Stopped ? "; stopped " + timeText(timeIn(health, "Stopped"))
        : life == Life::Died  ? "; ended unasked after " + timeText(timeIn(health, "Written"))
                              : "";
    findings.tell("service", "does not run (systemctl status tavd)" + last);
    return NoService;
}

/// Why the file cannot be opened, as errno tells it; 0 when it can.
int whyUnusable(const char* path, int mode) {
    const FileDescriptor file(::open(path, mode | O_NONBLOCK | O_CLOEXEC));
    return file.isOpen() ? 0 : errno;
}

std::string describe(const char* path, int error) {
    return error == 0 ? path : path + (": " + std::string(std::strerror(error)));
}

std::string describe(const ipmi::_GET_DEVICE_ID& id) {
    const int maker =
        id.manufacturerId[0] | (id.manufacturerId[1] << 8) | ((id.manufacturerId[2] & 0xF) << 16);
    std::ostringstream text;
    text << "answers: maker " << maker << ", product " << id.productId << ", firmware "
         << (id.firmwareMajor & 0x7F) << '.' << (id.firmwareMinor >> 4) << (id.firmwareMinor & 0xF)
         << ", IPMI " << (id.ipmiVersion & 0xF) << '.' << (id.ipmiVersion >> 4);
    return text.str();
}

/// Why the device cannot be opened, a blank, and what the controller behind it says.
std::string askController() {
    const int error = whyUnusable(device, O_RDWR);
    ipmi::_GET_DEVICE_ID id{};
    // To load its driver is the service's business.
    const bool answers = error == 0 && ipmi::GetDeviceIdInfo(id);
    return std::to_string(error) + ' ' + (answers ? describe(id) : "");
}

void tellController(Findings& findings) {
    const auto told = workInChild(patienceWithDevice, askController);
    if (!told || told->empty()) {
        findings.tell("device", std::string(device) + " does not answer");
        findings.degraded();
        return;
    }
    const int error = std::atoi(told->c_str());
    findings.tell("device", describe(device, error));
    if (isForbidden(error)) return;  // the service may, and tells
    const std::string says = told->substr(told->find(' ') + 1);
    if (error == 0) findings.tell("controller", says.empty() ? "does not say who it is" : says);
    if (says.empty()) findings.degraded();
}

std::string describe(const Delivery& delivery) {
    std::string text = delivery.acknowledged == 0
                           ? "none acknowledged yet"
                           : "acknowledged " + timeText(delivery.acknowledged);
    if (delivery.failures > 0) {
        text += "; " + std::to_string(delivery.failures) + " failed since, the last " +
                timeText(delivery.failed) + ": " + delivery.why;
    }
    return text;
}

void tellDeliveries(Findings& findings, const Json::Value& health) {
    const auto record = parseDeliveryRecord(health);
    if (!record) {
        findings.tell("deliveries", "nothing is known of any");
        findings.degraded();
        return;
    }
    const auto& [inventories, events] = *record;
    findings.tell("inventory", describe(inventories));
    findings.tell("events", describe(events));
    // What events did not tell, an inventory has made good.
    const bool isBehind = events.failures > 0 && events.failed > inventories.acknowledged;
    if (inventories.failures > 0 || isBehind) findings.degraded();
}

void tellTroubles(Findings& findings, const Json::Value& health) {
    for (const Json::Value& loop : memberIn(health, "StandingStill")) {
        findings.tell("stands still", textIn(loop, "Loop"));
        findings.degraded();
    }
    for (const Json::Value& silent : memberIn(health, "Unanswered")) {
        findings.tell("no answer", textIn(silent, "Who") + ", asked for " + textIn(silent, "What") +
                                       ", since " + timeText(timeIn(silent, "Since")));
        findings.degraded();
    }
}

const char* verdict(ExitStatus service, const Findings& findings) {
    switch (service) {
        case Done:
            return findings.isDegraded() ? "degraded" : "works";
        case NotAllowed:
        case Failed:
            return "unknown";
        default:
            return "down";
    }
}

ExitStatus run(Arguments arguments) {
    const auto line = sortArguments("status", arguments);
    if (!line) return Misused;
    if (!line->words.empty()) {
        std::cerr << "tavctl status: there is nothing to be added; see tavctl status --help\n";
        return Misused;
    }
    Findings findings;
    const Json::Value kept = readStateFile(healthFile).json;
    const Json::Value health = isOfAnEarlierService(kept) ? Json::Value() : kept;
    const ExitStatus service = tellService(findings, health);
    tellController(findings);
    findings.tell("configuration", describe(configuration, whyUnusable(configuration, O_RDONLY)));
    if (const std::string why = whyOutdated(kept); !why.empty()) {
        findings.tell("health", why);
        findings.degraded();
    }
    tellDeliveries(findings, health);
    tellTroubles(findings, health);
    std::cout << std::left << std::setw(15) << "state" << verdict(service, findings) << '\n'
              << findings.text();
    return service == Done && findings.isDegraded() ? Failed : service;
}

}  // namespace

const Command statusCommand{"status", "", "tell whether the collector works", help, run};

}  // namespace tav::ctl
