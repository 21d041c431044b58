/// Preloaded into a program, tells it the names of the captured system that it runs on. Without one
/// the kernel is asked.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include <unistd.h>

#include <sys/syscall.h>
#include <sys/utsname.h>

namespace {

constexpr const char* recordedNames = "/run/sim/recorded/uname";

/// The value in the lines "name=value"; false when it is not there.
template <std::size_t Size>
void take(const std::string& lines, const std::string& name, char (&field)[Size]) {
    const std::size_t at = ('\n' + lines).find('\n' + name + '=');
    if (at == std::string::npos) return;
    const std::size_t begin = at + name.size() + 1;
    const std::string value = lines.substr(begin, lines.find('\n', begin) - begin);
    std::fill(std::begin(field), std::end(field), '\0');
    value.copy(field, Size - 1);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int tavSimUname(utsname* names) __asm__("uname");

int tavSimUname(utsname* names) {
    if (::syscall(SYS_uname, names) != 0) return -1;
    std::ifstream file(recordedNames);
    const std::string lines(std::istreambuf_iterator<char>(file), {});
    take(lines, "sysname", names->sysname);
    take(lines, "nodename", names->nodename);
    take(lines, "release", names->release);
    take(lines, "version", names->version);
    take(lines, "machine", names->machine);
    return 0;
}
