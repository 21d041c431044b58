#include "storage/kernel/imsm_version.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>

#include <unistd.h>

#include "core/Command.h"
#include "core/Log.h"
#include "core/tavUtils.h"

using tav::here;

namespace {

constexpr tav::ModuleLog logger{"STOR_LB"};

constexpr std::array mdadmPaths = {"/usr/sbin/mdadm", "/sbin/mdadm"};
constexpr std::string_view versionMark = "Version : ";
constexpr std::string_view controllerMark = "Controller : ";
constexpr std::size_t mostPlatforms = 10;

/// The text after `mark`; none when the line does not hold it.
std::optional<std::string> textAfter(std::string_view line, std::string_view mark) {
    const std::size_t at = line.find(mark);
    if (at == std::string_view::npos) return std::nullopt;
    return std::string(line.substr(at + mark.size()));
}

std::vector<tav::ImsmPlatform> readPlatforms() {
    const auto* const mdadm =
        std::find_if(mdadmPaths.begin(), mdadmPaths.end(),
                     [](const char* path) { return ::access(path, R_OK | X_OK) == 0; });
    if (mdadm == mdadmPaths.end()) {
        logger.error(here(), "Unable to find mdadm at standard locations.");
        return {};
    }
    const std::string command =
        std::string(*mdadm) +
        " --detail-platform | /usr/bin/grep -e \"Version : \" -e \"Controller : \"";
    const tav::CommandResult result = tav::runShell(command);
    if (!result.finished) {
        logger.error(here(), "popen(%s) failed: %d", command.c_str(), errno);
        return {};
    }
    logger.debugLines(here(), "mdadm output:\n%s\n", result.output.c_str());
    return tav::parseImsmPlatforms(result.output);
}

}  // namespace

std::string getIMSMFirmwareVersion(const std::string& controllerName) {
    static const std::vector<tav::ImsmPlatform> platforms = readPlatforms();
    const auto platform =
        std::find_if(platforms.begin(), platforms.end(), [&](const tav::ImsmPlatform& candidate) {
            return candidate.controller.find(controllerName) != std::string::npos;
        });
    return platform == platforms.end() ? std::string() : platform->version;
}

std::vector<tav::ImsmPlatform> tav::parseImsmPlatforms(std::string_view output) {
    std::vector<ImsmPlatform> platforms;
    std::optional<std::string> version;
    for (const std::string& line : splitLines(output)) {
        if (platforms.size() == mostPlatforms) break;
        if (!version) {
            version = textAfter(line, versionMark);
        } else if (const auto controller = textAfter(line, controllerMark)) {
            platforms.push_back({*controller, *version});
            version.reset();
        }
    }
    return platforms;
}
