#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace tav::test {

/// Writes a file of the private root, with the directories above it.
inline void writeFile(const std::filesystem::path& path, std::string_view content) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

/// Makes a symbolic link, with the directories above it.
inline void makeLink(const std::filesystem::path& path, const std::string& target) {
    std::filesystem::create_directories(path.parent_path());
    std::filesystem::create_symlink(target, path);
}

}  // namespace tav::test
