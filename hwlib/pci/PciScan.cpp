#include "hwlib/pci/PciScan.h"

#include <algorithm>
#include <set>
#include <string_view>
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

/// What has a function's name in a directory, in the order of the addresses, each once.
std::vector<Entry> functionsIn(const FileDescriptor& directory) {
    std::vector<Entry> functions;
    forEachEntry(directory, [&](const DirectoryEntry& entry) {
        if (entry.kind != DT_DIR && entry.kind != DT_LNK) return;
        const auto address = parsePciAddress(entry.name);
        if (!address) return;
        functions.push_back({*address, std::string(entry.name), entry.inode, entry.kind == DT_LNK});
    });
    std::ranges::sort(functions, {}, &Entry::address);
    const auto isRepeated = [](const Entry& a, const Entry& b) { return a.address == b.address; };
    functions.erase(std::unique(functions.begin(), functions.end(), isRepeated), functions.end());
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

/// What `target` says before its last component; empty when that is all.
std::string_view directoryOf(std::string_view target) {
    const std::size_t slash = target.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : target.substr(0, slash);
}

/// Where a listed function's directory really is: the directory that it is in, and its name there.
/// Long ways are gone once for all functions behind one bridge, which mostly follow each other.
class Ways {
 public:
    explicit Ways(int list) : list_(list) {}

    /// The open directory that the one at `target` is in.
    int above(std::string_view target) {
        const std::string_view directory = directoryOf(target);
        if (directory.empty()) return list_;
        if (above_ != directory) {
            above_ = directory;
            opened_.reset(::openat(list_, above_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        }
        return opened_.get();
    }

 private:
    int list_;
    std::string above_;
    FileDescriptor opened_;
};

using Listing = std::vector<Listed>;

/// The function, of those sorted by address, whose directory is `directory`; or null.
PciNode* functionAt(const std::vector<PciNode*>& functions, const Listing& listing,
                    std::string_view directory) {
    const auto address = parsePciAddress(directory.substr(directory.rfind('/') + 1));
    if (!address) return nullptr;
    const auto found = std::ranges::lower_bound(functions, *address, {}, &PciNode::address);
    if (found == functions.end() || (*found)->address != *address) return nullptr;
    const auto& listed = listing[static_cast<std::size_t>(found - functions.begin())];
    return listed.target == directory ? *found : nullptr;
}

/// Gives each function to the one whose directory its own is in, or else to the root.
void attachToBridges(PciNode& root, Listing listing) {
    std::vector<PciNode*> functions;
    for (const Listed& function : listing)
        functions.push_back(function.node.get());
    std::string_view directory;
    PciNode* bridge = nullptr;
    for (Listed& function : listing) {
        const std::string_view above = directoryOf(function.target);
        if (above != directory) bridge = functionAt(functions, listing, above);
        directory = above;
        attach(bridge == nullptr ? root : *bridge, std::move(function.node));
    }
}

}  // namespace

bool PciScan::fill(PciNode& node, const std::string& path) {
    return node.fill(PciAttributes(AT_FDCWD, path), path, placeId(path), names_);
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
    Ways ways(directory.get());
    Listing listing;
    int count = 0;
    for (const Entry& entry : functionsIn(directory)) {
        if (known.contains(entry.address)) continue;
        std::string target =
            linkTarget(directory.get(), entry.name.c_str()).valueOr(std::string(entry.name));
        auto node = std::make_unique<PciNode>();
        const PciAttributes attributes(ways.above(target), target.substr(target.rfind('/') + 1));
        if (!node->fill(attributes, path + entry.name, entry.inode, names_)) {
            unreadable_[entry.address] = entry.inode;
            continue;
        }
        ++count;
        if (!entry.isLink) count += addOwn(*node, path + entry.name + '/');
        listing.push_back({std::move(target), std::move(node)});
    }
    attachToBridges(root, std::move(listing));
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
