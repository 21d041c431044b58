#include "hwlib/sysfs/SysFs.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>
#include <cstring>
#include <deque>
#include <filesystem>
#include <functional>
#include <iostream>

#include <fcntl.h>

#include "base/DirectoryListing.h"

namespace {

constexpr std::string_view debugFileSystem = "/sys/kernel/debug";

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
    while (path.ends_with('/'))
        path.remove_suffix(1);
    return path;
}

/// `path` less what makes two spellings of one path differ.
std::string plainSpelling(const std::string& path) {
    const std::string plain = std::filesystem::path(path).lexically_normal().string();
    return std::string(withoutEndingSlashes(plain));
}

bool isInDebugFileSystem(std::string_view path) {
    return path.starts_with(debugFileSystem) &&
           (path.size() == debugFileSystem.size() || path[debugFileSystem.size()] == '/');
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
    /// A place of the hash table over all paths; node is 1 + the index of a node, 0 for none.
    struct Place {
        std::uint32_t hash;
        std::uint32_t node;
    };

    explicit Mirror(std::string path);

    void addNode(SysFsElement& element, std::string_view path);
    void addDirectory(std::string path, std::string_view parent, std::string_view name);
    void listDirectory(const Directory& directory);
    void buildIndex();
    const SysFsTreeElement* find(std::string_view path) const;
    std::size_t memory() const;

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

SysFs::Mirror::Mirror(std::string path) {
    const std::size_t slash = path.rfind('/');
    const std::string_view text = names.keep(path);
    if (slash == std::string_view::npos) {
        addDirectory(std::move(path), {}, text);
    } else {
        addDirectory(std::move(path), text.substr(0, slash), text.substr(slash + 1));
    }
    for (std::size_t next = 0; next < directories.size(); ++next)
        listDirectory(directories[next]);
    buildIndex();
}

void SysFs::Mirror::addNode(SysFsElement& element, std::string_view path) {
    nodes.emplace_back(&element);
    hashes.push_back(hashOf(path));
}

void SysFs::Mirror::addDirectory(std::string path, std::string_view parent, std::string_view name) {
    addNode(directoryElements.emplace_back(parent, name), path);
    directories.push_back({std::move(path), &nodes.back()});
}

void SysFs::Mirror::listDirectory(const Directory& directory) {
    if (isInDebugFileSystem(directory.path)) return;
    const int follow = directory.node == &nodes.front() ? 0 : O_NOFOLLOW;
    std::string path = directory.path + '/';
    const std::size_t nameStart = path.size();
    tav::forEachEntry(directory.path.c_str(), follow, [&](const tav::DirectoryEntry& entry) {
        const std::string_view name = names.keep(entry.name);
        path.replace(nameStart, std::string::npos, name);
        switch (entry.kind) {
            case DT_DIR:
                addDirectory(path, directory.path, name);
                break;
            case DT_LNK:
                addNode(links.emplace_back(directory.path, name), path);
                break;
            case DT_REG:
                addNode(attribs.emplace_back(directory.path, name), path);
                break;
            default:
                addNode(others.emplace_back(directory.path, name), path);
        }
        directory.node->addChildtoBack(&nodes.back());
    });
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

const SysFsTreeElement* SysFs::Mirror::find(std::string_view path) const {
    const std::uint32_t hash = hashOf(path);
    const std::size_t mask = index.size() - 1;
    for (std::size_t at = hash & mask; index[at].node != 0; at = (at + 1) & mask) {
        if (index[at].hash != hash) continue;
        const SysFsTreeElement& node = nodes[index[at].node - 1];
        if (node.getElement()->isAt(path)) return &node;
    }
    return nullptr;
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
    std::string root = plainSpelling(path);
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
    return mirror_ == nullptr ? nullptr : mirror_->find(withoutEndingSlashes(path));
}

std::string SysFs::getValue(const std::string& path) const {
    const SysFsTreeElement* const node = find(path);
    return node == nullptr ? std::string() : node->getElement()->getValue();
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
