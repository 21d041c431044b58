#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include "base/FileDescriptor.h"
#include "rmc/DeliveryRecord.h"
#include "rmc/tavMsgInfra.h"
#include "rmc/tavipmi.h"
#include "tools/Command.h"
#include "tools/CommandLine.h"
#include "tools/ServiceClient.h"

namespace tav::ctl {
namespace {

constexpr std::string_view help =
    R"(Tells whether a service takes requests on this host, tries what it needs (opens the
IPMI device and asks the management controller who it is; reads the configuration
file, without which the built-in defaults apply), and tells what the controller
has acknowledged last and what has failed since.

Exit status: 0 the service runs and has what it needs, 1 it runs, but the
controller cannot be reached, 2 wrong usage, 3 it does not run, 5 you are not
allowed to ask it.
)";

constexpr const char* device = "/dev/ipmi0";
constexpr const char* configuration = "/etc/config/orn/tav/tav.conf";

void tell(const char* name, const std::string& what) {
    std::cout << std::left << std::setw(15) << name << what << '\n';
}

ExitStatus tellService() {
    if (serviceRuns()) {
        tell("service", std::string("runs; takes requests on ") + tavRequestPipe);
        return Done;
    }
    const bool isForbidden = errno == EACCES || errno == EPERM;
    tell("service", isForbidden ? "may not be asked by you; try it as root"
                                : "does not run (systemctl status tavd)");
    return isForbidden ? NotAllowed : NoService;
}

/// Why the file cannot be opened; empty when it can.
std::string whyUnusable(const char* path, int mode) {
    const FileDescriptor file(::open(path, mode | O_NONBLOCK | O_CLOEXEC));
    return file.isOpen() ? std::string() : std::strerror(errno);
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

bool tellController() {
    const std::string why = whyUnusable(device, O_RDWR);
    tell("device", why.empty() ? device : device + (": " + why));
    if (!why.empty()) return false;  // to load its driver is the service's business
    ipmi::_GET_DEVICE_ID id{};
    const bool answers = ipmi::GetDeviceIdInfo(id);
    tell("controller", answers ? describe(id) : "does not say who it is");
    return answers;
}

std::string timeText(std::time_t moment) {
    std::array<char, 32> text{};
    std::tm local{};
    ::localtime_r(&moment, &local);
    std::strftime(text.data(), text.size(), "%F %T", &local);
    return text.data();
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

void tellDeliveries() {
    std::ifstream file(deliveryRecordFile);
    const auto record = parseDeliveryRecord(std::string(std::istreambuf_iterator<char>(file), {}));
    if (!record) {
        tell("deliveries", "nothing is known of any");
        return;
    }
    tell("inventory", describe(record->inventories));
    tell("events", describe(record->events));
}

ExitStatus run(Arguments arguments) {
    const auto line = sortArguments("status", arguments);
    if (!line) return Misused;
    if (!line->words.empty()) {
        std::cerr << "tavctl status: there is nothing to be added; see tavctl status --help\n";
        return Misused;
    }
    const ExitStatus service = tellService();
    const bool isReachable = tellController();
    const std::string why = whyUnusable(configuration, O_RDONLY);
    tell("configuration", why.empty() ? configuration : configuration + (": " + why));
    tellDeliveries();
    return service == Done && !isReachable ? Failed : service;
}

}  // namespace

const Command statusCommand{"status", "", "tell whether the service runs and has what it needs",
                            help, run};

}  // namespace tav::ctl
