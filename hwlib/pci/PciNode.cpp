#include "hwlib/pci/PciNode.h"

#include <string_view>
#include <utility>

#include <fcntl.h>

#include "hwlib/pci/PciAttributes.h"

namespace {

constexpr std::uint32_t mostClassCode = 0xFFFFFF;

std::string_view lastComponent(std::string_view path) {
    while (path.ends_with('/'))
        path.remove_suffix(1);
    return path.substr(path.rfind('/') + 1);
}

}  // namespace

bool PciNode::fill(const tav::PciAttributes& attributes, std::string path, ino64_t id,
                   tav::PciIdDatabase* names) {
    const auto parsed = tav::parsePciAddress(lastComponent(path));
    if (!parsed) return false;
    address = *parsed;
    directory_ = std::move(path);
    id_ = id;
    static_cast<tav::PciIdentity&>(*this) = attributes.readIdentity();
    const bool hasVanished = !vendor && !isCurrent();
    if (hasVanished) return false;
    if (names != nullptr) attachNames(*names);
    return true;
}

void PciNode::attachNames(tav::PciIdDatabase& names) {
    if (vendor) vendorEntry = names.vendor(*vendor);
    if (vendor && device) deviceEntry = names.device(*vendor, *device);
    if (subsystemVendor) subsystemVendorEntry = names.vendor(*subsystemVendor);
    if (vendor && device && subsystemVendor && subsystemDevice) {
        subsystemEntry = names.subsystem(*vendor, *device, *subsystemVendor, *subsystemDevice);
    }
    const bool repeated = vendor == subsystemVendor && device == subsystemDevice;
    if (subsystemEntry == nullptr && repeated) subsystemEntry = deviceEntry;
    if (classCode && *classCode <= mostClassCode) classEntry = names.deviceClass(*classCode);
}

bool PciNode::isCurrent() const {
    return id_ != 0 && tav::placeId(directory_) == id_;
}

/// What has been read is the function's only if the function is still there afterwards.
template <class Read>
auto PciNode::whileCurrent(Read read) const {
    auto answer = read(tav::PciAttributes(AT_FDCWD, directory_));
    return isCurrent() ? std::move(answer) : decltype(answer)(tav::Lack::Absent);
}

tav::Answer<std::int32_t> PciNode::readInterruptLine() const {
    return whileCurrent([](const auto& attributes) { return attributes.readInterruptLine(); });
}

tav::Answer<tav::PciCapabilities> PciNode::readCapabilities() const {
    return whileCurrent([](const auto& attributes) { return attributes.readCapabilities(); });
}

tav::Answer<tav::PciVpd> PciNode::readVpd() const {
    const auto data = whileCurrent([](const auto& attributes) { return attributes.readVpd(); });
    if (!data) return data.lack();
    return tav::parsePciVpd(*data);
}

const tav::PciVpd* PciNode::keptVpd() const {
    const std::scoped_lock guard(vpdLock_);
    if (!vpd_) {
        auto read = readVpd();
        if (read) vpd_ = *std::move(read);
    }
    return vpd_ ? &*vpd_ : nullptr;
}
