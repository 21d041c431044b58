#include "service/CheckConfig.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iomanip>
#include <iostream>
#include <ostream>
#include <vector>

#include "base/Files.h"
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

/// Why the file cannot be used; empty when its text has been read.
std::string readFile(const std::string& path, std::string& text) {
    const tav::FileDescriptor file = tav::openRegularFile(path.c_str());
    if (!file.isOpen()) return errno == EINVAL ? "not a regular file" : std::strerror(errno);
    if (!tav::readUpTo(file.get(), tavConfig::fileSizeLimit + 1, text)) return std::strerror(errno);
    return text.size() > tavConfig::fileSizeLimit ? "larger than 1 MiB" : "";
}

bool complain(const std::string& path, const std::string& why) {
    std::cerr << "tavd: " << path << ": " << why << "; the built-in defaults apply\n";
    return false;
}

}  // namespace

bool checkConfiguration(const std::string& path, std::ostream& out) {
    std::string text;
    if (const std::string why = readFile(path, text); !why.empty()) return complain(path, why);
    std::vector<tavSettingReport> reports;
    if (tavConfig::fromText(text, &reports).isDefaultSettingsApplied()) {
        return complain(path, "not a JSON object with two members or more");
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
