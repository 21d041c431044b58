/// Any text as the firmware's table of addresses, beside a slow reading of it line by line.
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "hwlib/smbios/SmbiosTable.h"

namespace {

/// The address in a line, by hand: white space, a sign, then digits of the base that they begin
/// with.
tav::Answer<std::uint64_t> addressIn(const std::string& line) {
    if (line.size() > 62 || line.rfind("SMBIOS=", 0) != 0) return tav::Lack::Absent;
    std::istringstream text(line.substr(7, line.find('\0') - 7));
    text.unsetf(std::ios::basefield);
    unsigned long long address = 0;
    if (text >> address) return std::uint64_t{address};
    return tav::Lack::Malformed;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string systab(reinterpret_cast<const char*>(data), size);
    std::istringstream lines(systab);
    tav::Answer<std::uint64_t> expected = tav::Lack::Absent;
    for (std::string line; !expected && std::getline(lines, line);)
        expected = addressIn(line);
    const auto found = tav::smbiosAddressInSystab(systab);
    if (expected && found != *expected) std::abort();
    return 0;
}
