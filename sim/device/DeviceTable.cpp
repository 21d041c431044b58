#include "sim/device/DeviceTable.h"

#include <cerrno>
#include <map>
#include <mutex>
#include <string_view>

#include <fcntl.h>
#include <poll.h>

#include <sys/socket.h>
#include <sys/stat.h>

namespace tav::sim {
namespace {

/// Open devices are found by the inode of the program's socket: it survives dup(), and a descriptor
/// number that has been closed and used again for something else is not mistaken for the device.
struct Table {
    std::mutex lock;
    std::map<std::string, std::shared_ptr<Device>, std::less<>> devices;
    std::map<std::string, FindDevice> finders;  ///< by the prefix of their paths
    std::map<ino_t, std::shared_ptr<OpenDevice>> opened;
};

/// Never destroyed: the program may open files until its very end.
Table& table() {
    static Table* const only = new Table;
    return *only;
}

std::optional<ino_t> socketInode(int descriptor) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0 || !S_ISSOCK(status.st_mode)) return std::nullopt;
    return status.st_ino;
}

FindDevice finderOf(std::string_view path) {
    Table& known = table();
    const std::lock_guard guard(known.lock);
    for (const auto& [prefix, find] : known.finders) {
        if (path.starts_with(prefix)) return find;
    }
    return nullptr;
}

std::shared_ptr<Device> installedDevice(const char* path) {
    Table& known = table();
    const std::lock_guard guard(known.lock);
    const auto found = known.devices.find(path);
    return found == known.devices.end() ? nullptr : found->second;
}

std::shared_ptr<Device> deviceAt(const char* path) {
    if (auto device = installedDevice(path)) return device;
    const FindDevice find = finderOf(path);
    return find == nullptr ? nullptr : find(path);
}

std::shared_ptr<OpenDevice> openedAs(ino_t inode) {
    Table& known = table();
    const std::lock_guard guard(known.lock);
    const auto found = known.opened.find(inode);
    return found == known.opened.end() ? nullptr : found->second;
}

bool nothingOpen() {
    Table& known = table();
    const std::lock_guard guard(known.lock);
    return known.opened.empty();
}

void remember(ino_t inode, std::shared_ptr<OpenDevice> device) {
    Table& known = table();
    const std::lock_guard guard(known.lock);
    known.opened[inode] = std::move(device);
}

}  // namespace

bool OpenDevice::closedByProgram() const {
    pollfd watched{deviceEnd_.get(), 0, 0};
    return ::poll(&watched, 1, 0) == 1 && (watched.revents & POLLHUP) != 0;
}

void forgetClosedDevices() {
    Table& known = table();
    std::map<ino_t, std::shared_ptr<OpenDevice>> closed;  // destroyed after the lock is released
    const std::lock_guard guard(known.lock);
    for (auto entry = known.opened.begin(); entry != known.opened.end();) {
        const auto next = std::next(entry);
        if (entry->second->closedByProgram()) closed.insert(known.opened.extract(entry));
        entry = next;
    }
}

void installDevice(const std::string& path, std::shared_ptr<Device> device) {
    Table& known = table();
    const std::lock_guard guard(known.lock);
    known.devices[path] = std::move(device);
}

void installDevices(const std::string& prefix, FindDevice find) {
    Table& known = table();
    const std::lock_guard guard(known.lock);
    known.finders[prefix] = find;
}

void removeDevice(const std::string& path) {
    Table& known = table();
    const std::lock_guard guard(known.lock);
    known.devices.erase(path);
}

std::optional<int> openDevice(const char* path, int flags) {
    const std::shared_ptr<Device> device = deviceAt(path);
    if (device == nullptr) return std::nullopt;
    forgetClosedDevices();

    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return -errno;
    const int programEnd = ends[0];
    const std::optional<ino_t> inode = socketInode(programEnd);
    int error = EIO;
    std::shared_ptr<OpenDevice> opened =
        inode ? device->open(FileDescriptor(ends[1]), error) : nullptr;
    if (opened == nullptr) {
        ::close(programEnd);
        return -error;
    }
    if ((flags & O_CLOEXEC) == 0) ::fcntl(programEnd, F_SETFD, 0);
    remember(*inode, std::move(opened));
    return programEnd;
}

std::optional<int> controlDevice(int descriptor, unsigned long request, void* argument) {
    if (nothingOpen()) return std::nullopt;
    const std::optional<ino_t> inode = socketInode(descriptor);
    if (!inode) return std::nullopt;
    const std::shared_ptr<OpenDevice> device = openedAs(*inode);
    if (device == nullptr) return std::nullopt;
    return device->control(descriptor, request, argument);
}

}  // namespace tav::sim
