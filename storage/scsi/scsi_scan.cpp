#include "storage/scsi/scsi_scan.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>
#include <mutex>
#include <unordered_map>

#include <unistd.h>

#include "base/DirectoryListing.h"
#include "core/Log.h"
#include "storage/model/storage_utils.h"

namespace tav {
namespace {

constexpr ModuleLog logger{"STOR_CTLR"};

constexpr const char* scsiDevices = "/sys/class/scsi_device/";
constexpr std::size_t pciLocationSize = 12;

using DevicesByController = std::unordered_map<std::string, std::vector<DiskAddress>>;

struct LastScan {
    std::mutex lock;
    std::shared_ptr<const DevicesByController> devices;
};
LastScan& lastScan() {
    static LastScan* const instance = new LastScan;  // outlives every thread
    return *instance;
}

void addDevice(std::string link, DevicesByController& devices) {
    const std::optional<std::string> target = linkTargetOf(scsiDevices + link);
    if (!target) {
        logger.debug(here(), "%s: readlink failed! (%d) Skipping device %s.", link.c_str(), errno,
                     link.c_str());
        return;
    }
    const std::string controller = nearestPciLocation(*target);
    if (controller.empty()) return;
    devices[controller].push_back({std::move(link), numberBehind(*target, "/ata")});
}

std::shared_ptr<const DevicesByController> listDevices() {
    DevicesByController devices;
    forEachEntry(scsiDevices, 0, [&devices](const DirectoryEntry& entry) {
        addDevice(std::string(entry.name), devices);
    });
    for (auto& [controller, list] : devices) {
        std::sort(list.begin(), list.end(),
                  [](const DiskAddress& a, const DiskAddress& b) { return a.link < b.link; });
    }
    return std::make_shared<const DevicesByController>(std::move(devices));
}

}  // namespace

std::optional<std::string> linkTargetOf(const std::string& path) {
    std::array<char, 4096> target;
    const ssize_t size = ::readlink(path.c_str(), target.data(), target.size());
    if (size < 0) return std::nullopt;
    return std::string(target.data(), static_cast<std::size_t>(size));
}

int numberBehind(const std::string& path, const char* part) {
    for (std::size_t at = path.find(part); at != std::string::npos; at = path.find(part, at + 1)) {
        int number = -1;
        const char* const first = path.data() + at + std::strlen(part);
        const auto parsed = std::from_chars(first, path.data() + path.size(), number);
        if (parsed.ec == std::errc() && number >= 0) return number;
    }
    return -1;
}

std::string nearestPciLocation(const std::string& path) {
    std::string location;
    const char* match = strstr_pcilocation(path.c_str());
    while (match != nullptr) {
        location = std::string(match + 1).substr(0, pciLocationSize);
        match = strstr_pcilocation(match + 1);
    }
    return location;
}

void scanScsiDevices() {
    auto devices = listDevices();
    const std::lock_guard<std::mutex> held(lastScan().lock);
    lastScan().devices = std::move(devices);
}

std::vector<DiskAddress> scsiDevicesBehind(const std::string& pciLocation) {
    std::shared_ptr<const DevicesByController> devices;
    {
        const std::lock_guard<std::mutex> held(lastScan().lock);
        if (!lastScan().devices) lastScan().devices = listDevices();
        devices = lastScan().devices;
    }
    const auto found = devices->find(pciLocation);
    return found == devices->end() ? std::vector<DiskAddress>() : found->second;
}

}  // namespace tav
