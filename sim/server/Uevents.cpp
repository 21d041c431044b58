#include "sim/server/Uevents.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <linux/netlink.h>
#include <sys/socket.h>

#include "base/FileDescriptor.h"

namespace tav::sim {

/// Whoever owns a network may send the kernel a message, which it numbers and sends on as its own.
void sendUevent(const std::string& action, const std::string& path, const std::string& subsystem) {
    const std::string ended(1, '\0');
    const std::string text = action + '@' + path + ended + "ACTION=" + action + ended +
                             "DEVPATH=" + path + ended + "SUBSYSTEM=" + subsystem + ended;
    nlmsghdr header{};
    header.nlmsg_len = static_cast<unsigned>(NLMSG_LENGTH(text.size()));
    header.nlmsg_type = NLMSG_MIN_TYPE;
    header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    std::string message(reinterpret_cast<const char*>(&header), sizeof header);
    message += text;

    const FileDescriptor socket(
        ::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT));
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    struct {
        nlmsghdr header;
        nlmsgerr result;
    } answer{};
    if (::sendto(socket.get(), message.data(), message.size(), 0,
                 reinterpret_cast<const sockaddr*>(&kernel), sizeof kernel) < 0 ||
        ::recv(socket.get(), &answer, sizeof answer, 0) < 0) {
        answer.result.error = -errno;
    }
    if (answer.result.error != 0) {
        throw std::runtime_error(std::string("the kernel does not tell of devices for us: ") +
                                 std::strerror(-answer.result.error));
    }
}

}  // namespace tav::sim
