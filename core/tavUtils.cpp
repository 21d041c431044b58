#include "core/tavUtils.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <optional>
#include <span>
#include <utility>

#include <dirent.h>
#include <ifaddrs.h>

#include <arpa/inet.h>
#include <sys/stat.h>
#include <sys/utsname.h>

#include "base/FileReading.h"
#include "base/Files.h"
#include "base/LineReader.h"
#include "base/ScratchFile.h"
#include "base/Trim.h"
#include "core/Command.h"
#include "core/Log.h"
#include "core/TimelyQuestion.h"

using tav::here;

namespace {

constexpr tav::ModuleLog logger{"TAV_UTILS"};

constexpr const char* topologyFile = "/opt/orn/tav/data/tav_topology.txt";
constexpr const char* bootTimeFile = "/tmp/tavboot.log";
constexpr const char* noGeoID = "NotAvailable";
constexpr const char* loopbackAddress = "127.0.0.1";
constexpr int osTypeCode = 104;
constexpr std::size_t scratchLimit = 16U << 20U;
constexpr std::size_t longestLine = 1U << 20U;

bool isSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

std::tm localNow() {
    const std::time_t seconds = std::time(nullptr);
    std::tm now{};
    ::localtime_r(&seconds, &now);
    return now;
}

std::optional<utsname> readUname() {
    utsname names{};
    if (::uname(&names) == 0) return names;
    logger.error(here(), "uname failed with error = %d", errno);
    return std::nullopt;
}

using Addresses = std::optional<std::vector<std::string>>;

/// The host's IPv4 addresses without loopback; nothing when they cannot be asked for.
Addresses askForAddresses() {
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) {
        logger.warning(here(), "The host's addresses cannot be asked for (errno: %d)", errno);
        return std::nullopt;
    }
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(list, &::freeifaddrs);
    std::vector<std::string> addresses;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) continue;
        std::array<char, INET_ADDRSTRLEN> text{};
        const void* const socketAddress = entry->ifa_addr;
        const auto& address = static_cast<const sockaddr_in*>(socketAddress)->sin_addr;
        if (::inet_ntop(AF_INET, &address, text.data(), text.size()) == nullptr) continue;
        const std::string_view name = entry->ifa_name;
        logger.debug(here(), "%s IP Address %s\n", entry->ifa_name, text.data());
        if (name != "lo" && std::string_view(text.data()) != loopbackAddress) {
            addresses.emplace_back(text.data());
        }
    }
    return addresses;
}

/// The same, in time: the kernel tells of no interface while a network driver holds its lock.
Addresses askForAddressesInTime() {
    static auto& question =  // outlives every thread
        *new tav::TimelyQuestion<Addresses>("tav-addresses",
                                            "The question for the host's addresses");
    return question.ask(askForAddresses).value_or(std::nullopt);
}

/// Reads a line of the version command into `cache`, unless that has been done before.
std::string readVersionOnce(std::mutex& lock, std::string& cache, const char* command,
                            const char* failure) {
    {
        const std::lock_guard<std::mutex> held(lock);
        if (!cache.empty()) return cache;
    }
    const tav::CommandResult result = tav::runShell(command);
    const std::string value = result.finished ? tav::parseVersionLine(result.output) : "";
    if (value.empty()) logger.error(here(), "%s", failure);
    const std::lock_guard<std::mutex> held(lock);
    if (cache.empty()) cache = value;
    return cache;
}

/// Lines that `command` appends to the boot-time scratch file; none with a warning on failure.
std::optional<std::vector<std::string>> readBootStamps(const char* command, const char* failure,
                                                       const char* openFailure) {
    const tav::ScratchFile scratch(bootTimeFile);
    if (!scratch.isOpen()) {
        logger.warning(here(), "%s", openFailure);
        return std::nullopt;
    }
    if (!tav::runShell(command).succeeded()) {
        logger.warning(here(), "%s", failure);
        return std::nullopt;
    }
    return tav::splitLines(scratch.read(scratchLimit));
}

/// A decimal number of exactly `width` digits at `position`.
std::optional<int> digitsAt(const std::string& text, std::size_t position, std::size_t width) {
    int number = 0;
    for (std::size_t i = position; i < position + width; ++i) {
        if (text[i] < '0' || text[i] > '9') return std::nullopt;
        number = number * 10 + (text[i] - '0');
    }
    return number;
}

std::optional<std::tm> parseStamp(const std::string& stamp) {
    struct Field {
        int std::tm::*member;
        std::size_t position;
        std::size_t width;
        int offset;
    };
    constexpr std::array fields = {
        Field{&std::tm::tm_year, 0, 4, -1900}, Field{&std::tm::tm_mon, 5, 2, -1},
        Field{&std::tm::tm_mday, 8, 2, 0},     Field{&std::tm::tm_hour, 11, 2, 0},
        Field{&std::tm::tm_min, 14, 2, 0},     Field{&std::tm::tm_sec, 17, 2, 0}};
    constexpr std::size_t shortest = 20;
    if (stamp.size() < shortest) return std::nullopt;
    std::tm moment{};
    for (const Field& field : fields) {
        const auto number = digitsAt(stamp, field.position, field.width);
        if (!number) return std::nullopt;
        moment.*field.member = *number + field.offset;
    }
    return moment;
}

/// Names that may stand between single quotes in a shell command.
bool isAdapterName(const std::string& name) {
    return !name.empty() && std::all_of(name.begin(), name.end(), [](unsigned char c) {
        return std::isalnum(c) != 0 || c == '_' || c == '-' || c == '.' || c == ':';
    });
}

struct DirectoryEntries {
    dirent** list = nullptr;
    int count = 0;

    explicit DirectoryEntries(const std::string& path)
        : count(::scandir(path.c_str(), &list, nullptr, ::alphasort)) {}
    DirectoryEntries(const DirectoryEntries&) = delete;
    DirectoryEntries& operator=(const DirectoryEntries&) = delete;
    ~DirectoryEntries() {
        for (int i = 0; i < count; ++i) {
            std::free(list[i]);
        }
        std::free(list);
    }
};

int listDirectory(const std::string& directory, std::string_view prefix,
                  std::vector<std::string>& names) {
    const std::string path = directory.starts_with('/') ? directory : "/" + directory;
    struct stat status {};
    if (::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode)) return 0;
    const DirectoryEntries entries(path);
    for (int i = 0; i < entries.count; ++i) {
        const std::string_view name(static_cast<const char*>(entries.list[i]->d_name));
        if (name != "." && name != ".." && name.starts_with(prefix)) names.emplace_back(name);
    }
    return entries.count;
}

}  // namespace

std::mutex tavUtils::mutex_lock;
std::string tavUtils::OSVersion;
std::string tavUtils::OSName;
std::string tavUtils::primaryIPv4Address;
std::string tavUtils::auxIPv4Address;
std::vector<std::string> tavUtils::knownIPv4Addresses;
std::shared_ptr<const tavUtils::GeoIDMap> tavUtils::geoIDMap;

std::string tavUtils::readHostName() {
    const auto names = readUname();
    return names ? std::string(static_cast<const char*>(names->nodename)) : " ";
}

std::string tavUtils::readHostOSName() {
    return readVersionOnce(mutex_lock, OSName, "localcli system version get | grep -i Product",
                           "Error occurred in identifying OS Name.");
}

std::string tavUtils::readHostOSVersion() {
    return readVersionOnce(mutex_lock, OSVersion, "localcli system version get | grep -i Version:",
                           "Error occurred in identifying OS version.");
}

std::string tavUtils::readHostOSDescription() {
    const auto names = readUname();
    if (!names) return " ";
    std::string description = static_cast<const char*>(names->sysname);
    for (const char* name :
         {static_cast<const char*>(names->nodename), static_cast<const char*>(names->release),
          static_cast<const char*>(names->version), static_cast<const char*>(names->machine)}) {
        description.append(" ").append(name);
    }
    return description;
}

bool tavUtils::getOSType(int* type) {
    *type = osTypeCode;
    return true;
}

std::vector<std::string> tavUtils::getIPAddresses() {
    const auto answer = askForAddressesInTime();
    const std::lock_guard<std::mutex> held(mutex_lock);
    if (answer) knownIPv4Addresses = *answer;
    const std::vector<std::string>& known = knownIPv4Addresses;
    if (std::find(known.begin(), known.end(), auxIPv4Address) == known.end()) {
        auxIPv4Address = known.empty() ? loopbackAddress : known.front();
    }
    return known;
}

std::vector<std::string> tavUtils::updateAndFetchIPAddresses() {
    std::vector<std::string> addresses = getIPAddresses();
    setPrimaryIPAddress(addresses);
    return addresses;
}

bool tavUtils::setPrimaryIPAddress(const std::vector<std::string>& addresses) {
    const std::lock_guard<std::mutex> held(mutex_lock);
    primaryIPv4Address = addresses.empty() ? loopbackAddress : addresses.front();
    return true;
}

std::string tavUtils::getPrimaryIPAddress() {
    std::unique_lock<std::mutex> held(mutex_lock);
    if (primaryIPv4Address.empty() && auxIPv4Address.empty()) {
        held.unlock();
        logger.debug(here(), "Get aux IPv4 address populated");
        getIPAddresses();
        held.lock();
    }
    std::string address = primaryIPv4Address.empty() ? auxIPv4Address : primaryIPv4Address;
    logger.debug(here(), "primaryIPv4Address= %s auxIPv4Address=%s tempIP=%s",
                 primaryIPv4Address.c_str(), auxIPv4Address.c_str(), address.c_str());
    return address;
}

bool tavUtils::is_ipv4_address(const std::string& text) {
    in_addr address{};
    return ::inet_pton(AF_INET, text.c_str(), &address) == 1 && address.s_addr != INADDR_ANY;
}

std::string tavUtils::getTime() {
    const std::tm now = localNow();
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%F %T", &now);
    return text.data();
}

std::string tavUtils::getDateTime() {
    constexpr std::array months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::tm now = localNow();
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%s %d %02d:%02d:%02d",
                  months.at(static_cast<std::size_t>(now.tm_mon)), now.tm_mday, now.tm_hour,
                  now.tm_min, now.tm_sec);
    return text.data();
}

long tavUtils::toEpoc(const std::string& stamp) {
    std::optional<std::tm> moment = parseStamp(stamp);
    if (!moment) {
        logger.debug(here(), "Invalid time stamp format.");
        return 0;
    }
    moment->tm_isdst = localNow().tm_isdst;
    return static_cast<long>(std::mktime(&*moment));
}

int tavUtils::fetchSystemBootTime(long& current, long& previous) {
    constexpr const char* failure = "Error occurred in gathering system boot time information.";
    const auto stamps = readBootStamps(
        "grep \"Host has booted\" /var/log/vmksummary.log | tail -2 | awk '{print $1}' >> "
        "/tmp/tavboot.log",
        failure, failure);
    if (!stamps) return -1;
    previous = stamps->size() < 2 ? 0 : toEpoc(stamps->front());
    if (!stamps->empty()) current = toEpoc(stamps->size() < 2 ? stamps->front() : (*stamps)[1]);
    return 0;
}

int tavUtils::fetchSystemShutdownTime(long& shutdown) {
    const auto stamps = readBootStamps(
        "grep \"Host is rebooting\" /var/log/vmksummary.log | tail -1 | awk '{print $1}' >> "
        "/tmp/tavboot.log",
        "Error occurred in gathering system last shutdown time information.",
        "Error occurred in gathering system last shutdown time  information.");
    if (!stamps) return -1;
    if (!stamps->empty()) shutdown = toEpoc(stamps->back());
    return 0;
}

void tavUtils::initGeoIDMap() {
    const tav::ScratchFile scratch(topologyFile);
    if (!scratch.isOpen() ||
        !tav::runShell("localcli hardware pci list | grep -e 'Address: ' -e 'Slot Description:' >> "
                       "/opt/orn/tav/data/tav_topology.txt")
             .succeeded()) {
        logger.error(here(), "Error occurred in gathering topology information.");
        return;
    }
    const auto locations = tav::parsePciTopology(scratch.read(scratchLimit));
    if (!locations) logger.debug(here(), "Unable to find topology information.");
    if (locations || !hasGeoIDMap()) {
        auto map = std::make_shared<const GeoIDMap>(locations.value_or(GeoIDMap()));
        const std::lock_guard<std::mutex> held(mutex_lock);
        geoIDMap = std::move(map);
    }
    printGeoIDMap();
}

bool tavUtils::hasGeoIDMap() {
    return currentGeoIDMap() != nullptr;
}

bool tavUtils::isGeoIDMapToBeHad() {
    return tav::runShell("command -v localcli").succeeded();
}

std::shared_ptr<const tavUtils::GeoIDMap> tavUtils::currentGeoIDMap() {
    const std::lock_guard<std::mutex> held(mutex_lock);
    return geoIDMap;
}

void tavUtils::printGeoIDMap() {
    logger.debug(here(), "-----Printing GEoID PCIe location map-----");
    const auto map = currentGeoIDMap();
    if (map == nullptr) return;
    for (const auto& [address, location] : *map) {
        logger.debug(here(), "%s       %s", address.c_str(), location.c_str());
    }
}

std::string tavUtils::getGeoIDStr(const std::string& pciAddress) {
    const auto map = currentGeoIDMap();
    if (map == nullptr) return noGeoID;
    const auto entry = map->find(pciAddress);
    return entry == map->end() ? noGeoID : entry->second;
}

std::vector<std::string> tavUtils::getGeoIDInfo(const std::string& pciAddress) {
    const std::string location = getGeoIDStr(pciAddress);
    if (location == noGeoID) return {};
    const std::size_t slot = location.find('s');
    return {getSubStr("r", "i", location), getSubStr("i", "s", location),
            slot == std::string::npos ? std::string() : location.substr(slot + 1)};
}

std::string tavUtils::getSubStr(const std::string& start, const std::string& end,
                                const std::string& text) {
    const std::size_t found = text.find(start);
    const std::size_t begin = found == std::string::npos ? 0 : found + start.size();
    const std::size_t stop = text.find(end);
    if (stop == std::string::npos || stop < begin) return text.substr(begin);
    return text.substr(begin, stop - begin);
}

int tavUtils::getPCIString(const std::string& adapterName, std::string& address) {
    if (!isAdapterName(adapterName)) {
        logger.error(here(), "Not the name of an adapter: %s", adapterName.c_str());
        return -1;
    }
    const tav::CommandResult result =
        tav::runShell("localcli storage core adapter list | grep -i '" + adapterName + "'");
    if (!result.finished) {
        logger.error(here(), "Error occurred in identifying PCI string.");
        return -1;
    }
    const std::size_t open = result.output.find('(');
    const std::size_t close = result.output.find(')');
    if (open != std::string::npos && close != std::string::npos && open < close) {
        address = result.output.substr(open + 1, close - open - 1);
    }
    return 1;
}

int tavUtils::dirList(const std::string& directory, std::vector<std::string>& names) {
    return listDirectory(directory, "", names);
}

int tavUtils::dirPciList(const std::string& directory, std::vector<std::string>& names) {
    return listDirectory(directory, "00", names);
}

std::string tavUtils::getLineFromFile(const char* path, const std::string& key) {
    const tav::FileDescriptor file = tav::openRegularFile(path);
    if (!file.isOpen()) return {};
    std::uint64_t seen = 0;
    const auto read = [&](std::span<char> room, std::uint64_t /*position*/) {
        const std::size_t count = tav::readOnce(file.get(), room).valueOr(0);
        seen += count;
        return count;
    };
    tav::LineReader lines(read, 0, longestLine);
    while (const std::optional<tav::Line> line = lines.next()) {
        const std::uint64_t end = line->position + line->text.size();
        if (line->text.find(key) != std::string_view::npos) {
            return std::string(line->text) + (line->whole && end < seen ? "\n" : "");
        }
        if (!line->whole) {
            logger.warning(here(), "A line of %s is too long: only its first %zu bytes are known.",
                           path, longestLine);
        }
    }
    return {};
}

/// A text of one character is left alone at its end.
void tavUtils::trimExtraSpaces(std::string in, std::string& out) {
    const std::string whole = std::move(in);
    const std::string_view text = whole;
    const std::string_view trimmed = tav::trimEnd(text);
    out = tav::trimStart(trimmed.empty() ? text.substr(0, 1) : trimmed, " ");
}

namespace tav {

std::optional<std::map<std::string, std::string>> parsePciTopology(std::string_view listing) {
    constexpr std::string_view addressMark = "Address: ";
    constexpr std::string_view slotMark = "Slot Description:";
    std::map<std::string, std::string> locations;
    std::string address;
    const std::vector<std::string> lines = splitLines(listing);
    if (!lines.empty() && lines.front().find(addressMark) == std::string::npos) {
        return std::nullopt;
    }
    for (const std::string& line : lines) {
        if (line.find(addressMark) != std::string::npos) {
            address = line.substr(std::min(line.find(':') + 2, line.size()));
            continue;
        }
        const std::size_t slot = line.find(" r");
        if (address.empty() || slot == std::string::npos ||
            line.find(slotMark) == std::string::npos) {
            continue;
        }
        locations[address] = line.substr(slot + 1);
        address.clear();
    }
    return locations;
}

std::string parseVersionLine(std::string_view output) {
    const std::size_t colon = output.find(':');
    if (colon == std::string_view::npos) return {};
    std::string value(output.substr(colon + 1));
    value.erase(std::remove_if(value.begin(), value.end(), isSpace), value.end());
    const bool printable = std::none_of(value.begin(), value.end(),
                                        [](unsigned char c) { return std::iscntrl(c) != 0; });
    return printable ? value : std::string();
}

std::vector<std::string> splitLines(std::string_view text) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        if (end > 0) lines.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

}  // namespace tav
