#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace tav::test {

inline void writeFile(const std::filesystem::path& path, std::string_view text) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

inline std::string readFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

/// Puts a host command in front of all others of that name.
inline void writeCommand(const std::string& name, std::string_view script) {
    const std::filesystem::path path = "/run/sim/bin/" + name;
    writeFile(path, "#!/bin/sh\n" + std::string(script) + "\n");
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
}

/// Writes the configuration that the process under test reads; `members` go into its JSON object.
inline void writeConfiguration(std::string_view members) {
    writeFile("/etc/config/orn/tav/tav.conf",
              "{\"CliMode\": \"test\", " + std::string(members) + "}");
}

inline constexpr const char* mainLog = "/var/log/tav/tav.log";
inline constexpr const char* debugLog = "/var/log/tav/debug.log";

/// A configuration with everything enabled and both logs, at their most talkative, in files.
inline void logEverything(std::string_view furtherMembers = "\"EnableResources\": [\"All\"]") {
    writeConfiguration(R"("LoggingLevel": "Info", "EnableDebugLog": "true",
        "TAVLogLocation": "/var/log/tav/tav.log", "DebugLogLocation": "/var/log/tav/debug.log", )" +
                       std::string(furtherMembers));
}

/// Both logs, the debug log behind the main one.
inline std::string logs() {
    return readFile(mainLog) + readFile(debugLog);
}

inline int timesLogged(const std::string& text) {
    const std::string all = logs();
    int times = 0;
    for (auto at = all.find(text); at != std::string::npos; at = all.find(text, at + 1))
        ++times;
    return times;
}

/// How many descriptors this process has open.
inline std::size_t openDescriptors() {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

}  // namespace tav::test
