#pragma once

#include <cstdint>
#include <string>

#include <scsi/sg.h>

namespace tav::scsi {

/// What has become of a command.
enum class Outcome : std::uint8_t {
    Answered,
    Refused,   ///< sense key 5h, ILLEGAL REQUEST: the device does not know the command or the page
    Aborted,   ///< sense key Bh: so answers an ATA disk, also what it does not know
    TimedOut,  ///< by the kernel's or the adapter's clock
    Failed,    ///< any other way
};
Outcome outcomeOf(const sg_io_hdr& completed);

/// One device's turn to be asked. While it lives, the commands that the calling thread sends tell
/// it what has become of them, and once one of them has timed out no further one is sent: a device
/// that does not answer costs one time-out and not one for each question. A turn within another one
/// is part of it.
class Turn {
 public:
    Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn();

    static Turn* current();

    /// Of the last command that was sent.
    Outcome last() const { return last_; }
    bool isOver() const { return !unanswered_.empty(); }
    /// The command that timed out, in words; empty while none has.
    const std::string& unanswered() const { return unanswered_; }

    void note(Outcome outcome, const char* command);

 private:
    Turn* const outer_;
    Outcome last_ = Outcome::Answered;
    std::string unanswered_;
};

/// Whether an ATA disk's own directories list that page of that log: READ LOG EXT of address 00h
/// for the log, and of the Device Statistics log (04h) its page 0 for the page.
bool ataLogIsListed(int fd, std::uint8_t log, std::uint8_t page);

}  // namespace tav::scsi
