#include "sim/rmc/Controller.h"

#include <algorithm>
#include <array>

namespace tav::sim {
namespace {

constexpr std::uint8_t oemNetFn = 0x3A;
constexpr std::uint8_t commandFrame = 0x80;
constexpr std::uint8_t doorBell = 0x81;
constexpr std::uint8_t appNetFn = 0x06;
constexpr std::uint8_t setGlobalEnables = 0x2E;
constexpr std::uint8_t receiveInterrupt = 0x01;  // bit 0 of the global enables

constexpr std::uint8_t invalidCommand = 0xC1;
constexpr std::uint8_t invalidLength = 0xC7;
constexpr std::uint8_t nothingThere = 0x80;  // no message, or no event, to be read

/// A request whose answer never changes. Names and layouts as in IPMI 2.0; partition id is the
/// platform's own.
struct Standard {
    std::uint8_t netFn;
    std::uint8_t command;
    std::size_t requestLength;
    std::uint8_t completionCode;
    std::size_t answerLength;
    std::array<std::uint8_t, 16> answer;
};

constexpr std::array standards = {
    // Get Device ID: device 20h, firmware 1.00, IPMI 2.0, all else none.
    Standard{0x06, 0x01, 0, 0, 15, {0x20, 0x01, 0x01, 0x00, 0x02}},
    // Get System GUID, and Get Device GUID.
    Standard{0x06,
             0x37,
             0,
             0,
             16,
             {0x74, 0x61, 0x76, 0x2D, 0x73, 0x69, 0x6D, 0x2D, 0x72, 0x6D, 0x63, 0x2D, 0x30, 0x30,
              0x30, 0x31}},
    Standard{0x06,
             0x08,
             0,
             0,
             16,
             {0x74, 0x61, 0x76, 0x2D, 0x73, 0x69, 0x6D, 0x2D, 0x72, 0x6D, 0x63, 0x2D, 0x30, 0x30,
              0x30, 0x31}},
    Standard{0x06, setGlobalEnables, 1, 0, 0, {}},
    Standard{0x06, 0x2F, 0, 0, 1, {receiveInterrupt}},  // Get BMC Global Enables
    Standard{0x06, 0x30, 1, 0, 0, {}},                  // Clear Message Flags
    Standard{0x06, 0x31, 0, 0, 1, {}},                  // Get Message Flags
    Standard{0x06, 0x33, 0, nothingThere, 0, {}},       // Get Message
    Standard{0x06, 0x35, 0, nothingThere, 0, {}},       // Read Event Message Buffer
    // Get BT Interface Capabilities: one request at a time, 255 bytes each way, 5 s, no retries.
    Standard{0x06, 0x36, 0, 0, 5, {0x01, 0xFF, 0xFF, 0x05, 0x00}},
    Standard{0x34, 0x08, 0, 0, 4, {0x01}},  // partition id: the first partition
};

void refuse(Outcome& outcome, std::uint8_t completionCode) {
    outcome.answer->completionCode = completionCode;
    outcome.answer->data.clear();
}

void apply(const Fault& fault, Outcome& outcome) {
    Bytes& data = outcome.answer->data;
    if (fault.completionCode) refuse(outcome, *fault.completionCode);
    if (fault.truncate) data.resize(std::min(data.size(), *fault.truncate));
    outcome.delay = fault.late;
    outcome.struck = fault.order;
    if (fault.lost) outcome.answer.reset();
}

}  // namespace

Outcome Controller::handle(const BmcRequest& request, unsigned sender) {
    Outcome outcome;
    outcome.answer = BmcAnswer{request.sequence,
                               static_cast<std::uint8_t>(request.netFn | 1),
                               request.lun,
                               request.command,
                               0,
                               {}};
    if (request.lun != 0) {
        refuse(outcome, invalidCommand);
        if (request.netFn == oemNetFn) outcome.violations.emplace_back("request to a LUN but 0");
    } else if (request.netFn == oemNetFn && request.command == commandFrame) {
        handleFrame(request, sender, outcome);
        return outcome;
    } else if (request.netFn == oemNetFn && request.command == doorBell) {
        handleDoorBell(request, outcome);
    } else {
        handleStandard(request, outcome);
    }
    if (const auto fault = injections_.forRequest(request.netFn, request.command)) {
        apply(*fault, outcome);
    }
    return outcome;
}

void Controller::handleFrame(const BmcRequest& request, unsigned sender, Outcome& outcome) {
    FrameResult result = checker_.accept(request.data, sender);
    outcome.violations = result.violations;
    const bool last = result.complete.has_value();
    const auto fault =
        result.frame == 0 ? std::nullopt : injections_.forFrame(result.name, result.frame, last);

    auto status = static_cast<std::uint8_t>(result.status);
    if (fault && fault->status) status = *fault->status;
    outcome.answer->data = {status, static_cast<std::uint8_t>(result.token & 0xFF),
                            static_cast<std::uint8_t>(result.token >> 8),
                            fault ? fault->exitStatus : std::uint8_t{0}};
    const bool refused = status > 2 || (last && status != 0) || (fault && fault->completionCode);
    if (refused) {
        checker_.abandon(result.token);
        outcome.refused =
            last ? std::move(*result.complete) : Command{result.name, {}, result.frame};
    } else {
        outcome.finished = std::move(result.complete);
    }
    if (fault) apply(*fault, outcome);
    outcome.frame = std::move(result);
}

void Controller::handleDoorBell(const BmcRequest& request, Outcome& outcome) {
    if (!request.data.empty()) outcome.violations.emplace_back("door-bell request with data");
    outcome.doorBell = injections_.nextDoorBell();
    outcome.answer->data.assign(outcome.doorBell->begin(), outcome.doorBell->end());
}

void Controller::handleStandard(const BmcRequest& request, Outcome& outcome) {
    const auto known =
        std::find_if(standards.begin(), standards.end(), [&](const Standard& standard) {
            return standard.netFn == request.netFn && standard.command == request.command;
        });
    if (known == standards.end()) return refuse(outcome, invalidCommand);
    if (known->requestLength != request.data.size()) return refuse(outcome, invalidLength);
    outcome.answer->completionCode = known->completionCode;
    outcome.answer->data.assign(
        known->answer.begin(),
        known->answer.begin() + static_cast<std::ptrdiff_t>(known->answerLength));
    if (request.netFn == appNetFn && request.command == setGlobalEnables) {
        outcome.control = (request.data[0] & receiveInterrupt) != 0 ? BmcControl::InterruptOn
                                                                    : BmcControl::InterruptOff;
    }
}

}  // namespace tav::sim
