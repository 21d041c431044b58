#include "hwlib/pci/PciScan.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <unordered_map>
#include <utility>

#include <fcntl.h>

#include "base/DirectoryListing.h"
#include "base/FileDescriptor.h"
#include "base/FileReading.h"
#include "hwlib/pci/PciAttributes.h"

namespace tav {
namespace {

struct Entry {
    PciAddress address;
    std::string name;
    ino64_t inode;
    bool isLink;
};

/// What has a function's name in a directory, in the order of the addresses.
std::vector<Entry> functionsIn(const FileDescriptor& directory) {
    std::vector<Entry> functions;
    forEachEntry(directory, [&](const DirectoryEntry& entry) {
        if (entry.kind != DT_DIR && entry.kind != DT_LNK) return;
        const auto address = parsePciAddress(entry.name);
        if (!address) return;
        functions.push_back({*address, std::string(entry.name), entry.inode, entry.kind == DT_LNK});
    });
    std::ranges::sort(functions, {}, &Entry::address);
    return functions;
}

FileDescriptor openDirectory(const std::string& path) {
    return FileDescriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

void collectBelow(const PciNode& node, std::set<PciAddress>& addresses) {
    for (const auto& child : node.children) {
        addresses.insert(child->address);
        collectBelow(*child, addresses);
    }
}

void attach(PciNode& parent, std::unique_ptr<PciNode> child) {
    child->parent = &parent;
    parent.children.push_back(std::move(child));
}

/// A listed function, and where the kernel has its directory.
struct Listed {
    std::string target;
    std::unique_ptr<PciNode> node;
};

using Places = std::unordered_map<std::string_view, PciNode*>;

/// The function whose directory the one at `target` is in, or null.
PciNode* bridgeAbove(const Places& places, std::string_view target) {
    const std::size_t slash = target.rfind('/');
    if (slash == std::string_view::npos) return nullptr;
    const auto bridge = places.find(target.substr(0, slash));
    return bridge == places.end() ? nullptr : bridge->second;
}

}  // namespace

bool PciScan::fill(PciNode& node, const std::string& path) {
    return node.fill(PciAttributes(AT_FDCWD, path), path, directoryId(AT_FDCWD, path), names_);
}

int PciScan::addBelow(PciNode& node, std::string path) {
    if (!path.ends_with('/')) path += '/';
    return node.parent == nullptr ? addListed(node, path) : addOwn(node, path);
}

/// Which function is behind which is told by the links alone: each leads to the function's
/// directory, and that is in its bridge's, whatever class the bridge has.
int PciScan::addListed(PciNode& root, const std::string& path) {
    const FileDescriptor directory = openDirectory(path);
    std::set<PciAddress> known;
    collectBelow(root, known);
    std::vector<Listed> functions;
    for (const Entry& entry : functionsIn(directory)) {
        if (!known.insert(entry.address).second) continue;
        const ino64_t id = entry.isLink ? directoryId(directory.get(), entry.name) : entry.inode;
        auto node = std::make_unique<PciNode>();
        const PciAttributes attributes(directory.get(), entry.name);
        if (!node->fill(attributes, path + entry.name, id, names_)) {
            unreadable_[entry.address] = entry.inode;
            continue;
        }
        auto target = linkTarget(directory.get(), entry.name.c_str()).valueOr(std::string());
        functions.push_back({std::move(target), std::move(node)});
    }

    Places places;
    for (const Listed& function : functions)
        places.emplace(function.target, function.node.get());
    auto count = static_cast<int>(functions.size());
    for (Listed& function : functions) {
        PciNode* const bridge = bridgeAbove(places, function.target);
        attach(bridge == nullptr ? root : *bridge, std::move(function.node));
    }
    return count;
}

/// A link in a bridge's own directory would lead anywhere.
int PciScan::addOwn(PciNode& bridge, const std::string& path) {
    const FileDescriptor directory = openDirectory(path);
    int count = 0;
    for (const Entry& entry : functionsIn(directory)) {
        if (entry.isLink) continue;
        auto node = std::make_unique<PciNode>();
        const std::string childPath = path + entry.name;
        const PciAttributes attributes(directory.get(), entry.name);
        if (!node->fill(attributes, childPath, entry.inode, names_)) continue;
        PciNode& child = *node;
        attach(bridge, std::move(node));
        count += 1 + addOwn(child, childPath + '/');
    }
    return count;
}

}  // namespace tav
