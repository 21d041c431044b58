#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "base/Export.h"
#include "base/FileDescriptor.h"
#include "rmc/DeliveryRecord.h"
#include "rmc/RmcFrame.h"

namespace ipmi {

// Answers of standard requests, as they follow the completion code. Multi-byte numbers are little
// endian. The leading underscores are part of names that users of the library rely on.
// NOLINTBEGIN(bugprone-reserved-identifier)

/// Get Device ID (IPMI 2.0, section 20.1). A controller may leave out `auxiliaryFirmwareRevision`,
/// which is 0 then.
struct __attribute__((packed)) _GET_DEVICE_ID {
    std::uint8_t deviceId;
    std::uint8_t deviceRevision;  ///< bit 7: provides SDRs; bits 3-0: revision
    std::uint8_t firmwareMajor;   ///< bit 7: update in progress; bits 6-0: major revision
    std::uint8_t firmwareMinor;   ///< two BCD digits
    std::uint8_t ipmiVersion;     ///< two BCD digits, least significant first
    std::uint8_t additionalDeviceSupport;
    std::uint8_t manufacturerId[3];
    std::uint16_t productId;
    std::uint8_t auxiliaryFirmwareRevision[4];
};
static_assert(sizeof(_GET_DEVICE_ID) == 15);
static_assert(offsetof(_GET_DEVICE_ID, manufacturerId) == 6);
static_assert(offsetof(_GET_DEVICE_ID, productId) == 9);
static_assert(offsetof(_GET_DEVICE_ID, auxiliaryFirmwareRevision) == 11);

/// Get BT Interface Capabilities (IPMI 2.0, section 22.10).
struct __attribute__((packed)) _GET_BMC_CAPABILITIES {
    std::uint8_t outstandingRequests;
    std::uint8_t inputBufferSize;   ///< bytes
    std::uint8_t outputBufferSize;  ///< bytes
    std::uint8_t responseTime;      ///< seconds
    std::uint8_t recommendedRetries;
};
static_assert(sizeof(_GET_BMC_CAPABILITIES) == 5);

// NOLINTEND(bugprone-reserved-identifier)

/// Talks to the rack's management controller through the host's IPMI device. One object serves one
/// operation: it opens the device and closes it when destroyed. Any thread.
class TAV_API IPMIUtils {
 public:
    /// Opens "/dev/ipmi0"; when that fails, loads the driver, waits three seconds and tries once
    /// more. A driver that hangs is waited for two seconds, and not while an older opening hangs.
    IPMIUtils();
    IPMIUtils(const IPMIUtils&) = delete;
    IPMIUtils& operator=(const IPMIUtils&) = delete;
    virtual ~IPMIUtils() = default;

    /// One request and its answer. True when an answer came: then `resp` holds the first `respLen`
    /// bytes of its data at most, `respLen` how many these are, and completionCode() its completion
    /// code, which is not judged here. False at once when the device is not open. An answer is
    /// waited for 30 seconds, and one second longer once the calling thread has been asked to stop.
    bool execute(unsigned char netfn, unsigned char cmd, unsigned char lun,
                 const unsigned char* data, unsigned char& dataLen, unsigned char* resp,
                 unsigned char& respLen);

    /// What failed last, on what, and why; empty when nothing has.
    const std::string& failure() const { return failure_; }

    /// Of the last answer; 0 is success.
    unsigned char completionCode() const { return completionCode_; }

    /// Sends one named command in 60-byte frames. `command` has 1 to 19 characters; `payload` is
    /// not empty and travels with a NUL behind it. Returns 1 when the transfer ran to its end or
    /// the controller stopped it, 0 when an exchange failed, an argument is not valid, or the
    /// transfer was too slow for a stop. The statuses are written only when the transfer did not
    /// come to its end (those of the last answer) or the controller reported one.
    int RMC_CLI_Exec(const std::string& command, const std::string& payload,
                     unsigned char* transferStatus, unsigned char* exitStatus);

    /// The same on a device opened for it, one command at a time in the process (lock: mlock), with
    /// the outcome logged and noted (rmc/DeliveryRecord.h). 0 on success, 1 on failure. A thread
    /// that has been asked to stop begins nothing any more, and a transfer that moves has 30
    /// seconds from then on.
    static int RMC_CLI_Cmd_Execution(const std::string& command, const std::string& payload);
    /// The same; `why` tells what the failure was.
    static int RMC_CLI_Cmd_Execution(const std::string& command, const std::string& payload,
                                     std::string& why);

    /// Whether the controller's door-bell answer asks for the inventory.
    bool checkIPMIDBRequest();

    /// Serialises command transfers and door-bell checks; held for a whole transfer and the pause
    /// after it. See docs/architecture.md for its rank.
    static std::mutex mlock;

 private:
    struct Answer;

    bool send(unsigned char netfn, unsigned char cmd, unsigned char lun, const unsigned char* data,
              unsigned char dataLen, long messageId);
    bool receive(long messageId, Answer& answer);
    bool fail(tav::RmcStep step, std::string what);
    /// One command frame; empty when the exchange failed.
    std::optional<tav::RmcAnswer> exchangeFrame(const tav::RmcFrame& frame);

    tav::FileDescriptor device_;
    unsigned char completionCode_ = 0;
    std::string failure_;
    std::chrono::milliseconds transferTook_{0};  ///< the last that ran to its end
};

/// Each asks on a device of its own; true when the controller answered as the request's standard
/// wants. Any thread; they do not take the transfer lock.
TAV_API bool GetDeviceIdInfo(_GET_DEVICE_ID& info);
TAV_API bool GetCapabilities(_GET_BMC_CAPABILITIES& capabilities);
/// Whether the controller sets bit 0 of the partition answer. The argument is not used.
TAV_API bool GetPartitionId(unsigned int unused);

}  // namespace ipmi

/// Sends one JSON text to the management controller as an event; the outcome is only logged.
TAV_API void sendToRMC(const char* json);
