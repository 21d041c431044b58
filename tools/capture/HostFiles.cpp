#include "tools/capture/HostFiles.h"

#include <algorithm>
#include <array>
#include <deque>
#include <filesystem>
#include <set>
#include <sstream>
#include <string_view>

#include <fnmatch.h>

#include <sys/stat.h>

#include "base/DirectoryListing.h"
#include "base/FileReading.h"
#include "base/Files.h"
#include "base/Trim.h"
#include "core/tavConfig.h"
#include "rmc/StateFiles.h"

namespace tav::capture {
namespace {

using Kind = HostEntry::Kind;

constexpr std::size_t vpdLimit = 4096;

/// What is read in directories of the kernel's: names with "*" in them stand for all that fit.
struct Wanted {
    const char* directory;
    const char* names;
};
constexpr std::array wantedFiles = {
    Wanted{"/sys/bus/pci/devices/*",
           "uevent vendor device subsystem_vendor subsystem_device class revision driver"},
    Wanted{"/sys/bus/pci/slots/*", "address"},
    Wanted{"/sys/class/net/*", "speed device"},
    Wanted{"/sys/class/scsi_host/*",
           "state firmware_revision board_tracer serialnum serial_num serial_number fw_version "
           "fwrev firmware_version option_rom_version optrom_bios_version"},
    Wanted{"/sys/class/scsi_host/*/device/..",
           "vendor device subsystem_vendor subsystem_device class driver"},
    Wanted{"/sys/class/scsi_host/*/device/../..",
           "vendor device subsystem_vendor subsystem_device class driver"},
    Wanted{"/sys/class/scsi_device/*/device",
           "model rev vendor state type vpd_pg80 inquiry scsi_generic/* block/*/size block:*/size"},
    Wanted{"/sys/class/nvme/*",
           "model serial firmware_rev state transport device nvme*/nsid nvme*/size"},
    Wanted{"/sys/class/nvme-subsystem/nvme-subsys*", "nvme*"},
    Wanted{"/sys/class/fc_host/*", "node_name port_name port_state"},
    Wanted{"/sys/firmware/efi", "systab"},
};
constexpr const char* fcHosts = "/sys/class/fc_host";

std::vector<std::string> split(std::string_view text, char separator) {
    std::vector<std::string> parts;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(separator), text.size());
        if (end > 0) parts.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return parts;
}

std::vector<std::string> namesIn(const std::string& directory) {
    std::vector<std::string> names;
    forEachEntry(directory.c_str(), 0,
                 [&](const DirectoryEntry& entry) { names.emplace_back(entry.name); });
    std::sort(names.begin(), names.end());
    return names;
}

HostEntry readFile(const std::string& path, std::size_t limit) {
    const FileDescriptor file = openForReading(path.c_str());
    HostEntry entry{Kind::File, {}};
    if (!file.isOpen() || !readUpTo(file.get(), limit, entry.content)) {
        return {Kind::Unreadable, {}};
    }
    return entry;
}

/// A walk through the kernel's tree that takes whatever it comes across on its way.
class Walk {
 public:
    explicit Walk(Recorder& recorder) : recorder_(recorder) {}

    void take(const std::string& directory, std::string_view name, std::size_t limit) {
        const std::vector<std::string> parts = split(directory + '/' + std::string(name), '/');
        limit_ = limit;
        go("", {parts.begin(), parts.end()}, mostSteps);
    }

 private:
    using Parts = std::deque<std::string>;

    /// Links that lead in a circle end here.
    static constexpr int mostSteps = 64;

    /// `where` has no link in it. The walk ends where a link leads out of the kernel's tree.
    void go(std::string where, Parts rest, int steps) {
        if (!where.empty() && !(where + '/').starts_with("/sys/")) return;
        if (!where.empty() && isNew(where)) recorder_.addEntry(where, {Kind::Directory, {}});
        if (rest.empty() || steps == 0) return;
        const std::string part = rest.front();
        rest.pop_front();
        if (part == "..") {
            where.erase(std::min(where.rfind('/'), where.size()));
            go(std::move(where), std::move(rest), steps - 1);
        } else if (part.find('*') == std::string::npos) {
            enter(where, part, std::move(rest), steps - 1);
        } else {
            for (const std::string& name : namesIn(where)) {
                if (::fnmatch(part.c_str(), name.c_str(), FNM_PERIOD) == 0)
                    enter(where, name, rest, steps - 1);
            }
        }
    }

    void enter(const std::string& where, const std::string& name, Parts rest, int steps) {
        std::string path = where + '/' + name;
        struct stat data {};
        if (::lstat(path.c_str(), &data) != 0) return;
        if (S_ISDIR(data.st_mode)) {
            go(std::move(path), std::move(rest), steps);
        } else if (S_ISLNK(data.st_mode)) {
            follow(where, path, std::move(rest), steps);
        } else if (S_ISREG(data.st_mode) && rest.empty() && isNew(path)) {
            recorder_.addEntry(path, readFile(path, limit_));
        }
    }

    void follow(const std::string& where, const std::string& path, Parts rest, int steps) {
        const auto target = linkTarget(path.c_str());
        if (!target) return;
        if (isNew(path)) recorder_.addEntry(path, {Kind::Link, *target});
        const std::vector<std::string> parts = split(*target, '/');
        rest.insert(rest.begin(), parts.begin(), parts.end());
        go(target->starts_with('/') ? "" : where, std::move(rest), steps);
    }

    bool isNew(const std::string& path) { return seen_.insert(path).second; }

    Recorder& recorder_;
    std::size_t limit_ = attributeLimit;
    std::set<std::string> seen_;
};

/// The interfaces of converged adapters: the managers read their vital product data, and no other.
std::set<std::string> convergedInterfaces() {
    constexpr std::string_view directory = "/net/";
    std::set<std::string> interfaces;
    for (const std::string& host : namesIn(fcHosts)) {
        const std::string link = std::string(fcHosts) + '/' + host;
        const std::string target = linkTarget(link.c_str()).valueOr("");
        const std::size_t at = target.find(directory);
        if (at == std::string::npos) continue;
        const std::string below = target.substr(at + directory.size());
        interfaces.insert(below.substr(0, below.find_first_of("./")));
    }
    return interfaces;
}

// --- Names of PCI functions ----------------------------------------------------------------------

constexpr std::array pciIdFiles = {
    "/usr/share/hwdata/pci.ids",
    "/usr/share/pci.ids",
    "/usr/share/misc/pci.ids",
};
constexpr std::size_t pciIdLimit = 16U << 20U;

/// The numbers that functions are known by, as the database writes them: "8086".
std::set<std::string> numbersOfFunctions(const Recording& recording) {
    std::set<std::string> numbers;
    for (const auto& [path, entry] : recording.entries) {
        const std::string name = path.substr(path.rfind('/') + 1);
        const bool isNumber = name == "vendor" || name == "device" || name == "subsystem_vendor" ||
                              name == "subsystem_device";
        if (isNumber && entry.content.starts_with("0x")) {
            numbers.insert(std::string(trimBoth(entry.content)).substr(2));
        }
    }
    return numbers;
}

/// The lines that such numbers begin, with the vendor and the device that they stand under, and the
/// classes.
std::string pciNamesOf(const std::string& database, const std::set<std::string>& numbers) {
    const auto isKnown = [&](const std::string& line, std::size_t indent) {
        return numbers.contains(line.substr(std::min(indent, line.size()), 4));
    };
    std::string kept;
    bool isIn[2] = {false, false};  // a section, a device
    std::istringstream lines(database);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t indent = std::min(line.find_first_not_of('\t'), line.size());
        if (line.empty() || line[0] == '#') continue;
        bool isWanted = false;
        if (indent == 0) {
            isWanted = isIn[0] = isKnown(line, 0) || line.starts_with("C ");
            isIn[1] = line.starts_with("C ");
        } else if (indent == 1) {
            const bool isClass = isIn[0] && line.find("  ") == 3;
            isWanted = isIn[1] = isClass || (isIn[0] && isKnown(line, 1));
        } else {
            isWanted = isIn[0] && isIn[1] && (isKnown(line, 2) || line.find("  ") == 4);
        }
        if (isWanted) kept += line + '\n';
    }
    return kept;
}

// --- Configuration and logs ----------------------------------------------------------------------

constexpr std::size_t logEnd = 256U << 10U;

/// Files that are read where they stand.
constexpr std::array plainFiles = {
    "/etc/config/orn/tav/tav.conf",
    "/opt/orn/tav/data/ornTAVStartup.txt",
};
constexpr const char* summaryLog = "/var/log/vmksummary.log";

std::optional<std::string> endOfFile(const std::string& path) {
    const FileDescriptor file = openRegularFile(path.c_str());
    struct stat data {};
    if (!file.isOpen() || ::fstat(file.get(), &data) != 0) return std::nullopt;
    std::string content;
    const auto size = static_cast<std::size_t>(data.st_size);
    const bool isCut = size > logEnd;
    if (isCut) ::lseek(file.get(), -static_cast<off_t>(logEnd), SEEK_END);
    if (!readUpTo(file.get(), logEnd, content)) return std::nullopt;
    if (isCut) content.erase(0, std::min(content.find('\n'), content.size() - 1) + 1);
    return content;
}

}  // namespace

void takeKernelFiles(Recorder& recorder) {
    Walk walk(recorder);
    for (const Wanted& wanted : wantedFiles) {
        walk.take(wanted.directory, "", 0);
        for (const std::string& name : split(wanted.names, ' '))
            walk.take(wanted.directory, name, attributeLimit);
    }
    for (const std::string& interface : convergedInterfaces())
        walk.take("/sys/class/net/" + interface + "/device", "vpd", vpdLimit);
}

void takePciNames(Recorder& recorder) {
    const std::set<std::string> numbers = numbersOfFunctions(recorder.taken());
    for (const char* const path : pciIdFiles) {
        const auto database = readRegularFile(path, pciIdLimit);
        if (!database) continue;
        recorder.addFact("pci.ids", pciNamesOf(*database, numbers));
        return;
    }
}

void takeConfigurationAndLogs(Recorder& recorder) {
    for (const char* const path : plainFiles) {
        if (auto content = readRegularFile(path, logEnd))
            recorder.addEntry(path, {Kind::File, *std::move(content)});
    }
    if (auto content = endOfFile(summaryLog))
        recorder.addEntry(summaryLog, {Kind::File, *std::move(content)});
    const tavConfig& config = *tavConfig::getInstance();
    for (const std::string& path :
         {config.getTAVLogFileLocation(), config.getTAVDebugLogFileLocation(),
          std::string("/opt/orn/tav/log/tavd-crash.txt"), std::string(healthFile)}) {
        if (!path.starts_with('/')) continue;  // "syslog", or a file beside who knows what
        if (auto content = endOfFile(path)) {
            const auto place = std::filesystem::path(path).lexically_normal();
            recorder.addLog(place.string(), *std::move(content));
        }
    }
}

std::vector<ScsiNode> scsiNodes() {
    const std::string devices = "/sys/class/scsi_device/";
    std::vector<ScsiNode> nodes;
    for (const std::string& link : namesIn(devices)) {
        const std::string device = devices + link + "/device/";
        std::array<char, attributeLimit> room;
        const auto vendor = readAttribute((device + "vendor").c_str(), room);
        const bool isAta = vendor && trimBoth(*vendor) == "ATA";
        for (const std::string& name : namesIn(device + "scsi_generic"))
            nodes.push_back({name, isAta});
    }
    return nodes;
}

}  // namespace tav::capture
