#include <array>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include <fcntl.h>

#include <sys/ioctl.h>

#include "base/FileDescriptor.h"
#include "core/Log.h"
#include "hwlib/sysfs/sysfs_readers.h"
#include "storage/scsi/scsi_info.h"

namespace {

using tav::here;

constexpr tav::ModuleLog logger{"SCSI_INFO"};

/// One request of the Common Storage Management Interface: its ioctl code, and how many bytes its
/// data takes.
struct CsmiRequest {
    const char* name;
    unsigned long code;
    std::uint32_t dataLength;
};

constexpr CsmiRequest controllerConfiguration{"controller configuration", 0xCC770002, 0xB4};
constexpr CsmiRequest scsiAddress{"SCSI address", 0xCC770021, 0x14};
constexpr CsmiRequest connectorInformation{"connector information", 0xCC770024, 0x480};
constexpr CsmiRequest location{"location", 0xCC770025, 0x480};

/// The header in front of every request's data, in the machine's byte order.
struct CsmiHeader {
    std::uint32_t controllerNumber;
    std::uint32_t length;
    std::uint32_t returnCode;  ///< 0: success
    std::uint32_t timeout;     ///< seconds
    std::uint16_t direction;   ///< 0: the data is read
};
static_assert(sizeof(CsmiHeader) == 20);

using SasAddress = std::array<unsigned char, 8>;

std::optional<unsigned> hexDigit(char character) {
    constexpr std::string_view digits = "0123456789abcdef";
    const auto lower = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    const std::size_t value = digits.find(lower);
    return value == std::string_view::npos ? std::nullopt
                                           : std::optional(static_cast<unsigned>(value));
}

std::optional<SasAddress> parseSasAddress(std::string_view text) {
    SasAddress address{};
    if (text.size() != 2 * address.size()) return std::nullopt;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto digit = hexDigit(text[i]);
        if (!digit) return std::nullopt;
        const unsigned before = address[i / 2];
        address[i / 2] = static_cast<unsigned char>(before << 4U | *digit);
    }
    return address;
}

/// Sends the request with `data` in front of the zeros behind its header.
unsigned char* ask(const char* device, std::uint32_t controller, const CsmiRequest& request,
                   const SasAddress& data = {}) {
    constexpr std::uint32_t timeoutSeconds = 60;
    const tav::FileDescriptor node(::open(device, O_RDONLY | O_CLOEXEC));
    tav::OwnedBytes buffer(static_cast<unsigned char*>(std::calloc(1, csmiBufferSize)));
    if (!node.isOpen() || buffer == nullptr) return nullptr;
    CsmiHeader header{controller, request.dataLength, 0, timeoutSeconds, 0};
    std::memcpy(buffer.get(), &header, sizeof header);
    std::memcpy(buffer.get() + sizeof header, data.data(), data.size());

    const int result = ::ioctl(node.get(), request.code, buffer.get());
    std::memcpy(&header, buffer.get(), sizeof header);
    if (result >= 0 && header.returnCode == 0) return buffer.release();
    logger.debug(here(), "CSMI request for %s to %s failed. (%d, %u)", request.name, device, result,
                 header.returnCode);
    return nullptr;
}

}  // namespace

unsigned char* SasGetHbaConfig(const char* device, std::uint32_t controller) {
    return ask(device, controller, controllerConfiguration);
}

unsigned char* SasGetScsiAddress(const char* device, std::uint32_t controller,
                                 const char* sasAddress) {
    const auto address = parseSasAddress(sasAddress);
    return address ? ask(device, controller, scsiAddress, *address) : nullptr;
}

unsigned char* SasGetHbaConnector(const char* device, std::uint32_t controller) {
    return ask(device, controller, connectorInformation);
}

unsigned char* SasGetLocation(const char* device, std::uint32_t controller) {
    return ask(device, controller, location);
}
