#include "hwlib/pci/pci.h"

#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include <fcntl.h>

#include <sys/stat.h>

#include "base/DirectoryListing.h"
#include "base/FileDescriptor.h"
#include "base/FileReading.h"
#include "hwlib/pci/pci_config.h"
#include "hwlib/sysfs/SysfsNumbers.h"

namespace {

using tav::FileDescriptor;
using tav::SysfsFormat;

constexpr const char* devicesDirectory = "/sys/bus/pci/devices/";
constexpr std::size_t vpdLimit = 4096;
constexpr std::uint32_t mostClassCode = 0xFFFFFF;

/// Base classes and subclasses of the functions that have a bus behind them.
constexpr std::uint16_t bridgeClasses[] = {0x0604, 0x0607, 0x0609};

std::string_view lastComponent(std::string_view path) {
    while (path.ends_with('/'))
        path.remove_suffix(1);
    return path.substr(path.rfind('/') + 1);
}

FileDescriptor openDirectory(const std::string& path) {
    return FileDescriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

/// What tells a directory from any other that had its name before; 0 when there is no such. The
/// kernel's numbers need 64 bits in a 32-bit process too. `path` may be relative to `parent`.
ino64_t idOf(int parent, const std::string& path) {
    struct stat64 data;
    const bool isDirectory =
        ::fstatat64(parent, path.c_str(), &data, 0) == 0 && S_ISDIR(data.st_mode);
    return isDirectory ? data.st_ino : 0;
}

/// Takes "8086:0D57" apart; leaves the ids alone when they are not that.
void parseIds(std::string_view text, std::uint16_t& vendor, std::uint16_t& device) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) return;
    const auto high = tav::scanNumber<std::uint16_t>(text, SysfsFormat::Hexadecimal);
    const auto low =
        tav::scanNumber<std::uint16_t>(text.substr(colon + 1), SysfsFormat::Hexadecimal);
    if (!high || !low) return;
    vendor = *high;
    device = *low;
}

/// The file "uevent" repeats what five other attributes say. Reading it instead of those halves the
/// cost of a scan.
void parseEvent(std::string_view text, PciNode& node) {
    constexpr std::string_view classField = "PCI_CLASS=";
    constexpr std::string_view idField = "PCI_ID=";
    constexpr std::string_view subsystemField = "PCI_SUBSYS_ID=";
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (line.starts_with(classField)) {
            node.classCode = tav::scanNumber<std::uint32_t>(line.substr(classField.size()),
                                                            SysfsFormat::Hexadecimal)
                                 .value_or(node.classCode);
        } else if (line.starts_with(idField)) {
            parseIds(line.substr(idField.size()), node.vendor, node.device);
        } else if (line.starts_with(subsystemField)) {
            parseIds(line.substr(subsystemField.size()), node.subsystemVendor,
                     node.subsystemDevice);
        }
    }
}

/// Where a function's attributes are: short ways from an open directory spare the kernel long ones.
struct Attributes {
    int parent;
    std::string prefix;  ///< "0000:3b:00.1/"

    std::string pathOf(const char* name) const { return prefix + name; }
    FileDescriptor open(const char* name) const {
        return FileDescriptor(tav::openForReading(parent, pathOf(name).c_str()));
    }
};

/// Reads an attribute whose value is not known yet.
template <class Number>
void readMissing(const Attributes& attributes, const char* name, Number& value) {
    if (value != tav::noSysfsValue<Number>) return;
    tav::_get_sysfs_numeric(attributes.parent, attributes.pathOf(name).c_str(),
                            SysfsFormat::Hexadecimal, &value);
}

void readAttributes(PciNode& node, const Attributes& attributes) {
    std::array<char, tav::attributeLimit> event;
    const std::string path = attributes.pathOf("uevent");
    parseEvent({event.data(), tav::readFileOnce(attributes.parent, path.c_str(), event)}, node);
    readMissing(attributes, "vendor", node.vendor);
    readMissing(attributes, "device", node.device);
    readMissing(attributes, "subsystem_vendor", node.subsystemVendor);
    readMissing(attributes, "subsystem_device", node.subsystemDevice);
    readMissing(attributes, "class", node.classCode);
}

/// Whether the function has a bus behind it, as its class tells, or else its header.
bool isBridge(const PciNode& node, const Attributes& attributes) {
    if (node.classCode <= mostClassCode)
        return std::ranges::count(bridgeClasses, node.classCode >> 8) > 0;
    const FileDescriptor configFile = attributes.open("config");
    std::array<std::byte, pciConfigSize> config{};
    return !tav::readConfigHeaderType(configFile.get(), config) || *tav::hasBridgeHeader(config);
}

/// Since Linux 4.10 the kernel tells it without asking the function.
void readRevision(PciNode& node, const Attributes& attributes) {
    readMissing(attributes, "revision", node.revision);
    if (node.revision != tav::noSysfsValue<std::uint8_t>) return;
    const FileDescriptor configFile = attributes.open("config");
    std::array<std::byte, pciConfigSize> config{};
    if (tav::readConfigRevision(configFile.get(), config)) node.revision = pci_get_revision(config);
}

void attachNames(PciNode& node) {
    const bool known = node.vendor != 0xFFFF;
    const bool knownSubsystem = node.subsystemVendor != 0xFFFF;
    if (known) {
        node.vendorEntry = vendor_search(node.vendor);
        node.deviceEntry = device_search(node.vendor, node.device);
    }
    if (knownSubsystem) node.subsystemVendorEntry = vendor_search(node.subsystemVendor);
    if (known && knownSubsystem) {
        node.subsystemEntry =
            subsystem_search(node.vendor, node.device, node.subsystemVendor, node.subsystemDevice);
    }
    const bool repeated =
        node.vendor == node.subsystemVendor && node.device == node.subsystemDevice;
    if (node.subsystemEntry == nullptr && repeated) node.subsystemEntry = node.deviceEntry;
    if (node.classCode <= mostClassCode) node.classEntry = class_search(node.classCode);
}

std::vector<std::byte> readVpd(int directory) {
    std::vector<std::byte> vpd(vpdLimit);
    std::size_t length = 0;
    const FileDescriptor file(tav::openForReading(directory, "vpd"));
    while (file.isOpen() && length < vpd.size()) {
        const std::size_t count =
            tav::readOnceAt(file.get(), std::span(vpd).subspan(length), length);
        if (count == 0) break;
        length += count;
    }
    vpd.resize(length);
    return vpd;
}

/// Whether a link of the list of all functions leads to one that has a bridge above it.
bool leadsBehindBridge(const std::string& link) {
    const std::string target = tav::linkTarget(link.c_str());
    const std::size_t slash = target.rfind('/');
    if (slash == std::string::npos) return false;
    const std::string_view above = lastComponent(std::string_view(target).substr(0, slash));
    return tav::parsePciAddress(above).has_value();
}

struct Function {
    PciAddress address;
    std::string name;
    ino64_t id;  ///< see idOf(); 0 where only the end of a link has one
};

/// The functions in a directory. Only the list of all functions consists of links; a link in a
/// bridge's own directory would lead anywhere.
std::vector<Function> functionsIn(const FileDescriptor& directory, bool isListOfAll) {
    std::vector<Function> functions;
    tav::forEachEntry(directory, [&](const tav::DirectoryEntry& entry) {
        const auto address = tav::parsePciAddress(entry.name);
        const bool isLink = entry.kind == DT_LNK;
        if (!address || (entry.kind != DT_DIR && !(isLink && isListOfAll))) return;
        functions.push_back({*address, std::string(entry.name), isLink ? 0 : entry.inode});
    });
    std::ranges::sort(functions, {}, &Function::address);
    return functions;
}

struct Tree {
    PciNode root;
};

std::mutex treeLock;
std::shared_ptr<const Tree> hostTree;

void collectBelow(const PciNode& node, std::set<PciAddress>& addresses) {
    for (const auto& child : node.children) {
        addresses.insert(child->address);
        collectBelow(*child, addresses);
    }
}

const PciNode* findBelow(const PciNode& node, const PciAddress& address) {
    for (const auto& child : node.children) {
        if (child->address == address) return child.get();
        if (const PciNode* const found = findBelow(*child, address)) return found;
    }
    return nullptr;
}

const PciNode* findCurrent(const std::shared_ptr<const Tree>& tree, const PciAddress& address) {
    const PciNode* const node = tree == nullptr ? nullptr : findBelow(tree->root, address);
    return node != nullptr && node->isCurrent() ? node : nullptr;
}

bool isPresent(const PciAddress& address) {
    return ::access((devicesDirectory + tav::textOf(address)).c_str(), F_OK) == 0;
}

std::shared_ptr<const Tree> scanHost() {
    scan_hw_ids();
    auto tree = std::make_shared<Tree>();
    pci_node_scan(tree->root, devicesDirectory);
    return tree;
}

}  // namespace

/// A function's directory and what it was when it was found. Of one that has been replaced since,
/// the node holds what could be read, and is not current.
struct PciNode::Place {
    Attributes attributes;
    std::string path;
    ino64_t id;
};

bool PciNode::fill(const Place& place) {
    const auto parsed = tav::parsePciAddress(lastComponent(place.path));
    if (!parsed || place.id == 0) return false;
    address = *parsed;
    directory_ = place.path;
    directoryId_ = place.id;
    readAttributes(*this, place.attributes);
    const bool hasVanished = vendor == tav::noSysfsValue<std::uint16_t> && !isCurrent();
    if (hasVanished) return false;
    readRevision(*this, place.attributes);
    mayHaveChildren_ = isBridge(*this, place.attributes);
    attachNames(*this);
    return true;
}

bool fill_pci_node(PciNode& node, const char* dir) {
    const std::string path = dir;
    const ino64_t id = idOf(AT_FDCWD, path);
    Attributes attributes{AT_FDCWD, path + '/'};
    return node.fill({std::move(attributes), path, id});
}

int pci_node_scan(PciNode& node, const char* dir) {
    int count = 0;
    std::string path = dir;
    if (!path.ends_with('/')) path += '/';
    const FileDescriptor directory = openDirectory(path);
    const bool isListOfAll = node.parent == nullptr;
    std::set<PciAddress> known;
    if (isListOfAll) collectBelow(node, known);
    for (const Function& function : functionsIn(directory, isListOfAll)) {
        const std::string childPath = path + function.name;
        if (isListOfAll && (known.contains(function.address) || leadsBehindBridge(childPath)))
            continue;
        auto child = std::make_unique<PciNode>();
        child->parent = &node;
        const ino64_t id = function.id != 0 ? function.id : idOf(directory.get(), function.name);
        Attributes attributes{directory.get(), function.name + '/'};
        if (!child->fill({std::move(attributes), childPath, id})) continue;
        ++count;
        if (child->mayHaveChildren_) count += pci_node_scan(*child, childPath.c_str());
        if (isListOfAll) collectBelow(*child, known);
        node.children.push_back(std::move(child));
    }
    return count;
}

bool PciNode::isCurrent() const {
    return directoryId_ != 0 && idOf(AT_FDCWD, directory_) == directoryId_;
}

std::int32_t PciNode::interruptLine() const {
    std::call_once(interruptLineOnce_, [this] {
        std::int32_t line = -1;
        tav::_get_sysfs_numeric((directory_ + "/irq").c_str(), SysfsFormat::Decimal, &line);
        if (isCurrent()) interruptLine_ = line;
    });
    return interruptLine_;
}

const PciNode::Capabilities& PciNode::capabilities() const {
    std::call_once(capabilitiesOnce_, [this] {
        const FileDescriptor file(tav::openForReading((directory_ + "/config").c_str()));
        std::array<std::byte, pciConfigSize> config;
        if (!file.isOpen() || !tav::readConfigCapabilities(file.get(), config)) return;
        if (isCurrent()) capabilities_ = {pci_get_caps(config), pci_get_lnkwidth(config)};
    });
    return capabilities_;
}

const PciNode::Vpd& PciNode::vpd() const {
    std::call_once(vpdOnce_, [this] {
        const FileDescriptor directory = openDirectory(directory_);
        if (!directory.isOpen()) return;
        const std::vector<std::byte> data = readVpd(directory.get());
        if (!isCurrent()) return;
        if (auto name = pci_get_vpdname(data)) {
            vpd_.hasName = true;
            vpd_.name = std::move(*name);
        }
        vpd_.keywords = pci_get_vpdtags(data);
    });
    return vpd_;
}

PciNodePtr PciGetnode(const PciAddress& address) {
    const std::scoped_lock guard(treeLock);
    const PciNode* node = findCurrent(hostTree, address);
    if (node == nullptr && isPresent(address)) {
        hostTree = scanHost();
        node = findCurrent(hostTree, address);
    }
    return node == nullptr ? nullptr : PciNodePtr(hostTree, node);
}

PciNodePtr PciGetnode_str(const char* address) {
    const auto parsed = tav::parsePciDevice(address);
    return parsed ? PciGetnode(*parsed) : nullptr;
}

const char* PciGetVPDProductName(const PciNode* node) {
    return node != nullptr && node->vpd().hasName ? node->vpd().name.c_str() : nullptr;
}

const char* PciGetVPDtag(const PciNode* node, const char* keyword) {
    if (node == nullptr) return nullptr;
    const PciVpdKeyword* const entry = tav::findVpdKeyword(node->vpd().keywords, keyword);
    return entry == nullptr ? nullptr : entry->value.c_str();
}

const char* PciGetVPDataProductName(const PciNode* node) {
    return PciGetVPDtag(node, "ZQ");
}
