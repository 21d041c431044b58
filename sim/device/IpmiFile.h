#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include <linux/ipmi.h>

#include "sim/device/DeviceTable.h"

namespace tav::sim {

/// One request as the program sent it.
struct IpmiRequest {
    std::uint8_t netFn = 0;
    std::uint8_t lun = 0;
    std::uint8_t command = 0;
    std::vector<std::uint8_t> data;
    long msgid = 0;
    unsigned open = 0;  ///< which open() of the device, counted from 0
};

/// One message waiting to be received.
struct IpmiAnswer {
    std::uint8_t completionCode = 0;
    std::vector<std::uint8_t> data;  ///< after the completion code
    long msgidOffset = 0;            ///< other than 0: the answer to some other request
    int receiveError = 0;            ///< receiving it fails with this error number and consumes it
    int receiveType = IPMI_RESPONSE_RECV_TYPE;  ///< what kind of message it is
};

class IpmiFile;

/// What stands behind the simulated IPMI driver: a test's script, or a management controller.
class IpmiBackend {
 public:
    virtual ~IpmiBackend() = default;

    /// Takes over a request that the driver has accepted; `number` identifies it to the file.
    /// Returns 0, or the error number with which the send is to fail. Called on the sender's
    /// thread, without locks.
    virtual int submit(IpmiFile& file, std::uint64_t number, const IpmiRequest& request) = 0;
};

/// One open descriptor of /dev/ipmi0, behaving as the kernel's driver does: it refuses malformed
/// requests, keeps received messages in order, is readable exactly while a message waits, and gives
/// up on a request that nobody answers. Every function may be called from any thread.
class IpmiFile final : public OpenDevice {
 public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::size_t maximumOutstanding = 100;
    static constexpr std::uint8_t gaveUp = 0xC3;

    /// `patience`: after how long the driver gives up on a request; empty: never. The backend must
    /// outlive the file.
    IpmiFile(FileDescriptor deviceEnd, unsigned open, IpmiBackend& backend,
             std::optional<std::chrono::milliseconds> patience);

    int control(int descriptor, unsigned long request, void* argument) override;

    /// The request `number`, which is then no longer outstanding. Empty when the driver has given
    /// up on it: its answer must be dropped.
    std::optional<IpmiRequest> finish(std::uint64_t number);

    /// Puts an answer to `asked` where the program can receive it.
    void deliver(const IpmiRequest& asked, const IpmiAnswer& answer);

    /// Answers what has waited too long; returns when to call again (empty: nothing outstanding).
    std::optional<Clock::time_point> giveUpOverdue(Clock::time_point now);

    unsigned open() const { return open_; }
    int watchable() const { return deviceEnd(); }  ///< hangs up when the program closes

 private:
    struct Outstanding {
        IpmiRequest request;
        std::optional<Clock::time_point> deadline;
    };
    struct Message {
        std::uint8_t netFn = 0;
        std::uint8_t lun = 0;
        std::uint8_t command = 0;
        long msgid = 0;
        std::vector<std::uint8_t> data;  ///< completion code first
        int receiveError = 0;
        int receiveType = IPMI_RESPONSE_RECV_TYPE;
    };

    int send(const ipmi_req& given);
    int receive(int descriptor, ipmi_recv& wanted, bool truncate);
    void deliverLocked(const IpmiRequest& asked, const IpmiAnswer& answer);
    void consumeFirst(int descriptor);

    const unsigned open_;
    IpmiBackend& backend_;
    const std::optional<std::chrono::milliseconds> patience_;
    std::mutex lock_;
    std::uint64_t lastNumber_ = 0;
    std::map<std::uint64_t, Outstanding> outstanding_;
    std::deque<Message> messages_;
};

}  // namespace tav::sim
