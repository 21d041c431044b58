#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "storage/kernel/imsm_version.h"

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

Pairs parse(const std::string& output) {
    Pairs pairs;
    for (const tav::ImsmPlatform& platform : tav::parseImsmPlatforms(output)) {
        pairs.emplace_back(platform.controller, platform.version);
    }
    return pairs;
}

TEST(ImsmVersion, PairsEachVersionWithTheNextController) {
    const std::string version = "        Version : 5.0.0.1139\n";
    const std::string controller =
        " I/O Controller : /sys/devices/pci0000:00/0000:00:17.0 (SATA)\n";
    const std::pair<std::string, std::string> pair = {"/sys/devices/pci0000:00/0000:00:17.0 (SATA)",
                                                      "5.0.0.1139"};
    const struct {
        const char* name;
        std::string output;
        Pairs expected;
    } rows[] = {{"one", version + controller, {pair}},
                {"a controller of its own", controller + version, {}},
                {"two controllers after a version", version + controller + controller, {pair}},
                {"the first of two versions", version + "Version : 1\n" + controller, {pair}},
                {"no line end", version + controller.substr(0, controller.size() - 1), {pair}},
                {"nothing", "", {}},
                {"binary", std::string("\0Version : \xff\nController : ", 26), {{"", "\xff"}}}};
    for (const auto& row : rows) {
        EXPECT_EQ(parse(row.output), row.expected) << row.name;
    }
    std::string many;
    for (int i = 0; i < 11; ++i)
        many += version + controller;
    EXPECT_EQ(parse(many).size(), 10U);
}

TEST(ImsmVersion, IsEmptyWithoutTheTool) {
    EXPECT_EQ(getIMSMFirmwareVersion("0000:00:17.0"), "");
}

}  // namespace
