/// Sends commands through /dev/ipmi0 as any program would: SendCommand NAME PAYLOAD [COUNT], or
/// SendCommand --door-bell. Prints the last answer's completion code and data in hexadecimal.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>

#include <linux/ipmi.h>
#include <sys/ioctl.h>

#include "base/FileDescriptor.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes exchange(int device, unsigned char command, Bytes data) {
    ipmi_system_interface_addr address{IPMI_SYSTEM_INTERFACE_ADDR_TYPE, IPMI_BMC_CHANNEL, 0};
    ipmi_req request{};
    request.addr = reinterpret_cast<unsigned char*>(&address);
    request.addr_len = sizeof address;
    request.msg = {0x3A, command, static_cast<unsigned short>(data.size()), data.data()};
    if (::ioctl(device, IPMICTL_SEND_COMMAND, &request) != 0) return {};
    pollfd watched{device, POLLIN, 0};
    if (::poll(&watched, 1, 20'000) != 1) return {};
    Bytes answer(272);
    ipmi_addr sender{};
    ipmi_recv received{};
    received.addr = reinterpret_cast<unsigned char*>(&sender);
    received.addr_len = sizeof sender;
    received.msg.data = answer.data();
    received.msg.data_len = static_cast<unsigned short>(answer.size());
    if (::ioctl(device, IPMICTL_RECEIVE_MSG_TRUNC, &received) != 0) return {};
    answer.resize(received.msg.data_len);
    return answer;
}

Bytes sendCommand(int device, const std::string& name, const std::string& payload) {
    const std::size_t length = payload.size() + 1;
    Bytes answer;
    for (std::size_t sent = 0; sent < length;) {
        const bool first = sent == 0;
        const std::size_t offset = first ? 27 : 3;
        Bytes frame(60);
        if (first) {
            frame[2] = 0x14;
            std::memcpy(&frame[3], name.data(), name.size());
            for (unsigned byte = 0; byte < 4; ++byte) {
                frame[23 + byte] = static_cast<unsigned char>(length >> (8 * byte));
            }
        } else {
            frame[0] = answer[2];
            frame[1] = answer[3];
        }
        const std::size_t part = std::min(60 - offset, length - sent);
        std::memcpy(&frame[offset], payload.c_str() + sent, part);
        sent += part;
        answer = exchange(device, 0x80, frame);
        if (answer.size() < 5 || answer[0] != 0 || answer[1] > 2) break;
    }
    return answer;
}

}  // namespace

int main(int argc, char** argv) {
    const tav::FileDescriptor device(::open("/dev/ipmi0", O_RDWR | O_CLOEXEC));
    if (!device.isOpen() || argc < 2) {
        std::perror("/dev/ipmi0");
        return 1;
    }
    Bytes answer;
    if (argc == 2) {
        answer = exchange(device.get(), 0x81, {});
    } else {
        const long count = argc > 3 ? std::strtol(argv[3], nullptr, 10) : 1;
        for (long sent = 0; sent < count; ++sent)
            answer = sendCommand(device.get(), argv[1], argv[2]);
    }
    for (const unsigned char byte : answer)
        std::printf("%02X", byte);
    std::printf("\n");
    return 0;
}
