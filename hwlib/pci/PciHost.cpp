#include "hwlib/pci/PciHost.h"

#include <string>
#include <utility>

#include <sys/stat.h>

#include "hwlib/pci/PciScan.h"

namespace tav {
namespace {

constexpr const char* devicesDirectory = "/sys/bus/pci/devices/";

/// What stands in the kernel's list at the address; 0 when nothing does.
ino64_t listed(const PciAddress& address) {
    struct stat64 data;
    const std::string path = devicesDirectory + textOf(address);
    return ::lstat64(path.c_str(), &data) == 0 ? data.st_ino : 0;
}

void collectBelow(const PciNode& node, std::map<PciAddress, const PciNode*>& functions) {
    for (const auto& child : node.children) {
        functions.emplace(child->address, child.get());
        collectBelow(*child, functions);
    }
}

}  // namespace

PciHost::PciHost(std::function<PciIdDatabasePtr()> loadNames) : loadNames_(std::move(loadNames)) {}

void PciHost::scan() {
    const PciIdDatabasePtr names = loadNames_();
    auto generation = std::make_shared<Generation>();
    PciScan scan(names.get());
    scan.addBelow(generation->root, devicesDirectory);
    generation->unreadable = scan.unreadable();
    collectBelow(generation->root, generation->functions);
    generation_ = std::move(generation);
    ++scans_;
}

void PciHost::prepare() {
    if (generation_ == nullptr) scan();
}

PciNodePtr PciHost::findCurrent(const PciAddress& address) const {
    const auto found = generation_->functions.find(address);
    if (found == generation_->functions.end() || !found->second->isCurrent()) return nullptr;
    return {generation_, found->second};
}

Answer<PciNodePtr> PciHost::find(const PciAddress& address) {
    const std::scoped_lock guard(lock_);
    prepare();
    if (PciNodePtr node = findCurrent(address)) return node;
    const ino64_t id = listed(address);
    if (id == 0) return Lack::Absent;
    const auto tried = generation_->unreadable.find(address);
    if (tried != generation_->unreadable.end() && tried->second == id) return Lack::Refused;
    scan();
    if (PciNodePtr node = findCurrent(address)) return node;
    return Lack::Refused;
}

PciNodePtr PciHost::tree() {
    const std::scoped_lock guard(lock_);
    prepare();
    return {generation_, &generation_->root};
}

void PciHost::refresh() {
    const std::scoped_lock guard(lock_);
    scan();
}

unsigned PciHost::scans() const {
    const std::scoped_lock guard(lock_);
    return scans_;
}

PciHost& defaultPciHost() {
    static PciHost host([] {
        scan_hw_ids();
        return defaultPciIds();
    });
    return host;
}

}  // namespace tav
