#include "service/CheckConfig.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <optional>
#include <ostream>
#include <vector>

#include "core/tavConfig.h"

namespace tavd {
namespace {

using Outcome = tavSettingReport::Outcome;

/// Values are foreign text: nothing of them reaches the terminal but what can be printed.
std::string quoted(const std::string& text) {
    constexpr std::size_t longest = 60;
    std::string shown = text.substr(0, longest);
    std::replace_if(
        shown.begin(), shown.end(), [](unsigned char c) { return c < ' ' || c > '~'; }, '?');
    return '"' + shown + (text.size() > longest ? "...\"" : "\"");
}

std::string describe(const tavSettingReport& report) {
    switch (report.outcome) {
        case Outcome::Accepted:
            return quoted(report.written) + " accepted" +
                   (report.used == report.written ? "" : "; " + quoted(report.used) + " applies");
        case Outcome::Absent:
            return "absent; " + quoted(report.used) + " applies";
        case Outcome::Invalid:
            return quoted(report.written) + " is not valid; " + quoted(report.used) + " applies";
        case Outcome::Unknown:
            return "no such setting; ignored";
    }
    return {};
}

std::optional<std::string> readFile(const std::string& path) {
    std::error_code failure;
    if (!std::filesystem::is_regular_file(path, failure)) {
        std::cerr << "tavd: " << path << ": "
                  << (failure ? failure.message() : "not a regular file") << '\n';
        return std::nullopt;
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        std::cerr << "tavd: " << path << ": " << std::strerror(errno) << '\n';
        return std::nullopt;
    }
    return std::string(std::istreambuf_iterator<char>(file), {});
}

}  // namespace

bool checkConfiguration(const std::string& path, std::ostream& out) {
    const std::optional<std::string> text = readFile(path);
    if (!text) return false;
    std::vector<tavSettingReport> reports;
    if (tavConfig::fromText(*text, &reports).isDefaultSettingsApplied()) {
        std::cerr << "tavd: " << path
                  << ": not a JSON object with two members or more; the built-in defaults apply\n";
        return false;
    }
    constexpr int keyWidth = 42;
    bool clean = true;
    for (const tavSettingReport& report : reports) {
        out << std::left << std::setw(keyWidth) << quoted(report.key) << ' ' << describe(report)
            << '\n';
        clean = clean && report.outcome != Outcome::Invalid && report.outcome != Outcome::Unknown;
    }
    return clean;
}

}  // namespace tavd
