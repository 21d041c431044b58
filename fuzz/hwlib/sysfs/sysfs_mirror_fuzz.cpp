/// A made-up tree of any names and depth: its mirror holds every entry, as what it is, where it is,
/// and no other.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "hwlib/sysfs/SysFs.h"

namespace {

namespace fs = std::filesystem;

const std::string root = "/tmp/mirrored";

void require(bool condition) {
    if (!condition) std::abort();
}

std::string_view take(std::string_view& text, std::size_t size) {
    const std::string_view taken = text.substr(0, size);
    text.remove_prefix(taken.size());
    return taken;
}

/// Each entry takes a byte that says what it is and which of the directories made so far it is in,
/// and a name of up to seven bytes behind the byte that tells its length.
void makeTree(std::string_view input) {
    std::vector<std::string> directories = {root};
    for (int entries = 0; input.size() > 2 && entries < 16; ++entries) {
        const auto kind = static_cast<unsigned char>(take(input, 1)[0]);
        std::string name(take(input, static_cast<unsigned char>(take(input, 1)[0]) % 8U));
        std::replace_if(
            name.begin(), name.end(), [](char c) { return c == '/' || c == '\0'; }, '_');
        const std::string path = directories[kind / 4U % directories.size()] + '/' + name;
        std::error_code failure;
        if (fs::exists(fs::symlink_status(path, failure))) continue;
        if (kind % 4U == 0) {
            std::ofstream(path) << input;
        } else if (kind % 4U == 1) {
            fs::create_symlink(root, path, failure);
        } else if (fs::create_directory(path, failure)) {
            directories.push_back(path);
        }
    }
}

void checkEntry(const SysFs& mirror, const fs::directory_entry& entry) {
    const std::string path = entry.path().string();
    require(mirror.existsPath(path) && mirror.exists(entry.path().filename().string()));
    std::list<std::string> names;
    const bool isDirectory = entry.symlink_status().type() == fs::file_type::directory;
    require(mirror.dirList(path, names) == isDirectory);
    if (entry.is_symlink()) require(mirror.getValue(path) == root);
}

/// Each entry's path is that of one that there is.
std::size_t entriesBelow(const SysFsTreeElement& node) {
    std::size_t count = 0;
    for (const auto* child = node.firstChild(); child != nullptr; child = child->nextSibling()) {
        require(fs::exists(fs::symlink_status(child->getElement()->getPath())));
        count += 1 + entriesBelow(*child);
    }
    return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fs::create_directory(root);
    makeTree({reinterpret_cast<const char*>(data), size});
    SysFs mirror;
    mirror.synchronize(root);
    std::size_t entries = 0;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        checkEntry(mirror, entry);
        ++entries;
    }
    require(mirror.root() != nullptr && entriesBelow(*mirror.root()) == entries);
    fs::remove_all(root);
    return 0;
}
