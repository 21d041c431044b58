#include "sim/hostcmds/Files.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace tav::sim {

std::string fileText(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::string firstLine(const std::string& path) {
    const std::string text = fileText(path);
    return text.substr(0, text.find('\n'));
}

std::string linkTarget(const std::string& path) {
    std::error_code error;
    return std::filesystem::read_symlink(path, error).filename();
}

std::vector<std::string> namesIn(const std::string& directory) {
    std::vector<std::string> names;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        names.push_back(entry->path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace tav::sim
