#pragma once

#include <filesystem>

namespace tav::sim {

/// The name of the file, beside what else was recorded, that stands for the host's memory: a sparse
/// one in which the firmware's tables stand where the host has them.
inline constexpr const char* memoryFile = "memory";

/// Makes that file for an unpacked capture whose firmware has tables that can be found there.
void makeMemory(const std::filesystem::path& root);

}  // namespace tav::sim
