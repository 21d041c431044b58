#pragma once

#include <string>
#include <vector>

namespace tav::sim {

/// The whole file; empty when it cannot be read.
std::string fileText(const std::string& path);

/// The file's first line without its end; empty when it cannot be read.
std::string firstLine(const std::string& path);

/// The last component of a link's target; empty when it cannot be read.
std::string linkTarget(const std::string& path);

/// The names in a directory, sorted; none when it cannot be read.
std::vector<std::string> namesIn(const std::string& directory);

}  // namespace tav::sim
