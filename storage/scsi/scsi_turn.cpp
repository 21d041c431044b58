#include "storage/scsi/scsi_turn.h"

#include <algorithm>
#include <span>

#include "storage/scsi/scsi_replies.h"

namespace tav::scsi {
namespace {

thread_local Turn* currentTurn = nullptr;

/// Of the Linux SCSI layer.
constexpr unsigned hostTimedOut = 3;
constexpr unsigned driverTimedOut = 6;
constexpr unsigned driverCode = 0x0F;

}  // namespace

Outcome outcomeOf(const sg_io_hdr& completed) {
    if ((completed.info & SG_INFO_OK_MASK) == SG_INFO_OK) return Outcome::Answered;
    if (completed.host_status == hostTimedOut ||
        (completed.driver_status & driverCode) == driverTimedOut) {
        return Outcome::TimedOut;
    }
    const std::size_t written =
        completed.sbp == nullptr ? 0 : std::min(completed.sb_len_wr, completed.mx_sb_len);
    constexpr int illegalRequest = 5;
    constexpr int abortedCommand = 0x0B;
    switch (senseKey(std::as_bytes(std::span(completed.sbp, written))).value_or(0)) {
        case illegalRequest:
            return Outcome::Refused;
        case abortedCommand:
            return Outcome::Aborted;
        default:
            return Outcome::Failed;
    }
}

Turn::Turn() : outer_(currentTurn) {
    if (outer_ != nullptr) unanswered_ = outer_->unanswered_;
    currentTurn = this;
}

Turn::~Turn() {
    currentTurn = outer_;
}

Turn* Turn::current() {
    return currentTurn;
}

void Turn::note(Outcome outcome, const char* command) {
    if (outer_ != nullptr) outer_->note(outcome, command);
    last_ = outcome;
    if (outcome == Outcome::TimedOut && !isOver()) unanswered_ = command;
}

}  // namespace tav::scsi
