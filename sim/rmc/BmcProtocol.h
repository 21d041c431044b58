#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

/// The byte stream between a machine and an external management controller, as the machine emulator
/// QEMU speaks it with its external controller device: the simulated controller can serve a virtual
/// machine as well as the preloaded device.
namespace tav::sim {

using Bytes = std::vector<std::uint8_t>;

struct BmcRequest {
    std::uint8_t sequence = 0;
    std::uint8_t netFn = 0;
    std::uint8_t lun = 0;
    std::uint8_t command = 0;
    Bytes data;
};

struct BmcAnswer {
    std::uint8_t sequence = 0;
    std::uint8_t netFn = 0;  ///< of the answer: the request's plus 1
    std::uint8_t lun = 0;
    std::uint8_t command = 0;
    std::uint8_t completionCode = 0;
    Bytes data;
};

/// From the controller: whether the machine's controller interface may interrupt.
enum class BmcControl : std::uint8_t { InterruptOn = 0x05, InterruptOff = 0x06 };

Bytes encode(const BmcRequest& request);
Bytes encode(const BmcAnswer& answer);
Bytes encode(BmcControl control);

/// What stood between two end bytes, unescaped. A message includes its checksum byte.
struct BmcUnit {
    bool isControl = false;
    Bytes bytes;
};

/// Empty when the unit is a control message, too short, or its checksum is wrong.
std::optional<BmcRequest> decodeRequest(const BmcUnit& unit);
std::optional<BmcAnswer> decodeAnswer(const BmcUnit& unit);

/// Cuts the stream into units, however it arrives. A unit longer than any message is dropped.
class BmcReader {
 public:
    /// The units completed by these bytes, in order.
    std::vector<BmcUnit> take(std::span<const std::uint8_t> received);

 private:
    Bytes current_;
    bool escaped_ = false;
    bool tooLong_ = false;
};

}  // namespace tav::sim
