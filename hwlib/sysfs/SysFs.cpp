#include "hwlib/sysfs/SysFs.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <iostream>
#include <utility>

#include <fcntl.h>

#include "base/DirectoryListing.h"
#include "base/FileDescriptor.h"
#include "hwlib/sysfs/SysFsPath.h"
#include "hwlib/sysfs/sysfs_readers.h"

namespace {

constexpr const char* debugFileSystem = "/sys/kernel/debug";

/// Deeper ones are opened by their whole paths.
constexpr std::size_t mostOpenDirectories = 32;

/// Keeps short texts in large blocks, at a stable address.
class TextStore {
 public:
    std::string_view keep(std::string_view text) {
        if (text.size() > left_) addBlock(text.size());
        char* const copy = blocks_.back().get() + (blockSizes_.back() - left_);
        std::memcpy(copy, text.data(), text.size());
        left_ -= text.size();
        return {copy, text.size()};
    }

    std::size_t memory() const {
        std::size_t sum = 0;
        for (const std::size_t size : blockSizes_)
            sum += size;
        return sum;
    }

 private:
    void addBlock(std::size_t atLeast) {
        constexpr std::size_t usualSize = 16384;
        const std::size_t size = std::max(usualSize, atLeast);
        blocks_.push_back(std::make_unique_for_overwrite<char[]>(size));
        blockSizes_.push_back(size);
        left_ = size;
    }

    std::vector<std::unique_ptr<char[]>> blocks_;
    std::vector<std::size_t> blockSizes_;
    std::size_t left_ = 0;
};

std::string_view withoutEndingSlashes(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/'))
        path.remove_suffix(1);
    return path;
}

/// Where `path` really is; itself when that cannot be told.
std::string realPath(const std::string& path) {
    const std::unique_ptr<char, tav::FreeDeleter> real(::realpath(path.c_str(), nullptr));
    return real == nullptr ? path : real.get();
}

/// The debug file system as seen from the directory `root`: empty when the root is in it, absent
/// when it is not below the root.
tav::Answer<std::string> debugFileSystemBelow(const std::string& root) {
    const std::string real = realPath(root);
    const std::string debug = realPath(debugFileSystem);
    if (tav::pathBelow(debug, real)) return std::string();
    const auto below = tav::pathBelow(real, debug);
    if (!below) return below.lack();
    return std::string(*below);
}

tav::FileDescriptor openDirectory(int above, const char* path, int furtherFlags) {
    return tav::FileDescriptor(
        ::openat(above, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC | furtherFlags));
}

std::uint32_t hashOf(std::string_view path) {
    return static_cast<std::uint32_t>(std::hash<std::string_view>()(path));
}

void print(const SysFsTreeElement& node) {
    std::vector<const SysFsTreeElement*> left{&node};
    while (!left.empty()) {
        const SysFsTreeElement* const next = left.back();
        left.pop_back();
        const SysFsElement& element = *next->getElement();
        std::cout << element.getPath() << element.getValueSeparator() << element.getValue() << '\n';
        const auto firstAdded = static_cast<std::ptrdiff_t>(left.size());
        for (const auto* child = next->firstChild(); child != nullptr; child = child->nextSibling())
            left.push_back(child);
        std::reverse(left.begin() + firstAdded, left.end());
    }
}

}  // namespace

/// Everything of one synchronize(). Deques, because the tree points into them while they grow.
struct SysFs::Mirror {
    struct Directory {
        std::string path;
        SysFsTreeElement* node;
    };
    /// An open directory, and which of the directories in it are still to be listed.
    struct Level {
        tav::FileDescriptor opened;
        std::size_t next;
        std::size_t end;
    };
    /// A place of the hash table over all paths; node is 1 + the index of a node, 0 for none.
    struct Place {
        std::uint32_t hash;
        std::uint32_t node;
    };

    explicit Mirror(std::string path);

    void addNode(SysFsElement& element, std::string_view path);
    void addDirectory(std::string path, SysFsKeptNames names);
    void list();
    Level listDirectory(const Directory& directory, tav::FileDescriptor opened);
    tav::FileDescriptor open(const Level& above, const Directory& directory) const;
    void buildIndex();
    std::string_view below(std::string_view path) const;
    const SysFsTreeElement* find(std::string_view path) const;
    const SysFsTreeElement* findBelow(std::string_view path) const;
    bool isAt(const SysFsTreeElement& node, std::string_view path) const;
    std::size_t memory() const;

    std::string start;  ///< of all paths but the root's: its own with a slash
    std::string plainRoot;
    tav::Answer<std::string> debug;
    TextStore names;
    std::deque<SysFsElement> others;
    std::deque<SysFsAttrib> attribs;
    std::deque<SysFsLink> links;
    std::deque<SysFsDirectory> directoryElements;
    std::deque<Directory> directories;
    std::deque<SysFsTreeElement> nodes;
    std::vector<std::uint32_t> hashes;
    std::vector<Place> index;
};

SysFs::Mirror::Mirror(std::string path)
    : start(path.ends_with('/') ? path : path + '/'),
      plainRoot(tav::plainPath(path)),
      debug(debugFileSystemBelow(path)) {
    const std::string_view text = names.keep(path);
    const std::size_t nameStart = text == "/" ? 0 : text.rfind('/') + 1;
    addDirectory(std::move(path), {text.substr(0, nameStart), text.substr(nameStart)});
    list();
    buildIndex();
}

/// What a path of the mirror says behind its root.
std::string_view SysFs::Mirror::below(std::string_view path) const {
    return path.size() <= start.size() ? std::string_view() : path.substr(start.size());
}

void SysFs::Mirror::addNode(SysFsElement& element, std::string_view path) {
    nodes.emplace_back(&element);
    hashes.push_back(hashOf(below(path)));
}

void SysFs::Mirror::addDirectory(std::string path, SysFsKeptNames keptNames) {
    addNode(directoryElements.emplace_back(keptNames), path);
    directories.push_back({std::move(path), &nodes.back()});
}

/// From the directory above the way to one is a short one.
void SysFs::Mirror::list() {
    std::vector<Level> levels;
    const Directory& root = directories.front();
    levels.push_back(listDirectory(root, openDirectory(AT_FDCWD, root.path.c_str(), 0)));
    while (!levels.empty()) {
        Level& level = levels.back();
        if (level.next == level.end) {
            levels.pop_back();
            continue;
        }
        const Directory& directory = directories[level.next++];
        levels.push_back(listDirectory(directory, open(level, directory)));
        if (levels.size() > mostOpenDirectories) levels.back().opened.reset();
    }
}

tav::FileDescriptor SysFs::Mirror::open(const Level& above, const Directory& directory) const {
    const char* const path = directory.path.c_str();
    if (!above.opened.isOpen()) return openDirectory(AT_FDCWD, path, O_NOFOLLOW);
    const std::size_t nameStart = directory.path.rfind('/') + 1;
    return openDirectory(above.opened.get(), path + nameStart, O_NOFOLLOW);
}

SysFs::Mirror::Level SysFs::Mirror::listDirectory(const Directory& directory,
                                                  tav::FileDescriptor opened) {
    const std::size_t firstBelow = directories.size();
    if (debug == below(directory.path)) return {std::move(opened), firstBelow, firstBelow};
    const bool isRoot = directory.node == &nodes.front();
    std::string path = isRoot ? start : directory.path + '/';
    const std::size_t nameStart = path.size();
    tav::forEachEntry(opened, [&](const tav::DirectoryEntry& entry) {
        const SysFsKeptNames kept(directory.path, names.keep(entry.name));
        path.replace(nameStart, std::string::npos, entry.name);
        switch (entry.kind) {
            case DT_DIR:
                addDirectory(path, kept);
                break;
            case DT_LNK:
                addNode(links.emplace_back(kept), path);
                break;
            case DT_REG:
                addNode(attribs.emplace_back(kept), path);
                break;
            default:
                addNode(others.emplace_back(kept), path);
        }
        directory.node->addChildtoBack(&nodes.back());
    });
    return {std::move(opened), firstBelow, directories.size()};
}

/// Open addressing, at most half full.
void SysFs::Mirror::buildIndex() {
    index.assign(std::bit_ceil(2 * nodes.size()), Place{});
    const std::size_t mask = index.size() - 1;
    for (std::uint32_t node = 0; node < hashes.size(); ++node) {
        std::size_t at = hashes[node] & mask;
        while (index[at].node != 0)
            at = (at + 1) & mask;
        index[at] = {hashes[node], node + 1};
    }
    hashes = std::vector<std::uint32_t>();
}

/// Most ask in the very words of the mirror, and are answered without taking these apart.
const SysFsTreeElement* SysFs::Mirror::find(std::string_view path) const {
    if (path.empty()) return nullptr;
    if (path.starts_with(start)) {
        const SysFsTreeElement* const node = findBelow(path.substr(start.size()));
        if (node != nullptr) return node;
    }
    const std::string plain = tav::plainPath(path);
    const auto belowRoot = tav::pathBelow(plainRoot, plain);
    return belowRoot ? findBelow(*belowRoot) : nullptr;
}

/// `path` is what the mirror's paths say behind the root.
const SysFsTreeElement* SysFs::Mirror::findBelow(std::string_view path) const {
    const std::uint32_t hash = hashOf(path);
    const std::size_t mask = index.size() - 1;
    for (std::size_t at = hash & mask; index[at].node != 0; at = (at + 1) & mask) {
        if (index[at].hash != hash) continue;
        const SysFsTreeElement& node = nodes[index[at].node - 1];
        if (isAt(node, path)) return &node;
    }
    return nullptr;
}

bool SysFs::Mirror::isAt(const SysFsTreeElement& node, std::string_view path) const {
    if (&node == &nodes.front()) return path.empty();
    const SysFsElement& element = *node.getElement();
    const std::string_view directory = below(element.directory());
    if (directory.empty()) return path == element.name();
    return path.size() == directory.size() + 1 + element.name().size() &&
           path.ends_with(element.name()) && path[directory.size()] == '/' &&
           path.starts_with(directory);
}

std::size_t SysFs::Mirror::memory() const {
    std::size_t sum = names.memory() + index.size() * sizeof(Place);
    for (const Directory& directory : directories)
        sum += sizeof directory + directory.path.size();
    return sum + nodes.size() * sizeof(SysFsTreeElement) + nodes.size() * sizeof(SysFsElement);
}

void SysFsTreeElement::addChildtoBack(SysFsTreeElement* child) noexcept {
    if (lastChild_ == nullptr) {
        firstChild_ = child;
    } else {
        lastChild_->nextSibling_ = child;
    }
    lastChild_ = child;
}

SysFs::SysFs() = default;
SysFs::~SysFs() = default;

void SysFs::synchronize(const std::string& path) {
    deleteAll();
    std::string root(withoutEndingSlashes(path));
    struct stat data;
    if (::stat(root.c_str(), &data) != 0 || !S_ISDIR(data.st_mode)) return;
    mirror_ = std::make_unique<Mirror>(std::move(root));
}

void SysFs::deleteAll() {
    mirror_.reset();
}

const SysFsTreeElement* SysFs::root() const noexcept {
    return mirror_ == nullptr ? nullptr : &mirror_->nodes.front();
}

const SysFsTreeElement* SysFs::find(std::string_view path) const {
    return mirror_ == nullptr ? nullptr : mirror_->find(path);
}

std::string SysFs::getValue(const std::string& path) const {
    return readValue(path).valueOr(std::string());
}

tav::Answer<std::string> SysFs::readValue(std::string_view path) const {
    const SysFsTreeElement* const node = find(path);
    return node == nullptr ? tav::Lack::Absent : node->getElement()->readValue();
}

bool SysFs::existsPath(std::string_view path) const {
    return find(path) != nullptr;
}

/// Some entry of that name for which `matches` is true, or null.
template <class Matches>
const SysFsElement* SysFs::findNamed(std::string_view name, Matches matches) const {
    if (mirror_ == nullptr) return nullptr;
    for (const SysFsTreeElement& node : mirror_->nodes) {
        const SysFsElement& element = *node.getElement();
        if (element.name() == name && matches(element)) return &element;
    }
    return nullptr;
}

bool SysFs::exists(std::string_view name) const {
    return findNamed(name, [](const SysFsElement&) { return true; }) != nullptr;
}

bool SysFs::exists(std::string_view name, std::string_view value) const {
    return findNamed(name, [&](const SysFsElement& element) {
               return element.getValue() == value;
           }) != nullptr;
}

bool SysFs::existsDeviceClass(std::uint16_t deviceClass) const {
    std::array<char, sizeof "0x000000"> text;
    std::snprintf(text.data(), text.size(), "0x%04x00", deviceClass);
    return exists("class", text.data());
}

std::vector<std::string> SysFs::getPaths(std::string_view name, std::string_view value) const {
    std::vector<std::string> paths;
    findNamed(name, [&](const SysFsElement& element) {
        if (element.getValue() == value) paths.push_back(element.getPath());
        return false;
    });
    return paths;
}

bool SysFs::dirList(std::string_view path, std::list<std::string>& list) const {
    const SysFsTreeElement* const node = find(path);
    if (node == nullptr) return false;
    if (dynamic_cast<const SysFsDirectory*>(node->getElement()) == nullptr) return false;
    for (const auto* child = node->firstChild(); child != nullptr; child = child->nextSibling())
        list.push_back(child->getElement()->getName());
    return true;
}

void SysFs::toCout() const {
    if (mirror_ != nullptr) print(mirror_->nodes.front());
}

void SysFs::toCout(std::string_view path) const {
    const SysFsTreeElement* const node = find(path);
    if (node != nullptr) print(*node);
}

void SysFs::stats() const {
    if (mirror_ == nullptr) {
        std::cout << "nothing mirrored\n";
        return;
    }
    std::cout << mirror_->directories.size() << " directories, " << mirror_->attribs.size()
              << " attributes, " << mirror_->links.size() << " links, " << mirror_->others.size()
              << " others, " << mirror_->memory() << " bytes\n";
}
