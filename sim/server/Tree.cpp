#include "sim/server/Tree.h"

#include <fstream>
#include <system_error>
#include <vector>

#include "sim/hostcmds/Files.h"

namespace tav::sim {

namespace fs = std::filesystem;

fs::path Tree::inside(const std::string& path) const {
    return root_ / fs::path(path).relative_path();
}

void Tree::write(const std::string& path, std::string_view text) const {
    const fs::path target = inside(path);
    keep(target);
    if (fs::is_regular_file(target) && fileText(target) == text) return;
    fs::create_directories(target.parent_path());
    fs::path fresh = target;
    fresh += ".new";
    std::ofstream file(fresh, std::ios::binary | std::ios::trunc);
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
    file.close();
    if (!file) {
        throw fs::filesystem_error("write", target, std::make_error_code(std::errc::io_error));
    }
    fs::rename(fresh, target);
}

void Tree::link(const std::string& path, const std::string& target) const {
    const fs::path from = inside(path);
    keep(from);
    const fs::path pointed = target;
    const fs::path above = pointed.parent_path().lexically_relative(fs::path(path).parent_path());
    const fs::path relative = (above / pointed.filename()).lexically_normal();
    if (fs::is_symlink(from)) {
        if (fs::read_symlink(from) == relative) return;
        fs::remove(from);
    }
    fs::create_directories(from.parent_path());
    fs::create_symlink(relative, from);
}

void Tree::makeDirectory(const std::string& path) const {
    keep(inside(path));
    fs::create_directories(inside(path));
}

void Tree::keep(fs::path path) const {
    while (kept_.insert(path).second && path.has_relative_path())
        path = path.parent_path();
}

void Tree::removeOthers(const std::string& directory) const {
    std::vector<fs::path> others;
    for (fs::recursive_directory_iterator entry(inside(directory)), end; entry != end; ++entry) {
        if (kept_.contains(entry->path())) continue;
        others.push_back(entry->path());
        entry.disable_recursion_pending();
    }
    for (const fs::path& other : others)
        fs::remove_all(other);
}

}  // namespace tav::sim
