#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <string_view>

namespace tav::sim {

/// Files under a directory that stands for the root of a file system. Throws std::filesystem_error
/// when something cannot be written.
class Tree {
 public:
    explicit Tree(std::filesystem::path root) : root_(std::move(root)) {}

    /// Paths are absolute within the tree. Missing directories are made; a file that exists is
    /// replaced in one step, so that whoever reads it meanwhile gets the old one or the new one.
    /// What would not change is left alone, so that its directory does not seem to have changed.
    void write(const std::string& path, std::string_view text) const;
    /// A link to another absolute path of the tree, written as sysfs does: relative, and ending
    /// with the target's name even where the target is a directory above.
    void link(const std::string& path, const std::string& target) const;
    void makeDirectory(const std::string& path) const;

    /// Removes from a directory what has neither been written nor found written through this
    /// object.
    void removeOthers(const std::string& directory) const;

 private:
    std::filesystem::path inside(const std::string& path) const;
    /// That path and all directories above it stay.
    void keep(std::filesystem::path path) const;

    std::filesystem::path root_;
    mutable std::set<std::filesystem::path> kept_;
};

}  // namespace tav::sim
