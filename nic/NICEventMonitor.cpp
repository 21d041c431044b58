#include "nic/NICEventMonitor.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>

#include "base/Threads.h"
#include "core/Log.h"
#include "nic/NICPhysicalAdapter.h"
#include "nic/NICResourceManager.h"
#include "nic/NicTables.h"

using tav::here;

namespace {

constexpr tav::ModuleLog logger{"NIC_EVENT"};

/// Bytes of notifications that the kernel keeps for us: those of some 2,000 links.
constexpr int receiveBufferSize = 4 << 20;
constexpr std::size_t linkTargetSize = 512;
constexpr const char* startFailed =
    "Unable to start the monitoring service for the ethernet instances: %s";

/// The target of the interface's link in sysfs; empty when it has none (any more).
std::string sysfsTarget(const char* name) {
    std::array<char, linkTargetSize> target{};
    const std::string path = std::string("/sys/class/net/") + name;
    const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
    return length < 0 ? std::string()
                      : std::string(target.data(), static_cast<std::size_t>(length));
}

/// Whether a link is up or down needs neither its cable's type nor its driver, which may hang.
tav::NicCondition conditionOfLink(unsigned flags) {
    const tav::AdapterCondition& condition =
        tav::conditionOf(tav::adapterStatus(tav::linkTextOf(flags), ""));
    return {tav::displayText(condition.state), tav::displayText(condition.health)};
}

/// Tells the manager of an interface that is not as the inventory has it.
void reviewLink(const char* name, unsigned flags, const tav::NicCondition& cached) {
    if (!NICPhysicalAdapter::linkFlags(name)) return;  // it has vanished
    const tav::NicCondition now = conditionOfLink(flags);
    if (now == cached) {
        logger.debug(here(),
                     "Ignoring state change notification for interface: %2s as no state change "
                     "detected",
                     name);
        return;
    }
    if (logger.writesDebug()) {
        logger.debug(here(),
                     "get<1> = %s, get<2>=%s, _existingStatus[0] = %s, _existingStatus[1] = %s",
                     std::get<1>(NICPhysicalAdapter().get_ethtool_info(name)).c_str(),
                     now.health.c_str(), cached.state.c_str(), cached.health.c_str());
    }
    NICResourceManager::getInstance()->updateStateAndHealth(name, now.state, now.health);
}

/// Whatever is learnt of a link, by a notification or by asking, passes the same filters.
void applyFlags(const char* name, unsigned flags) {
    if (const char* const kind = tav::nonPhysicalKind(sysfsTarget(name)); kind != nullptr) {
        logger.debug(here(),
                     "Interface : %2s went for change of state. Ignoring as it is a %s interface",
                     name, kind);
        return;
    }
    logger.debug(here(), "Interface : %2s went for change of state", name);
    if (tav::isTransient(flags)) {
        logger.debug(here(), "Skipping transient event for Interface = %2s, ifimsg->ifi_flags = %x",
                     name, flags);
        return;
    }
    const auto cached = NICResourceManager::getInstance()->getHealthOfIntf(name);
    if (!cached) {
        logger.debug(here(),
                     "State change detected for interface : %2s. Ignoring as it is not part of TAV "
                     "inventory",
                     name);
        return;
    }
    reviewLink(name, flags, *cached);
}

}  // namespace

void tav::applyLinkMessage(const LinkMessage& message) {
    std::array<char, IF_NAMESIZE> name{};
    if (::if_indextoname(static_cast<unsigned>(message.interfaceIndex), name.data()) == nullptr)
        return;  // it has vanished
    applyFlags(name.data(), message.flags);
}

void tav::reviewAllLinks() {
    for (const PhyAdapterInventory& adapter :
         NICResourceManager::getInstance()->getNICInventory()) {
        const char* const name = adapter.getIntfName().c_str();
        if (const auto flags = NICPhysicalAdapter::linkFlags(name)) applyFlags(name, *flags);
    }
}

NICEventMonitor& NICEventMonitor::instance() {
    static NICEventMonitor* const monitor = new NICEventMonitor;  // outlives every thread
    return *monitor;
}

int NICEventMonitor::startMonitoring() {
    NICEventMonitor& monitor = instance();
    if (monitor.netlinkThread_.joinable()) {
        logger.error(here(), startFailed, "it has been started already");
        return -1;
    }
    monitor.slots_.restart();
    monitor.stopProducer_ = false;
    monitor.stopSignal_.withdraw();
    monitor.told_.reset();
    logger.debug(here(), "Creating a producer thread");
    int error = tav::startThread(monitor.netlinkThread_, "tav-link-recv",
                                 [&monitor] { monitor.startNetCheck(); });
    if (error == 0) {
        logger.debug(here(), "Creating a consumer thread");
        error = tav::startThread(monitor.netlinkConsumerThread_, "tav-link-apply", [&monitor] {
            const tav::StopScope scope(&monitor.stopSignal_);
            monitor.processNICEvents();
        });
    }
    if (error == 0) return 0;
    logger.error(here(), startFailed, std::strerror(error));
    stopMonitoring();
    return -1;
}

int NICEventMonitor::stopMonitoring() {
    logger.debug(here(), "Stopping event monitoring for Ethernet");
    const int result = requestStop();
    NICEventMonitor& monitor = instance();
    tav::joinThread(monitor.netlinkThread_);
    tav::joinThread(monitor.netlinkConsumerThread_);
    monitor.told_.reset();
    return result;
}

int NICEventMonitor::requestStop() {
    NICEventMonitor& monitor = instance();
    monitor.receiverWatch_.ends();
    monitor.applierWatch_.ends();
    monitor.stopSignal_.request();
    monitor.slots_.stop();
    if (!monitor.told_) monitor.told_ = monitor.wakeProducer();
    return *monitor.told_;
}

/// Asks the receiving thread to end. One that has not opened its pipe yet sees the flag instead.
int NICEventMonitor::wakeProducer() {
    const std::lock_guard<std::mutex> held(pipeLock_);
    stopProducer_ = true;
    if (!pipeWriteEnd_.isOpen()) {
        logger.error(here(), "Invalid file descriptor");
        return -1;
    }
    const ssize_t written = ::write(pipeWriteEnd_.get(), "S", 1);
    if (written == 1) return 0;
    logger.error(here(), "Unable to write to pipe fd, result: %d, Error: %s",
                 static_cast<int>(written), std::strerror(errno));
    return -1;
}

bool NICEventMonitor::openDescriptors() {
    const std::lock_guard<std::mutex> held(pipeLock_);
    if (stopProducer_) return false;
    netlink_.reset(::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (!netlink_.isOpen()) {
        logger.error(here(), "socket call to monitor ethernet device failed: %s",
                     std::strerror(errno));
        return false;
    }
    // A smaller buffer overruns sooner, and nothing else.
    ::setsockopt(netlink_.get(), SOL_SOCKET, SO_RCVBUFFORCE, &receiveBufferSize,
                 sizeof receiveBufferSize);
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK;
    if (::bind(netlink_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        logger.error(here(), "bind call to monitor ethernet device failed: %s",
                     std::strerror(errno));
        return false;
    }
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        logger.error(here(), "Unable to open a pipe for pipefd file descriptor");
        return false;
    }
    pipeReadEnd_.reset(ends[0]);
    pipeWriteEnd_.reset(ends[1]);
    return true;
}

void NICEventMonitor::closeDescriptors() {
    const std::lock_guard<std::mutex> held(pipeLock_);
    netlink_.reset();
    pipeReadEnd_.reset();
    pipeWriteEnd_.reset();
}

void NICEventMonitor::startNetCheck() {
    if (!openDescriptors()) {
        closeDescriptors();
        return;
    }
    slots_.reportMissed();  // the kernel tells nobody what was before
    try {
        receiveUntilStopped();
    } catch (const std::bad_alloc&) {
        logger.error(here(), "Unable to allocate Memory for Ethernet Event");
    }
    closeDescriptors();
}

void NICEventMonitor::receiveUntilStopped() {
    std::array<pollfd, 2> watched = {pollfd{netlink_.get(), POLLIN, 0},
                                     pollfd{pipeReadEnd_.get(), POLLIN, 0}};
    tav::Notification buffer(tav::NotificationSlots::slotSize);
    receiverWatch_.begins();
    while (true) {
        receiverWatch_.waits();
        const int ready = ::poll(watched.data(), watched.size(), -1);
        receiverWatch_.works();
        if (ready <= 0) {
            logger.debug(here(), "Error in select(): %s", std::strerror(errno));
            std::this_thread::yield();
            continue;
        }
        if (watched[1].revents != 0) return;
        if (watched[0].revents != 0) receiveAll(watched[0].fd, buffer);
    }
}

/// Empties the socket. Once its buffer has overrun (ENOBUFS), the kernel drops what follows without
/// a word until all that was in it has been read: only then is there something to be made up for.
void NICEventMonitor::receiveAll(int socket, tav::Notification& buffer) {
    bool isMissed = false;
    while (!slots_.isStopped()) {
        const int error = receive(socket, buffer);
        if (error == EAGAIN) break;
        isMissed |= error != 0;
        if (error != 0 && error != ENOBUFS) break;
    }
    if (isMissed) slots_.reportMissed();
}

/// Receives one batch and posts it; 0, or the error number.
int NICEventMonitor::receive(int socket, tav::Notification& buffer) {
    logger.debug(here(), "Waiting for event notification from netlink");
    ssize_t received = 0;
    do {
        received = ::recv(socket, buffer.data(), buffer.size(), MSG_DONTWAIT);
    } while (received < 0 && errno == EINTR);
    if (received < 0) {
        const int error = errno;
        if (error != EAGAIN) logger.warning(here(), "recv failed : %s", std::strerror(error));
        return error;
    }
    logger.debug(here(), "recv() returned : %d", static_cast<int>(received));
    NICEventList({buffer.begin(), buffer.begin() + received});
    return 0;
}

void NICEventMonitor::NICEventList(tav::Notification notification) {
    if (slots_.post(std::move(notification))) {
        std::this_thread::yield();
    } else if (!slots_.isStopped()) {
        logger.debug(here(), "Event Droped as consumer is slow to consume events");
    }
}

void NICEventMonitor::processNICEvents() {
    consumeEventList();
}

void NICEventMonitor::consumeEventList() {
    applierWatch_.begins();
    while (true) {
        applierWatch_.waits();
        const tav::NotificationSlots::Work work = slots_.take();
        applierWatch_.works();
        if (work.stopped) return;
        for (const tav::Notification& notification : work.notifications)
            apply(notification);
        if (work.missed && !slots_.isStopped()) tav::reviewAllLinks();
    }
}

void NICEventMonitor::apply(const tav::Notification& notification) {
    for (const tav::LinkMessage& message : tav::decodeLinkMessages(notification)) {
        if (slots_.isStopped()) return;
        tav::applyLinkMessage(message);
    }
}
