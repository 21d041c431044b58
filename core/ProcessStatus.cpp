#include "core/ProcessStatus.h"

#include <array>
#include <charconv>
#include <string>

#include <unistd.h>

#include "base/FileDescriptor.h"
#include "base/Files.h"

namespace tav {
namespace {

/// Fields of the line, counted from the state behind the command's name.
enum Field : std::size_t {
    UserTicks = 11,
    SystemTicks = 12,
    Threads = 17,
    StartTicks = 19,
    VirtualBytes = 20,
    ResidentPages = 21,
    FieldCount
};

constexpr std::size_t longestLine = 4096;

std::uint64_t numberIn(std::string_view text) {
    std::uint64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

}  // namespace

std::optional<ProcessStatus> parseProcessStatus(std::string_view line) {
    // The command's name stands in parentheses and may hold any character.
    const std::size_t name = line.rfind(") ");
    if (name == std::string_view::npos) return std::nullopt;
    line.remove_prefix(name + 2);
    std::array<std::uint64_t, FieldCount> fields{};
    for (std::uint64_t& field : fields) {
        if (line.empty()) return std::nullopt;
        const std::size_t blank = line.find(' ');
        field = numberIn(line.substr(0, blank));
        line.remove_prefix(blank == std::string_view::npos ? line.size() : blank + 1);
    }
    ProcessStatus status;
    status.cpuSeconds = static_cast<double>(fields[UserTicks] + fields[SystemTicks]) /
                        static_cast<double>(::sysconf(_SC_CLK_TCK));
    status.residentBytes =
        fields[ResidentPages] * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    status.virtualBytes = fields[VirtualBytes];
    status.threads = fields[Threads];
    status.startTicks = fields[StartTicks];
    return status;
}

std::optional<ProcessStatus> processStatus(pid_t process) {
    const std::string path = "/proc/" + std::to_string(process) + "/stat";
    const FileDescriptor file = openRegularFile(path.c_str());
    std::string line;
    if (!file.isOpen() || !readUpTo(file.get(), longestLine, line)) return std::nullopt;
    return parseProcessStatus(line);
}

}  // namespace tav
