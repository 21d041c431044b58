#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/device/IpmiFile.h"

namespace tav::sim {

/// What happens to one request.
struct Reply {
    struct Timed {
        IpmiAnswer answer;
        std::chrono::milliseconds delay{0};  ///< real time, after the request
    };

    int sendError = 0;           ///< the send fails with this error number; `answers` is ignored
    std::vector<Timed> answers;  ///< none: nobody ever answers

    static Reply answer(std::vector<std::uint8_t> data, std::uint8_t completionCode = 0);
    static Reply failure(std::uint8_t completionCode) { return answer({}, completionCode); }
    static Reply never() { return {}; }
    static Reply refused(int error) { return {error, {}}; }
    static Reply unreceivable(int error);

    Reply after(std::chrono::milliseconds delay) &&;  ///< delays every answer of this reply
    Reply asAnswerToAnother() &&;                     ///< gives every answer a wrong message id
    Reply asEvent() &&;         ///< makes every answer a message that nobody asked for
    Reply then(Reply next) &&;  ///< adds the answers of another reply
};

/// A /dev/ipmi0 for the program it is linked into: present from construction to destruction, and
/// answering as the test says. All members may be used from any thread.
class FakeIpmiDevice {
 public:
    /// Called for each request that the driver accepts, on the thread that sends it; one call at a
    /// time. It may use the other members, but not send requests itself.
    using Handler = std::function<Reply(const IpmiRequest&)>;

    explicit FakeIpmiDevice(
        Handler handler = [](const IpmiRequest&) { return Reply::never(); },
        const std::string& path = "/dev/ipmi0");
    FakeIpmiDevice(const FakeIpmiDevice&) = delete;
    FakeIpmiDevice& operator=(const FakeIpmiDevice&) = delete;
    ~FakeIpmiDevice();

    void setHandler(Handler handler);

    /// While absent, open() fails with ENOENT; descriptors opened before keep working.
    void setPresent(bool present);

    /// How long the driver waits before it answers in the place of a silent controller (the
    /// kernel's: about 4 s). Never by default. Holds for later opens.
    void setPatience(std::optional<std::chrono::milliseconds> patience);

    std::vector<IpmiRequest> requests() const;
    std::size_t opens() const;         ///< successful ones
    std::size_t refusedOpens() const;  ///< opens tried while absent
    std::size_t stillOpen() const;

 private:
    class Driver;
    const std::string path_;
    const std::shared_ptr<Driver> driver_;
};

}  // namespace tav::sim
