#include "sim/device/IpmiFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <sys/ioctl.h>
#include <sys/socket.h>

namespace tav::sim {
namespace {

constexpr std::size_t addressLength = sizeof(ipmi_system_interface_addr);

/// 0, or why the driver refuses the address. The driver looks at the length before anything else.
int checkAddress(const unsigned char* address, unsigned length, std::uint8_t& lun) {
    if (length < addressLength || length > sizeof(ipmi_addr)) return EINVAL;
    ipmi_system_interface_addr given{};
    std::memcpy(&given, address, sizeof given);
    if (given.addr_type != IPMI_SYSTEM_INTERFACE_ADDR_TYPE) return EINVAL;
    if (given.channel != IPMI_BMC_CHANNEL || given.lun > 3) return EINVAL;
    lun = given.lun;
    return 0;
}

int checkMessage(const ipmi_msg& message) {
    if ((message.netfn & 1) != 0) return EINVAL;
    if (message.data_len + 2 > IPMI_MAX_MSG_LENGTH) return EMSGSIZE;
    return message.data_len != 0 && message.data == nullptr ? EFAULT : 0;
}

}  // namespace

IpmiFile::IpmiFile(FileDescriptor deviceEnd, unsigned open, IpmiBackend& backend,
                   std::optional<std::chrono::milliseconds> patience)
    : OpenDevice(std::move(deviceEnd)), open_(open), backend_(backend), patience_(patience) {}

int IpmiFile::control(int descriptor, unsigned long request, void* argument) {
    if (argument == nullptr) return -EFAULT;
    switch (request) {
        case IPMICTL_SEND_COMMAND:
            return -send(*static_cast<const ipmi_req*>(argument));
        case IPMICTL_RECEIVE_MSG:
            return -receive(descriptor, *static_cast<ipmi_recv*>(argument), false);
        case IPMICTL_RECEIVE_MSG_TRUNC:
            return -receive(descriptor, *static_cast<ipmi_recv*>(argument), true);
        default:
            return -ENOTTY;
    }
}

int IpmiFile::send(const ipmi_req& given) {
    IpmiRequest request;
    if (const int error = checkAddress(given.addr, given.addr_len, request.lun)) return error;
    if (const int error = checkMessage(given.msg)) return error;
    request.netFn = given.msg.netfn;
    request.command = given.msg.cmd;
    request.msgid = given.msgid;
    request.open = open_;
    request.data.assign(given.msg.data, given.msg.data + given.msg.data_len);

    std::uint64_t number = 0;
    {
        const std::lock_guard guard(lock_);
        if (outstanding_.size() >= maximumOutstanding) return EBUSY;
        number = ++lastNumber_;
        Outstanding& waiting = outstanding_[number];
        waiting.request = request;
        if (patience_) waiting.deadline = Clock::now() + *patience_;
    }
    const int error = backend_.submit(*this, number, request);
    if (error != 0) finish(number);
    return error;
}

int IpmiFile::receive(int descriptor, ipmi_recv& wanted, bool truncate) {
    const std::lock_guard guard(lock_);
    if (messages_.empty()) return EAGAIN;
    const Message& message = messages_.front();
    if (message.receiveError != 0) {
        const int error = message.receiveError;
        consumeFirst(descriptor);
        return error;
    }
    if (wanted.addr_len < addressLength) return EINVAL;
    const bool tooLong = message.data.size() > wanted.msg.data_len;
    if (tooLong && !truncate) return EMSGSIZE;

    ipmi_system_interface_addr sender{};
    sender.addr_type = IPMI_SYSTEM_INTERFACE_ADDR_TYPE;
    sender.channel = IPMI_BMC_CHANNEL;
    sender.lun = message.lun;
    std::memcpy(wanted.addr, &sender, sizeof sender);
    wanted.addr_len = addressLength;
    wanted.recv_type = message.receiveType;
    wanted.msgid = message.msgid;
    wanted.msg.netfn = message.netFn;
    wanted.msg.cmd = message.command;
    const std::size_t copied = std::min<std::size_t>(message.data.size(), wanted.msg.data_len);
    std::copy_n(message.data.begin(), copied, wanted.msg.data);
    wanted.msg.data_len = static_cast<unsigned short>(copied);
    consumeFirst(descriptor);
    return tooLong ? EMSGSIZE : 0;
}

std::optional<IpmiRequest> IpmiFile::finish(std::uint64_t number) {
    const std::lock_guard guard(lock_);
    auto found = outstanding_.extract(number);
    if (found.empty()) return std::nullopt;
    return std::move(found.mapped().request);
}

void IpmiFile::deliver(const IpmiRequest& asked, const IpmiAnswer& answer) {
    const std::lock_guard guard(lock_);
    deliverLocked(asked, answer);
}

void IpmiFile::deliverLocked(const IpmiRequest& asked, const IpmiAnswer& answer) {
    Message message;
    message.netFn = asked.netFn | 1;
    message.lun = asked.lun;
    message.command = asked.command;
    message.msgid = asked.msgid + answer.msgidOffset;
    message.receiveError = answer.receiveError;
    message.receiveType = answer.receiveType;
    message.data.push_back(answer.completionCode);
    message.data.insert(message.data.end(), answer.data.begin(), answer.data.end());
    // One byte lies in the program's end while messages wait, however many.
    if (messages_.empty()) ::send(deviceEnd(), "", 1, MSG_DONTWAIT | MSG_NOSIGNAL);
    messages_.push_back(std::move(message));
}

void IpmiFile::consumeFirst(int descriptor) {
    messages_.pop_front();
    char signal = 0;
    if (messages_.empty()) ::recv(descriptor, &signal, 1, MSG_DONTWAIT);
}

std::optional<IpmiFile::Clock::time_point> IpmiFile::giveUpOverdue(Clock::time_point now) {
    const std::lock_guard guard(lock_);
    std::optional<Clock::time_point> next;
    for (auto entry = outstanding_.begin(); entry != outstanding_.end();) {
        const auto following = std::next(entry);
        const auto deadline = entry->second.deadline;
        if (deadline && *deadline <= now) {
            deliverLocked(entry->second.request, IpmiAnswer{gaveUp, {}, 0, 0});
            outstanding_.erase(entry);
        } else if (deadline && (!next || *deadline < *next)) {
            next = deadline;
        }
        entry = following;
    }
    return next;
}

}  // namespace tav::sim
